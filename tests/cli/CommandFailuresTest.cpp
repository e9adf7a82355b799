// A command that fails prints nothing on standard output and only its message on standard error:
// 1 for input it cannot use, 2 for a bad option.

#include <gtest/gtest.h>

#include "support/RunCommand.h"

using namespace drovel::testing;

TEST(CommandFailures, PrintOnlyTheMessage) {
    const std::string noContent = R"({"min_sync_interval_seconds":1,"data":[{"campaign_id":1}],"included":{}})";
    const std::string empty = R"({"min_sync_interval_seconds":1,"data":[],"included":{}})";
    struct Case {
        std::vector<std::string> arguments;
        std::string input;
        int exitCode;
        std::string message;  // standard error; without a final line break, its start
    };
    const Case cases[] = {
        {{"decode", "-"}, noContent, 1, "data[0]: missing required key 'content'\n"},
        {{"decode", "--full", "-"}, noContent, 1, "data[0]: missing required key 'content'\n"},
        {{"decode", "/nonexistent/download.json"}, "", 1, "cannot read /nonexistent/download.json: No such file or directory\n"},
        {{"render-campaigns", "-"}, noContent, 1, "cannot decode the download: data[0]: missing required key 'content'\n"},
        {{"render-campaigns", "-"}, "{\"min_sync_interval_seconds\":1,", 1, "cannot decode the download: "},
        {{"render-campaigns", "/nonexistent/download.json"}, "", 1,
         "cannot read /nonexistent/download.json: No such file or directory\n"},
        {{"render-campaigns", "-", "--app", R"({"name":1})"}, empty, 2,
         "drovel-notify render-campaigns: --app: name: expected a string\n"},
        {{"render-campaigns", "-", "--app", "[]"}, empty, 2, "drovel-notify render-campaigns: --app: "},
        {{"render", "--vars", "[1, 2]", "x"}, "", 2, "drovel-notify render: --vars: "},
        {{"render", "--vars", "{\"a\": ", "x"}, "", 2, "drovel-notify render: --vars: "},
        {{"render", "--app", R"({"a": 1})", "x"}, "", 2, "drovel-notify render: --app: "},
    };
    for (const auto& c : cases) {
        const std::string command = cliCommand(c.arguments);
        auto result = runCommand(command, c.input);
        EXPECT_EQ(result.exitCode, c.exitCode) << command;
        EXPECT_EQ(result.out, "") << command;
        EXPECT_EQ(c.message.ends_with('\n') ? result.err : result.err.substr(0, c.message.size()), c.message) << command;
    }
}
