#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "data/NotifyDBManager.h"
#include "support/RunCommand.h"
#include "support/TempDirectory.h"

using namespace drovel::testing;
using drovel::notify::NotifyDBManager;

namespace {

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

TEST(DbMigrateCommand, CreatesThenReopens) {
    TempDirectory directory;
    const std::string path = directory.file("new/folder/DrovelNotify.sqlite");

    auto created = runCommand(cliCommand({"db", "migrate", path}));
    EXPECT_EQ(created.exitCode, 0) << created.err;
    EXPECT_EQ(created.out, "{\"db_version\":7,\"needs_init\":true}\n");

    auto reopened = runCommand(cliCommand({"db", "migrate", path}));
    EXPECT_EQ(reopened.exitCode, 0) << reopened.err;
    EXPECT_EQ(reopened.out, "{\"db_version\":7,\"needs_init\":false}\n");
    EXPECT_EQ(reopened.err, "");
}

// A database at v3 whose interest-area table went missing: v4 fails at its sixth step and v5 then
// lacks the notification table, but v6 and v7 still run, as in the module.
TEST(DbMigrateCommand, ReportsFailedMigrationsAndGoesOn) {
    TempDirectory directory;
    const std::string path = directory.file("DrovelNotify.sqlite");
    {
        NotifyDBManager db(path, false);
        for (auto version : {NotifyDBManager::MigrationVersion::v1, NotifyDBManager::MigrationVersion::v2,
                             NotifyDBManager::MigrationVersion::v3})
            db.migrateForVersion(version);
        db.dbManager().execute("DROP TABLE notify_interest_area;");
    }
    auto result = runCommand(cliCommand({"db", "migrate", path}));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "{\"db_version\":7,\"needs_init\":false}\n");
    EXPECT_NE(result.err.find("NotifyDBManager.migrateForVersion(_:)"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("Could not execute Notify migration v4 with error:no such table: notify_interest_area"),
              std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("Could not execute Notify migration v5 with error:"), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("migration v6"), std::string::npos) << result.err;
}

TEST(DbMigrateCommand, LeavesOtherFilesUntouched) {
    TempDirectory directory;
    const std::string path = directory.file("notes.txt");
    const std::string text = "Not a database, but long enough to look like a header of one.\n";
    std::ofstream(path, std::ios::binary) << text;

    auto result = runCommand(cliCommand({"db", "migrate", path}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Could not open the database at " + path + ": file is not a database\n");
    EXPECT_EQ(contents(path), text);

    auto folder = runCommand(cliCommand({"db", "migrate", directory.path()}));
    EXPECT_EQ(folder.exitCode, 1);
    EXPECT_EQ(folder.out, "");
    EXPECT_NE(folder.err, "");
}
