// The render and tokens commands, run as a user runs them.

#include <gtest/gtest.h>

#include "support/RunCommand.h"

using namespace drovel::testing;

namespace {

// The template language itself is tested in tests/template; these check what the command adds.
TEST(RenderCommand, RendersWithTheNotificationContext) {
    const std::pair<std::string, std::string> cases[] = {
        {"Hi {{ app.first_name }}, {{ app.points | plus: 50 }}!", "Hi ann, 170!\n"},
        {"{{ app.unknown }}", "{{ app.unknown }}\n"},  // empty output shows the template as written
    };
    for (const auto& [text, expected] : cases) {
        auto result = runCommand(cliCommand({"render", "--app", R"({"first_name":"ann","points":"120"})", text}));
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, expected) << text;
    }
}

TEST(RenderCommand, JsonOutputWithVariablesOfEveryKind) {
    std::string vars = R"({"i": 3, "d": 3.0, "e": 1e2, "big": 99999999999999999999, "s": "x", "t": true,
                           "n": null, "list": ["a", 1], "map": {"k": "v"}})";
    std::string text = "{% if i == 3 %}int{% endif %} {% if d == 3 %}no{% else %}dec{% endif %} {{ e }} {{ big }} "
                       "{{ s }}{{ t }}{{ n }} {{ list }} {{ map.k }}{{ oops here }}";
    auto result = runCommand(cliCommand({"render", "--json", "--vars", vars, text}));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out,
              R"({"output":"int dec 100 99999999999999999999 x a1 v","rendered":"int dec 100 99999999999999999999 x a1 v",)"
              R"("parse_errors":["Malformed expression: Unknown variable “here”."]})"
              "\n");

    auto empty = runCommand(cliCommand({"render", "--json", "{{ nothing }}"}));
    EXPECT_EQ(empty.out, R"({"output":"","rendered":"{{ nothing }}","parse_errors":[]})"
                         "\n");
}

TEST(RenderCommand, StandardInputAndRepeat) {
    auto piped = runCommand(cliCommand({"render", "--vars", R"({"who":"you"})", "--repeat", "5", "-"}),
                            "{% assign n = 1 %}hello {{ who }}\nline two");
    EXPECT_EQ(piped.exitCode, 0) << piped.err;
    EXPECT_EQ(piped.out, "hello you\nline two\n");
}

TEST(TokensCommand, PrintsTheTokensAsJson) {
    auto result = runCommand(cliCommand({"tokens", "Hi {{ name }}!{% if x %}{% raw %}{{ y }}{% endraw %} {{ z"}));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out,
              R"([{"kind":"text","value":"Hi "},{"kind":"variable","value":"name"},{"kind":"text","value":"!"},)"
              R"({"kind":"tag","value":"if x"},{"kind":"text","value":"{{ y }}"},{"kind":"tag","value":"endraw"},)"
              R"({"kind":"text","value":" "},{"kind":"text","value":""}])"
              "\n");
    EXPECT_EQ(runCommand(cliCommand({"tokens", ""})).out, "[]\n");
    EXPECT_EQ(runCommand(cliCommand({"tokens", "-"}), "{{a}}").out, R"([{"kind":"variable","value":"a"}])"
                                                                    "\n");
}

}  // namespace
