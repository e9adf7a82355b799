#include <gtest/gtest.h>

#include "support/RunCommand.h"

using namespace drovel::testing;

// The entity code and the formatter are tested on their own; these check what each option asks for
// and how a failure ends.
TEST(HtmlCommands, OptionsOutputAndFailures) {
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::string out, err;  // err "?": some message
    };
    const Case cases[] = {
        {{"escape", "é <b>"}, 0, "&#xE9; &#x3C;b&#x3E;\n", ""},
        {{"escape", "--decimal", "é"}, 0, "&#233;\n", ""},
        {{"escape", "--named", "é&"}, 0, "&eacute;&amp;\n", ""},
        {{"escape", "--everything", "a"}, 0, "&#x61;\n", ""},
        {{"escape", "--allow-unsafe", "<a href=\"x\">"}, 0, "<a href=\"x\">\n", ""},
        {{"unescape", "&lt;&#65 &foo;"}, 0, "<A &foo;\n", ""},
        {{"unescape", "--strict", "&lt;&#x41;"}, 0, "<A\n", ""},
        {{"unescape", "--strict", "x &#65 y"}, 1, "", "MissingSemicolon: \"&#65\" does not end with \";\"\n"},
        {{"strftime", "--utc", "%Y-%m-%dT%H:%M:%S%z", "1577934245"}, 0, "2020-01-02T03:04:05+0000\n", ""},
        {{"strftime", "", "0"}, 1, "", "?"},
        {{"strftime", "%Y", "soon"}, 2, "", "?"},
        {{"strftime", "%Y", "1e30"}, 2, "", "?"},
        {{"strftime", "%Y", "nan"}, 2, "", "?"},
    };
    for (const auto& c : cases) {
        auto result = runCommand(cliCommand(c.arguments));
        EXPECT_EQ(result.exitCode, c.exitCode) << c.arguments[1] << result.err;
        EXPECT_EQ(result.out, c.out) << c.arguments[1];
        if (c.err == "?") {
            EXPECT_NE(result.err, "") << c.arguments[1];
        } else {
            EXPECT_EQ(result.err, c.err) << c.arguments[1];
        }
    }
    EXPECT_NE(runCommand(cliCommand({"unescape"})).exitCode, 0);
    auto local = runCommand("TZ=EST5 " + cliCommand({"strftime", "%H:%M %z", "-3600.5"}));
    EXPECT_EQ(local.out, "18:00 -0500\n") << local.err;
}
