// The rendering entry: fallbacks, abandoned renderings, the notification context, and hostile
// templates, which must render or fail cleanly with work linear in their size.

#include <gtest/gtest.h>

#include <algorithm>

#include "template/HostileTemplates.h"
#include "template/Parser.h"
#include "template/Render.h"
#include "template/TemplateTestSupport.h"

namespace drovel::templating {
namespace {

using namespace testing;
using Value = Token::Value;

std::shared_ptr<Context> app() {
    return makeAppContext({{"first_name", "ann"}, {"points", "120"}, {"store", "Main St"}, {"tier", "gold"}});
}

TEST(Render, NotificationTemplates) {
    const std::pair<const char*, const char*> cases[] = {
        {"Hi {{ app.first_name }}, your order is ready!", "Hi ann, your order is ready!"},
        {"{{ app.first_name }}, {{ app.points | plus: 50 }} points waiting at {{ app.store }}",
         "ann, 170 points waiting at Main St"},
        {"{% if app.tier == 'gold' %}Gold perk: free coffee{% elsif app.tier == 'silver' %}Silver perk{% else %}Welcome!{% endif %}",
         "Gold perk: free coffee"},
        {"{{ app }}{{ app.unknown }}", "{{ app }}{{ app.unknown }}"},  // empty output: shown as written
        {"{% if app.tier == 'silver' %}x{% endif %}", "{% if app.tier == 'silver' %}x{% endif %}"}, {"", ""},
        {"plain", "plain"}, {"[{{ app.k }}]", "[]"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(render(text, app()), expected) << text;
}

TEST(Render, ReportsOutputAndParseErrors) {
    auto rendering = renderTemplate("{{ a b }}", contextWith({{"a", integer(1)}}));
    EXPECT_EQ(rendering.output, "");
    EXPECT_EQ(rendering.rendered, "{{ a b }}");
    EXPECT_EQ(rendering.parseErrors, std::vector<std::string>{"Malformed expression: Unknown variable “b”."});
    EXPECT_FALSE(rendering.abandoned);
}

TEST(Render, AbandonsAReversedRangeAndShowsTheTextAsWritten) {
    LogCapture log;
    const char* text = "Hello {{ name }} {{ (3..1) }}";
    auto rendering = renderTemplate(text, contextWith({{"name", str("Ann")}}));
    EXPECT_TRUE(rendering.abandoned);
    EXPECT_EQ(rendering.rendered, text);
    EXPECT_EQ(log.lines, std::vector<std::string>{
                             "Template rendering abandoned: Range literal “(3..1)” has its lower bound above its upper bound"});
    EXPECT_EQ(render("{% if (9..2) %}x{% endif %}", contextWith()), "{% if (9..2) %}x{% endif %}");
}

// The counted work of rendering a text: it must render or be abandoned cleanly.
std::uint64_t workToRender(const std::string& text) {
    auto rendering = renderTemplate(text, contextWith({{"a", integer(1)}}));
    EXPECT_FALSE(rendering.rendered.empty());
    return rendering.tokenVisits;
}

TEST(Render, HostileTemplatesRenderInLinearWork) {
    LogCapture quiet;
    for (const auto& hostile : hostileTemplates()) {
        SCOPED_TRACE(hostile.name);
        // Scale so that the larger template is around a quarter of a megabyte.
        std::size_t unit = hostile.make(1).size();
        std::size_t n = std::max<std::size_t>(1, (1 << 18) / 16 / unit);
        std::uint64_t small = workToRender(hostile.make(n)), large = workToRender(hostile.make(16 * n));
        // Sixteen times the text: linear work is about sixteen times as much, quadratic 256 times.
        EXPECT_LE(large, 16 * small + 16) << small << " visits, then " << large;
    }
}

TEST(Render, ExpensiveTemplatesAreAbandonedWithinTheBudget) {
    LogCapture log;
    for (const auto& expensive : expensiveTemplates()) {
        SCOPED_TRACE(expensive.name);
        ASSERT_LE(expensive.text.size(), 64u << 10);
        auto rendering = renderTemplate(expensive.text, contextWith());
        EXPECT_TRUE(rendering.abandoned);
        EXPECT_TRUE(rendering.rendered == expensive.text);
        EXPECT_LE(rendering.tokenVisits, Parser::maximumTokenVisits + 1);
        // One charge may pass the limit before the rendering stops.
        EXPECT_LE(rendering.workBytes, 2 * Parser::maximumWorkBytes);
        EXPECT_LE(rendering.largestValueSize, Parser::maximumValueSize);
        EXPECT_LE(rendering.parseErrors.size(), Parser::maximumMessages);
        ASSERT_FALSE(log.lines.empty());
        EXPECT_TRUE(log.lines.back().starts_with("Template rendering abandoned: Template rendering exceeded its "))
            << log.lines.back();
    }
}

TEST(Render, NotificationTextsStayFarWithinTheBudget) {
    auto context = makeAppContext({{"first_name", "ann"}, {"points", "120"}, {"items", "Flat white;Muffin;Juice"}});
    auto rendering = renderTemplate(
        "Hi {{ app.first_name | capitalize }}! {% capture total %}{{ app.points | plus: 50 }}{% endcapture %}"
        "{% for item in app.items | split: ';' %} {{ forloop.index }}. {{ item | truncate: 8 }}{% endfor %} ({{ total }})",
        context);
    EXPECT_EQ(rendering.output, "Hi Ann!  1. Flat ... 2. Muffin 3. Juice (170)");
    EXPECT_LT(rendering.tokenVisits, 50u);
    EXPECT_LT(rendering.workBytes, 4096u);
}

TEST(Render, TenThousandNestedTags) {
    LogCapture log;
    // Compared by hand: a failure should not print megabytes of template.
    auto check = [](const std::string& text, std::string_view expected) {
        std::string rendered = render(text, contextWith());
        EXPECT_TRUE(rendered == expected) << rendered.substr(0, 80);
    };
    check(repeated("{% if true %}", 10000) + "deep" + repeated("{% endif %}", 10000), "deep");
    check(repeated("{% if false %}no{% else %}", 10000) + "yes" + repeated("{% endif %}", 10000), "yes");
    EXPECT_TRUE(log.lines.empty());
    check(repeated("{% if true %}", 10000) + "open", "open");
    EXPECT_EQ(log.lines.back(), "Unbalanced scopes!!");
}

TEST(Render, InvalidUtf8PassesThrough) {
    auto context = contextWith({{"x", str("\xFF")}});
    EXPECT_EQ(render("\xC3(\xFF {{ x }} \xE2\x82", context), "\xC3(\xFF \xFF \xE2\x82");
    EXPECT_EQ(render("{{ \xC3\xA9t\xC3 }}", context), "{{ \xC3\xA9t\xC3 }}");
}

}  // namespace
}  // namespace drovel::templating
