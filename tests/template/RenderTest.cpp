// The rendering entry: fallbacks, abandoned renderings, the notification context, and hostile
// templates, which must render or fail cleanly in time linear in their size.

#include <gtest/gtest.h>

#include <ctime>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>

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
        {"{% if app.tier == 'silver' %}x{% endif %}", "{% if app.tier == 'silver' %}x{% endif %}"},
        {"", ""},
        {"plain", "plain"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(render(text, app()), expected) << text;
}

TEST(Render, NotificationContextHoldsOnlyApp) {
    auto context = makeAppContext({{"k", "v"}});
    EXPECT_EQ(context->variables.size(), 1u);
    EXPECT_EQ(*context->getValue("app"), Value::dictionary({{"k", str("v")}}));
    EXPECT_EQ(render("[{{ app.k }}]", makeAppContext({})), "[]");
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

std::string repeated(std::string_view piece, std::size_t count) {
    std::string out;
    out.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i) out += piece;
    return out;
}

struct Hostile {
    const char* name;
    std::function<std::string(std::size_t)> make;  // a template of roughly n repetitions
};

const Hostile hostileTemplates[] = {
    {"plain text", [](std::size_t n) { return repeated("lorem ipsum ", n); }},
    {"nested ifs", [](std::size_t n) { return repeated("{% if true %}", n) + "x" + repeated("{% endif %}", n); }},
    {"unclosed nested ifs", [](std::size_t n) { return repeated("{% if true %}<", n); }},
    {"elsif chain", [](std::size_t n) { return "{% if false %}" + repeated("{% elsif false %}-", n) + "{% else %}e{% endif %}"; }},
    {"unclosed output", [](std::size_t n) { return repeated("a", 1) + repeated("{{ x ", n); }},
    {"lone braces", [](std::size_t n) { return repeated("{x}%{ ", n); }},
    {"unterminated raw", [](std::size_t n) { return "{% raw %}" + repeated("{{ x }}{% endraw%}", n); }},
    {"statements", [](std::size_t n) { return repeated("{{ a | plus: 1 }} {% assign a = a | plus: 1 %}", n); }},
    {"long expression", [](std::size_t n) { return "{{ a == 1" + repeated(" and a == 1", n) + " }}"; }},
    {"range-like operand", [](std::size_t n) { return "{{ " + repeated("(a..(", n) + " }}"; }},
    {"deep key path", [](std::size_t n) { return "{{ a" + repeated(".a", n) + " }}"; }},
    {"combining marks", [](std::size_t n) { return "{{ x " + repeated("}}\xCC\x81{{\xCC\x81", n); }},
    {"invalid UTF-8", [](std::size_t n) { return repeated("\xFF{{\xC3 x\xE2\x82 }}\x80{%\xF0 if \xC0 %}", n); }},
};

// CPU time of this thread: unlike wall time, it does not grow when other tests share the cores.
double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double secondsToRender(const std::string& text) {
    double best = 1e9;
    for (int attempt = 0; attempt < 3; ++attempt) {
        auto context = contextWith({{"a", integer(1)}});
        double start = threadSeconds();
        auto rendering = renderTemplate(text, context);
        best = std::min(best, threadSeconds() - start);
        EXPECT_FALSE(rendering.rendered.empty());
    }
    return best;
}

TEST(Render, HostileTemplatesRenderInLinearTime) {
    LogCapture quiet;
    for (const auto& hostile : hostileTemplates) {
        SCOPED_TRACE(hostile.name);
        // Scale so that the larger template is around a megabyte.
        std::size_t unit = hostile.make(1).size();
        std::size_t n = std::max<std::size_t>(1, (1 << 20) / 16 / unit);
        std::string small = hostile.make(n), large = hostile.make(16 * n);
        double smallTime = secondsToRender(small), largeTime = secondsToRender(large);
        std::printf("%-20s %8zu bytes %8.3f ms (x%.1f for 16 times the text)\n", hostile.name, large.size(),
                    largeTime * 1000, largeTime / smallTime);
        EXPECT_LT(largeTime, 2.0) << large.size() << " bytes";
        // Sixteen times the text: linear time gives about 16 (up to twice that once the larger one
        // outgrows the caches), quadratic about 256. Tiny times are all noise.
        if (largeTime > 0.02) {
            EXPECT_LT(largeTime / smallTime, 64.0) << smallTime << "s vs " << largeTime << "s";
        }
    }
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
