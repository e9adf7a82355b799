// The string filters.

#include <algorithm>
#include <array>
#include <cstring>

#include "template/Context.h"
#include "template/FilterLibrary.h"
#include "template/FilterText.h"
#include "template/Unicode.h"

namespace drovel::templating::filters {

using Value = Token::Value;

namespace {

// Applies `transform` to the input's text (a view); nil for inputs without one.
template <class Transform>
Value mapText(const Value& input, Transform transform) {
    std::string printed;
    auto text = textView(input, printed);
    if (!text) return Value::nil();
    return Value::string(transform(*text));
}

// The input with `search` replaced by `replacement`, everywhere or at the first match only.
Value replaceText(const Value& input, std::string_view search, std::string_view replacement, bool firstOnly) {
    std::string printed;
    auto original = textView(input, printed);
    if (!original) return Value::nil();
    text::Searchable haystack(*original), needle(search);
    std::size_t match = haystack.find(needle);
    // Nothing to replace: the text as given, not its canonical form.
    if (match == std::string::npos) return Value::string(std::string(*original));
    std::string_view text = haystack.text();
    std::string out;
    out.reserve(text.size());
    std::size_t copied = 0;
    for (; match != std::string::npos; match = haystack.find(needle, copied)) {
        checkValueSize(out.size() + (match - copied) + replacement.size());
        out.append(text, copied, match - copied);
        out += replacement;
        copied = match + needle.text().size();
        if (firstOnly) break;
    }
    out.append(text, copied);
    return Value::string(std::move(out));
}

Value replaceFiltered(const Value& input, Filter::Arguments arguments, bool withReplacement, bool firstOnly) {
    std::string printedSearch, printedReplacement;
    auto search = textArgumentView(arguments, printedSearch);
    if (!search) return Value::nil();
    // Without a replacement the matches are replaced with nothing.
    std::string_view replacement =
        withReplacement ? textArgumentView(arguments, printedReplacement, 1).value_or(std::string_view()) : std::string_view();
    return replaceText(input, *search, replacement, firstOnly);
}

std::string_view trimStart(std::string_view text) {
    std::size_t start = 0, length;
    while (start < text.size() && unicode::isWhitespaceOrNewline(unicode::decode(text, start, length))) start += length;
    return text.substr(start);
}

std::string_view trimEnd(std::string_view text) {
    std::size_t end = text.size(), length;
    while (end > 0 && unicode::isWhitespaceOrNewline(unicode::decodeBefore(text, end, length))) end -= length;
    return text.substr(0, end);
}

// The length of a newline at `position` (CR LF counts as one), or 0.
std::size_t newlineLength(std::string_view text, std::size_t position) {
    unsigned char byte = static_cast<unsigned char>(text[position]);
    if (byte == '\r') return position + 1 < text.size() && text[position + 1] == '\n' ? 2 : 1;
    if (byte == '\n' || byte == '\v' || byte == '\f') return 1;
    if (byte < 0x80) return 0;
    std::size_t length;
    char32_t c = unicode::decode(text, position, length);
    return c == 0x85 || c == 0x2028 || c == 0x2029 ? length : 0;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isWellFormedUTF8(std::string_view text) {
    for (std::size_t position = 0, length; position < text.size(); position += length) {
        // A real U+FFFD takes three bytes; a bad byte reads as U+FFFD of one.
        if (unicode::decode(text, position, length) == 0xFFFD && length == 1) return false;
    }
    return true;
}

// The two texts one after the other, in one allocation.
std::string joined(std::string_view head, std::string_view tail) {
    std::string out;
    out.reserve(head.size() + tail.size());
    out.append(head).append(tail);
    return out;
}

// Bytes that URL encoding keeps as they are; a blank becomes "+", which is one of them.
constexpr auto unreservedInURL = [] {
    std::array<bool, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[c] = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
                   c == '_' || c == '~' || c == '/' || c == '?' || c == '+' || c == ' ';
    return table;
}();

// `wanted` characters from the start of text, as bytes (a count beyond the text takes all of
// it); `singleBytes` when every byte of the text is a character.
std::string_view firstCharacters(std::string_view text, std::size_t wanted, bool singleBytes) {
    if (singleBytes) return text.substr(0, std::min(wanted, text.size()));
    auto boundaries = text::characterBoundaries(text);
    return text.substr(0, boundaries[std::min(wanted, boundaries.size() - 1)]);
}

}  // namespace

Value append(const Value& input, Filter::Arguments arguments) {
    std::string printed;
    auto suffix = textArgumentView(arguments, printed);
    if (!suffix) return Value::nil();
    return mapText(input, [&](std::string_view text) { return joined(text, *suffix); });
}

Value capitalize(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) {
        auto first = text::firstWord(text);
        if (!first) return std::string(text);
        // Only the first word changes; the rest of the text is kept as it is.
        std::string out(text);
        text::capitalizeWord(out, static_cast<std::size_t>(first->data() - text.data()), first->size());
        return out;
    });
}

Value downcase(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) { return text::lowercased(text); });
}

Value lstrip(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) { return std::string(trimStart(text)); });
}

Value newlineToBr(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) {
        std::string out;
        out.reserve(text.size());
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
                out += "<br />";
                ++i;
            } else if (text[i] == '\n') {
                out += "<br />";
            } else {
                out += text[i];
            }
        }
        return out;
    });
}

Value prepend(const Value& input, Filter::Arguments arguments) {
    std::string printed;
    auto prefix = textArgumentView(arguments, printed);
    if (!prefix) return Value::nil();
    return mapText(input, [&](std::string_view text) { return joined(*prefix, text); });
}

Value remove(const Value& input, Filter::Arguments arguments) { return replaceFiltered(input, arguments, false, false); }

Value removeFirst(const Value& input, Filter::Arguments arguments) {
    return replaceFiltered(input, arguments, false, true);
}

Value replace(const Value& input, Filter::Arguments arguments) { return replaceFiltered(input, arguments, true, false); }

Value replaceFirst(const Value& input, Filter::Arguments arguments) {
    return replaceFiltered(input, arguments, true, true);
}

Value rstrip(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) { return std::string(trimEnd(text)); });
}

Value size(const Value& input, Filter::Arguments) {
    if (auto* text = input.asString()) return Value::integer(static_cast<std::int64_t>(text::characterCount(*text)));
    if (auto* elements = input.asArray()) return Value::integer(static_cast<std::int64_t>(elements->size()));
    return Value::nil();
}

// The start and end of a slice of `count` items: a negative offset counts from the end, and the
// slice is cut to the bounds. Absent for a negative length.
static std::optional<std::pair<std::size_t, std::size_t>> sliceBounds(std::int64_t count, Filter::Arguments arguments) {
    // Without a length one item is taken; an offset or length that is no integer counts as 0.
    std::int64_t offset = arguments[0].integerValue().value_or(0);
    std::int64_t length = arguments.size() > 1 ? arguments[1].integerValue().value_or(0) : 1;
    if (length < 0) return std::nullopt;
    std::int64_t start = offset < 0 ? std::max<std::int64_t>(offset + count, 0) : std::min(offset, count);
    std::int64_t end = start + std::min(length, count - start);
    return std::pair{static_cast<std::size_t>(start), static_cast<std::size_t>(end)};
}

Value slice(const Value& input, Filter::Arguments arguments) {
    if (arguments.empty()) return Value::nil();
    if (auto* elements = input.asArray()) {
        auto bounds = sliceBounds(static_cast<std::int64_t>(elements->size()), arguments);
        if (!bounds) return Value::nil();
        return Value::array(Value::Array(elements->begin() + static_cast<std::ptrdiff_t>(bounds->first),
                                         elements->begin() + static_cast<std::ptrdiff_t>(bounds->second)));
    }
    auto text = textOf(input);
    if (!text) return Value::nil();
    auto boundaries = text::characterBoundaries(*text);
    auto bounds = sliceBounds(static_cast<std::int64_t>(boundaries.size() - 1), arguments);
    if (!bounds) return Value::nil();
    auto from = boundaries[bounds->first], to = boundaries[bounds->second];
    return Value::string(text->substr(from, to - from));
}

Value split(const Value& input, Filter::Arguments arguments) {
    std::string printedText, printedSeparator;
    auto text = textView(input, printedText);
    auto separator = textArgumentView(arguments, printedSeparator);
    if (!text || !separator) return Value::nil();
    Value::Array pieces;
    std::size_t size = 0;
    auto add = [&](std::string_view piece) {
        size += piece.size() + valueElementOverhead;
        checkValueSize(size);
        pieces.push_back(Value::string(std::string(piece)));
    };
    if (text->empty()) return Value::array(std::move(pieces));
    if (separator->empty()) {
        auto boundaries = text::characterBoundaries(*text);
        for (std::size_t i = 0; i + 1 < boundaries.size(); ++i)
            add(text->substr(boundaries[i], boundaries[i + 1] - boundaries[i]));
        return Value::array(std::move(pieces));
    }
    // Most splits give a handful of pieces.
    pieces.reserve(4);
    std::size_t start = 0;
    if (separator->size() == 1 && text::isSingleByteText(*text)) {
        // Every byte is a character of its own, so every match of the byte is on boundaries (a
        // separator byte that is no ASCII is never found, as its canonical form would not be).
        const char* data = text->data();
        for (const void* match; (match = std::memchr(data + start, (*separator)[0], text->size() - start));) {
            auto position = static_cast<std::size_t>(static_cast<const char*>(match) - data);
            add(text->substr(start, position - start));
            start = position + 1;
        }
        add(text->substr(start));
        return Value::array(std::move(pieces));
    }
    text::Searchable haystack(*text), needle(*separator);
    std::string_view searched = haystack.text();
    for (std::size_t match; (match = haystack.find(needle, start)) != std::string::npos;
         start = match + needle.text().size())
        add(searched.substr(start, match - start));
    add(searched.substr(start));
    return Value::array(std::move(pieces));
}

Value strip(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) { return std::string(unicode::trimWhitespaceAndNewlines(text)); });
}

Value stripNewlines(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) {
        std::string out;
        out.reserve(text.size());
        for (std::size_t i = 0; i < text.size();) {
            std::size_t newline = newlineLength(text, i);
            if (newline == 0) out += text[i++];
            else i += newline;
        }
        return out;
    });
}

Value truncate(const Value& input, Filter::Arguments arguments) {
    if (arguments.empty() || arguments.size() > 2) return Value::nil();
    auto length = arguments[0].integerValue();
    if (!length) return Value::nil();
    // A string input and ellipsis are read in place; other kinds through their printed forms.
    std::string printed, printedEllipsis;
    const std::string* text = input.asString();
    if (!text) text = &(printed = input.stringValue());
    auto whole = [&] { return text == &printed ? Value::string(std::move(printed)) : input; };
    // A text of no more bytes than the length has no more characters either.
    if (static_cast<std::int64_t>(text->size()) <= *length) return whole();
    bool singleBytes = text::isSingleByteText(*text);
    auto count = static_cast<std::int64_t>(singleBytes ? text->size() : text::characterCount(*text));
    if (count <= *length) return whole();
    std::string_view ellipsis = "...";
    std::int64_t ellipsisCount = 3;
    if (arguments.size() == 2) {
        auto* given = arguments[1].asString();
        ellipsis = given ? std::string_view(*given) : std::string_view(printedEllipsis = arguments[1].stringValue());
        ellipsisCount = static_cast<std::int64_t>(text::characterCount(ellipsis));
    }
    // The ellipsis counts toward the length, unless it alone is longer.
    std::int64_t kept = *length > ellipsisCount ? *length - ellipsisCount : 0;
    std::string_view head = firstCharacters(*text, static_cast<std::size_t>(kept), singleBytes);
    std::string out;
    out.reserve(head.size() + ellipsis.size());
    out.append(head).append(ellipsis);
    return Value::string(std::move(out));
}

Value truncatewords(const Value& input, Filter::Arguments arguments) {
    if (arguments.empty() || arguments.size() > 2) return Value::nil();
    auto count = arguments[0].integerValue();
    auto text = textOf(input);
    if (!count || !text) return Value::nil();
    auto words = text::words(*text);
    auto kept = static_cast<std::size_t>(std::max<std::int64_t>(*count, 1));
    if (words.size() <= kept) return Value::string(std::move(*text));
    std::string out;
    for (std::size_t i = 0; i < kept; ++i) {
        if (i > 0) out += ' ';
        out += words[i];
    }
    out += arguments.size() == 2 ? arguments[1].stringValue() : "...";
    return Value::string(std::move(out));
}

Value upcase(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) { return text::uppercased(text); });
}

Value urlDecode(const Value& input, Filter::Arguments) {
    auto text = textOf(input);
    if (!text) return Value::nil();
    std::string out;
    out.reserve(text->size());
    for (std::size_t i = 0; i < text->size(); ++i) {
        char c = (*text)[i];
        if (c != '%') {
            out += c;
            continue;
        }
        int high = i + 2 < text->size() ? hexDigit((*text)[i + 1]) : -1;
        int low = high >= 0 ? hexDigit((*text)[i + 2]) : -1;
        if (low < 0) return Value::nil();
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    if (!isWellFormedUTF8(out)) return Value::nil();
    // After decoding, so that an encoded plus ("%2B") also becomes a blank.
    std::replace(out.begin(), out.end(), '+', ' ');
    return Value::string(std::move(out));
}

Value urlEncode(const Value& input, Filter::Arguments) {
    return mapText(input, [](std::string_view text) {
        static constexpr char hex[] = "0123456789ABCDEF";
        // Written in place into room for every byte escaped (three bytes each), then cut.
        std::string out(text.size() * 3, '\0');
        char* to = out.data();
        for (unsigned char c : text) {
            if (unreservedInURL[c]) {
                *to++ = c == ' ' ? '+' : static_cast<char>(c);
            } else {
                to[0] = '%';
                to[1] = hex[c >> 4];
                to[2] = hex[c & 15];
                to += 3;
            }
        }
        out.resize(static_cast<std::size_t>(to - out.data()));
        // A long text gives its unused room back rather than holding up to twice its size spare.
        if (text.size() > 4096) out.shrink_to_fit();
        return out;
    });
}

}  // namespace drovel::templating::filters
