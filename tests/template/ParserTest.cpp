// The parser's token walk: scopes, the conditional tags, assign, and the messages of tag and
// structure problems.

#include <gtest/gtest.h>

#include <cctype>

#include "template/TagIf.h"
#include "template/TemplateTestSupport.h"

namespace drovel::templating {
namespace {

using namespace testing;

// A host's own tag: "{% shout x %}" writes x's value in capitals.
class TagShout : public RegisteredTag<TagShout> {
public:
    static constexpr std::string_view keywordText = "shout";
    static constexpr int tagKind = 1000;
    using RegisteredTag::RegisteredTag;

    std::span<const ExpressionSegment> tagExpression() const override {
        static constexpr ExpressionSegment segments[] = {{ExpressionSegment::Kind::variable, "value"}};
        return segments;
    }
    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& scope) override {
        if (auto error = Tag::parse(statement, parser, scope)) return error;
        std::string text = compiledExpression.find("value")->stringValue();
        for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        output = std::vector<Token::Value>{Token::Value::string(std::move(text))};
        return std::nullopt;
    }
};

TEST(Parser, AHostsOwnTagRendersBesideTheBuiltInsAndInLoops) {
    auto outcome = run<TagShout>("{% shout name %} {% for i in (1..2) %}{% shout 'x' | append: i %}{% if i == 2 %}"
                                 "{% shout name | append: '!' %}{% endif %}{% endfor %}{% shout %}{% nosuch %}");
    EXPECT_EQ(outcome.output, "ANN X1X2ANN!");
    EXPECT_EQ(outcome.log, (std::vector<std::string>{
                               "Tag “shout” skipped: Expected identifier or literal, found nothing.",
                               "Unknown tag keyword: “nosuch”"}));
    // Without it, the keyword is unknown.
    EXPECT_EQ(run<>("{% shout name %}").log, std::vector<std::string>{"Unknown tag keyword: “shout”"});
}

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

// A host tag that keeps the context it was made with, here the context of its loop pass.
class TagKeep : public RegisteredTag<TagKeep> {
public:
    static constexpr std::string_view keywordText = "keep";
    static constexpr TagKind tagKind = static_cast<TagKind>(100);
    static inline std::vector<std::shared_ptr<Context>> kept;

    explicit TagKeep(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) { kept.push_back(this->context); }
};

TEST(Parser, ALoopRefillsOnlyPassContextsThatNothingKeeps) {
    TagKeep::kept.clear();
    Parser parser(Lexer("{% for i in (1..3) %}{% keep %}{{ i }}{% endfor %}{% for j in (1..3) %}{{ j }}{% endfor %}").tokenize(),
                  sampleContext());
    parser.registerTag<TagKeep>();
    EXPECT_EQ(parser.parseJoined(), "123123");
    std::string seen;
    for (const auto& context : TagKeep::kept)
        if (const Token::Value* i = context->getValue("i")) i->appendStringValue(seen);
    EXPECT_EQ(seen, "123");
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
