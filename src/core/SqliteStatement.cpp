#include "core/SqliteStatement.h"

#include <climits>

#include "drovel/core/DatabaseError.h"

namespace drovel::core {

namespace {

bool isParameterPrefix(char c) { return c == ':' || c == '@' || c == '$' || c == '?'; }

bool parameterMatches(std::string_view name, std::string_view key) {
    if (name == key) return true;
    // A bare coding key ("id") matches the parameter whatever its prefix.
    return !isParameterPrefix(key.front()) && name.size() == key.size() + 1 && name.substr(1) == key;
}

int checkedLength(std::string_view sql) {
    if (sql.size() > static_cast<std::size_t>(INT_MAX)) throw DatabaseError("SQL text too long", SQLITE_TOOBIG);
    return static_cast<int>(sql.size());
}

// True when text holds no further statement (only white space, semicolons or comments).
bool holdsNoStatement(sqlite3* db, const char* text, const char* end) {
    while (text < end && (*text == ' ' || *text == '\n' || *text == '\r' || *text == '\t' || *text == ';')) ++text;
    if (text == end) return true;
    sqlite3_stmt* statement = nullptr;
    int rc = sqlite3_prepare_v2(db, text, static_cast<int>(end - text), &statement, nullptr);
    sqlite3_finalize(statement);
    return rc == SQLITE_OK && statement == nullptr;
}

}  // namespace

void throwDatabaseError(sqlite3* db) {
    int code = sqlite3_extended_errcode(db);
    // Only DrovelDBManager's progress handler interrupts a statement.
    if (code == SQLITE_INTERRUPT)
        throw DatabaseError("statement abandoned: it ran far longer than any statement of this database should", code);
    throw DatabaseError(sqlite3_errmsg(db), code);
}

SqliteStatement::SqliteStatement(sqlite3* db, std::string_view sql, bool persistent) : db_(db), sql_(sql) {
    const char* tail = nullptr;
    sqlite3_stmt* statement = nullptr;
    int rc = sqlite3_prepare_v3(db, sql_.data(), checkedLength(sql_), persistent ? SQLITE_PREPARE_PERSISTENT : 0,
                                &statement, &tail);
    statement_.reset(statement);
    if (rc != SQLITE_OK) throwDatabaseError(db);
    if (statement == nullptr) throw DatabaseError("no SQL statement in the text", SQLITE_MISUSE);
    if (!holdsNoStatement(db, tail, sql_.data() + sql_.size()))
        throw DatabaseError("the SQL text holds more than one statement", SQLITE_MISUSE);
    int count = sqlite3_bind_parameter_count(statement);
    parameterNames_.reserve(count);
    for (int i = 1; i <= count; ++i) {
        const char* name = sqlite3_bind_parameter_name(statement, i);
        parameterNames_.emplace_back(name ? name : "");
    }
    kept_.reserve(count);
}

int SqliteStatement::parameterIndex(std::string_view key) {
    if (key.empty()) return 0;
    const int count = static_cast<int>(parameterNames_.size());
    if (hint_ < count && parameterMatches(parameterNames_[hint_], key)) return ++hint_;
    for (int i = 0; i < count; ++i) {
        if (parameterMatches(parameterNames_[i], key)) {
            hint_ = i + 1;
            return i + 1;
        }
    }
    return 0;
}

const std::string* SqliteStatement::keep(std::string&& text) {
    if (kept_.size() == kept_.capacity()) return nullptr;
    kept_.push_back(std::move(text));
    return &kept_.back();
}

bool SqliteStatement::step() {
    int rc = sqlite3_step(statement_.get());
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    throwDatabaseError(db_);
}

void SqliteStatement::run() {
    while (step()) {
    }
}

void SqliteStatement::clear() noexcept {
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
    kept_.clear();
}

std::unique_ptr<SqliteStatement> StatementCache::take(std::string_view sql) {
    auto found = index_.find(sql);
    if (found == index_.end()) return std::make_unique<SqliteStatement>(db_, sql, true);
    auto entry = found->second;
    std::unique_ptr<SqliteStatement> statement = std::move(*entry);
    index_.erase(found);
    entries_.erase(entry);
    return statement;
}

void StatementCache::giveBack(std::unique_ptr<SqliteStatement> statement) {
    // A nested use of the same text came back first: keep that one.
    if (capacity_ == 0 || index_.contains(statement->sql())) return;
    entries_.push_front(std::move(statement));
    index_.emplace(entries_.front()->sql(), entries_.begin());
    if (entries_.size() > capacity_) {
        index_.erase(entries_.back()->sql());
        entries_.pop_back();
    }
}

}  // namespace drovel::core
