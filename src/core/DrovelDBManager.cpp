#include "drovel/core/DrovelDBManager.h"

#include <climits>
#include <filesystem>
#include <optional>

#include "core/SqliteStatement.h"

namespace drovel::core {

namespace {

// Another connection (another process) may hold the write lock briefly; wait rather than fail.
constexpr int busyTimeoutMilliseconds = 5000;
// Enough for every record type's statements plus the filtered queries in use at one time.
constexpr std::size_t statementCacheCapacity = 64;
// The progress handler runs every stepsPerTick virtual-machine steps. A statement that runs for
// more than maxStatementTicks of them (20 million steps, a fraction of a second) is abandoned: the
// SDK's own statements stay far below (about 60 ticks for the largest, on a download of 10,000
// pairs). Counted in steps rather than time, so that the limit does not depend on the machine.
constexpr int stepsPerTick = 1000;
constexpr std::uint64_t maxStatementTicks = 20'000;

void configure(sqlite3* db, int option, int value) {
    if (sqlite3_db_config(db, option, value, nullptr) != SQLITE_OK) throwDatabaseError(db);
}

std::string_view typeName(int type) {
    switch (type) {
        case SQLITE_INTEGER: return "an integer";
        case SQLITE_FLOAT: return "a real number";
        case SQLITE_TEXT: return "text";
        case SQLITE_BLOB: return "a blob";
        default: return "NULL";
    }
}

bool isSpecialName(const std::string& path) { return path.empty() || path == ":memory:"; }

void createParentFolder(const std::string& path) {
    std::filesystem::path parent = std::filesystem::path(path).parent_path();
    if (parent.empty()) return;
    std::error_code error;
    std::filesystem::create_directories(parent, error);
    if (error) throw DatabaseError("Could not create the folder " + parent.string() + ": " + error.message(), SQLITE_CANTOPEN);
}

}  // namespace

// ---- StatementBinder ----

void StatementBinder::bind(std::string_view key, std::nullptr_t) {
    if (int index = statement_.parameterIndex(key))
        if (sqlite3_bind_null(statement_.handle(), index) != SQLITE_OK) throwDatabaseError(statement_.database());
}

void StatementBinder::bind(std::string_view key, std::int64_t value) {
    if (int index = statement_.parameterIndex(key))
        if (sqlite3_bind_int64(statement_.handle(), index, value) != SQLITE_OK) throwDatabaseError(statement_.database());
}

void StatementBinder::bind(std::string_view key, double value) {
    if (int index = statement_.parameterIndex(key))
        if (sqlite3_bind_double(statement_.handle(), index, value) != SQLITE_OK) throwDatabaseError(statement_.database());
}

void StatementBinder::bind(std::string_view key, std::string_view text) {
    if (int index = statement_.parameterIndex(key)) {
        // A null data pointer would bind NULL; an empty text must stay an empty text.
        const char* data = text.data() ? text.data() : "";
        if (sqlite3_bind_text64(statement_.handle(), index, data, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK)
            throwDatabaseError(statement_.database());
    }
}

void StatementBinder::bind(std::string_view key, std::string&& text) {
    int index = statement_.parameterIndex(key);
    if (index == 0) return;
    // The statement keeps the text until the row is written, so the database need not copy it.
    const std::string* kept = statement_.keep(std::move(text));
    int rc = kept ? sqlite3_bind_text64(statement_.handle(), index, kept->data(), kept->size(), SQLITE_STATIC, SQLITE_UTF8)
                  : sqlite3_bind_text64(statement_.handle(), index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    if (rc != SQLITE_OK) throwDatabaseError(statement_.database());
}

// ---- DatabaseRow ----

int DatabaseRow::columnCount() const { return static_cast<int>(names_.size()); }

std::string_view DatabaseRow::columnName(int index) const {
    if (index < 0 || index >= columnCount())
        throw DatabaseError("no column " + std::to_string(index) + " in the result");
    return names_[index];
}

int DatabaseRow::columnIndex(std::string_view name) const {
    const int count = columnCount();
    if (nameHint_ < count && names_[nameHint_] == name) return nameHint_++;
    for (int i = 0; i < count; ++i) {
        if (names_[i] == name) {
            nameHint_ = i + 1;
            return i;
        }
    }
    throw DatabaseError("no column '" + std::string(name) + "' in the result");
}

int DatabaseRow::resolve(const Column& column) const {
    if (column.index_ < 0) return columnIndex(column.name_);
    if (column.index_ >= columnCount())
        throw DatabaseError("no column " + std::to_string(column.index_) + " in the result");
    return column.index_;
}

void DatabaseRow::typeMismatch(int index, std::string_view expected) const {
    throw DatabaseError("column '" + std::string(names_[index]) + "': expected " + std::string(expected) + ", found " +
                        std::string(typeName(sqlite3_column_type(statement_, index))));
}

void DatabaseRow::outOfRange(int index, std::int64_t value) const {
    throw DatabaseError("column '" + std::string(names_[index]) + "': value " + std::to_string(value) + " is out of range");
}

bool DatabaseRow::isNull(Column column) const { return sqlite3_column_type(statement_, resolve(column)) == SQLITE_NULL; }

std::int64_t DatabaseRow::int64(Column column) const {
    int index = resolve(column);
    if (sqlite3_column_type(statement_, index) != SQLITE_INTEGER) typeMismatch(index, "an integer");
    return sqlite3_column_int64(statement_, index);
}

double DatabaseRow::number(Column column) const {
    int index = resolve(column);
    int type = sqlite3_column_type(statement_, index);
    if (type != SQLITE_INTEGER && type != SQLITE_FLOAT) typeMismatch(index, "a number");
    return sqlite3_column_double(statement_, index);
}

bool DatabaseRow::boolean(Column column) const {
    int index = resolve(column);
    if (sqlite3_column_type(statement_, index) != SQLITE_INTEGER) typeMismatch(index, "a boolean");
    return sqlite3_column_int64(statement_, index) != 0;
}

std::string_view DatabaseRow::textView(Column column) const {
    int index = resolve(column);
    if (sqlite3_column_type(statement_, index) != SQLITE_TEXT) typeMismatch(index, "text");
    const unsigned char* text = sqlite3_column_text(statement_, index);
    int size = sqlite3_column_bytes(statement_, index);
    if (text == nullptr) return {};
    return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(size)};
}

// ---- DrovelDBManager ----

DrovelDBManager::DrovelDBManager(const std::string& atPath) : path_(atPath) {
    if (!isSpecialName(path_)) createParentFolder(path_);
    int rc = sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        std::string message = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
        sqlite3_close_v2(db_);
        throw DatabaseError("Could not open the database at " + path_ + ": " + message, rc);
    }
    try {
        sqlite3_extended_result_codes(db_, 1);
        sqlite3_busy_timeout(db_, busyTimeoutMilliseconds);
        // The file may have been changed behind the SDK's back (a restored backup, another app, a
        // planted file). The SDK's schema has no triggers or views, and its statements call no
        // functions from the schema, so none of that may run; and no statement may run unbounded.
        configure(db_, SQLITE_DBCONFIG_DEFENSIVE, 1);
        configure(db_, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0);
        configure(db_, SQLITE_DBCONFIG_ENABLE_VIEW, 0);
        configure(db_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0);
        sqlite3_progress_handler(db_, stepsPerTick, &DrovelDBManager::onProgress, this);
        cache_ = std::make_unique<StatementCache>(db_, statementCacheCapacity);
        // Reading the schema is what finds out that the file is not a database. It must come
        // before anything that could write to the file, so that such a file is left as it was.
        // A trigger or a view is not the SDK's: such a file is refused as it stands.
        std::int64_t foreign = 0;
        readRows("SELECT count(*) FROM sqlite_master WHERE type IN ('trigger', 'view');",
                 [&](const DatabaseRow& row) { foreign = row.int64(0); });
        if (foreign > 0) throw DatabaseError("the file holds triggers or views, which this database never has", SQLITE_CORRUPT);
        executeLocked("PRAGMA journal_mode=WAL;");
        // In WAL mode this still keeps the file consistent after a crash; only the last
        // transactions may be lost on power failure.
        executeLocked("PRAGMA synchronous=NORMAL;");
        // A checkpoint runs in the writing thread and syncs the file twice; a campaigns download
        // alone writes about a thousand pages, so let the log grow to a few downloads first.
        executeLocked("PRAGMA wal_autocheckpoint=4000;");
        // A large download is stored in one transaction; with SQLite's default 2 MB page cache its
        // pages spill to the log before the commit, which costs writes and cache misses. The cache
        // only grows as far as a transaction needs.
        executeLocked("PRAGMA cache_size=-16384;");
    } catch (const DatabaseError& error) {
        cache_.reset();
        sqlite3_close_v2(db_);
        throw DatabaseError("Could not open the database at " + path_ + ": " + error.what(), error.code());
    }
}

int DrovelDBManager::onProgress(void* manager) {
    auto* self = static_cast<DrovelDBManager*>(manager);
    return ++self->statementTicks_ > maxStatementTicks ? 1 : 0;
}

DrovelDBManager::~DrovelDBManager() {
    cache_.reset();
    sqlite3_close_v2(db_);
}

void DrovelDBManager::enableTriggersForTesting() {
    std::lock_guard lock(mutex_);
    configure(db_, SQLITE_DBCONFIG_ENABLE_TRIGGER, 1);
}

int DrovelDBManager::dbVersion() const {
    int version = 0;
    readRows("PRAGMA user_version;", [&](const DatabaseRow& row) {
        version = static_cast<int>(row.int64(0));
    });
    return version;
}

void DrovelDBManager::setDbVersion(int version) { execute("PRAGMA user_version = " + std::to_string(version) + ";"); }

void DrovelDBManager::execute(std::string_view raw) {
    std::lock_guard lock(mutex_);
    executeLocked(raw);
}

void DrovelDBManager::executeLocked(std::string_view raw) {
    if (raw.size() > static_cast<std::size_t>(INT_MAX)) throw DatabaseError("SQL text too long", SQLITE_TOOBIG);
    const char* text = raw.data();
    const char* end = raw.data() + raw.size();
    while (text < end) {
        sqlite3_stmt* handle = nullptr;
        const char* next = nullptr;
        if (sqlite3_prepare_v2(db_, text, static_cast<int>(end - text), &handle, &next) != SQLITE_OK) fail();
        // Migration texts and filtered deletes are mostly run once, so they are not cached.
        std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(handle, sqlite3_finalize);
        if (handle) {
            statementTicks_ = 0;
            int rc;
            while ((rc = sqlite3_step(handle)) == SQLITE_ROW) {
            }
            if (rc != SQLITE_DONE) fail();
        }
        if (next == nullptr || next <= text) break;
        text = next;
    }
}

void DrovelDBManager::fail() const { throwDatabaseError(db_); }

void DrovelDBManager::writeRows(std::string_view sql, std::size_t count,
                                FunctionRef<void(StatementBinder&, std::size_t)> bindRow) {
    std::lock_guard lock(mutex_);
    if (count == 0) return;
    std::optional<Transaction> transaction;
    if (count > 1) transaction.emplace(*this);
    {
        BorrowedStatement statement(*cache_, sql);
        StatementBinder binder(*statement);
        for (std::size_t i = 0; i < count; ++i) {
            statement->beginRow();
            bindRow(binder, i);
            statementTicks_ = 0;
            statement->run();
            statement->clear();
        }
    }
    if (transaction) transaction->commit();
}

void DrovelDBManager::readRows(std::string_view sql, FunctionRef<void(const DatabaseRow&)> onRow) const {
    std::lock_guard lock(mutex_);
    BorrowedStatement statement(*cache_, sql);
    std::vector<std::string_view> names;
    bool first = true;
    statementTicks_ = 0;
    while (statement->step()) {
        if (first) {
            // Names are read after the first step: a statement prepared before a schema change
            // is prepared again by that step and may name its columns differently.
            first = false;
            int count = sqlite3_column_count(statement->handle());
            names.reserve(count);
            for (int i = 0; i < count; ++i) {
                const char* name = sqlite3_column_name(statement->handle(), i);
                names.emplace_back(name ? name : "");
            }
        }
        onRow(DatabaseRow(statement->handle(), names));
    }
}

// ---- Transaction ----

Transaction::Transaction(DrovelDBManager& db) : db_(db) {
    std::lock_guard lock(db.mutex_);
    if (sqlite3_get_autocommit(db.db_)) {
        db.executeLocked("BEGIN IMMEDIATE;");
    } else {
        savepoint_ = "drovel_savepoint_" + std::to_string(++db.savepointCounter_);
        db.executeLocked("SAVEPOINT " + savepoint_ + ";");
    }
}

Transaction::~Transaction() { rollback(); }

void Transaction::commit() {
    if (done_) return;
    std::lock_guard lock(db_.mutex_);
    db_.executeLocked(savepoint_.empty() ? std::string("COMMIT;") : "RELEASE " + savepoint_ + ";");
    done_ = true;
}

void Transaction::rollback() noexcept {
    if (done_) return;
    done_ = true;
    try {
        std::lock_guard lock(db_.mutex_);
        if (savepoint_.empty()) {
            // SQLite may have rolled back already after certain failures (a full disk, say).
            if (!sqlite3_get_autocommit(db_.db_)) db_.executeLocked("ROLLBACK;");
        } else {
            db_.executeLocked("ROLLBACK TO " + savepoint_ + "; RELEASE " + savepoint_ + ";");
        }
    } catch (...) {
        // Nothing more can be done from a destructor; SQLite ends the transaction when the
        // connection closes at the latest.
    }
}

}  // namespace drovel::core
