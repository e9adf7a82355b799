// The built-in filters, called through filter chains so that argument parsing is exercised too:
// results, the nil answers for inputs and arguments of the wrong kind, the colon rule of filter
// arguments, Unicode characters and words, and dates under an explicit TZ.

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <thread>

#include <unicode/uloc.h>

#include "template/Filter.h"
#include "template/FilterText.h"
#include "template/Parser.h"
#include "template/TemplateTestSupport.h"
#include "support/ScopedTimeZone.h"

namespace drovel::templating {
namespace {

using namespace testing;
using Value = Token::Value;

Value arr(Value::Array elements) { return Value::array(std::move(elements)); }
Value dict(std::initializer_list<std::pair<std::string_view, Value>> entries) {
    return Value::dictionary(Value::Dictionary(entries));
}
const Value nil;

// "x | <call>" evaluated with x = input, next to a few variables that arguments may name.
Value apply(const Value& input, const std::string& call) {
    auto context = contextWith({{"x", input}, {"list", arr({str("b"), integer(2)})}, {"fmt", str("%H:%M")}});
    Parser parser({}, context);
    return parser.evaluateFilteredExpression("x | " + call);
}

struct Case {
    Value input;
    std::string call;
    Value expected;
};

void expectAll(std::initializer_list<Case> cases) {
    for (const auto& c : cases) EXPECT_EQ(apply(c.input, c.call), c.expected) << c.call << " on " << c.input.stringValue();
}

using TimeZone = drovel::testing::ScopedTimeZone;

TEST(Filters, Numbers) {
    expectAll({
        {integer(-5), "abs", decimal("5")}, {str("-2.5"), "abs", decimal("2.5")},
        {integer(3), "at_least: 5", decimal("5")}, {decimal("3.5"), "at_least: 2", decimal("3.5")},
        {integer(3), "at_most: 2.5", decimal("2.5")}, {decimal("1.2"), "ceil", decimal("2")},
        {decimal("-1.8"), "ceil", decimal("-1")},
        {str("1.2px"), "ceil", decimal("2")},  // strtod reads the number in front
        {decimal("-1.2"), "floor", decimal("-2")}, {str("1.9"), "floor", decimal("1")},
        {integer(10), "divided_by: 4", decimal("2.5")},  // doubles, not integer division
        {integer(10), "minus: 2.5", decimal("7.5")}, {integer(10), "modulo: 3", decimal("1")},
        {decimal("-7.5"), "modulo: 2", decimal("-1.5")},  // fmod keeps the dividend's sign
        {str("1.5"), "plus: 1", decimal("2.5")},
        {decimal("0.1"), "plus: 0.2", decimal("0.3")},  // decimal, not binary, arithmetic
        {decimal("2.5"), "round", decimal("3")}, {decimal("-2.5"), "round", decimal("-3")},
        {decimal("2.4999"), "round", decimal("2")}, {decimal("3.14159"), "round: 2", decimal("3.14")},
        {str("2.675"), "round: 2", decimal("2.68")}, {integer(1250), "round: -2", decimal("1300")},
        {decimal("12.5"), "round: 300", decimal("12.5")}, {decimal("1.5"), "times: 4", decimal("6")},
    });
}

TEST(Filters, Strings) {
    expectAll({
        {str("a"), "append: 'b'", str("ab")}, {integer(3), "append: ' pts'", str("3 pts")},
        {str("a"), "append: list", str("a")},  // an array is no text: ""
        {str("hELLO wORLD"), "capitalize", str("Hello wORLD")},
        {str("  ... élan vital"), "capitalize", str("  ... Élan vital")},
        {str("3rd place"), "capitalize", str("3rd place")}, {str("  -- aNN lee"), "capitalize", str("  -- Ann lee")},
        // Where the first word ends: at a blank or a hyphen, not at a joining "." "'" "_" or ",".
        {str("ann-marie LEE"), "capitalize", str("Ann-marie LEE")}, {str("o'NEIL x"), "capitalize", str("O'neil x")},
        {str("snake_CASE x"), "capitalize", str("Snake_case x")}, {str("1,5X x"), "capitalize", str("1,5x x")},
        {str("aB,Cd"), "capitalize", str("Ab,Cd")}, {str("éCOLE x"), "capitalize", str("École x")},
        {str("ÀBC Straße"), "downcase", str("àbc straße")}, {str("straße"), "upcase", str("STRASSE")},
        {str(" \t a b \n"), "lstrip", str("a b \n")}, {str(" \t a b \n"), "rstrip", str(" \t a b")},
        {str("\u00a0 a b \u2029"), "strip", str("a b")}, {str("a\r\nb\nc"), "newline_to_br", str("a<br />b<br />c")},
        {str("b"), "prepend: 'a'", str("ab")}, {str("a-b-c"), "remove: '-'", str("abc")},
        {str("a-b-c"), "remove_first: '-'", str("ab-c")}, {str("a-b-c"), "replace: '-', '+'", str("a+b+c")},
        {str("a-b-c"), "replace_first: '-', '+'", str("a+b-c")}, {str("aaa"), "replace: 'aa', 'b'", str("ba")},
        {str("abc"), "replace: '', 'x'", str("abc")}, {str("hello"), "slice: 1, 3", str("ell")},
        {str("hello"), "slice: -3, 2", str("ll")}, {str("hello"), "slice: 3, 10", str("lo")},
        {str("hello"), "slice: 10, 2", str("")},
        {str("a-b--c"), "split: '-'", arr({str("a"), str("b"), str(""), str("c")})},
        {str("-a-"), "split: '-'", arr({str(""), str("a"), str("")})},
        {str("a\r\nb\nc"), "split: '\n'", arr({str("a\r\nb"), str("c")})},  // no line feed inside CR LF
        // Numbers take part by their printed forms, as inputs and as arguments.
        {decimal("1.50"), "append: 2", str("1.52")}, {integer(12), "prepend: 3.0", str("312")},
        {integer(12034), "split: 0", arr({str("12"), str("34")})}, {integer(1212), "replace: 1, 3", str("3232")},
        {decimal("-2.5"), "capitalize", str("-2.5")}, {integer(5), "upcase", str("5")},
        {str("ab"), "split: ''", arr({str("a"), str("b")})}, {str(""), "split: '-'", arr({})},
        {str("a\r\nb\nc\u2028d\re"), "strip_newlines", str("abcde")}, {str("abcdefgh"), "truncate: 5", str("ab...")},
        {str("abcdefgh"), "truncate: 5, ''", str("abcde")}, {str("abc"), "truncate: 5", str("abc")},
        {str("a\r\nbcdef"), "truncate: 5", str("a\r\n...")},  // CR LF is one character
        {str("e\u0301e\u0301e\u0301e\u0301e\u0301"), "truncate: 4", str("e\u0301...")},  // characters, not bytes
        {str("abcdef"), "truncate: 2, '.....'", str(".....")},  // the ellipsis alone is longer
        {integer(123456), "truncate: 4", str("1...")},         // the printed form of any input
        {integer(1234), "truncate: 4", str("1234")}, {str("abc"), "truncate: -1", str("...")},
        {str("e\u0301e\u0301"), "truncate: 2", str("e\u0301e\u0301")},  // more bytes, not more characters
        {str("abcdef"), "truncate: 'x'", nil}, {str("abcdef"), "truncate: 1, 2, 3", nil},
        {str("one two, three four"), "truncatewords: 2", str("one two...")},
        {str("one two, three four"), "truncatewords: 3, '…'", str("one two three…")},
        {str("one two"), "truncatewords: 2", str("one two")},  // nothing dropped: unchanged
        {str("Don't stop"), "truncatewords: 0", str("Don't...")},  // at least one word
        {str("a%2Bb"), "url_decode", str("a b")}, {str("caf%C3%A9+x"), "url_decode", str("café x")},
        {str("100%"), "url_decode", nil}, {str("%FF"), "url_decode", nil},
        {str("a b/c?d"), "url_encode", str("a+b/c?d")}, {str("é&=-._~"), "url_encode", str("%C3%A9%26%3D-._~")},
        {str("+%\t\x7F AZaz09"), "url_encode", str("+%25%09%7F+AZaz09")}, {str(""), "url_encode", str("")},
        {str(std::string(5000, '\xFF')), "url_encode", str([] {
             std::string escaped;
             for (int i = 0; i < 5000; ++i) escaped += "%FF";
             return escaped;
         }())},
        {str("abcdefgh"), "truncate: 5, 0", str("abcd0")}, {str("abcdefgh"), "truncate: 5, list", str("abcb2")},
    });
}

TEST(Filters, SingleByteTextIsToldApartAtEveryByte) {
    // Text counted and cut by bytes must hold no byte above ASCII and no carriage return.
    const std::pair<char, bool> bytes[] = {{'\r', false}, {'\x80', false}, {'\x8D', false}, {'\xFF', false},
                                           {'\x0C', true},  {'\x0E', true},   {'\x1D', true},   {'\x7F', true}};
    for (std::size_t size = 1; size <= 20; ++size) {
        for (std::size_t at = 0; at < size; ++at) {
            for (auto [byte, single] : bytes) {
                std::string text(size, 'a');
                text[at] = byte;
                EXPECT_EQ(filters::text::isSingleByteText(text), single) << size << " " << at << " " << int(byte);
            }
        }
    }
    EXPECT_TRUE(filters::text::isSingleByteText(""));
}

TEST(Filters, CharactersAndWordsFollowUnicode) {
    const std::string decomposed = "cafe\u0301";  // "café" with a combining accent
    const std::string flags = "\U0001F1EB\U0001F1F7\U0001F1E9\U0001F1EA";  // two flags, four code points
    expectAll({
        {str(decomposed), "size", integer(4)},
        {str(flags + "\U0001F44D\U0001F3FD"), "size", integer(3)},  // a thumb with its skin tone is one
        {str("a\r\nb"), "size", integer(3)}, {str(flags), "slice: 1, 1", str("\U0001F1E9\U0001F1EA")},
        {str(decomposed + decomposed), "truncate: 5, '…'", str(decomposed + "…")},
        {str("e\u0301x"), "split: ''", arr({str("e\u0301"), str("x")})},
        // "e" inside "é" is no match; the result is in the canonical (composed) form.
        {str(decomposed + " cafe"), "remove: 'e'", str("caf\u00e9 caf")},
        {str(decomposed), "replace: 'é', 'e'", str("cafe")},  // composed and decomposed match
        {str("ßuper"), "capitalize", str("Ssuper")},
        {str("ǆemal"), "capitalize", str("ǅemal")},  // title case, not upper case
        {str("İstanbul"), "downcase", str("i\u0307stanbul")},
        {str("日本語のテキスト です"), "truncatewords: 1", str("日本語...")},  // dictionary word breaks
        {str("l'été est là"), "truncatewords: 2", str("l'été est...")},
    });
}

TEST(Filters, OnlyCapitalizeFollowsTheLocale) {
    // A fresh thread opens its case maps under the Turkish locale set here.
    std::string previous = uloc_getDefault();
    UErrorCode status = U_ZERO_ERROR;
    uloc_setDefault("tr_TR", &status);
    std::thread([] {
        expectAll({
            {str("iés"), "upcase", str("IÉS")}, {str("IÉS"), "downcase", str("iés")},
            {str("iés"), "capitalize", str("İés")},
        });
    }).join();
    uloc_setDefault(previous.c_str(), &status);
}

TEST(Filters, Html) {
    expectAll({
        {str("<a href='x'>&"), "escape", str("&#x3C;a href=&#x27;x&#x27;&#x3E;&#x26;")},
        {str("é"), "escape", str("&#xE9;")}, {str("&amp; <"), "escape_once", str("&#x26; &#x3C;")},
        {str("&#x26;"), "escape_once", str("&#x26;")}, {str("<p class=\"a\">x</p><br/>"), "strip_html", str("x")},
        {str("a <> b < c"), "strip_html", str("a <> b < c")}, {str("<<b>x<i\n>y"), "strip_html", str("xy")},
    });
}

TEST(Filters, Arrays) {
    Value people = arr({dict({{"name", str("Bo")}, {"age", integer(30)}}), dict({{"name", str("al")}}), integer(3)});
    expectAll({
        {arr({str("a")}), "concat: list", arr({str("a"), str("b"), integer(2)})},
        {arr({integer(1), nil, str(""), nil}), "compact", arr({integer(1), str("")})},
        {nil, "default: 'x'", str("x")}, {Value::boolean(false), "default: 'x'", str("x")},
        {str(""), "default: 'x'", str("x")}, {arr({}), "default: 'x'", arr({})},
        {integer(0), "default: 'x'", integer(0)}, {arr({str("a"), str("b")}), "first", str("a")},
        {arr({str("a"), str("b")}), "last", str("b")},
        {arr({str("a"), integer(1), nil, decimal("2.5")}), "join: '-'", str("a-1--2.5")},
        {people, "map: 'name'", arr({str("Bo"), str("al"), nil})},
        {arr({integer(1), integer(2), integer(3)}), "reverse", arr({integer(3), integer(2), integer(1)})},
        {arr({integer(3), str("b"), decimal("1.5"), Value::boolean(true), str("a"), nil, Value::boolean(false), integer(2)}),
         "sort",
         arr({decimal("1.5"), integer(2), integer(3), str("a"), str("b"), Value::boolean(false), Value::boolean(true), nil})},
        {arr({str("b"), str("A"), str("a"), str("B")}), "sort", arr({str("A"), str("B"), str("a"), str("b")})},
        {arr({str("b"), str("A"), str("a"), str("B")}), "sort_natural", arr({str("A"), str("a"), str("b"), str("B")})},
        {arr({str("Straße"), str("STRASSE"), str("strasse")}), "sort_natural",
         arr({str("Straße"), str("STRASSE"), str("strasse")})},  // equal when folded: order kept
        {people, "sort: 'name'", arr({people.asArray()->at(0), people.asArray()->at(1), integer(3)})},
        {people, "sort_natural: 'name'", arr({people.asArray()->at(1), people.asArray()->at(0), integer(3)})},
        {arr({integer(1), str("1"), integer(1), decimal("1"), str("\u00e9"), str("e\u0301")}), "uniq",
         arr({integer(1), str("1"), decimal("1"), str("\u00e9")})},
        {arr({integer(1), str("a")}), "size", integer(2)},
    });
}

TEST(Filters, InputsAndArgumentsOfOtherKindsReadAsLiquidReadsThem) {
    Value array = arr({str("a")});
    Value dictionary = dict({{"a", integer(1)}});
    Value range = Value::range(1, 3);
    Value zero = decimal("0");
    expectAll({
        // Numeric filters read nil, non-numeric strings and every other kind as 0, input or argument.
        {nil, "plus: 2", decimal("2")}, {array, "abs", zero}, {str("px"), "abs", zero},
        {dictionary, "times: 3", zero}, {integer(2), "plus: 'x'", decimal("2")}, {integer(2), "minus: list", decimal("2")},
        {integer(2), "at_least: nothing", decimal("2")}, {integer(-2), "at_least: 'x'", zero},
        {integer(2), "at_most: 'x'", zero}, {Value::boolean(true), "at_most: 5", zero},
        {str("hello"), "ceil", zero}, {nil, "floor", zero}, {str(""), "divided_by: 2", zero},
        {str("foo"), "modulo: '2.0'", zero}, {range, "modulo: 2", zero}, {str("px"), "round", zero},
        {decimal("2.567"), "round: 'x'", decimal("3")}, {decimal("2.567"), "round: nothing", decimal("3")},
        // Missing arguments and zero divisors still give nil.
        {integer(2), "plus", nil}, {integer(2), "times", nil}, {integer(2), "at_least", nil},
        {integer(2), "divided_by: 0", nil}, {integer(2), "divided_by: 'x'", nil}, {integer(2), "modulo: 0", nil},
        {integer(2), "divided_by", nil},
        // String filters read a nil input and nil or other-kind arguments as "".
        {nil, "append: 'hi'", str("hi")}, {nil, "upcase", str("")}, {nil, "url_decode", str("")},
        {nil, "escape_once", str("")}, {str("a"), "append: nothing", str("a")}, {str("a"), "prepend: list", str("a")},
        {str("a-b"), "remove: list", str("a-b")}, {str("a-b"), "replace: '-', nothing", str("ab")},
        {str("a-b-c"), "replace_first: '-'", str("ab-c")},
        // Other kinds of input are no text.
        {array, "prepend: 'x'", nil}, {Value::boolean(true), "upcase", nil}, {dictionary, "downcase", nil},
        {range, "capitalize", nil}, {array, "strip", nil}, {array, "newline_to_br", nil}, {array, "url_encode", nil},
        {array, "escape", nil}, {array, "strip_html", nil}, {array, "split: '-'", nil}, {array, "truncatewords: 1", nil},
        {str("a"), "remove", nil}, {str("a-b"), "split", nil}, {str("a b"), "truncatewords", nil},
        {str("a b"), "truncatewords: 'x'", nil}, {str("a"), "truncate", nil},
        // "slice": one character without a length, offsets that are no integer count as 0, and
        // arrays slice as arrays.
        {str("hello"), "slice: 'x', 2", str("he")}, {str("hello"), "slice: -1", str("o")},
        {arr({integer(1), integer(2), integer(3)}), "slice: 1, 5", arr({integer(2), integer(3)})},
        {arr({integer(1), integer(2), integer(3)}), "slice: -1", arr({integer(3)})},
        {str("hello"), "slice: 1, -1", nil}, {str("a"), "slice", nil},
        // Array filters read nil as an empty array, a range as its integers and any other value
        // as a one-element array.
        {nil, "join: '-'", str("")}, {range, "join: '-'", str("1-2-3")}, {str("a"), "join: '-'", str("a")},
        {arr({str("a"), str("b")}), "join", str("a b")}, {arr({str("a"), str("b")}), "join: nothing", str("ab")},
        {str("ab"), "reverse", arr({str("ab")})}, {range, "reverse", arr({integer(3), integer(2), integer(1)})},
        {str("ab"), "sort", arr({str("ab")})}, {nil, "sort_natural", arr({})}, {str("a"), "uniq", arr({str("a")})},
        {nil, "compact", arr({})}, {str("a"), "concat: list", arr({str("a"), str("b"), integer(2)})},
        {array, "concat: 'b'", arr({str("a"), str("b")})}, {array, "concat: nothing", array}, {array, "concat", nil},
        {dictionary, "map: 'a'", arr({integer(1)})}, {array, "map", nil},
        {arr({arr({dictionary, dictionary}), dictionary}), "map: 'a'", arr({integer(1), integer(1), integer(1)})},
        // "first", "last" and "size" give nil for every other kind; "default" needs its argument.
        {str("ab"), "first", nil}, {arr({}), "first", nil}, {range, "last", nil}, {arr({}), "last", nil},
        {integer(12), "size", nil}, {decimal("1.5"), "size", nil}, {dictionary, "size", nil}, {range, "size", nil},
        {nil, "size", nil}, {nil, "default", nil}, {str("x"), "default", nil},
        // Dates.
        {str("2020-01-02"), "date", nil}, {str("someday"), "date: '%Y'", nil}, {array, "date: '%Y'", nil},
    });
}

TEST(Filters, HugeRangesAreNeverMadeIntoArrays) {
    EXPECT_THROW(apply(Value::range(1, INT64_MAX), "join: ','"), TemplateFatalError);
    EXPECT_THROW(apply(Value::range(INT64_MIN, INT64_MAX), "reverse"), TemplateFatalError);
}

TEST(Filters, ArgumentsSplitAtEveryColonAndComma) {
    LogCapture log;
    // A colon inside an argument makes three parts: the chain stops with the value so far.
    EXPECT_EQ(apply(str("a"), "append: 'b:c' | upcase"), str("a"));
    // A comma inside an argument splits it: "'b" and "c'" are no literals (nil, appended as
    // ""), while a lone quote begins and ends with a quote and reads as the empty string.
    EXPECT_EQ(apply(str("a"), "append: 'b,c'"), str("a"));
    EXPECT_EQ(apply(str("a,b"), "split: ','"), arr({str("a"), str(","), str("b")}));
    EXPECT_EQ(apply(str("a"), "append: 'b', 'c'"), str("ab"));  // extra arguments are ignored
    // A variable carries such texts through.
    EXPECT_EQ(apply(str("a"), "append: fmt"), str("a%H:%M"));
    EXPECT_EQ(log.lines, std::vector<std::string>{"Error: bad filter syntax:  append: 'b:c' . Stopping filter processing."});
}

// Milliseconds since 1970 of a parsed date, or nothing.
std::optional<std::int64_t> parsed(std::string_view text) {
    auto date = Filter::parseDate(text, platform::Date(std::chrono::seconds(42)));
    if (!date) return std::nullopt;
    return std::chrono::duration_cast<std::chrono::milliseconds>(date->time_since_epoch()).count();
}
std::optional<std::int64_t> ms(std::optional<double> seconds) {
    if (!seconds) return std::nullopt;
    return std::llround(*seconds * 1000);
}

constexpr double k20200102T030405Z = 1577934245;
constexpr double kHour = 3600;

TEST(Filters, ParseDateFormats) {
    TimeZone zone("EST5");  // local time is UTC-5 all year
    const std::pair<const char*, std::optional<double>> cases[] = {
        {"now", 42}, {" today ", 42}, {"1577934245", k20200102T030405Z}, {"-1.5", -1.5},
        {"+1577934245.25", k20200102T030405Z + 0.25},
        {"2020-01-02", k20200102T030405Z - 3 * kHour - 245 + 5 * kHour},  // local midnight
        {"2020-01-02T03:04:05Z", k20200102T030405Z},
        {"2020-01-02t03:04:05.250+01:00", k20200102T030405Z - kHour + 0.25},
        {"2020-01-02T03:04:05,5-0130", k20200102T030405Z + 1.5 * kHour + 0.5},
        {"2020-01-02T03:04", k20200102T030405Z - 5 + 5 * kHour},
        {"2020-01-02 03:04:05", k20200102T030405Z + 5 * kHour}, {"2020-01-02 03:04:05 +0000", k20200102T030405Z},
        {"2016-12-31T23:59:60Z", 1483228800},  // a leap second is the next minute's start
        {"Thu, 02 Jan 2020 03:04:05 +0000", k20200102T030405Z},
        {"thursday,  2 january 2020 03:04:05 GMT", k20200102T030405Z},
        {"2 Jan 20 03:04 PST", k20200102T030405Z - 5 + 8 * kHour},
        {"Thu, 2 Jan 2020 03:04:05", k20200102T030405Z + 5 * kHour}, {"", std::nullopt}, {"tomorrow", std::nullopt},
        {"Now", std::nullopt}, {"2020-02-30", std::nullopt}, {"2020-13-01", std::nullopt}, {"2020-1-2", std::nullopt},
        {"2020-01-02T24:00", std::nullopt}, {"2020-01-02T03:04:05+2400", std::nullopt},
        {"2020-01-02T03:04:05Zjunk", std::nullopt}, {"Foo, 2 Jan 2020 03:04 +0000", std::nullopt},
        {"2 Jan 2020 03:04 XYZ", std::nullopt},
        {"9999999999", 9999999999},  // beyond the platform date's 2262
        {"0001-01-01T00:00:00Z", -62135596800}, {"9999-12-31T23:59:59Z", 253402300799},
        {"123456789012345678901234567890", std::nullopt},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(parsed(text), ms(expected)) << text;
}

TEST(Filters, ParseDateFollowsDaylightSavingTime) {
    TimeZone zone("America/New_York");
    EXPECT_EQ(parsed("2020-07-01 12:00:00"), ms(1593619200));  // EDT: 16:00 UTC
    EXPECT_EQ(parsed("2020-01-01 12:00:00"), ms(1577898000));  // EST: 17:00 UTC
}

TEST(Filters, DateFormatsInLocalTime) {
    TimeZone zone("EST5");
    expectAll({
        {str("2020-01-02T03:04:05Z"), "date: '%Y-%m-%d %H'", str("2020-01-01 22")},
        {integer(1577934245), "date: '%F'", str("2020-01-01")}, {decimal("1577934245.9"), "date: '%S'", str("05")},
        {str("Thu, 02 Jan 2020 03:04:05 +0000"), "date: '%a %e %b'", str("Wed  1 Jan")},
        {str("2020-01-02"), "date: fmt", str("00:00")},  // a colon only through a variable
        {str("2020-01-02"), "date: ''", nil},            // the formatter gives no text
        {str("2020-01-02"), "date: missing", nil},       // nil prints as the empty format
        // Far from 1970 both ways, no year wraps.
        {str("9999-12-31"), "date: '%Y-%m-%d'", str("9999-12-31")},
        {str("0001-01-01"), "date: '%m-%d %Y'", str("01-01 1")},  // the C library pads no year
        {str("9999-12-31T23:59:59Z"), "date: '%H h %M'", str("18 h 59")},
    });
}

TEST(Filters, NowIsReadFromTheEngineClock) {
    TimeZone zone("UTC0");
    setClock([] { return platform::Date(std::chrono::seconds(1577934245)); });
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(apply(str("now"), "date: '%Y-%m-%d %H'"), str("2020-01-02 03"));
        EXPECT_EQ(render("{{ 'today' | date: '%d %b %Y' }}", contextWith()), "02 Jan 2020");
    }
    // Without a clock of its own, the engine reads the system clock.
    setClock(nullptr);
    auto before = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
    auto now = Filter::parseDate("now");
    auto after = std::chrono::system_clock::now();
    ASSERT_TRUE(now);
    EXPECT_LE(before, *now);
    EXPECT_LE(*now, after);
}

}  // namespace
}  // namespace drovel::templating
