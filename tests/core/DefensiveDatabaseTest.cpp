// A database file is outside input: whatever it holds, opening and using it ends, and runs none of
// its code.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "data/NotifyDBManager.h"
#include "drovel/core/DrovelDBManager.h"
#include "support/TempDirectory.h"

using drovel::core::DatabaseError;
using drovel::core::DrovelDBManager;
using drovel::notify::NotifyDBManager;
using drovel::testing::TempDirectory;

namespace {

// A statement that never ends on its own.
constexpr const char* kRunaway = "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT count(*) FROM c";

// Runs SQL on the file with a plain connection, as someone who plants things in it would.
void plant(const std::string& path, const std::string& sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << (message ? message : "");
    sqlite3_free(message);
    sqlite3_close(db);
}

}  // namespace

TEST(DefensiveDatabase, ARunawayStatementIsAbandonedWithAClearError) {
    DrovelDBManager db(":memory:");
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            db.execute(kRunaway);
            FAIL() << "the statement ran to an end";
        } catch (const DatabaseError& error) {
            EXPECT_EQ(error.code(), SQLITE_INTERRUPT);
            EXPECT_STREQ(error.what(), "statement abandoned: it ran far longer than any statement of this database should");
        }
        // The connection is still usable, and the next statement gets a budget of its own.
        db.execute("CREATE TABLE IF NOT EXISTS t (x INTEGER); INSERT INTO t VALUES (1);");
    }
    EXPECT_THROW(db.execute(std::string("CREATE VIEW v AS ") + kRunaway + "; SELECT * FROM v;"), DatabaseError);
}

TEST(DefensiveDatabase, AFileWithAPlantedTriggerOrViewIsRefusedAndLeftAsItIs) {
    struct Case {
        const char* what;
        std::string sql;
    };
    const Case cases[] = {
        {"trigger on a table the migrations update",
         "PRAGMA user_version = 3; CREATE TRIGGER planted AFTER UPDATE ON notify_campaign BEGIN " + std::string(kRunaway) +
             "; END;"},
        {"view in place of a table", "DROP TABLE notify_site; CREATE VIEW notify_site AS " + std::string(kRunaway) + ";"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TempDirectory directory;
        const std::string path = directory.file("DrovelNotify.sqlite");
        { NotifyDBManager created(path, true); }
        plant(path, c.sql);
        const std::string before = drovel::testing::fileContents(path);
        try {
            NotifyDBManager reopened(path, true);
            FAIL() << "the file was opened";
        } catch (const DatabaseError& error) {
            EXPECT_EQ(std::string(error.what()), "Could not open the database at " + path +
                                                     ": the file holds triggers or views, which this database never has");
        }
        EXPECT_EQ(drovel::testing::fileContents(path), before);
    }
}

TEST(DefensiveDatabase, TriggersMadeOnTheConnectionDoNotFire) {
    DrovelDBManager db(":memory:");
    // The last insert breaks its CHECK when the trigger copied a row into log.
    EXPECT_NO_THROW(db.execute("CREATE TABLE t (x INTEGER); CREATE TABLE log (x INTEGER);"
                               "CREATE TRIGGER copy AFTER INSERT ON t BEGIN INSERT INTO log VALUES (new.x); END;"
                               "INSERT INTO t VALUES (1);"
                               "CREATE TABLE logged (n INTEGER CHECK (n = 0)); INSERT INTO logged SELECT count(*) FROM log;"));
}
