#include "template/Lexer.h"

#include <cstring>

#include "template/Unicode.h"

namespace drovel::templating {

namespace {

constexpr std::string_view rawKeyword = "raw";
constexpr std::string_view rawTerminator = "{% endraw %}";

// The first position where "{{" or "{%" starts on character boundaries; at each position "{{"
// is tried first.
std::size_t findOpeningDelimiter(std::string_view text) {
    for (std::size_t from = 0; from + 1 < text.size();) {
        const void* brace = std::memchr(text.data() + from, '{', text.size() - from - 1);
        if (!brace) break;
        std::size_t position = static_cast<const char*>(brace) - text.data();
        if ((text[position + 1] == '{' || text[position + 1] == '%') && unicode::boundariesAround(text, position, position + 2))
            return position;
        from = position + 1;
    }
    return std::string_view::npos;
}

// Cuts two characters from each end (nothing is left of a text shorter than four) and trims spaces.
std::string_view statementInside(std::string_view delimited) {
    if (delimited.size() < 4) return {};
    return unicode::trimSpaces(delimited.substr(2, delimited.size() - 4));
}

}  // namespace

std::string_view Scanner::scanUntil(std::string_view delimiter, bool includingDelimiter) {
    std::size_t position = unicode::find(content, delimiter);
    if (position == unicode::npos) {
        content = {};
        return {};
    }
    std::size_t end = includingDelimiter ? position + delimiter.size() : position;
    std::string_view result = content.substr(0, end);
    content.remove_prefix(end);
    return result;
}

std::vector<Token> Lexer::tokenize() const {
    std::vector<Token> tokens;
    if (templateString.empty()) return tokens;
    // About one token per sixteen bytes, as notification texts go: mostly one allocation.
    tokens.reserve(templateString.size() / 16 + 4);
    Scanner scanner(templateString);
    while (!scanner.content.empty()) {
        std::string_view content = scanner.content;
        std::size_t opening = findOpeningDelimiter(content);
        if (opening == std::string_view::npos) {
            // Without an opening delimiter nothing here can begin with one either.
            tokens.push_back(Token::text(content));
            break;
        }
        if (opening > 0) tokens.push_back(Token::text(content.substr(0, opening)));
        scanner.content = content.substr(opening);
        bool isOutput = content[opening + 1] == '{';
        std::string_view statement = scanner.scanUntil(isOutput ? "}}" : "%}", true);
        if (statement.empty()) {
            tokens.push_back(Token::text({}));
            break;
        }
        std::string_view inside = statementInside(statement);
        if (isOutput) {
            tokens.push_back(Token::variable(inside));
        } else if (inside == rawKeyword) {
            std::size_t terminator = unicode::find(scanner.content, rawTerminator);
            if (terminator == unicode::npos) {
                tokens.push_back(Token::text({}));
                break;
            }
            tokens.push_back(Token::text(scanner.content.substr(0, terminator)));
            scanner.content.remove_prefix(terminator);
        } else {
            tokens.push_back(Token::tag(inside));
        }
    }
    return tokens;
}

}  // namespace drovel::templating
