#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include "drovel/core/DrovelDBManager.h"
#include "support/SqlRows.h"
#include "support/TempDirectory.h"

using namespace drovel::core;
namespace fs = std::filesystem;

namespace {

// Binds its keys out of table order, with and without prefix, leaves an absent note unbound, and
// binds a key the statement lacks.
struct TestRecord {
    std::int64_t id = 0;
    std::string name;
    std::optional<std::string> note;
    std::optional<std::int64_t> count;
    double score = 0;
    bool flag = false;

    static std::string_view createStatement() {
        return "CREATE TABLE 'test_record' (id INTEGER PRIMARY KEY NOT NULL, name TEXT NOT NULL, note TEXT, "
               "count INTEGER, score REAL NOT NULL CHECK (score >= 0), flag BOOLEAN NOT NULL DEFAULT 0);";
    }
    static std::string_view upsertStatement() {
        return "INSERT OR REPLACE INTO 'test_record' VALUES (:id, :name, :note, :count, :score, :flag);";
    }
    static std::string_view selectAllStatement() { return "SELECT * FROM 'test_record' ORDER BY id;"; }
    static std::string deleteAllStatement() { return "DELETE FROM 'test_record';"; }

    void bind(StatementBinder& binder) const {
        binder.bind(":flag", flag);
        binder.bind("name", name);
        binder.bind(":id", id);
        if (note) binder.bind(":note", std::string(*note));
        binder.bind(":count", count);
        binder.bind(":score", score);
        binder.bind(":not_in_statement", 1);
    }
    static TestRecord fromRow(const DatabaseRow& row) {
        return {row.get<std::int64_t>("id"), row.text("name"),     row.get<std::optional<std::string>>("note"),
                row.get<std::optional<std::int64_t>>(3), row.number("score"), row.boolean("flag")};
    }
    bool operator==(const TestRecord&) const = default;
};

// Runs any query through the decoder a test sets.
struct Probe {
    static inline std::function<void(const DatabaseRow&)> read;
    static std::string_view createStatement() { return ""; }
    static std::string_view upsertStatement() { return "INSERT INTO kinds VALUES (:a, :b, :c, @d, $e, :f, :g);"; }
    static std::string_view selectAllStatement() { return ""; }
    static std::string_view deleteAllStatement() { return ""; }
    // Every kind of value the binder takes.
    void bind(StatementBinder& binder) const {
        binder.bind(":a", nullptr);
        binder.bind(":b", std::optional<std::int64_t>());
        binder.bind(":c", std::uint16_t{7});
        binder.bind("d", 2.5f);
        binder.bind("$e", std::string_view("view"));
        binder.bind(":f", std::optional<double>(1.0));
        binder.bind(":g", "");
    }
    static Probe fromRow(const DatabaseRow& row) {
        read(row);
        return {};
    }
};

}  // namespace

template <>
struct drovel::core::Table<TestRecord> : drovel::testing::MemberTable<TestRecord> {};
template <>
struct drovel::core::Table<Probe> : drovel::testing::MemberTable<Probe> {};
static_assert(PersistableCodable<TestRecord> && !PersistableCodable<int>);

namespace {

const std::vector<TestRecord> samples = {
    {1, "first", "a note", 3, 1.5, true},
    {2, "", std::nullopt, std::nullopt, 0, false},
    {3, "third \"quoted\" \xC3\xA9", "multi\nline", -9007199254740993, 1e300, false},
};

class DrovelDBManagerTest : public ::testing::Test {
protected:
    std::unique_ptr<DrovelDBManager> openWithTable() {
        auto db = std::make_unique<DrovelDBManager>(folder.file("test.sqlite"));
        db->execute(TestRecord::createStatement());
        return db;
    }
    static std::int64_t count(DrovelDBManager& db, const std::string& sql = "SELECT count(*) FROM test_record;") {
        std::int64_t n = -1;
        Probe::read = [&](const DatabaseRow& row) { n = row.int64(0); };
        db.fetch<Probe>(sql);
        return n;
    }
    static std::string errorOf(const std::function<void()>& run) {
        try {
            run();
        } catch (const DatabaseError& error) {
            EXPECT_EQ(error.toError()->description(), error.description());
            return error.description();
        }
        return "(no error)";
    }

    drovel::testing::TempDirectory folder{"drovel-db-"};
};

TEST_F(DrovelDBManagerTest, CreatesParentFoldersAndKeepsTheVersionInTheFile) {
    const std::string path = folder.file("a/b/db.sqlite");
    {
        DrovelDBManager db(path);
        EXPECT_EQ(db.dbVersion(), 0);
        db.setDbVersion(7);
        Probe::read = [](const DatabaseRow& row) { EXPECT_EQ(row.text(0), "wal"); };
        db.fetch<Probe>("PRAGMA journal_mode;");
    }
    EXPECT_EQ(DrovelDBManager(path).dbVersion(), 7);
}

TEST_F(DrovelDBManagerTest, JunkFileIsReportedAndLeftUntouched) {
    const std::string path = folder.file("junk.sqlite");
    std::string junk(8192, '\0');
    std::mt19937 random(42);
    for (char& c : junk) c = static_cast<char>(random());
    std::ofstream(path, std::ios::binary) << junk;

    EXPECT_EQ(errorOf([&] { DrovelDBManager db(path); }),
              "Could not open the database at " + path + ": file is not a database");
    EXPECT_EQ(drovel::testing::fileContents(path), junk);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1) << "no -wal or -shm left";

    std::ofstream(folder.file("file")) << "x";
    for (const std::string& unopenable : {folder.path(), folder.file("file/db.sqlite")})
        EXPECT_THROW(DrovelDBManager{unopenable}, DatabaseError) << unopenable;
}

TEST_F(DrovelDBManagerTest, FailuresCarrySQLiteMessageAndLeaveTheManagerUsable) {
    auto db = openWithTable();
    db->save(samples);
    const std::pair<std::string, std::string> cases[] = {
        {"SELECT * FROM missing_table;", "no such table: missing_table"},
        {"INSERT INTO test_record (id, name, score) VALUES (1, 'dup', 0);", "UNIQUE constraint failed: test_record.id"},
    };
    for (const auto& [sql, message] : cases) {
        EXPECT_EQ(errorOf([&] { db->execute(sql); }), message);
        EXPECT_EQ(errorOf([&] { db->fetch<Probe>(sql); }), message);
        EXPECT_EQ(count(*db), 3) << sql;
    }
    // execute runs every statement of a text; record queries take exactly one.
    db->execute("DELETE FROM test_record WHERE id = 1; -- one\n DELETE FROM test_record WHERE id = 2;; /* two */ ");
    EXPECT_EQ(count(*db), 1);
    EXPECT_EQ(errorOf([&] { db->fetch<Probe>("SELECT 1; SELECT 2;"); }), "the SQL text holds more than one statement");
}

TEST_F(DrovelDBManagerTest, SavesFetchesReplacesAndDeletesRecords) {
    auto db = openWithTable();
    db->save(samples);
    // Row 2 leaves its note unbound: it must be NULL, not row 1's note.
    EXPECT_EQ(db->fetchAll<TestRecord>(), samples);
    EXPECT_EQ(db->fetch<TestRecord>("SELECT * FROM 'test_record' WHERE id=\"3\";"), std::vector{samples[2]});

    TestRecord replacement{1, "new", std::nullopt, std::nullopt, 2, false};
    db->save(replacement);
    EXPECT_EQ(db->fetchAll<TestRecord>(), (std::vector{replacement, samples[1], samples[2]}));

    db->deleteAll<TestRecord>();
    EXPECT_TRUE(db->fetchAll<TestRecord>().empty());

    db->execute("CREATE TABLE kinds (a, b, c, d, e, f, g);");
    db->save(Probe{});
    std::vector<std::string> types;
    Probe::read = [&](const DatabaseRow& row) {
        for (int i = 0; i < row.columnCount(); ++i) types.push_back(row.text(i));
    };
    db->fetch<Probe>("SELECT typeof(a), typeof(b), typeof(c), typeof(d), typeof(e), typeof(f), typeof(g) FROM kinds;");
    EXPECT_EQ(types, (std::vector<std::string>{"null", "null", "integer", "real", "text", "real", "text"}));
}

TEST_F(DrovelDBManagerTest, TransactionsCommitRollBackAndNest) {
    auto db = openWithTable();
    auto bad = samples;
    bad[1].score = -1;  // breaks the CHECK constraint
    EXPECT_THROW(db->save(bad), DatabaseError);
    EXPECT_EQ(count(*db), 0) << "a bulk save is all or nothing";
    {
        Transaction transaction(*db);
        db->save(samples[0]);
    }
    EXPECT_EQ(count(*db), 0) << "not committed: rolled back";
    {
        Transaction transaction(*db);
        db->save(samples[0]);
        {
            Transaction inner(*db);
            db->save(samples[1]);
        }
        {
            Transaction inner(*db);
            db->save(samples[2]);
            inner.commit();
        }
        EXPECT_THROW(db->save(bad), DatabaseError);  // its savepoint rolls back, the transaction goes on
        transaction.commit();
    }
    std::vector<std::int64_t> ids;
    for (const auto& record : db->fetchAll<TestRecord>()) ids.push_back(record.id);
    EXPECT_EQ(ids, (std::vector<std::int64_t>{1, 3}));
    DrovelDBManager other(folder.file("test.sqlite"));
    EXPECT_EQ(count(other), 2) << "committed data is in the file";
}

TEST_F(DrovelDBManagerTest, RowReadingErrorsNameTheColumn) {
    auto db = openWithTable();
    db->execute("INSERT INTO test_record VALUES (1, 'text', NULL, 70000, 2.5, 1);");
    const std::pair<std::function<void(const DatabaseRow&)>, std::string> cases[] = {
        {[](const DatabaseRow& row) { row.text("note"); }, "column 'note': expected text, found NULL"},
        {[](const DatabaseRow& row) { row.int64("name"); }, "column 'name': expected an integer, found text"},
        {[](const DatabaseRow& row) { row.int64("score"); }, "column 'score': expected an integer, found a real number"},
        {[](const DatabaseRow& row) { row.number("name"); }, "column 'name': expected a number, found text"},
        {[](const DatabaseRow& row) { row.get<bool>("note"); }, "column 'note': expected a boolean, found NULL"},
        {[](const DatabaseRow& row) { row.get<std::optional<std::uint16_t>>("count"); },
         "column 'count': value 70000 is out of range"},
        {[](const DatabaseRow& row) { row.isNull("missing"); }, "no column 'missing' in the result"},
        {[](const DatabaseRow& row) { row.int64(6); }, "no column 6 in the result"},
        {[](const DatabaseRow& row) { EXPECT_EQ(row.get<std::optional<std::int32_t>>("count"), 70000); }, "(no error)"},
    };
    for (const auto& [read, message] : cases) {
        Probe::read = read;
        EXPECT_EQ(errorOf([&] { db->fetch<Probe>("SELECT * FROM test_record;"); }), message);
    }
}

TEST_F(DrovelDBManagerTest, CachedStatementsSurviveEvictionSchemaChangesAndNestedUse) {
    auto db = openWithTable();
    db->save(samples);
    for (int round = 0; round < 2; ++round)  // more distinct queries than the cache holds
        for (int id = 0; id < 150; ++id)
            ASSERT_EQ(count(*db, "SELECT count(*) FROM test_record WHERE id <= " + std::to_string(id) + ";"),
                      std::min(id, 3));

    const std::string query = "SELECT * FROM test_record WHERE id = 1;";
    Probe::read = [](const DatabaseRow& row) { EXPECT_EQ(row.columnCount(), 6); };
    db->fetch<Probe>(query);
    db->execute("ALTER TABLE test_record ADD COLUMN extra TEXT DEFAULT 'added';");
    Probe::read = [](const DatabaseRow& row) { EXPECT_EQ(row.text("extra"), "added"); };
    db->fetch<Probe>(query);

    int depth = 0;  // a decoder that runs the same query while the first one is still stepping
    Probe::read = [&](const DatabaseRow& row) {
        if (depth++ == 0) db->fetch<Probe>(query);
        EXPECT_EQ(row.int64("id"), 1);
    };
    db->fetch<Probe>(query);
    EXPECT_EQ(depth, 2);
}

}  // namespace
