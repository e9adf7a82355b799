#pragma once
// Unicode services of the engine, on UTF-8 text: the character classes that the engine's patterns
// use (ICU's meaning of \w and \d), the trimming sets, literal matching on extended grapheme
// cluster boundaries, and canonical-equivalence comparison. Every function takes an ASCII fast
// path before it asks ICU. Ill-formed UTF-8 never fails: each bad byte reads as U+FFFD.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "template/Bytes.h"

namespace drovel::templating {

class Hasher;

namespace unicode {

constexpr std::size_t npos = std::string_view::npos;

// The code point that starts at text[position], and its length in bytes (at least 1).
char32_t decode(std::string_view text, std::size_t position, std::size_t& length);
// The code point that ends just before text[position] (position > 0), and its length in bytes.
char32_t decodeBefore(std::string_view text, std::size_t position, std::size_t& length);

// Whether every byte of the text passes a test, eight bytes at a time: `wordPasses` takes eight
// bytes as a 64-bit word, `bytePasses` one byte of a text shorter than eight. A text of eight or
// more ends with an overlapping last eight.
template <class WordTest, class ByteTest>
bool everyByte(std::string_view text, WordTest wordPasses, ByteTest bytePasses) {
    const char* data = text.data();
    std::size_t size = text.size();
    auto word = [data](std::size_t at) { return bytes::loadWord(data + at); };
    if (size < 8) {
        for (std::size_t i = 0; i < size; ++i)
            if (!bytePasses(static_cast<unsigned char>(data[i]))) return false;
        return true;
    }
    for (std::size_t i = 0; i + 8 < size; i += 8)
        if (!wordPasses(word(i))) return false;
    return wordPasses(word(size - 8));
}

inline bool isASCII(std::string_view text) {
    return everyByte(
        text, [](std::uint64_t word) { return (word & 0x8080808080808080ull) == 0; },
        [](unsigned char byte) { return byte < 0x80; });
}

// \w: alphabetic, marks, decimal digits, connector punctuation, ZWNJ and ZWJ.
bool isWordCharacter(char32_t c);
// \d: decimal digits of any script.
bool isDecimalDigit(char32_t c);
// White space and newlines: tab through carriage return, U+0085 and the separator categories.
bool isWhitespaceOrNewline(char32_t c);

// The position of the first white space or newline character at or after `from`, or the text's length.
std::size_t findWhitespaceOrNewlineFrom(std::string_view text, std::size_t from);
// The position of the first white space or newline character, or the text's length.
inline std::size_t findWhitespaceOrNewline(std::string_view text) {
    // Printable ASCII, the common case, eight bytes at a time: a byte below "!" borrows into its
    // high bit in the subtraction, one above "~" carries into it in the addition (or has it set
    // already). Borrows and carries only run upwards, from a byte that is flagged itself, so
    // the lowest flagged byte of a little-endian word is the first that is not printable.
    constexpr std::uint64_t ones = 0x0101010101010101ull, highBits = 0x8080808080808080ull;
    constexpr bool littleEndian = std::endian::native == std::endian::little;
    auto unprintable = [&text](std::size_t at) {
        std::uint64_t word = bytes::loadWord(text.data() + at);
        return (word | (word - ones * 0x21) | (word + ones)) & highBits;
    };
    std::size_t size = text.size(), position = 0;
    if (littleEndian && size >= 8) {
        std::uint64_t flags = 0;
        for (; position + 8 <= size && !(flags = unprintable(position)); position += 8) {}
        // The last bytes are read in the word that ends the text, without the bytes already seen.
        if (!flags && position < size) flags = unprintable(size - 8) >> (8 * (position - (size - 8)));
        position = flags ? position + (static_cast<std::size_t>(std::countr_zero(flags)) >> 3) : size;
    } else {
        while (position < size && static_cast<unsigned char>(text[position] - 0x21) < 0x5E) ++position;
    }
    if (position == size || text[position] == ' ') return position;
    return findWhitespaceOrNewlineFrom(text, position);
}
// Removes white space and newlines from both ends.
// The general case of trimWhitespaceAndNewlines.
std::string_view trimWhitespaceAndNewlinesSlowly(std::string_view text);
// The text without the space characters U+0020 at its ends (an empty view into it when nothing else is left).
inline std::string_view withoutOuterBlanks(std::string_view text) {
    const char* start = text.data();
    const char* end = start + text.size();
    if (start == end) return text;
    while (*start == ' ')
        if (++start == end) return std::string_view(end, 0);
    // The byte at `start` is no blank: the end stops there at the latest.
    while (end[-1] == ' ') --end;
    return std::string_view(start, static_cast<std::size_t>(end - start));
}
inline std::string_view trimWhitespaceAndNewlines(std::string_view text) {
    // Most statements and operands are printable ASCII with at most blanks around them.
    text = withoutOuterBlanks(text);
    auto printable = [](char c) { return c > ' ' && c < 0x7F; };
    if (text.empty() || (printable(text.front()) && printable(text.back()))) return text;
    return trimWhitespaceAndNewlinesSlowly(text);
}

// Literal matching as the platform string does it, character by character: `literal` (ASCII,
// starting and ending with a printable character) matches only where it starts and ends on
// grapheme cluster boundaries, so "{{" followed by a combining accent is not "{{".
bool matchesAt(std::string_view text, std::size_t position, std::string_view literal);
// Whether text[start, end), printable ASCII at both ends, starts and ends on grapheme cluster
// boundaries: matchesAt without the comparison, for a caller that has compared the bytes.
bool boundariesAroundSlowly(std::string_view text, std::size_t start, std::size_t end);
inline bool boundariesAround(std::string_view text, std::size_t start, std::size_t end) {
    // Between two ASCII characters there is always a boundary (the literal is printable, so no
    // CR LF pair is split).
    if ((start == 0 || static_cast<unsigned char>(text[start - 1]) < 0x80) &&
        (end >= text.size() || static_cast<unsigned char>(text[end]) < 0x80))
        return true;
    return boundariesAroundSlowly(text, start, end);
}
bool hasPrefix(std::string_view text, std::string_view literal);
bool hasSuffix(std::string_view text, std::string_view literal);
// The first position at or after `from` where `literal` matches, or npos.
std::size_t find(std::string_view text, std::string_view literal, std::size_t from = 0);

// Canonical equivalence: "é" as one code point equals "e" followed by a combining acute.
bool canonicallyEqual(std::string_view a, std::string_view b);
// The NFC form, which equal strings share; ASCII text is returned as it is.
std::string canonicalForm(std::string_view text);
// Feeds the canonical form, so that canonically equal strings hash alike.
void hashCanonically(Hasher& hasher, std::string_view text);
// Whether `needle` occurs in `haystack` as a run of whole characters, up to canonical
// equivalence. An empty needle is never found.
bool containsCanonically(std::string_view haystack, std::string_view needle);

}  // namespace unicode
}  // namespace drovel::templating
