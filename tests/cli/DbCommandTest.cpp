#include <gtest/gtest.h>

#include "data/NotifyDBManager.h"
#include "support/RunCommand.h"
#include "support/TempDirectory.h"

using namespace drovel::testing;
using drovel::notify::NotifyDBManager;

// A file that is not a usable database is refused: HostileInputCommandTest and DrovelDBManagerTest.
TEST(DbMigrateCommand, CreatesAndReopens) {
    TempDirectory directory;
    const std::string path = directory.file("new/folder/DrovelNotify.sqlite");
    for (const char* needsInit : {"true", "false"}) {
        auto result = runCommand(cliCommand({"db", "migrate", path}));
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, std::string("{\"db_version\":7,\"needs_init\":") + needsInit + "}\n");
        EXPECT_EQ(result.err, "");
    }
}

// A database at v3 whose interest-area table went missing: v4 fails at its sixth step and v5 then
// lacks the notification table, but v6 and v7 still run, as in the module; the log lines go to
// standard error.
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
    for (const char* line : {"NotifyDBManager.migrateForVersion(_:)",
                             "Could not execute Notify migration v4 with error:no such table: notify_interest_area",
                             "Could not execute Notify migration v5 with error:"})
        EXPECT_NE(result.err.find(line), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("migration v6"), std::string::npos) << result.err;
}
