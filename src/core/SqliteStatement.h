#pragma once
// Prepared SQLite statements for DrovelDBManager: one statement with its parameter names, and a
// cache of them keyed by SQL text. Used only by DrovelDBManager.cpp, under its lock.

#include <sqlite3.h>

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace drovel::core {

// Throws DatabaseError with the connection's current message and extended result code.
[[noreturn]] void throwDatabaseError(sqlite3* db);

class SqliteStatement {
public:
    // Prepares sql, which must hold exactly one statement. Throws DatabaseError otherwise.
    SqliteStatement(sqlite3* db, std::string_view sql, bool persistent);
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    sqlite3_stmt* handle() const { return statement_.get(); }
    sqlite3* database() const { return db_; }
    const std::string& sql() const { return sql_; }

    // The 1-based index of the parameter that key names (":id", or "id" for any prefix), or 0 when
    // the statement has none. Keys are looked for first where the previous one was found, since a
    // record binds them in much the same order every row.
    int parameterIndex(std::string_view key);
    // Starts binding a new row.
    void beginRow() { hint_ = 0; }
    // Takes text over until clear(), so that it can be bound without a copy; nullptr when no room
    // is left (the caller then binds a copy).
    const std::string* keep(std::string&& text);

    // Steps once: true for a row, false when done; throws DatabaseError on failure.
    bool step();
    // Steps to the end, dropping rows.
    void run();
    // Readies the statement for its next use: reset, bindings cleared, kept texts released.
    void clear() noexcept;

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    sqlite3* db_;
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
    std::string sql_;
    std::vector<std::string> parameterNames_;  // [i] names parameter i + 1; empty for "?"
    int hint_ = 0;
    std::vector<std::string> kept_;  // reserved up front and never grown, so the texts stay put
};

// Statements by SQL text, least recently used dropped first. A statement is taken out while in
// use and given back afterwards, so a nested use of the same text prepares a second one.
class StatementCache {
public:
    StatementCache(sqlite3* db, std::size_t capacity) : db_(db), capacity_(capacity) {}

    std::unique_ptr<SqliteStatement> take(std::string_view sql);
    void giveBack(std::unique_ptr<SqliteStatement> statement);
    std::size_t size() const { return entries_.size(); }

private:
    sqlite3* db_;
    std::size_t capacity_;
    std::list<std::unique_ptr<SqliteStatement>> entries_;  // most recently used first
    // Keys view the statements' own SQL texts.
    std::unordered_map<std::string_view, std::list<std::unique_ptr<SqliteStatement>>::iterator> index_;
};

// A statement borrowed from the cache for one operation and given back, cleared, at scope exit.
class BorrowedStatement {
public:
    BorrowedStatement(StatementCache& cache, std::string_view sql) : cache_(cache), statement_(cache.take(sql)) {}
    ~BorrowedStatement() {
        statement_->clear();
        cache_.giveBack(std::move(statement_));
    }
    BorrowedStatement(const BorrowedStatement&) = delete;
    BorrowedStatement& operator=(const BorrowedStatement&) = delete;

    SqliteStatement& operator*() const { return *statement_; }
    SqliteStatement* operator->() const { return statement_.get(); }

private:
    StatementCache& cache_;
    std::unique_ptr<SqliteStatement> statement_;
};

}  // namespace drovel::core
