#include <gtest/gtest.h>

#include <unicode/unistr.h>

#include <algorithm>

#include "html/HTMLEntities.h"
#include "html/HTMLEntityTable.h"

using namespace drovel::html;
using Kind = ParseError::Kind;

namespace {

std::string utf8(char32_t c) {
    std::string out;
    return icu::UnicodeString(static_cast<UChar32>(c)).toUTF8String(out);
}

std::string text(const NamedReference& entry) { return utf8(entry.first) + (entry.second ? utf8(entry.second) : ""); }

struct Options {
    bool allowUnsafeSymbols = false, decimal = false, encodeEverything = false, useNamedReferences = false;
};

std::string escape(std::string_view input, Options o) {
    return htmlEscape(input, o.allowUnsafeSymbols, o.decimal, o.encodeEverything, o.useNamedReferences);
}

// Every combination of the four options.
std::vector<Options> allOptions() {
    std::vector<Options> all;
    for (int bits = 0; bits < 16; ++bits) all.push_back({bool(bits & 1), bool(bits & 2), bool(bits & 4), bool(bits & 8)});
    return all;
}

}  // namespace

TEST(HTMLEscape, Table) {
    const Options plain, unsafe{.allowUnsafeSymbols = true}, decimal{.decimal = true},
        everything{.encodeEverything = true}, named{.useNamedReferences = true},
        everythingNamed{.encodeEverything = true, .useNamedReferences = true};
    struct Case {
        std::string input;
        Options options;
        std::string expected;
    };
    const Case cases[] = {
        {"", plain, ""}, {"Az 09 a=b", plain, "Az 09 a=b"}, {"<'>\"&", plain, "&#x3C;&#x27;&#x3E;&#x22;&#x26;"},
        {"<'>\"&", decimal, "&#60;&#39;&#62;&#34;&#38;"}, {"<'>\"&", named, "&lt;&apos;&gt;&quot;&amp;"},
        {"a <b> & \"c\"", unsafe, "a <b> & \"c\""}, {"é", plain, "&#xE9;"}, {"é", decimal, "&#233;"},
        {"é", named, "&eacute;"}, {"😀", plain, "&#x1F600;"}, {"😀", decimal, "&#128512;"},
        {"→ ", named, "&rarr; "},  // the HTML 4 name, not "rightarrow;" or "srarr;"
        {"a\t", everything, "&#x61;&#x9;"}, {"a\t\n", everythingNamed, "&#x61;&Tab;&NewLine;"},
        {"\r\n", everythingNamed, "&#xD;&#xA;"},  // CR LF is one character, which has no name
        {"\r\n", plain, "\r\n"},
        {"fj", everythingNamed, "&#x66;&#x6A;"},  // two characters: "fjlig;" never applies
        // Characters of several code points.
        {"e\u0301", named, "e&#x301;"}, {"\u2242\u0338", named, "&nesim;"}, {"\u2242\u0338", plain, "&#x2242;&#x338;"},
        {"<\u20D2", named, "&nvlt;"},
        {"x<\u20D2y", unsafe, "x&#x3C;&#x20D2;y"},  // an unsafe symbol inside a longer character
        {"a\u0600<b", unsafe, "a&#x600;&#x3C;b"},   // a prepended mark joins the "<" after it
        {"é<é", unsafe, "&#xE9;<&#xE9;"},
        {"ab\xFF" "cd", plain, "ab&#xFFFD;cd"},  // not UTF-8
    };
    for (const auto& c : cases) EXPECT_EQ(escape(c.input, c.options), c.expected) << c.input;
}

TEST(HTMLEscape, ArgumentsDefaultToTheProcessWideOptions) {
    EXPECT_EQ(htmlEscape("é<"), "&#xE9;&#x3C;");
    HTMLEscapeOptions::decimal = true;
    HTMLEscapeOptions::useNamedReferences = true;
    EXPECT_EQ(htmlEscape("é<→"), "&eacute;&lt;&rarr;");
    EXPECT_EQ(htmlEscape("ŵ"), "&wcirc;");
    EXPECT_EQ(htmlEscape("\u0301"), "&#769;");
    HTMLEscapeOptions::decimal = false;
    HTMLEscapeOptions::useNamedReferences = false;
}

TEST(HTMLUnescape, Lenient) {
    const std::pair<std::string, std::string> cases[] = {
        {"&lt;&gt;&amp;&quot;&apos;", "<>&\"'"}, {"&#65;&#x41;&#X41;&#0065;", "AAAA"}, {"&#65 &#65x", "A Ax"},
        {"&amp &copy 2", "& © 2"}, {"?a=1&copy=2", "?a=1&copy=2"},  // not before "="
        {"&hellip &hellip;", "&hellip …"},  // only legacy names go without ";"
        {"&nesim;", "\u2242\u0338"},
        {"&foo; AT&T a & b &; &&lt;", "&foo; AT&T a & b &; &<"},
        {"&#; &#x; &#xG; &#", "&#; &#x; &#xG; &#"}, {"&#x110000;&#99999999999999999999;&#xD800;", "\uFFFD\uFFFD\uFFFD"},
        {"&#x80;&#1;&#xFFFE;", "\u0080\u0001\uFFFE"}, {std::string("&#0;", 4), std::string("\0", 1)},
        {"é\xFF" "a\xE2\x82", "é\uFFFDa\uFFFD"},
    };
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(htmlUnescape(input), expected) << input;
        EXPECT_EQ(htmlUnescape(input, false).value(), expected) << input;
    }
}

TEST(HTMLUnescape, StrictFailures) {
    const std::pair<std::string, Kind> cases[] = {
        {"x &#65 y", Kind::MissingSemicolon}, {"&amp", Kind::MissingSemicolon}, {"&hellip", Kind::MissingSemicolon},
        {"&copy=2", Kind::MissingSemicolon}, {"&foo;", Kind::InvalidNamedReference},
        {"&#x110000;", Kind::OutsideValidUnicodeRange}, {"&#99999999999999999999;", Kind::OutsideValidUnicodeRange},
        {"&#;", Kind::MalformedNumericReference}, {"&#x;", Kind::MalformedNumericReference},
        {"&#XZ;", Kind::MalformedNumericReference}, {"&#x80;", Kind::DeprecatedNumericReference},
        {"&#1;", Kind::DeprecatedNumericReference}, {"&#xD;", Kind::DeprecatedNumericReference},
        {"&#xFDD0;", Kind::DeprecatedNumericReference}, {"&#x10FFFF;", Kind::DeprecatedNumericReference},
        {"&#0;", Kind::DisallowedNumericReference}, {"&#xDFFF;", Kind::DisallowedNumericReference},
        {"ok \xC3(", Kind::IllegalArgument},
        {"&#x80", Kind::DeprecatedNumericReference},  // the code point is reported before the ";"
    };
    for (const auto& [input, kind] : cases) {
        auto result = htmlUnescape(input, true);
        ASSERT_FALSE(result.ok()) << input;
        auto error = std::dynamic_pointer_cast<const ParseError>(result.error());
        ASSERT_TRUE(error) << input;
        EXPECT_EQ(error->kind(), kind) << input << ": " << error->description();
    }
}

TEST(HTMLUnescape, StrictTextsAndSuccesses) {
    auto failure = htmlUnescape("a &#x110000; b", true);
    ASSERT_FALSE(failure.ok());
    EXPECT_EQ(failure.error()->description(), "OutsideValidUnicodeRange: \"&#x110000;\" is outside the Unicode range");
    auto longDigits = htmlUnescape("&#" + std::string(100, '9') + ";", true);
    ASSERT_FALSE(longDigits.ok());
    EXPECT_EQ(longDigits.error()->description(),
              "OutsideValidUnicodeRange: \"&#" + std::string(30, '9') + "...\" is outside the Unicode range");

    auto success = htmlUnescape("AT&T a & b &lt;&#9;&#x10FFFD;&NotEqualTilde;", true);
    ASSERT_TRUE(success.ok());
    EXPECT_EQ(success.value(), "AT&T a & b <\t\U0010FFFD\u2242\u0338");
}

TEST(HTMLEntityTable, IsSortedForBinarySearch) {
    auto names = namedReferences();
    EXPECT_EQ(names.size(), 2125u);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end(),
                               [](const auto& a, const auto& b) { return a.name < b.name; }));
    EXPECT_EQ(std::count_if(names.begin(), names.end(), [](const auto& e) { return e.legacy; }), 106);
    auto preferred = preferredNames();
    EXPECT_TRUE(std::is_sorted(preferred.begin(), preferred.end(), [](const auto& a, const auto& b) {
        return std::pair(a.first, a.second) < std::pair(b.first, b.second);
    }));
}

TEST(HTMLRoundTrip, EveryNamedReference) {
    for (const auto& entry : namedReferences()) {
        std::string name = "&";
        name += entry.name;
        auto decoded = htmlUnescape(name, true);
        ASSERT_TRUE(decoded.ok()) << name;
        EXPECT_EQ(decoded.value(), text(entry)) << name;
        if (entry.legacy) {
            EXPECT_EQ(htmlUnescape(name.substr(0, name.size() - 1) + " "), text(entry) + " ") << name;
        }
        for (const auto& options : allOptions())
            EXPECT_EQ(htmlUnescape(escape(text(entry), options)), text(entry)) << name;
    }
}

TEST(HTMLRoundTrip, CodePointRunsAcrossTheRange) {
    // Runs of 4096 code points, so that neighbours also form multi-code-point characters: the
    // boundaries (ASCII, the surrogates, the end of the BMP and of the code space), the blocks
    // rich in combining and named characters, and a fixed spread of runs over every plane.
    std::vector<char32_t> starts = {0x0000, 0x1000, 0xA000, 0xC000, 0xD000, 0xE000, 0xF000,
                                    0x10000, 0x1D000, 0x1F000, 0xE0000, 0x10F000};
    for (char32_t start = 0x3000; start < 0x110000; start += 0x3B000) starts.push_back(start);
    for (const auto& options : allOptions()) {
        for (char32_t start : starts) {
            std::string original;
            for (char32_t c = start; c < start + 4096 && c <= 0x10FFFF; ++c)
                if (c < 0xD800 || c > 0xDFFF) original += utf8(c);
            std::string escaped = escape(original, options);
            ASSERT_TRUE(std::all_of(escaped.begin(), escaped.end(), [](char c) { return (unsigned char)c < 0x80; }));
            if (!options.allowUnsafeSymbols) {
                ASSERT_EQ(escaped.find_first_of("<>\"'"), std::string::npos);
            }
            std::string decoded = htmlUnescape(escaped);
            if (decoded != original) {
                auto at = std::mismatch(decoded.begin(), decoded.end(), original.begin(), original.end());
                FAIL() << "run from U+" << std::hex << unsigned(start) << " differs at byte " << std::dec
                       << (at.second - original.begin()) << " with options " << options.allowUnsafeSymbols
                       << options.decimal << options.encodeEverything << options.useNamedReferences;
            }
        }
    }
}
