// Template values: the decimal type, Token::Value's properties, equality and hashing, and the
// conversions of host values.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <unordered_set>

#include "template/Token.h"
#include "template/Unicode.h"
#include "template/TemplateTestSupport.h"

namespace drovel::templating {
namespace {

using namespace testing;
using Value = Token::Value;

std::string describe(std::optional<Decimal> value) { return value ? value->description() : "(none)"; }
Decimal dec(std::string_view text) { return *Decimal::parse(text); }

TEST(Decimal, ParsesAPrefixLikeThePlatformDecimal) {
    const std::pair<const char*, const char*> cases[] = {
        {"12", "12"},         {"+12", "12"},      {"-12.50", "-12.5"}, {" \n12", "12"},   {"12px", "12"},
        {".5", "0.5"},        {"5.", "5"},        {"1e3", "1000"},     {"1E-2", "0.01"},  {"2e", "2"},
        {"0.000", "0"},       {"-0", "0"},        {"007", "7"},        {"1..3", "1"},     {"abc", "(none)"},
        {"", "(none)"},       {"-", "(none)"},    {".", "(none)"},     {"e5", "(none)"},  {"1e200", "(none)"},
        {"1e-200", "0"},      {"+", "(none)"},    {"-1200", "-1200"},  {"12 ", "12"},     {"1\xD9\xA3", "1"},
        {"999999999999999999", "999999999999999999"}, {"-9999999999999999999", "-9999999999999999999"},
        {"18446744073709551616", "18446744073709551616"}, {"1844674407370955161600", "1844674407370955161600"},
        {"-100000000000000000000000000000.000", "-100000000000000000000000000000"},
        // Digits beyond the 38th are dropped, not rounded.
        {"1234567890123456789012345678901234567899", "1234567890123456789012345678901234567800"},
        {"0.12345678901234567890123456789012345678999", "0.12345678901234567890123456789012345678"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(describe(Decimal::parse(text)), expected) << text;
}

TEST(Decimal, FromDoubleUsesTheShortestLiteral) {
    const std::pair<double, const char*> cases[] = {
        {0.1, "0.1"}, {12.9, "12.9"}, {-2.5, "-2.5"}, {3.133, "3.133"}, {1e20, "100000000000000000000"},
        {0.0, "0"},   {-0.0, "0"},    {1e300, "NaN"}, {INFINITY, "NaN"}, {NAN, "NaN"},
    };
    for (const auto& [value, expected] : cases) EXPECT_EQ(Decimal::fromDouble(value).description(), expected) << value;
}

TEST(Decimal, ArithmeticRoundsTo38DigitsHalvesAwayFromZero) {
    struct Case {
        const char *a, *op, *b, *expected;
    };
    const Case cases[] = {
        {"0.1", "+", "0.2", "0.3"}, {"1", "-", "3", "-2"}, {"1.5", "*", "-2", "-3"}, {"10", "/", "4", "2.5"},
        {"1", "/", "3", "0.33333333333333333333333333333333333333"},
        {"2", "/", "3", "0.66666666666666666666666666666666666667"},
        {"-2", "/", "3", "-0.66666666666666666666666666666666666667"}, {"120", "+", "50", "170"},
        {"1e40", "+", "1", "10000000000000000000000000000000000000000"},
        {"10000000000000000000000000000000000000", "+", "0.5", "10000000000000000000000000000000000001"},
        {"-10000000000000000000000000000000000000", "-", "0.5", "-10000000000000000000000000000000000001"},
        {"99999999999999999999999999999999999999", "+", "1", "100000000000000000000000000000000000000"},
        {"1e100", "+", "1e-100", "10000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000"},
        {"0.1", "-", "0.1", "0"}, {"1", "/", "0", "NaN"},
        // One sign and exponent: a sum beyond 64 bits, and sums whose zeros move into the exponent.
        {"18446744073709551615", "+", "1", "18446744073709551616"}, {"-0.5", "-", "0.5", "-1"}, {"0", "+", "7", "7"},
        {"99999999999999999999999999999999999999e127", "*", "10", "NaN"},
    };
    for (const auto& c : cases) {
        Decimal a = dec(c.a), b = dec(c.b);
        Decimal result = *c.op == '+' ? a + b : *c.op == '-' ? a - b : *c.op == '*' ? a * b : a / b;
        EXPECT_EQ(result.description(), c.expected) << c.a << c.op << c.b;
    }
    EXPECT_TRUE((Decimal::notANumber() + dec("1")).isNaN());
    // At the largest exponent a trailing zero stays in the mantissa.
    EXPECT_EQ((dec("5e127") + dec("5e127")).description(), "1" + std::string(128, '0'));
}

TEST(Decimal, OrdersAndHashesByValue) {
    const std::pair<const char*, const char*> ascending[] = {
        {"-3", "-2"}, {"-0.5", "0"}, {"0.5", "1"}, {"2", "10"}, {"999.99", "1e3"}, {"1e-128", "1e-127"},
    };
    for (const auto& [low, high] : ascending) {
        EXPECT_LT(dec(low), dec(high)) << low << " < " << high;
        EXPECT_GT(dec(high), dec(low));
    }
    EXPECT_EQ(dec("1.0"), dec("1.00"));
    EXPECT_EQ(dec("1.0"), Decimal(1));
    EXPECT_EQ(Value::decimal(dec("100")).hashValue(), Value::decimal(dec("1e2")).hashValue());
    EXPECT_EQ(Decimal::notANumber(), Decimal::notANumber());
    EXPECT_LT(Decimal::notANumber(), dec("-1e127"));
}

TEST(Decimal, ConvertsToIntegersAndDoubles) {
    const std::pair<const char*, std::optional<std::int64_t>> integers[] = {
        {"12.9", 12}, {"-12.9", -12}, {"0.5", 0}, {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()}, {"9223372036854775808", std::nullopt},
        {"1e30", std::nullopt},
    };
    for (const auto& [text, expected] : integers) EXPECT_EQ(dec(text).integerValue(), expected) << text;
    EXPECT_EQ(Decimal::notANumber().integerValue(), std::nullopt);
    EXPECT_EQ(Decimal(std::numeric_limits<std::int64_t>::min()).description(), "-9223372036854775808");

    EXPECT_EQ(dec("1.5").doubleValue(), 1.5);
    EXPECT_EQ(dec("0.1").doubleValue(), 0.1);
    EXPECT_EQ(dec("-123456789012345678901234567890").doubleValue(), -1.2345678901234568e29);
    EXPECT_EQ(dec("1e-100").doubleValue(), 1e-100);
}

TEST(Value, PrintedForms) {
    const std::pair<Value, const char*> cases[] = {
        {str("héllo"), "héllo"}, {integer(-42), "-42"}, {decimal("12.50"), "12.5"}, {decimal("0.005"), "0.005"},
        {Value::array({str("a"), integer(1), str("b")}), "a1b"},
        {Value::array({str("a"), integer(1), Value::nil()}), "a1"}, {Value::range(1, 5), "1..5"},
        {Value::range(-3, -1), "-3..-1"}, {Value::boolean(true), ""}, {Value::boolean(false), ""},
        {Value::dictionary({{"k", str("v")}}), ""}, {Value::nil(), ""},
    };
    for (const auto& [value, expected] : cases) EXPECT_EQ(value.stringValue(), expected);
}

TEST(Value, NumericViews) {
    struct Case {
        Value value;
        std::optional<std::int64_t> integer;
        std::optional<std::string> decimal;
        std::optional<double> number;
    };
    const Case cases[] = {
        {str("  12"), std::nullopt, "12", std::nullopt}, {str("+12"), 12, "12", 12.0},
        {str("12.5"), std::nullopt, "12.5", 12.5}, {str(" 1.5"), std::nullopt, "1.5", std::nullopt},
        {str("1.5 "), std::nullopt, "1.5", std::nullopt}, {str("0x10"), std::nullopt, "0", 16.0},
        {str(""), std::nullopt, std::nullopt, std::nullopt}, {str("٣"), std::nullopt, std::nullopt, std::nullopt},
        {str("9223372036854775808"), std::nullopt, "9223372036854775808", 9223372036854775808.0},
        {integer(7), 7, "7", 7.0}, {decimal("-12.9"), -12, "-12.9", -12.9},
        {Value::boolean(true), std::nullopt, std::nullopt, std::nullopt},
        {Value::range(1, 2), std::nullopt, std::nullopt, std::nullopt},
        {Value::nil(), std::nullopt, std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value.stringValue());
        EXPECT_EQ(c.value.integerValue(), c.integer);
        auto decimalValue = c.value.decimalValue();
        EXPECT_EQ(decimalValue ? std::optional(decimalValue->description()) : std::nullopt, c.decimal);
        EXPECT_EQ(c.value.doubleValue(), c.number);
    }
}

TEST(Value, IntegersParseExactlyWithin64Bits) {
    constexpr auto maximum = std::numeric_limits<std::int64_t>::max(), minimum = std::numeric_limits<std::int64_t>::min();
    const std::pair<const char*, std::optional<std::int64_t>> cases[] = {
        {"0", 0}, {"-0", 0}, {"+7", 7}, {"007", 7}, {"9223372036854775807", maximum}, {"-9223372036854775808", minimum},
        {"9223372036854775808", std::nullopt}, {"-9223372036854775809", std::nullopt},
        {"18446744073709551615", std::nullopt}, {"18446744073709551616", std::nullopt},
        {"184467440737095516150", std::nullopt}, {"", std::nullopt}, {"-", std::nullopt}, {"+-1", std::nullopt},
        {"1 ", std::nullopt}, {"1e3", std::nullopt}, {"1/", std::nullopt}, {"1:", std::nullopt}, {"\xD9\xA3", std::nullopt},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(parseInteger(text), expected) << text;
}

TEST(Unicode, WhiteSpaceIsFoundAtEveryPosition) {
    // Each marker at each position of texts around the eight-byte steps; printable neighbours,
    // DEL and a non-breaking space's lead byte alone are no white space.
    const std::pair<std::string_view, bool> markers[] = {{" ", true},      {"\t", true},   {"\n", true},
                                                        {"\xC2\xA0", true}, {"!", false},  {"~", false},
                                                        {"\x7F", false},  {"\xC2", false}, {"\xCC\x81", false}};
    for (std::size_t size = 0; size <= 20; ++size) {
        EXPECT_EQ(unicode::findWhitespaceOrNewline(std::string(size, 'a')), size);
        for (std::size_t at = 0; at < size; ++at) {
            for (auto [marker, blank] : markers) {
                std::string text = std::string(at, 'a') + std::string(marker) + std::string(size - at, 'b');
                EXPECT_EQ(unicode::findWhitespaceOrNewline(text), blank ? at : text.size()) << size << " " << at;
                if (marker != " ") {
                    EXPECT_EQ(unicode::withoutOuterBlanks(" " + text + "  "), text);
                }
            }
        }
    }
}

TEST(Unicode, TheASCIITestSeesEveryByte) {
    for (std::size_t size = 0; size <= 24; ++size) {
        std::string text(size, 'a');
        EXPECT_TRUE(unicode::isASCII(text)) << size;
        for (std::size_t at = 0; at < size; ++at) {
            text[at] = '\x80';
            EXPECT_FALSE(unicode::isASCII(text)) << size << " " << at;
            text[at] = '\x7F';
            EXPECT_TRUE(unicode::isASCII(text)) << size << " " << at;
        }
    }
}

TEST(Value, TruthinessAndEmptyStrings) {
    const std::tuple<Value, bool, bool> cases[] = {
        {Value::boolean(false), false, false}, {Value::nil(), false, false},     {Value::boolean(true), true, false},
        {str(""), true, true},                 {integer(0), true, false},        {decimal("0.0"), true, false},
        {Value::array({}), true, false},       {Value::dictionary({}), true, false},
    };
    for (const auto& [value, truthy, emptyString] : cases) {
        EXPECT_EQ(value.isTruthy(), truthy);
        EXPECT_EQ(value.isEmptyString(), emptyString);
    }
}

TEST(Value, EqualityNeverCrossesCasesAndHashingFollowsIt) {
    const std::tuple<Value, Value, bool> cases[] = {
        {integer(2), decimal("2"), false}, {str("1"), integer(1), false}, {decimal("2.0"), decimal("2"), true},
        {str("é"), str("e\xCC\x81"), true},  // precomposed and decomposed
        {str("K"), str("\xE2\x84\xAA"), true},  // the Kelvin sign is canonically K
        {str("a"), str("A"), false},
        {Value::array({integer(1), str("a")}), Value::array({integer(1), str("a")}), true},
        {Value::array({integer(1)}), Value::array({integer(1), integer(1)}), false},
        {Value::dictionary({{"a", integer(1)}, {"b", integer(2)}}), Value::dictionary({{"b", integer(2)}, {"a", integer(1)}}), true},
        {Value::dictionary({{"é", integer(1)}}), Value::dictionary({{"e\xCC\x81", integer(1)}}), true},
        {Value::dictionary({{"a", integer(1)}}), Value::dictionary({{"a", integer(2)}}), false},
        {Value::range(1, 3), Value::range(1, 3), true}, {Value::range(1, 3), Value::range(1, 4), false},
        {Value::nil(), Value::nil(), true}, {Value::nil(), Value::boolean(false), false},
    };
    for (const auto& [a, b, equal] : cases) {
        SCOPED_TRACE(a.stringValue() + " vs " + b.stringValue());
        EXPECT_EQ(a == b, equal);
        if (equal) {
            EXPECT_EQ(a.hashValue(), b.hashValue());
        }
    }
    std::unordered_set<Value> set{str("x"), integer(1), decimal("1.0"), decimal("1")};
    EXPECT_EQ(set.size(), 3u);
}

TEST(Value, DictionariesKeepKeysInOrderAndFindThemCanonically) {
    // Small and large dictionaries, filled out of order with replacements and removals.
    for (int size : {3, 8, 9, 40}) {
        SCOPED_TRACE(size);
        Value::Dictionary dictionary;
        std::vector<std::string> keys;
        for (int i = 0; i < size; ++i) keys.push_back("k" + std::to_string((i * 7) % size));
        for (const auto& key : keys) dictionary.set(key, str("old"));
        for (const auto& key : keys) dictionary.set(key, str(key));
        dictionary.set("é", integer(1));          // precomposed
        dictionary.set("e\xCC\x81", integer(2));  // decomposed: the same key
        EXPECT_TRUE(dictionary.erase("k0"));
        EXPECT_FALSE(dictionary.erase("k0"));
        EXPECT_EQ(dictionary.size(), static_cast<std::size_t>(size));
        std::string previous;
        for (const auto& [key, value] : dictionary) {
            EXPECT_LT(previous, key);
            previous = key;
        }
        for (const auto& key : keys) {
            const Value* found = dictionary.find(key);
            EXPECT_EQ(found ? std::optional(*found) : std::nullopt, key == "k0" ? std::nullopt : std::optional(str(key))) << key;
        }
        ASSERT_NE(dictionary.find("é"), nullptr);
        EXPECT_EQ(*dictionary.find("é"), integer(2));
        EXPECT_EQ(dictionary.find("k"), nullptr);
        EXPECT_EQ(dictionary.find("k00"), nullptr);
    }

    using Entries = Value::Dictionary::Entries;
    auto ordered = Value::Dictionary::fromOrderedEntries(Entries{{"a", integer(1)}, {"b", integer(2)}});
    EXPECT_EQ(Value::dictionary(ordered), Value::dictionary({{"b", integer(2)}, {"a", integer(1)}}));
    EXPECT_THROW(Value::Dictionary::fromOrderedEntries(Entries{{"b", integer(1)}, {"a", integer(2)}}), std::invalid_argument);
    EXPECT_THROW(Value::Dictionary::fromOrderedEntries(Entries{{"a", integer(1)}, {"a", integer(2)}}), std::invalid_argument);
}

struct Convertible : TokenValueConvertible {
    Value tokenValue() const override { return str("mine"); }
};

TEST(Value, HostConversions) {
    EXPECT_EQ(tokenValue("a"), str("a"));
    EXPECT_EQ(tokenValue(std::int64_t(-5)), integer(-5));
    EXPECT_EQ(tokenValue(3), integer(3));
    EXPECT_EQ(tokenValue(true), Value::boolean(true));
    EXPECT_EQ(tokenValue(0.1), decimal("0.1"));
    EXPECT_EQ(tokenValue(0.1f), decimal("0.10000000149011612"));  // widened to double first
    EXPECT_EQ(tokenValue(std::vector<std::string>{"a", "b"}), Value::array({str("a"), str("b")}));
    EXPECT_EQ(tokenValue(std::map<std::string, int>{{"n", 1}}), Value::dictionary({{"n", integer(1)}}));
    EXPECT_EQ(tokenValue(ClosedRange<int>{1, 3}), Value::range(1, 3));
    EXPECT_EQ(tokenValue(HalfOpenRange<int>{1, 4}), Value::range(1, 3));
    EXPECT_EQ(tokenValue(Convertible{}), str("mine"));
    EXPECT_THROW(tokenValue(HalfOpenRange<int>{3, 3}), std::invalid_argument);
    EXPECT_THROW(Value::range(2, 1), std::invalid_argument);
}

}  // namespace
}  // namespace drovel::templating
