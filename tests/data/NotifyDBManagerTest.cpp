// The Notify database manager: the forgiving walk past a failed migration, filtered statements
// and the shared instance (made once, in a folder it creates).

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <tuple>

#include "data/NotifyDBManager.h"
#include "drovel/core/DrovelDBManager.h"
#include "drovel/notify/NotifyNotifications.h"
#include "drovel/notify/NotifyTriggerEvent.h"
#include "NotifyTestData.h"
#include "support/TempDirectory.h"

using namespace drovel::notify;
using drovel::core::DatabaseError;
using drovel::testing::logLines;
using drovel::testing::ScopedLogCapture;
using drovel::testing::TempDirectory;
using Version = NotifyDBManager::MigrationVersion;

// A failing statement skips the rest of its version and leaves dbVersion, with no rollback of the
// statements before it; the next versions still run and move dbVersion past the failed one.
TEST(NotifyDBManager, AFailedMigrationIsLoggedAndTheWalkGoesOn) {
    TempDirectory directory;
    std::vector<std::string_view> failingV5 = NotifyDBManager::statements(Version::v5);
    ASSERT_EQ(failingV5.size(), 2u);
    failingV5[1] = "UPDATE no_such_table SET content = '';";
    NotifyDBManager db(directory.file("DrovelNotify.sqlite"), false, [&](Version version) {
        return version == Version::v5 ? failingV5 : NotifyDBManager::statements(version);
    });

    ScopedLogCapture capture;
    for (Version version : NotifyDBManager::allMigrationVersions()) {
        db.migrateForVersion(version);
        const int expected = version == Version::v5 ? 4 : NotifyDBManager::rawValue(version);
        EXPECT_EQ(db.dbManager().dbVersion(), expected) << NotifyDBManager::caseName(version);
    }

    EXPECT_EQ(logLines(capture.sink()), std::vector<std::string>{"[error] DrovelNotify NotifyDBManager.migrateForVersion(_:): "
                                                                 "Could not execute Notify migration v5 with error:no such table: no_such_table"});

    // v5's first step stays; running v5 again now changes nothing, since dbVersion is past it.
    db.dbManager().execute("INSERT INTO notify_notification (campaign_id, content) VALUES (1, '{}');");
    db.migrateForVersion(Version::v5);
    EXPECT_EQ(db.dbManager().dbVersion(), 7);
    EXPECT_EQ(db.dbManager().fetchAll<NotifyNotifications>().size(), 1u);
    EXPECT_EQ(capture->records().size(), 1u);
}

TEST(NotifyDBManager, FilteredStatements) {
    const std::tuple<std::string_view, std::int64_t, std::string> cases[] = {
        {"DELETE FROM 'notify_trigger_event';", 42, "DELETE FROM 'notify_trigger_event' WHERE campaign_id=\"42\";"},
        {"SELECT a FROM t;", -7, "SELECT a FROM t WHERE campaign_id=\"-7\";"},
        {"SELECT a FROM t", 1, "SELECT a FROM t"},
        {"A; B;", std::numeric_limits<std::int64_t>::max(),
         "A WHERE campaign_id=\"9223372036854775807\"; B WHERE campaign_id=\"9223372036854775807\";"},
    };
    for (const auto& [statement, campaignID, expected] : cases)
        EXPECT_EQ(filteredStatement(statement, campaignID), expected) << statement;
}

// Trigger events on the migrated schema: no key, so the same event twice is two rows; the
// filtered statements select and delete by campaign, the quoted id matching the integer column.
TEST(NotifyDBManager, FilteredStatementsOnTheMigratedSchema) {
    TempDirectory directory;
    NotifyDBManager manager(directory.file("DrovelNotify.sqlite"), true);
    auto& db = manager.dbManager();
    const NotifyTriggerEvent event(Date(std::chrono::seconds(1709287200)), 42, 3);
    db.save(event);
    db.save(event);
    db.save(NotifyTriggerEvent(Date(std::chrono::seconds(1709287300)), 7, std::nullopt));
    EXPECT_EQ(db.fetch<NotifyTriggerEvent>(filteredStatement(drovel::core::Table<NotifyTriggerEvent>::selectAllStatement(), 42)),
              (std::vector<NotifyTriggerEvent>{event, event}));
    db.execute(filteredStatement(drovel::core::Table<NotifyTriggerEvent>::deleteAllStatement(), 42));
    auto left = db.fetchAll<NotifyTriggerEvent>();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].campaignID(), 7);
}

// The shared instance is process-wide, so it is examined in a child process that exits with the
// number of the first check that failed.
TEST(NotifyDBManagerDeathTest, SharedInstanceIsMadeOnceWithTheFirstUsableDirectory) {
    TempDirectory directory;
    const std::string first = directory.file("first/ApplicationSupport");
    const std::string second = directory.file("second");
    auto check = [&]() -> int {
        try {
            NotifyDBManager::shared("");
            return 1;
        } catch (const DatabaseError&) {
        }
        std::shared_ptr<NotifyDBManager> shared = NotifyDBManager::shared(first);
        NotifyDBManager& db = *shared;
        if (!db.needsInit() || db.dbManager().dbVersion() != 7) return 2;
        if (db.dbManager().path() != first + "/DrovelNotify.sqlite") return 3;
        if (NotifyDBManager::shared(second) != shared || std::filesystem::exists(second)) return 4;
        return 0;
    };
    EXPECT_EXIT(std::_Exit(check()), ::testing::ExitedWithCode(0), "");
}
