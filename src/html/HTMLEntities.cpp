#include "html/HTMLEntities.h"

#include <unicode/ubrk.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "html/HTMLEntityTable.h"

namespace drovel::html {

namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;
constexpr char32_t kLastCodePoint = 0x10FFFF;

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

bool isUnsafe(char32_t c) { return c == '"' || c == '&' || c == '\'' || c == '<' || c == '>'; }

bool isAsciiAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

int digitValue(char c, bool hex) {
    if (c >= '0' && c <= '9') return c - '0';
    if (!hex) return -1;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

void appendUTF8(std::string& out, char32_t c) {
    char bytes[4];
    std::size_t length = 0;
    U8_APPEND_UNSAFE(bytes, length, c);
    out.append(bytes, length);
}

const NamedReference* findNamedReference(std::string_view nameWithSemicolon) {
    auto table = namedReferences();
    auto it = std::lower_bound(table.begin(), table.end(), nameWithSemicolon,
                               [](const NamedReference& entry, std::string_view name) { return entry.name < name; });
    return it != table.end() && it->name == nameWithSemicolon ? &*it : nullptr;
}

std::string_view findPreferredName(char32_t first, char32_t second) {
    auto table = preferredNames();
    auto key = std::pair(first, second);
    auto it = std::lower_bound(table.begin(), table.end(), key, [](const PreferredName& entry, const auto& k) {
        return std::pair(entry.first, entry.second) < k;
    });
    return it != table.end() && it->first == first && it->second == second ? it->name : std::string_view();
}

// ---- Escaping ----

struct EscapeSettings {
    bool allowUnsafeSymbols;
    bool decimal;
    bool encodeEverything;
    bool useNamedReferences;
};

// Whether a byte stays as it is when it is a character of its own.
struct PassTable {
    std::array<bool, 256> passes{};
    explicit PassTable(bool allowUnsafeSymbols) {
        for (int c = 0; c < 0x80; ++c) passes[c] = allowUnsafeSymbols || !isUnsafe(static_cast<char32_t>(c));
    }
};

void appendNumericReference(std::string& out, char32_t c, bool decimal) {
    char digits[8];
    char* end = digits + sizeof digits;
    char* p = end;
    const unsigned base = decimal ? 10 : 16;
    do {
        *--p = "0123456789ABCDEF"[c % base];
        c /= base;
    } while (c != 0);
    out += decimal ? "&#" : "&#x";
    out.append(p, end);
    out += ';';
}

void appendEachCodePoint(std::string& out, std::string_view text, const EscapeSettings& settings) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    for (std::size_t i = 0; i < text.size();) {
        UChar32 c;
        U8_NEXT_OR_FFFD(bytes, i, text.size(), c);
        if (!settings.encodeEverything && c < 0x80 && !isUnsafe(static_cast<char32_t>(c)))
            out += static_cast<char>(c);
        else
            appendNumericReference(out, static_cast<char32_t>(c), settings.decimal);
    }
}

void appendEscapedCharacter(std::string& out, std::string_view character, const EscapeSettings& settings) {
    if (!settings.encodeEverything && character.size() == 1 && isAscii(character[0]) &&
        (settings.allowUnsafeSymbols || !isUnsafe(static_cast<char32_t>(character[0])))) {
        out += character[0];
        return;
    }
    if (settings.useNamedReferences) {
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(character.data());
        // Names stand for one or two code points; a longer character has none.
        std::array<char32_t, 2> points{};
        std::size_t i = 0, count = 0;
        while (i < character.size() && count < 3) {
            UChar32 c;
            U8_NEXT_OR_FFFD(bytes, i, character.size(), c);
            if (count < 2) points[count] = static_cast<char32_t>(c);
            ++count;
        }
        if (count <= 2) {
            if (auto name = findPreferredName(points[0], points[1]); !name.empty()) {
                out += '&';
                out += name;
                return;
            }
        }
    }
    appendEachCodePoint(out, character, settings);
}

// Extended grapheme clusters of UTF-8 text through ICU; one iterator per thread, opened on first
// use, because opening one costs far more than a short text takes to escape.
class GraphemeClusters {
public:
    // Calls `visit` with each user-perceived character of `text` in order.
    template <class Visit>
    void forEach(std::string_view text, Visit visit) {
        UErrorCode status = U_ZERO_ERROR;
        if (!iterator_) iterator_.reset(ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status));
        UText* opened = utext_openUTF8(utf8_.get(), text.data(), static_cast<int64_t>(text.size()), &status);
        if (U_SUCCESS(status) && !utf8_) utf8_.reset(opened);
        if (U_SUCCESS(status)) ubrk_setUText(iterator_.get(), utf8_.get(), &status);
        if (U_FAILURE(status)) {
            // Without ICU data each code point counts as a character of its own.
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
            for (std::size_t i = 0, start = 0; i < text.size(); start = i) {
                U8_FWD_1(bytes, i, text.size());
                visit(text.substr(start, i - start));
            }
            return;
        }
        int32_t start = ubrk_first(iterator_.get());
        for (int32_t end; (end = ubrk_next(iterator_.get())) != UBRK_DONE; start = end)
            visit(text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start)));
    }

private:
    struct CloseIterator {
        void operator()(UBreakIterator* iterator) const { ubrk_close(iterator); }
    };
    struct CloseText {
        void operator()(UText* text) const { utext_close(text); }
    };
    std::unique_ptr<UBreakIterator, CloseIterator> iterator_;
    std::unique_ptr<UText, CloseText> utf8_;
};

// ---- Unescaping ----

// What one "&" at the walk's position turns into.
struct Reference {
    std::size_t end;  // where the walk goes on
    bool decoded;     // false: the text up to `end` stays as it stands
    char32_t first;   // the decoded text (second 0: one code point)
    char32_t second;
    std::optional<ParseError::Kind> problem;  // what strict unescaping reports instead
};

Reference keptAsText(std::size_t end, std::optional<ParseError::Kind> problem = std::nullopt) {
    return {end, false, 0, 0, problem};
}

enum class Radix { named, decimal, hex };

[[noreturn]] void fatal(const char* message) {
    std::fprintf(stderr, "Fatal error: %s\n", message);
    std::fflush(stderr);
    std::abort();
}

Radix radixOf(std::string_view entityPrefix) {
    if (entityPrefix == "&") return Radix::named;
    if (entityPrefix == "&#") return Radix::decimal;
    if (entityPrefix == "&#x" || entityPrefix == "&#X") return Radix::hex;
    fatal("Invaild entityPrefix: must be one of [\"&\", \"&#\", \"&#x\", \"&#X\"]");
}

// HTML rejects these outright (a browser shows U+FFFD instead).
bool isDisallowed(char32_t c) { return c == 0 || (c >= 0xD800 && c <= 0xDFFF); }

// HTML flags these as errors but keeps them: controls other than ASCII whitespace, and
// noncharacters.
bool isDeprecated(char32_t c) {
    bool control = (c < 0x20 && c != '\t' && c != '\n' && c != '\f') || (c >= 0x7F && c <= 0x9F);
    bool noncharacter = (c >= 0xFDD0 && c <= 0xFDEF) || (c & 0xFFFE) == 0xFFFE;
    return control || noncharacter;
}

Reference decodeNumeric(std::string_view text, std::size_t digitsStart, bool hex) {
    std::size_t i = digitsStart;
    char32_t value = 0;
    for (int digit; i < text.size() && (digit = digitValue(text[i], hex)) >= 0; ++i)
        value = std::min<char32_t>(value * (hex ? 16 : 10) + static_cast<char32_t>(digit), kLastCodePoint + 1);
    if (i == digitsStart) return keptAsText(digitsStart, ParseError::Kind::MalformedNumericReference);
    bool semicolon = i < text.size() && text[i] == ';';
    Reference reference{i + semicolon, true, value, 0, std::nullopt};
    if (value > kLastCodePoint) {
        reference.first = kReplacementCharacter;
        reference.problem = ParseError::Kind::OutsideValidUnicodeRange;
    } else if (isDisallowed(value)) {
        // NUL is kept (so that escaping round-trips), surrogates cannot be.
        if (value != 0) reference.first = kReplacementCharacter;
        reference.problem = ParseError::Kind::DisallowedNumericReference;
    } else if (isDeprecated(value)) {
        reference.problem = ParseError::Kind::DeprecatedNumericReference;
    } else if (!semicolon) {
        reference.problem = ParseError::Kind::MissingSemicolon;
    }
    return reference;
}

Reference decodeNamed(std::string_view text, std::size_t nameStart) {
    std::size_t i = nameStart;
    while (i < text.size() && isAsciiAlphanumeric(text[i])) ++i;
    if (i == nameStart) return keptAsText(nameStart);  // a lone "&" is text
    std::string_view name = text.substr(nameStart, i - nameStart);
    if (i < text.size() && text[i] == ';') {
        const NamedReference* entry = findNamedReference(text.substr(nameStart, name.size() + 1));
        if (!entry) return keptAsText(i + 1, ParseError::Kind::InvalidNamedReference);
        return {i + 1, true, entry->first, entry->second, std::nullopt};
    }
    // The table holds names with their ";".
    char key[40];
    if (name.size() >= sizeof key) return keptAsText(i);
    std::copy(name.begin(), name.end(), key);
    key[name.size()] = ';';
    const NamedReference* entry = findNamedReference(std::string_view(key, name.size() + 1));
    if (!entry) return keptAsText(i);  // "AT&T": not a reference at all
    // HTML decodes only its legacy names without ";", and not before "=", where they are most
    // likely a URL's query parameters ("?a=1&copy=2").
    if (entry->legacy && !(i < text.size() && text[i] == '='))
        return {i, true, entry->first, entry->second, ParseError::Kind::MissingSemicolon};
    return keptAsText(i, ParseError::Kind::MissingSemicolon);
}

// Decodes the reference that starts with the "&" at `at`.
Reference decodeReference(std::string_view text, std::size_t at) {
    std::size_t prefixEnd = at + 1;
    if (prefixEnd < text.size() && text[prefixEnd] == '#') {
        ++prefixEnd;
        if (prefixEnd < text.size() && (text[prefixEnd] == 'x' || text[prefixEnd] == 'X')) ++prefixEnd;
    }
    switch (radixOf(text.substr(at, prefixEnd - at))) {
    case Radix::named: return decodeNamed(text, prefixEnd);
    case Radix::decimal: return decodeNumeric(text, prefixEnd, false);
    case Radix::hex: return decodeNumeric(text, prefixEnd, true);
    }
    fatal("unknown radix");
}

std::string quoted(std::string_view reference) {
    // A reference may run on for megabytes of digits; the start tells which one it is.
    constexpr std::size_t kShown = 32;
    std::string text = "\"";
    text.append(reference.substr(0, kShown));
    text.append(reference.size() > kShown ? "...\"" : "\"");
    return text;
}

core::ErrorPtr referenceError(ParseError::Kind kind, std::string_view reference) {
    std::string subject = quoted(reference);
    switch (kind) {
    case ParseError::Kind::MissingSemicolon: subject += " does not end with \";\""; break;
    case ParseError::Kind::InvalidNamedReference: subject += " is not a known named reference"; break;
    case ParseError::Kind::OutsideValidUnicodeRange: subject += " is outside the Unicode range"; break;
    case ParseError::Kind::MalformedNumericReference: subject += " has no digits"; break;
    case ParseError::Kind::DeprecatedNumericReference: subject += " stands for a deprecated code point"; break;
    case ParseError::Kind::DisallowedNumericReference: subject += " stands for a disallowed code point"; break;
    case ParseError::Kind::IllegalArgument: break;
    }
    return core::makeError<ParseError>(kind, std::move(subject));
}

}  // namespace

std::string htmlEscape(std::string_view text, bool allowUnsafeSymbols, bool decimal, bool encodeEverything,
                       bool useNamedReferences) {
    static const PassTable passSafe(false), passAll(true);
    const auto& passes = (allowUnsafeSymbols ? passAll : passSafe).passes;
    const EscapeSettings settings{allowUnsafeSymbols, decimal, encodeEverything, useNamedReferences};
    thread_local GraphemeClusters clusters;

    std::string out;
    out.reserve(text.size() + text.size() / 8);
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n) {
        std::size_t stop = i;
        if (!encodeEverything)
            while (stop < n && passes[static_cast<unsigned char>(text[stop])]) ++stop;
        if (stop == n) {
            out.append(text.substr(i));
            break;
        }
        if (isAscii(text[stop]) && (stop + 1 == n || isAscii(text[stop + 1]))) {
            // Between two ASCII characters there is always a character boundary, except in CR LF.
            out.append(text.substr(i, stop - i));
            std::size_t length = text.compare(stop, 2, "\r\n") == 0 ? 2 : 1;
            appendEscapedCharacter(out, text.substr(stop, length), settings);
            i = stop + length;
            continue;
        }
        // Non-ASCII text: a combining mark may join the ASCII character before it, and a
        // prepended mark the one after it, so find the characters of the whole stretch from the
        // last ASCII character before it up to the next boundary between two ASCII characters.
        std::size_t start = isAscii(text[stop]) || stop == i ? stop : stop - 1;
        std::size_t end = stop + 1;
        while (end < n && !(isAscii(text[end - 1]) && isAscii(text[end]) && text.compare(end - 1, 2, "\r\n") != 0))
            ++end;
        out.append(text.substr(i, start - i));
        std::string_view stretch = text.substr(start, end - start);
        // Without names or kept unsafe symbols, a character comes out as its code points do one by
        // one, so its boundaries need not be found.
        if (useNamedReferences || allowUnsafeSymbols)
            clusters.forEach(stretch, [&](std::string_view character) { appendEscapedCharacter(out, character, settings); });
        else
            appendEachCodePoint(out, stretch, settings);
        i = end;
    }
    return out;
}

std::string ParseError::description() const { return std::string(string(kind_)) + ": " + text_; }

std::string_view string(ParseError::Kind kind) {
    switch (kind) {
    case ParseError::Kind::IllegalArgument: return "IllegalArgument";
    case ParseError::Kind::MissingSemicolon: return "MissingSemicolon";
    case ParseError::Kind::InvalidNamedReference: return "InvalidNamedReference";
    case ParseError::Kind::OutsideValidUnicodeRange: return "OutsideValidUnicodeRange";
    case ParseError::Kind::MalformedNumericReference: return "MalformedNumericReference";
    case ParseError::Kind::DeprecatedNumericReference: return "DeprecatedNumericReference";
    case ParseError::Kind::DisallowedNumericReference: return "DisallowedNumericReference";
    }
    return "ParseError";
}

std::string htmlUnescape(std::string_view text) { return htmlUnescape(text, false).value(); }

core::Result<std::string> htmlUnescape(std::string_view text, bool strict) {
    std::string out;
    out.reserve(text.size());
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const std::size_t n = text.size();
    std::size_t i = 0;
    while (i < n) {
        std::size_t stop = i;
        while (stop < n && isAscii(text[stop]) && text[stop] != '&') ++stop;
        out.append(text.substr(i, stop - i));
        i = stop;
        if (i == n) break;
        if (text[i] != '&') {
            UChar32 c;
            U8_NEXT(bytes, i, n, c);
            if (c < 0 && strict)
                return core::makeError<ParseError>(ParseError::Kind::IllegalArgument,
                                                   "The text is not UTF-8 at byte " + std::to_string(stop));
            if (c < 0) appendUTF8(out, kReplacementCharacter);
            else out.append(text.substr(stop, i - stop));
            continue;
        }
        Reference reference = decodeReference(text, i);
        if (strict && reference.problem) return referenceError(*reference.problem, text.substr(i, reference.end - i));
        if (reference.decoded) {
            appendUTF8(out, reference.first);
            if (reference.second) appendUTF8(out, reference.second);
        } else {
            out.append(text.substr(i, reference.end - i));
        }
        i = reference.end;
    }
    return out;
}

}  // namespace drovel::html
