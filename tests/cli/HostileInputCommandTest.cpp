// The command-line tool given hostile input: far dates, oversized input, deep nesting and planted
// database code each end in a clear answer or a clear error.

#include <gtest/gtest.h>

#include <fstream>

#include "data/NotifyDBManager.h"
#include "support/RunCommand.h"
#include "support/TempDirectory.h"

using namespace drovel::testing;

namespace {

std::string inUTC(const std::string& command) { return "TZ=UTC " + command; }

}  // namespace

TEST(HostileInputCommand, DecodeShowsFarCampaignDaysAsTheirRealDates) {
    const std::string download =
        R"({"min_sync_interval_seconds":0,"data":[],"included":{"campaigns":[{"id":1,"region_type":"geofence",)"
        R"("start_day":"0001-01-01","end_day":"9999-12-31","repeat_interval_days":1,"content":{},"defer_on_pickup":false}]}})";
    auto result = runCommand(inUTC(cliCommand({"decode", "--full", "-"})), download);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find(R"("date_interval":{"start":-62135596800,"end":253402300799})"), std::string::npos)
        << result.out;
}

TEST(HostileInputCommand, DecodeRefusesInputLargerThanADownloadMayBe) {
    TempDirectory directory;
    const std::string path = directory.file("huge.json");
    // A valid document just past the limit: white space after the root value.
    {
        std::ofstream file(path, std::ios::binary);
        file << R"({"min_sync_interval_seconds":0,"data":[],"included":{}})";
        file << std::string((32u << 20) - 50, ' ');
    }
    auto fromFile = runCommand(cliCommand({"decode", path}));
    EXPECT_EQ(fromFile.exitCode, 1);
    EXPECT_EQ(fromFile.out, "");
    EXPECT_EQ(fromFile.err, path + " is larger than 33554432 bytes\n");

    auto fromInput = runCommand(cliCommand({"decode", "-"}) + " < " + shellQuote(path));
    EXPECT_EQ(fromInput.exitCode, 1);
    EXPECT_EQ(fromInput.err, "standard input is larger than 33554432 bytes\n");
}

TEST(HostileInputCommand, DeeplyNestedVariablesAreRefusedNotRecursedInto) {
    const std::string deep = R"({"a":)" + std::string(60000, '[') + std::string(60000, ']') + "}";
    auto result = runCommand(cliCommand({"render", "--vars", deep, "{{ a | size }}"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.err.starts_with("drovel-notify render: --vars: a[0][0]")) << result.err.substr(0, 200);
    EXPECT_TRUE(result.err.ends_with(": nesting too deep\n")) << result.err.substr(0, 200);

    // Nesting that real variables use is fine.
    const std::string shallow = R"({"a":)" + std::string(32, '[') + "1" + std::string(32, ']') + "}";
    auto rendered = runCommand(cliCommand({"render", "--vars", shallow, "{{ a | size }}"}));
    EXPECT_EQ(rendered.exitCode, 0) << rendered.err;
    EXPECT_EQ(rendered.out, "1\n");
}

TEST(HostileInputCommand, DbMigrateReportsAFileWithAPlantedTriggerAsUnusable) {
    TempDirectory directory;
    const std::string path = directory.file("DrovelNotify.sqlite");
    {
        drovel::notify::NotifyDBManager created(path, true);
        created.dbManager().execute(
            "PRAGMA user_version = 3; CREATE TRIGGER planted AFTER UPDATE ON notify_campaign "
            "BEGIN SELECT count(*) FROM (WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT x FROM c); END;");
    }
    auto result = runCommand(cliCommand({"db", "migrate", path}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Could not open the database at " + path +
                              ": the file holds triggers or views, which this database never has\n");
}
