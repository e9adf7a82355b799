#include "template/Lexer.h"

#include <cstring>

#include "template/Unicode.h"

namespace drovel::templating {

namespace {

constexpr std::string_view rawKeyword = "raw";
constexpr std::string_view rawTerminator = "{% endraw %}";
constexpr std::size_t npos = std::string_view::npos;

// The position of the closing delimiter of the statement opened at `opening`: the first "}}"
// after the opening "{{", or the first "%}" after "{" of "{%" (so "{%}" is an empty tag), on
// character boundaries; npos when there is none. Both end in "}", the byte searched for.
std::size_t findClosingDelimiter(std::string_view text, std::size_t opening, bool isOutput) {
    const char* data = text.data();
    std::size_t size = text.size();
    for (std::size_t from = opening + 2; from < size;) {
        const void* hit = std::memchr(data + from, '}', size - from);
        if (!hit) break;
        std::size_t brace = static_cast<std::size_t>(static_cast<const char*>(hit) - data);
        std::size_t start = isOutput ? brace : brace - 1;
        if (start + 1 < size && data[start] == (isOutput ? '}' : '%') && data[start + 1] == '}' &&
            unicode::boundariesAround(text, start, start + 2))
            return start;
        from = brace + 1;
    }
    return npos;
}

// The first position at or after `from` where "{{" or "{%" starts on character boundaries; at
// each position "{{" is tried first.
std::size_t findOpeningDelimiter(std::string_view text, std::size_t from) {
    const char* data = text.data();
    while (from + 1 < text.size()) {
        const void* brace = std::memchr(data + from, '{', text.size() - from - 1);
        if (!brace) break;
        std::size_t position = static_cast<std::size_t>(static_cast<const char*>(brace) - data);
        if ((data[position + 1] == '{' || data[position + 1] == '%') && unicode::boundariesAround(text, position, position + 2))
            return position;
        from = position + 1;
    }
    return npos;
}

// Cuts two characters from each end (nothing is left of a text shorter than four) and trims spaces.
std::string_view statementInside(std::string_view delimited) {
    if (delimited.size() < 4) return {};
    const char* start = delimited.data() + 2;
    const char* end = delimited.data() + delimited.size() - 2;
    while (start != end && *start == ' ') ++start;
    if (start == end) return {};
    // The byte at `start` is no space: the end stops there at the latest.
    while (end[-1] == ' ') --end;
    return std::string_view(start, static_cast<std::size_t>(end - start));
}

}  // namespace

Lexer::Tokens Lexer::tokenize() const {
    Tokens tokens;
    std::string_view text = templateString;
    if (text.empty()) return tokens;
    // About one token per sixteen bytes, as notification texts go: mostly one allocation.
    tokens.reserve(text.size() / 16 + 4);
    // The scan resumes after a closing delimiter (ASCII) or at a raw terminator matched on
    // boundaries, so matching in the whole text sees the same neighbours as in what is left of it.
    for (std::size_t position = 0; position < text.size();) {
        std::size_t opening = findOpeningDelimiter(text, position);
        if (opening == npos) {
            tokens.push_back(Token::text(text.substr(position)));
            break;
        }
        if (opening > position) tokens.push_back(Token::text(std::string_view(text.data() + position, opening - position)));
        bool isOutput = text[opening + 1] == '{';
        std::size_t closing = findClosingDelimiter(text, opening, isOutput);
        if (closing == npos) {
            tokens.push_back(Token::text({}));
            break;
        }
        position = closing + 2;
        std::string_view inside = statementInside(std::string_view(text.data() + opening, position - opening));
        if (isOutput) {
            tokens.push_back(Token::variable(inside));
        } else if (inside == rawKeyword) {
            std::size_t terminator = unicode::find(text, rawTerminator, position);
            if (terminator == unicode::npos) {
                tokens.push_back(Token::text({}));
                break;
            }
            tokens.push_back(Token::text(text.substr(position, terminator - position)));
            position = terminator;
        } else {
            tokens.push_back(Token::tag(inside));
        }
    }
    return tokens;
}

}  // namespace drovel::templating
