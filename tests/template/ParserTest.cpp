// The parser's token walk: scopes, the conditional tags, assign, loops (through a loop tag of
// its own, as a host would register one), and the messages of tag and structure problems.

#include <gtest/gtest.h>

#include "template/Tag.h"
#include "template/TagIf.h"
#include "template/TemplateTestSupport.h"

namespace drovel::templating {
namespace {

using namespace testing;
using Value = Token::Value;

// "repeat NAME in LIST ... endrepeat": a minimal loop, to drive the walk's loop passes.
class TestRepeat : public RegisteredTag<TestRepeat>, public IterationTag {
public:
    static constexpr std::string_view keywordText = "repeat";
    static constexpr auto tagKind = static_cast<TagKind>(100);
    explicit TestRepeat(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override {
        static constexpr ExpressionSegment grammar[] = {{ExpressionSegment::Kind::identifier, "name"},
                                                        {ExpressionSegment::Kind::literal, "in"},
                                                        {ExpressionSegment::Kind::variable, "list"}};
        return grammar;
    }
    bool definesScope() const override { return true; }
    void didDefine(Parser::Scope& scope, Parser&) override {
        if (items().empty()) scope.setOutputState(Parser::Scope::OutputState::disabled);
    }
    IterationTag* iterationTag() override { return this; }
    std::shared_ptr<Context> iterationContext() override { return pass(); }
    std::shared_ptr<Context> nextIterationContext() override { return passes_ < items().size() ? pass() : nullptr; }
    std::int64_t iterated() const override { return static_cast<std::int64_t>(passes_); }

private:
    const Value::Array& items() const {
        static const Value::Array none;
        auto* list = compiledExpression.find("list")->asArray();
        return list ? *list : none;
    }
    std::shared_ptr<Context> pass() {
        Context::Dictionary variables;
        if (passes_ < items().size()) variables.set(*compiledExpression.find("name")->asString(), items()[passes_++]);
        return context->makeSupplement(std::move(variables));
    }
    std::size_t passes_ = 0;
};

class TestEndRepeat : public BlockEndTag<TestEndRepeat, static_cast<TagKind>(100)> {
public:
    static constexpr std::string_view keywordText = "endrepeat";
    static constexpr auto tagKind = static_cast<TagKind>(101);
    explicit TestEndRepeat(std::shared_ptr<Context> context) : BlockEndTag(std::move(context)) {}

    std::span<const int> terminatesScopesWithTags() const override {
        static constexpr int kinds[] = {100, static_cast<int>(TagKind::Else)};
        return kinds;
    }
};

TEST(Parser, Conditionals) {
    const std::pair<const char*, const char*> cases[] = {
        {"{% if true %}yes{% endif %}", "yes"}, {"{% if false %}yes{% else %}no{% endif %}", "no"},
        {"{% if tier == 'gold' %}G{% elsif tier == 'silver' %}S{% else %}W{% endif %}", "G"},
        {"{% if tier == 'x' %}G{% elsif tier == 'gold' %}S{% else %}W{% endif %}", "S"},
        {"{% if tier == 'x' %}G{% elsif tier == 'y' %}S{% else %}W{% endif %}", "W"},
        {"{% if true %}A{% elsif true %}B{% else %}C{% endif %}", "A"},
        {"{% if missing %}A{% elsif name %}B{% endif %}", "B"},
        {"{% if '' %}empty strings are truthy{% endif %}", "empty strings are truthy"},
        {"a{% if false %}A{% if true %}B{% else %}C{% endif %}D{% else %}E{% endif %}z", "aEz"},
        {"{% if true %}{% if false %}X{% elsif true %}Y{% endif %}{% endif %}", "Y"},
        {"{% if false %}{% if false %}X{% else %}Y{% endif %}{% endif %}Z", "Z"},
        {"{% if\tflag\n%}tabs{% endif %}", "tabs"},
        {"{{ true }}|{{ flag }}|{{ false }}", "||"},  // booleans print as nothing
        {"{% assign n = points | plus: 1 %}{{ n }}", "121"},
        {"{% if false %}{% assign y = 1 %}{% endif %}[{{ y }}]", "[]"},
        {"{% if name == 'Ann' %}{% assign z = 2 %}{% endif %}{{ z }}", "2"},
    };
    expectRenders(cases);
}

TEST(Parser, LoopsOfARegisteredTag) {
    const std::pair<const char*, const char*> cases[] = {
        {"{% repeat i in list %}[{{ i }}]{% endrepeat %}", "[1][2][3]"},
        {"{% repeat i in empty %}x{% else %}none{% endrepeat %}", "none"},
        {"{% if false %}{% repeat i in empty %}{% else %}E{% endrepeat %}{% endif %}.", "."},
        {"{% repeat i in pair %}{% repeat j in list %}{{ i }}{{ j }} {% if j == 2 %}|{% endif %}{% endrepeat %}{% endrepeat %}",
         "a1 a2 |a3 b1 b2 |b3 "},
        {"{% repeat i in list %}{% assign last = i %}{% endrepeat %}{{ last }}", "3"},
        // A dotted path inside a loop reads the loop's variables only.
        {"{% repeat item in items %}{{ item.name }}-{{ user.name }}-{{ name }} {% endrepeat %}", "tea--Ann cake--Ann "},
    };
    expectRenders<TestRepeat, TestEndRepeat>(cases);
}

TEST(Parser, TagAndStructureProblemsAreLoggedAndSkipped) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"a{% bogus x %}b", "ab", "Unknown tag keyword: “bogus”"}, {"a{% %}b", "ab", "Malformed tag: “”"},
        {"a{%\n%}b", "ab", "Malformed tag: “\n”"},
        {"{% raw %}{{ x }}{% endraw %}", "{{ x }}", "Unknown tag keyword: “endraw”"},
        {"{% if true %}open", "open", "Unbalanced scopes!!"}, {"{%- if true -%}x", "x", "Unknown tag keyword: “-”"},
        {"{% if %}x", "x", "Tag “if” skipped: Expected identifier or literal, found nothing."},
        {"{% assign %}", "", "Tag “assign” skipped: Expected identifier, found nothing."},
        {"{% assign x %}", "", "Tag “assign” skipped: Expected literal “=”, found nothing."},
        {"{% assign x == 1 %}", "", "Tag “assign” skipped: Unexpected statement “==”, expected “=”"},
        {"{% if true %}x{% endif now %}", "x", "Tag “endif” skipped: Expected end of tag expression, but found now"},
        {"{{ 1 | nope }}", "1", "Unknown filter name: nope. Stopping filter processing."},
    };
    expectLogs(cases);
    // A stray end tag outside any block changes nothing.
    EXPECT_EQ(run("a{% endif %}b").output, "ab");
}

TEST(Parser, ExpressionErrorsAreCollectedOnlyWhereEvaluated) {
    auto outcome = run("{{ a b }}|{% if false %}{{ c d }}{% endif %}|{% if x y %}hidden{% endif %}");
    EXPECT_EQ(outcome.output, "||");
    EXPECT_EQ(outcome.errors, (std::vector<std::string>{"Malformed expression: Unknown variable “b”.",
                                                        "Malformed expression: Unknown variable “y”."}));
}

TEST(Parser, ParseReturnsOneStringPerStatementInOrder) {
    Parser parser(Lexer("a{{ name }}{% if true %}b{{ 1 }}{% endif %}c{% if false %}d{% endif %}").tokenize(), sampleContext());
    EXPECT_EQ(parser.parse(), (std::vector<std::string>{"a", "Ann", "b", "1", "c"}));
    EXPECT_EQ(parser.parse(), (std::vector<std::string>{"a", "Ann", "b", "1", "c"}));  // walked once only
}

TEST(Parser, RegistriesAndScopes) {
    Parser parser({}, nullptr);
    parser.registerTag<TagIf>();
    EXPECT_EQ(parser.tags().at("if").size(), 2u);
    EXPECT_EQ(Parser({}, nullptr).tags().at("if").size(), 1u);

    LogCapture log;
    parser.leaveScope(parser.rootScope());
    EXPECT_EQ(log.lines, std::vector<std::string>{"terminating scope tag scope has no parent scope!!!"});
    EXPECT_EQ(&parser.currentScope(), &parser.rootScope());
}

}  // namespace
}  // namespace drovel::templating
