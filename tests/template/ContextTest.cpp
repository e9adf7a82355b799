// Contexts: host values, loop supplements with their counters and cycles, key paths and operands.

#include <gtest/gtest.h>

#include "template/Context.h"
#include "template/TemplateTestSupport.h"

namespace drovel::templating {
namespace {

using namespace testing;
using Value = Token::Value;

std::string show(const std::optional<Value>& value) {
    if (!value) return "(absent)";
    static const char* const names[] = {"bool", "string", "integer", "decimal", "array", "dictionary", "range", "nil"};
    std::string out = names[static_cast<int>(value->kind())];
    if (auto* flag = value->asBool()) return out + ":" + (*flag ? "true" : "false");
    return out + ":" + value->stringValue();
}

TEST(Context, HostValuesBecomeTemplateValues) {
    Context context(std::map<std::string, HostValue>{
        {"count", 3}, {"big", std::int64_t(1) << 40}, {"ratio", 0.25}, {"name", std::string("Ann")},
        {"literal", "Lee"}, {"flag", true}, {"missing", HostValue()}, {"list", std::vector<std::string>{"a"}},
        {"single", 1.5f},
    });
    const std::pair<const char*, const char*> expected[] = {
        {"count", "decimal:3"},  // host integers are deliberately stored as decimals
        {"big", "decimal:1099511627776"}, {"ratio", "decimal:0.25"}, {"name", "string:Ann"},
        {"literal", "string:Lee"},        {"flag", "bool:true"},     {"missing", "nil:"},
        {"list", "(absent)"},             {"single", "(absent)"},
    };
    for (const auto& [name, shown] : expected) {
        const Value* value = context.getValue(name);
        EXPECT_EQ(show(value ? std::optional(*value) : std::nullopt), shown) << name;
    }

    context.set(HostValue(std::vector<int>{1}), "name");  // not convertible: the old value stays
    EXPECT_EQ(*context.getValue("name"), str("Ann"));
    context.set(HostValue(7), "name");
    EXPECT_EQ(*context.getValue("name"), decimal("7"));
}

TEST(Context, SupplementsShadowAndPassThrough) {
    auto outer = contextWith({{"x", str("outer")}, {"y", str("why")}});
    auto loop = outer->makeSupplement({{"x", str("inner")}});
    auto nested = loop->makeSupplement({{"i", integer(1)}});
    EXPECT_EQ(*nested->getValue("x"), str("inner"));
    EXPECT_EQ(*nested->getValue("y"), str("why"));
    nested->set(str("set in loop"), "x");
    EXPECT_EQ(*outer->getValue("x"), str("set in loop"));  // lands in the outermost context
    EXPECT_EQ(*nested->getValue("x"), str("inner"));       // but stays shadowed inside the loop
    EXPECT_EQ(nested->incrementCounter("n"), 0);
    EXPECT_EQ(outer->incrementCounter("n"), 1);
    EXPECT_EQ(nested->next({str("p"), str("q")})->stringValue(), "p");
    EXPECT_EQ(outer->next({str("p"), str("q")})->stringValue(), "q");
    EXPECT_FALSE(outer->next({}).has_value());
    EXPECT_TRUE(loop->counters.empty());
}

TEST(Context, KeyPaths) {
    Context::Dictionary variables{
        {"app", Value::dictionary({{"first_name", str("Ann")}, {"prénom", str("Anne")}})},
        {"items", Value::array({Value::dictionary({{"name", str("first")}}), str("middle"),
                                Value::dictionary({{"name", str("last")}})})},
        {"empty", Value::array({})},
        {"order", Value::dictionary({{"lines", Value::array({Value::dictionary({{"sku", integer(42)}})})}})},
        {"text", str("plain")},
    };
    const std::pair<const char*, const char*> cases[] = {
        {"app.first_name", "string:Ann"}, {"app.prénom", "string:Anne"},
        {"app.pre\xCC\x81nom", "string:Anne"},  // decomposed spelling of the same key
        {"app.", "dictionary:"},
        {"-app.first_name", "string:Ann"},  // the first component is the first match anywhere
        {"app.missing", "(absent)"}, {"items[0].name", "string:first"}, {"items[1]", "string:middle"},
        {"items[1].name", "(absent)"}, {"items[3]", "(absent)"},
        {"items[٠]", "(absent)"},  // a digit of another script matches but is no index
        {"items.first.name", "string:first"},
        {"items.firstname", "string:first"},  // "first" and an optional dot are cut off the rest
        {"items.last.name", "string:last"}, {"items.last", "dictionary:"}, {"items.second", "(absent)"},
        {"empty.first", "(absent)"}, {"order.lines[0].sku", "integer:42"}, {"order.lines.first.sku", "integer:42"},
        {"text.length", "(absent)"}, {"...", "(absent)"},
    };
    for (const auto& [path, expected] : cases) {
        const Value* value = Context::valueForKeyPath(path, variables);
        EXPECT_EQ(show(value ? std::optional(*value) : std::nullopt), expected) << path;
    }
}

TEST(Context, KeyPathNamesMatchByEveryByte) {
    // Names of every length, each beside one that differs from it in a single byte.
    const char* const names[] = {"a", "b", "ab", "ax", "abc", "axc", "abcde", "abxde", "abcdefg", "abcdefx",
                                 "abcdefghij", "abcdxfghij", "abcdefghijklmnop", "abcdefghxjklmnop",
                                 "abcdefghijklmnopq", "abcdefghijklmnopx"};
    Context::Dictionary inner;
    for (const char* name : names) inner.set(name, str(name));
    auto context = contextWith({{"d", Value::dictionary(inner)}});
    for (const char* name : names)
        EXPECT_EQ(show(context->resolveOperand(std::string("d.") + name)), std::string("string:") + name) << name;
    for (const char* missing : {"c", "ay", "abd", "abcdf", "abcdefh", "abcdefghik", "abcdefghijklmnoq", "abcdefghijklmnopy"})
        EXPECT_EQ(show(context->resolveOperand(std::string("d.") + missing)), "(absent)") << missing;
}

TEST(Context, ResolvesOperands) {
    auto context = contextWith({{"a", integer(2)}, {"b", integer(5)}, {"name", str("Ann")},
                                {"user", Value::dictionary({{"age", integer(30)}})}, {"x.y", str("dotted name")},
                                {"half", decimal("2.5")}});
    const std::pair<const char*, const char*> cases[] = {
        {"true", "bool:true"}, {" false\n", "bool:false"}, {"(1..3)", "range:1..3"}, {"(a..b)", "range:2..5"},
        {"( 1 .. 3 )", "range:1..3"}, {"(007..10)", "range:7..10"}, {"(1...3)", "(absent)"},
        {"(1234567890123456789..1234567890123456790)", "range:1234567890123456789..1234567890123456790"},
        {"(half..b)", "range:2..5"},  // a decimal bound truncates
        {"(x..3)", "(absent)"},       // a bound without an integer: not a range, and nothing else fits
        {"\"quoted\"", "string:quoted"}, {"'single'", "string:single"}, {"''", "string:"},
        {"'''a''", "string:a"},  // every outer quote goes, paired or not
        {"'", "string:"}, {"'open", "(absent)"}, {"42", "integer:42"}, {"-7", "integer:-7"}, {"4.5", "decimal:4.5"},
        {"name", "string:Ann"}, {"user.age", "integer:30"},
        {"x.y", "string:dotted name"},  // no key path matched: the whole text by name
        {"user.missing", "(absent)"}, {"unknown", "(absent)"},
        {"3px", "decimal:3"},  // the decimal parse takes a prefix
        {"", "(absent)"}, {".5", "decimal:0.5"}, {"x(1..2)", "range:1..2"}, {"'(1..2)'", "range:1..2"},
        // A range anywhere in a path wins, whether or not the path's first names are found.
        {"unknown.x(1..2)", "range:1..2"}, {"user.age(1..2)", "range:1..2"}, {"name.x", "(absent)"},
        {"'x'y'", "string:x'y"}, {"\"it's\"", "string:it's"}, {"'(1..2) a'", "range:1..2"},
        // A quote followed by a combining mark is no quote; an accent inside the quotes stays.
        {"'a'\xCC\x81", "(absent)"}, {"'a\xCC\x81'", "string:a\xCC\x81"},
        {"0042", "integer:42"}, {"123456789012345678", "integer:123456789012345678"},
        {"9223372036854775807", "integer:9223372036854775807"}, {"9223372036854775808", "decimal:9223372036854775808"},
        {"12 ", "integer:12"}, {"1 2", "decimal:1"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(show(context->resolveOperand(text)), expected) << text;
    EXPECT_EQ(show(context->resolveOperand("name", true)), "(absent)");
    EXPECT_EQ(show(context->resolveOperand("true", true)), "bool:true");
    EXPECT_THROW(context->resolveOperand("(5..1)"), TemplateFatalError);

    // Where a variable's name looks like a literal, the forms keep their order: booleans, strings
    // and integers before variables, variables (key paths first) before decimals.
    auto shadowing = contextWith({{"true", str("var")}, {"'open", str("var")}, {"42", str("var")},
                                  {"3px", str("var")}, {"-x", str("var")}, {"1", Value::dictionary({{"5", str("path")}})},
                                  {"1.5", str("var")}, {"2.5", str("var")}});
    const std::pair<const char*, const char*> shadowed[] = {
        {"true", "bool:true"}, {"'open", "string:var"}, {"42", "integer:42"}, {"3px", "string:var"},
        {"-x", "string:var"}, {"1.5", "string:path"}, {"2.5", "string:var"}, {"2.50", "decimal:2.5"},
    };
    for (const auto& [text, expected] : shadowed) EXPECT_EQ(show(shadowing->resolveOperand(text)), expected) << text;
}

}  // namespace
}  // namespace drovel::templating
