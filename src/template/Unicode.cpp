#include "template/Unicode.h"

#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>

#include <cstring>
#include <memory>

#include "template/Hasher.h"

namespace drovel::templating::unicode {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

const icu::Normalizer2* nfc() {
    static const icu::Normalizer2* instance = [] {
        UErrorCode status = U_ZERO_ERROR;
        const icu::Normalizer2* normalizer = icu::Normalizer2::getNFCInstance(status);
        return U_SUCCESS(status) ? normalizer : nullptr;
    }();
    return instance;
}

// Whether a grapheme cluster boundary lies before a printable ASCII character at `position`:
// only a preceding Prepend character (GB9b) joins it to the cluster before.
bool boundaryBefore(std::string_view text, std::size_t position) {
    if (position == 0 || static_cast<unsigned char>(text[position - 1]) < 0x80) return true;
    std::size_t length;
    char32_t c = decodeBefore(text, position, length);
    return u_getIntPropertyValue(c, UCHAR_GRAPHEME_CLUSTER_BREAK) != U_GCB_PREPEND;
}

// Whether a boundary lies after a printable ASCII character that ends just before `position`:
// a following Extend, ZWJ or SpacingMark character joins it (GB9, GB9a).
bool boundaryAfter(std::string_view text, std::size_t position) {
    if (position >= text.size() || static_cast<unsigned char>(text[position]) < 0x80) return true;
    std::size_t length;
    char32_t c = decode(text, position, length);
    auto kind = u_getIntPropertyValue(c, UCHAR_GRAPHEME_CLUSTER_BREAK);
    return kind != U_GCB_EXTEND && kind != U_GCB_ZWJ && kind != U_GCB_SPACING_MARK;
}

// A CR LF pair is one character, so a match may not start or end between its two halves.
bool splitsCrLf(std::string_view text, std::size_t position) {
    return position > 0 && position < text.size() && text[position - 1] == '\r' && text[position] == '\n';
}

}  // namespace

char32_t decode(std::string_view text, std::size_t position, std::size_t& length) {
    auto byte = static_cast<unsigned char>(text[position]);
    length = 1;
    if (byte < 0x80) return byte;
    std::size_t count;
    char32_t c;
    char32_t minimum;
    if ((byte & 0xE0) == 0xC0) count = 2, c = byte & 0x1F, minimum = 0x80;
    else if ((byte & 0xF0) == 0xE0) count = 3, c = byte & 0x0F, minimum = 0x800;
    else if ((byte & 0xF8) == 0xF0) count = 4, c = byte & 0x07, minimum = 0x10000;
    else return replacementCharacter;
    if (position + count > text.size()) return replacementCharacter;
    for (std::size_t i = 1; i < count; ++i) {
        auto next = static_cast<unsigned char>(text[position + i]);
        if (!isContinuation(next)) return replacementCharacter;
        c = (c << 6) | (next & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return replacementCharacter;
    length = count;
    return c;
}

char32_t decodeBefore(std::string_view text, std::size_t position, std::size_t& length) {
    std::size_t start = position - 1;
    while (start > 0 && position - start < 4 && isContinuation(static_cast<unsigned char>(text[start]))) --start;
    std::size_t decodedLength;
    char32_t c = decode(text, start, decodedLength);
    if (start + decodedLength == position) {
        length = decodedLength;
        return c;
    }
    length = 1;
    return replacementCharacter;
}

bool isWordCharacter(char32_t c) {
    if (c < 0x80) return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    if (c == 0x200C || c == 0x200D) return true;
    if (u_hasBinaryProperty(c, UCHAR_ALPHABETIC)) return true;
    switch (u_charType(c)) {
        case U_NON_SPACING_MARK:
        case U_ENCLOSING_MARK:
        case U_COMBINING_SPACING_MARK:
        case U_DECIMAL_DIGIT_NUMBER:
        case U_CONNECTOR_PUNCTUATION:
            return true;
        default:
            return false;
    }
}

bool isDecimalDigit(char32_t c) {
    if (c < 0x80) return c >= '0' && c <= '9';
    return u_charType(c) == U_DECIMAL_DIGIT_NUMBER;
}

bool isWhitespaceOrNewline(char32_t c) {
    if (c < 0x80) return c == ' ' || (c >= 0x09 && c <= 0x0D);
    if (c == 0x85) return true;
    auto type = u_charType(c);
    return type == U_SPACE_SEPARATOR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR;
}

namespace {

bool isASCIIWhitespace(unsigned char byte) { return byte == ' ' || (byte >= 0x09 && byte <= 0x0D); }

// Whether the character at `position` is white space, and its length; ASCII without decoding.
bool whitespaceAt(std::string_view text, std::size_t position, std::size_t& length) {
    auto byte = static_cast<unsigned char>(text[position]);
    if (byte < 0x80) {
        length = 1;
        return isASCIIWhitespace(byte);
    }
    return isWhitespaceOrNewline(decode(text, position, length));
}

// The same for the character that ends just before `position`.
bool whitespaceBefore(std::string_view text, std::size_t position, std::size_t& length) {
    auto byte = static_cast<unsigned char>(text[position - 1]);
    if (byte < 0x80) {
        length = 1;
        return isASCIIWhitespace(byte);
    }
    return isWhitespaceOrNewline(decodeBefore(text, position, length));
}

}  // namespace

std::size_t findWhitespaceOrNewlineFrom(std::string_view text, std::size_t from) {
    const char* data = text.data();
    std::size_t position = from, size = text.size(), length;
    while (position < size) {
        auto byte = static_cast<unsigned char>(data[position]);
        // Printable ASCII, the common case, in one comparison.
        if (static_cast<unsigned char>(byte - 0x21) < 0x5E) {
            ++position;
        } else if (byte < 0x80) {
            if (isASCIIWhitespace(byte)) break;
            ++position;
        } else if (whitespaceAt(text, position, length)) {
            break;
        } else {
            position += length;
        }
    }
    return position;
}

std::string_view trimWhitespaceAndNewlinesSlowly(std::string_view text) {
    const auto* data = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t start = 0, end = text.size(), length;
    // ASCII ends without decoding; a byte above ASCII goes the long way.
    while (start < end && data[start] < 0x80 && isASCIIWhitespace(data[start])) ++start;
    if (start < end && data[start] >= 0x80)
        while (start < end && whitespaceAt(text, start, length)) start += length;
    while (end > start && data[end - 1] < 0x80 && isASCIIWhitespace(data[end - 1])) --end;
    if (end > start && data[end - 1] >= 0x80)
        while (end > start && whitespaceBefore(text, end, length)) end -= length;
    return text.substr(start, end - start);
}

bool matchesAt(std::string_view text, std::size_t position, std::string_view literal) {
    return position <= text.size() && text.size() - position >= literal.size() &&
           std::memcmp(text.data() + position, literal.data(), literal.size()) == 0 &&
           boundaryBefore(text, position) && boundaryAfter(text, position + literal.size());
}

bool boundariesAroundSlowly(std::string_view text, std::size_t start, std::size_t end) {
    return boundaryBefore(text, start) && boundaryAfter(text, end);
}

bool hasPrefix(std::string_view text, std::string_view literal) { return matchesAt(text, 0, literal); }

bool hasSuffix(std::string_view text, std::string_view literal) {
    return text.size() >= literal.size() && matchesAt(text, text.size() - literal.size(), literal);
}

std::size_t find(std::string_view text, std::string_view literal, std::size_t from) {
    if (literal.empty() || literal.size() > text.size() || from > text.size()) return npos;
    // Candidates by their first byte, in order; the few bytes after it are compared in place.
    for (std::size_t at = from; at + literal.size() <= text.size();) {
        const void* hit = std::memchr(text.data() + at, literal[0], text.size() - literal.size() + 1 - at);
        if (!hit) return npos;
        std::size_t position = static_cast<std::size_t>(static_cast<const char*>(hit) - text.data()), i = 1;
        while (i < literal.size() && text[position + i] == literal[i]) ++i;
        if (i == literal.size() && boundaryBefore(text, position) && boundaryAfter(text, position + literal.size()))
            return position;
        at = position + 1;
    }
    return npos;
}

std::string canonicalForm(std::string_view text) {
    const icu::Normalizer2* normalizer = nfc();
    if (isASCII(text) || !normalizer) return std::string(text);
    UErrorCode status = U_ZERO_ERROR;
    icu::StringPiece piece(text.data(), static_cast<int32_t>(text.size()));
    if (normalizer->isNormalizedUTF8(piece, status) && U_SUCCESS(status)) return std::string(text);
    std::string out;
    icu::StringByteSink<std::string> sink(&out, static_cast<int32_t>(text.size()));
    status = U_ZERO_ERROR;
    normalizer->normalizeUTF8(0, piece, sink, nullptr, status);
    return U_SUCCESS(status) ? out : std::string(text);
}

bool canonicallyEqual(std::string_view a, std::string_view b) {
    if (a == b) return true;
    // Some single code points are canonically equivalent to ASCII letters (the Kelvin sign is K),
    // so only two ASCII texts can be told apart by their bytes alone.
    if (isASCII(a) && isASCII(b)) return false;
    return canonicalForm(a) == canonicalForm(b);
}

void hashCanonically(Hasher& hasher, std::string_view text) {
    if (isASCII(text)) {
        hasher.combineBytes(text.data(), text.size());
        return;
    }
    std::string canonical = canonicalForm(text);
    hasher.combineBytes(canonical.data(), canonical.size());
}

bool containsCanonically(std::string_view haystack, std::string_view needle) {
    if (needle.empty()) return false;
    if (isASCII(haystack) && isASCII(needle)) {
        for (std::size_t position = haystack.find(needle); position != std::string_view::npos;
             position = haystack.find(needle, position + 1)) {
            if (!splitsCrLf(haystack, position) && !splitsCrLf(haystack, position + needle.size())) return true;
        }
        return false;
    }
    std::string text = canonicalForm(haystack), pattern = canonicalForm(needle);
    std::size_t position = text.find(pattern);
    if (position == std::string::npos) return false;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> characters(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    UText* utext = utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status);
    if (U_FAILURE(status) || !characters) {
        utext_close(utext);
        return true;
    }
    characters->setText(utext, status);
    bool found = false;
    for (; position != std::string::npos && !found; position = text.find(pattern, position + 1)) {
        found = characters->isBoundary(static_cast<int32_t>(position)) &&
                characters->isBoundary(static_cast<int32_t>(position + pattern.size()));
    }
    utext_close(utext);
    return found;
}

}  // namespace drovel::templating::unicode
