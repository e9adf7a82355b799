#pragma once
// The functions behind the built-in filters, one row each in the table of Filter.cpp.
//
// Rules shared by every filter, chosen to match what authors of Liquid templates expect:
// - A filter that needs an argument gives nil without one, except where a default is named.
// - Numeric filters read nil, strings without a number, booleans, arrays, dictionaries and
//   ranges as 0, as input and as argument.
// - String filters take a string, or the printed form of an integer or a decimal ("{{ 3 |
//   append: 'x' }}" is "3x"), and read nil as ""; booleans, arrays, dictionaries and ranges
//   give nil. Text arguments that are nil or of another kind read as "".
// - Array filters read nil as an empty array, a range as its integers and any other value as a
//   one-element array; "first", "last" and "size" give nil for anything but their kinds.
// - Characters are user-perceived characters (extended grapheme clusters); words come from word
//   boundaries. "upcase" and "downcase" map case without language rules; only "capitalize"
//   follows the current locale.

#include <string_view>

#include "template/Filter.h"

namespace drovel::templating::filters {

using Function = Token::Value (*)(const Token::Value& input, Filter::Arguments arguments);

struct Row {
    std::string_view name;
    Function function;
};

// The arithmetic shared by "minus", "plus" and "times": both operands become decimals (strings
// parse with "." as separator, integers convert exactly, anything else is 0) and the operation
// applies. A missing argument gives nil.
enum class Arithmetic { add, subtract, multiply };
Token::Value arithmetic(const Token::Value& input, Filter::Arguments arguments, Arithmetic operation);

// Numbers (FilterNumbers.cpp). Results are decimals. "ceil", "floor", "round", "divided_by" and
// "modulo" read a string input with the C library's strtod (so "2.5px" is 2.5, "px" is 0).
Token::Value abs(const Token::Value& input, Filter::Arguments arguments);
Token::Value atLeast(const Token::Value& input, Filter::Arguments arguments);
Token::Value atMost(const Token::Value& input, Filter::Arguments arguments);
Token::Value ceil(const Token::Value& input, Filter::Arguments arguments);
// A zero divisor gives nil, as does any result that is not a finite number.
Token::Value dividedBy(const Token::Value& input, Filter::Arguments arguments);
Token::Value floor(const Token::Value& input, Filter::Arguments arguments);
Token::Value minus(const Token::Value& input, Filter::Arguments arguments);
// fmod of the two numbers; a zero divisor gives nil.
Token::Value modulo(const Token::Value& input, Filter::Arguments arguments);
Token::Value plus(const Token::Value& input, Filter::Arguments arguments);
// Halves round away from zero (2.5 -> 3, -2.5 -> -3); the optional argument is the number of
// decimal places (0 without it or when it is no integer; negative places round to tens, ...).
Token::Value round(const Token::Value& input, Filter::Arguments arguments);
Token::Value times(const Token::Value& input, Filter::Arguments arguments);

// Strings (FilterStrings.cpp).
Token::Value append(const Token::Value& input, Filter::Arguments arguments);
Token::Value capitalize(const Token::Value& input, Filter::Arguments arguments);
Token::Value downcase(const Token::Value& input, Filter::Arguments arguments);
Token::Value lstrip(const Token::Value& input, Filter::Arguments arguments);
Token::Value newlineToBr(const Token::Value& input, Filter::Arguments arguments);
Token::Value prepend(const Token::Value& input, Filter::Arguments arguments);
Token::Value remove(const Token::Value& input, Filter::Arguments arguments);
Token::Value removeFirst(const Token::Value& input, Filter::Arguments arguments);
// Without a replacement (for both "replace" and "replace_first") the matches are removed.
Token::Value replace(const Token::Value& input, Filter::Arguments arguments);
Token::Value replaceFirst(const Token::Value& input, Filter::Arguments arguments);
Token::Value rstrip(const Token::Value& input, Filter::Arguments arguments);
// Characters of a string (or elements of an array) as an integer.
Token::Value size(const Token::Value& input, Filter::Arguments arguments);
// Characters of a string, or elements of an array, from the offset (required; negative counts
// from the end; no integer counts as 0) for the length (1 without it); the slice is cut to the
// bounds; a negative length gives nil.
Token::Value slice(const Token::Value& input, Filter::Arguments arguments);
// An empty separator splits into characters; an empty string gives an empty array.
Token::Value split(const Token::Value& input, Filter::Arguments arguments);
Token::Value strip(const Token::Value& input, Filter::Arguments arguments);
// Removes line feeds, carriage returns (and CR LF pairs), vertical tabs, form feeds, U+0085,
// U+2028 and U+2029.
Token::Value stripNewlines(const Token::Value& input, Filter::Arguments arguments);
// Works on the printed form of any input.
Token::Value truncate(const Token::Value& input, Filter::Arguments arguments);
// A text with no more words than the count is returned unchanged; a count below 1 counts as 1.
Token::Value truncatewords(const Token::Value& input, Filter::Arguments arguments);
Token::Value upcase(const Token::Value& input, Filter::Arguments arguments);
// Malformed percent-encoding ("%zz", a cut "%4") or bytes that are not UTF-8 give nil.
Token::Value urlDecode(const Token::Value& input, Filter::Arguments arguments);
// Only ASCII letters and digits count as alphanumerics: a URL must be ASCII, so other letters
// are percent-encoded as UTF-8 bytes.
Token::Value urlEncode(const Token::Value& input, Filter::Arguments arguments);

// HTML (FilterHtml.cpp).
Token::Value escape(const Token::Value& input, Filter::Arguments arguments);
Token::Value escapeOnce(const Token::Value& input, Filter::Arguments arguments);
Token::Value stripHtml(const Token::Value& input, Filter::Arguments arguments);

// Arrays and other values (FilterArrays.cpp).
Token::Value concat(const Token::Value& input, Filter::Arguments arguments);
Token::Value compact(const Token::Value& input, Filter::Arguments arguments);
Token::Value defaultValue(const Token::Value& input, Filter::Arguments arguments);
Token::Value first(const Token::Value& input, Filter::Arguments arguments);
// Without a separator the elements are joined with a blank.
Token::Value join(const Token::Value& input, Filter::Arguments arguments);
Token::Value last(const Token::Value& input, Filter::Arguments arguments);
// Nested arrays are flattened first; elements that are not dictionaries, or lack the key, give
// nil in their place.
Token::Value map(const Token::Value& input, Filter::Arguments arguments);
Token::Value reverse(const Token::Value& input, Filter::Arguments arguments);
// Stable. Numbers (integers and decimals together) order by value and come first, then strings
// in code point order (of their canonical form), then false before true, then arrays,
// dictionaries and ranges in their original order, then nil. With a property, dictionaries order
// by their value under it, and elements without one count as nil.
Token::Value sort(const Token::Value& input, Filter::Arguments arguments);
// As "sort", with strings compared by their case-folded forms.
Token::Value sortNatural(const Token::Value& input, Filter::Arguments arguments);
// Keeps the first of equal elements (equality as "==" has it), in their original order.
Token::Value uniq(const Token::Value& input, Filter::Arguments arguments);

// Dates (FilterDates.cpp).
Token::Value date(const Token::Value& input, Filter::Arguments arguments);

}  // namespace drovel::templating::filters
