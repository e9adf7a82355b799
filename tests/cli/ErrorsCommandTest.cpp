#include <gtest/gtest.h>

#include "support/RunCommand.h"

using namespace drovel::testing;

TEST(ErrorsCommand, PrintsOneJsonLinePerKindInRawValueOrder) {
    auto result = runCommand(cliCommand({"errors"}));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = result.out.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(result.out.substr(start, end - start));
    ASSERT_EQ(lines.size(), 10u);
    EXPECT_EQ(lines[0],
              R"({"raw":0,"case":"noLocationPermission","string":"noLocationPermission","description":"Location permission is missing"})");
    EXPECT_EQ(lines[7],
              R"({"raw":7,"case":"noBeaconInRange","string":"noBeaconInRange","description":"No beacon was found in range of this device"})");
    for (std::size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].rfind("{\"raw\":" + std::to_string(i) + ",", 0), 0u) << lines[i];
}

TEST(Cli, HelpAndVersion) {
    auto help = runCommand(cliCommand({"--help"}));
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("errors"), std::string::npos);
    auto version = runCommand(cliCommand({"--version"}));
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out.rfind("drovel-notify ", 0), 0u);
    auto unknown = runCommand(cliCommand({"no-such-command"}));
    EXPECT_NE(unknown.exitCode, 0);
}
