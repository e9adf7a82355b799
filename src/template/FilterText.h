#pragma once
// Text services of the filters, on UTF-8: characters (extended grapheme clusters), words (word
// boundaries), case mapping, and literal search on character boundaries.
// ASCII text takes a fast path before ICU. Ill-formed UTF-8 never fails: a bad byte reads as U+FFFD.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "template/Filter.h"
#include "template/Token.h"

namespace drovel::templating::filters {

// The text a string filter works on: a string, the printed form of an integer or a decimal, or
// "" for nil. Booleans, arrays, dictionaries and ranges give nothing, and the filter gives nil.
std::optional<std::string> textOf(const Token::Value& value);
// The same text without copying a string: the view is into the value, or into `storage`, which
// receives a printed form. Valid while both are.
std::optional<std::string_view> textView(const Token::Value& value, std::string& storage);
// A text argument: nothing when absent, "" when nil or of another kind.
std::optional<std::string> textArgument(Filter::Arguments arguments, std::size_t index = 0);
// The same as a view into the argument or into `storage`.
std::optional<std::string_view> textArgumentView(Filter::Arguments arguments, std::string& storage, std::size_t index = 0);
// The array an array filter works on: an array as it is, nil as an empty array, a range as its
// integers, and any other value as a one-element array.
Token::Value arrayValue(const Token::Value& value);

namespace text {

// The byte offsets where characters start, followed by the text's size: "e\u0301x" gives
// {0, 3, 4}, an empty text {0}. CR LF is one character.
std::vector<std::size_t> characterBoundaries(std::string_view text);
std::size_t characterCount(std::string_view text);
// Whether every byte is a character of its own: ASCII without a carriage return (CR LF is one
// character). Such text is counted and cut by bytes.
bool isSingleByteText(std::string_view text);

// The words in order: the segments between word boundaries that hold letters, digits, kana or
// ideographs (spaces and punctuation are not words, "don't" and "3.5" are one word each).
std::vector<std::string_view> words(std::string_view text);
// The first of them, if any.
std::optional<std::string_view> firstWord(std::string_view text);

// Full case mapping without language rules, whatever the locale: "ß" upper-cases to "SS", and
// "i" to "I" in Turkish too.
std::string uppercased(std::string_view text);
std::string lowercased(std::string_view text);
// Puts the word text[start, start + length) in title case in place: its first cased letter in
// title case and the rest in lower case, by the current locale's rules (ICU's default, which
// follows the environment): "istanbul" is "İstanbul" in Turkish.
void capitalizeWord(std::string& text, std::size_t start, std::size_t length);
// The case-folded form, for comparisons that ignore case.
std::string caseFolded(std::string_view text);

// A text prepared for literal search: ASCII text as it is (viewed, so it must outlive this),
// other text in its canonical (NFC) form, so that precomposed and decomposed accents match each
// other. Matches start and end on character boundaries only: "e" is not found in "e\u0301".
// Results of replacing are built from `text`, so non-ASCII results come out in the canonical form.
class Searchable {
public:
    explicit Searchable(std::string_view text);
    // The view may point into the object itself.
    Searchable(const Searchable&) = delete;
    Searchable& operator=(const Searchable&) = delete;

    std::string_view text() const { return text_; }
    // The first match of `needle` (prepared with Searchable too) at or after `from`, or npos.
    // An empty needle is never found.
    std::size_t find(const Searchable& needle, std::size_t from = 0) const;

private:
    bool isBoundary(std::size_t position) const;

    std::string canonical_;  // non-ASCII text only
    std::string_view text_;
    bool ascii_;
    std::vector<bool> boundaries_;  // non-ASCII text only: one entry per byte offset and the end
};

}  // namespace text
}  // namespace drovel::templating::filters
