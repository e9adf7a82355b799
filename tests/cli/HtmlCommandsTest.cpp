#include <gtest/gtest.h>

#include "support/RunCommand.h"

using namespace drovel::testing;

TEST(EscapeCommand, OptionsAndOutput) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"escape", "é <b>"}, "&#xE9; &#x3C;b&#x3E;\n"},
        {{"escape", "--decimal", "é"}, "&#233;\n"},
        {{"escape", "--named", "é&"}, "&eacute;&amp;\n"},
        {{"escape", "--everything", "a"}, "&#x61;\n"},
        {{"escape", "--allow-unsafe", "<a href=\"x\">"}, "<a href=\"x\">\n"},
        {{"escape", ""}, "\n"},
    };
    for (const auto& [arguments, expected] : cases) {
        std::string command = cliCommand({});
        for (const auto& argument : arguments) command.append(" ").append(shellQuote(argument));
        auto result = runCommand(command);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, expected);
    }
}

TEST(UnescapeCommand, LenientStrictAndFailure) {
    auto lenient = runCommand(cliCommand({"unescape", "&lt;&#65 &foo;"}));
    EXPECT_EQ(lenient.exitCode, 0);
    EXPECT_EQ(lenient.out, "<A &foo;\n");

    auto strict = runCommand(cliCommand({"unescape", "--strict", "&lt;&#x41;"}));
    EXPECT_EQ(strict.exitCode, 0);
    EXPECT_EQ(strict.out, "<A\n");

    auto failure = runCommand(cliCommand({"unescape", "--strict", "x &#65 y"}));
    EXPECT_EQ(failure.exitCode, 1);
    EXPECT_EQ(failure.out, "");
    EXPECT_EQ(failure.err, "MissingSemicolon: \"&#65\" does not end with \";\"\n");

    auto missing = runCommand(cliCommand({"unescape"}));
    EXPECT_NE(missing.exitCode, 0);
}

TEST(StrftimeCommand, FormatsOrFails) {
    auto utc = runCommand(cliCommand({"strftime", "--utc", "%Y-%m-%dT%H:%M:%S%z", "1577934245"}));
    EXPECT_EQ(utc.exitCode, 0) << utc.err;
    EXPECT_EQ(utc.out, "2020-01-02T03:04:05+0000\n");

    auto local = runCommand("TZ=EST5 " + cliCommand({"strftime", "%H:%M %z", "-3600.5"}));
    EXPECT_EQ(local.exitCode, 0) << local.err;
    EXPECT_EQ(local.out, "18:00 -0500\n");

    auto empty = runCommand(cliCommand({"strftime", "", "0"}));
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_EQ(empty.out, "");
    EXPECT_NE(empty.err, "");

    for (const char* seconds : {"soon", "1e30", "nan"}) {
        auto bad = runCommand(cliCommand({"strftime", "%Y", seconds}));
        EXPECT_EQ(bad.exitCode, 2) << seconds;
        EXPECT_EQ(bad.out, "");
    }
}
