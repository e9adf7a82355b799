#pragma once
// The core library's SQLite database: one file, opened once, shared by the records stored in it
// (PersistableCodable).
//
// Threads: a DrovelDBManager is meant to be used from one thread at a time; callers serialise
// their use of it. Each single call also holds an internal lock, so two calls made at the same
// time from two threads do not corrupt anything, but a Transaction is not private to the thread
// that opened it: another thread's calls in the meantime become part of it.
//
// Errors: every operation throws DatabaseError with SQLite's message when it fails.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "drovel/core/DatabaseError.h"

struct sqlite3;
struct sqlite3_stmt;

namespace drovel::core {

class SqliteStatement;
class StatementCache;

namespace detail {
template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;
}  // namespace detail

// Binds a record's values to the named parameters of the statement being run ("INSERT ... VALUES
// (:id, :name)"). Keys are matched against the parameter names as written (":id"); a key without
// a prefix ("id") matches a parameter of that name with any prefix. A key the statement lacks is
// ignored, and a parameter that no key reaches stays NULL. Binding a key twice keeps the last value.
class StatementBinder {
public:
    void bind(std::string_view key, std::nullptr_t);
    void bind(std::string_view key, std::nullopt_t) { bind(key, nullptr); }
    void bind(std::string_view key, bool value) { bind(key, static_cast<std::int64_t>(value ? 1 : 0)); }
    void bind(std::string_view key, std::int64_t value);
    template <std::integral I>
        requires(!std::same_as<I, bool> && !std::same_as<I, std::int64_t>)
    void bind(std::string_view key, I value);
    void bind(std::string_view key, double value);
    void bind(std::string_view key, float value) { bind(key, static_cast<double>(value)); }
    // Text is copied by the database unless it is handed over as a temporary std::string.
    void bind(std::string_view key, std::string_view text);
    void bind(std::string_view key, const std::string& text) { bind(key, std::string_view(text)); }
    void bind(std::string_view key, const char* text) { bind(key, std::string_view(text)); }
    void bind(std::string_view key, std::string&& text);
    template <class T>
    void bind(std::string_view key, const std::optional<T>& value) {
        if (value) bind(key, *value);
        else bind(key, nullptr);
    }

private:
    friend class DrovelDBManager;
    explicit StatementBinder(SqliteStatement& statement) : statement_(statement) {}
    SqliteStatement& statement_;
};

// One result row of a query, valid only inside the Table<T>::fromRow call that receives it. Columns are
// addressed by position (from 0) or by name as the query names them ("id", or an alias).
// Reading a column of another type, or NULL where a value is required, or asking for a column the
// query lacks, throws DatabaseError naming the column.
class DatabaseRow {
public:
    class Column {
    public:
        Column(int index) : index_(index) {}
        Column(std::string_view name) : name_(name) {}
        Column(const char* name) : name_(name) {}

    private:
        friend class DatabaseRow;
        int index_ = -1;
        std::string_view name_;
    };

    int columnCount() const;
    std::string_view columnName(int index) const;
    // Position of the named column.
    int columnIndex(std::string_view name) const;

    bool isNull(Column column) const;
    // INTEGER values only.
    std::int64_t int64(Column column) const;
    // INTEGER or REAL values.
    double number(Column column) const;
    // INTEGER values: 0 is false, anything else true (how SQLite stores booleans).
    bool boolean(Column column) const;
    // TEXT values. The view is valid until the row moves on.
    std::string_view textView(Column column) const;
    std::string text(Column column) const { return std::string(textView(column)); }

    // Typed access for record decoders: T is an integer type (range-checked), double, bool,
    // std::string, or std::optional of one of them (NULL gives an absent value).
    template <class T>
    T get(Column column) const;

private:
    friend class DrovelDBManager;
    DatabaseRow(sqlite3_stmt* statement, const std::vector<std::string_view>& names)
        : statement_(statement), names_(names) {}
    int resolve(const Column& column) const;
    // Throws "column 'name': expected <what>, found <type>".
    [[noreturn]] void typeMismatch(int index, std::string_view expected) const;
    [[noreturn]] void outOfRange(int index, std::int64_t value) const;

    sqlite3_stmt* statement_;
    const std::vector<std::string_view>& names_;
    // Decoders read columns mostly in query order; remember where the last name was found.
    mutable int nameHint_ = 0;
};

// How records of type T are stored: a specialisation of Table<T> gives the SQL texts, binds a
// record's values by coding key, and builds a record back from a row. The storage form is kept out
// of the record's own (public) type this way; the primary template is never defined.
template <class T>
struct Table;

// A type whose Table<T> is complete.
template <class T>
concept PersistableCodable = requires(const T& record, StatementBinder& binder, const DatabaseRow& row) {
    { Table<T>::createStatement() } -> std::convertible_to<std::string_view>;
    { Table<T>::upsertStatement() } -> std::convertible_to<std::string_view>;
    { Table<T>::selectAllStatement() } -> std::convertible_to<std::string_view>;
    { Table<T>::deleteAllStatement() } -> std::convertible_to<std::string_view>;
    { Table<T>::bind(record, binder) } -> std::same_as<void>;
    { Table<T>::fromRow(row) } -> std::same_as<T>;
};

class DrovelDBManager {
public:
    // Opens the SQLite file at atPath, creating it and its parent folder when missing, in WAL mode
    // with a busy timeout. Throws DatabaseError when the folder or file cannot be made or opened,
    // or when the file is not a database or holds triggers or views (the SDK never makes any);
    // such a file is left as it is. The connection runs no trigger, view or schema function, and
    // any statement that runs far longer than the SDK's own fails with DatabaseError (code
    // SQLITE_INTERRUPT) instead of running on.
    explicit DrovelDBManager(const std::string& atPath);
    ~DrovelDBManager();
    DrovelDBManager(const DrovelDBManager&) = delete;
    DrovelDBManager& operator=(const DrovelDBManager&) = delete;

    const std::string& path() const { return path_; }

    // The schema version stored in the file itself (PRAGMA user_version): 0 for a new file.
    int dbVersion() const;
    void setDbVersion(int version);

    // Tests only: lets triggers made on this connection fire (tests inject failures with RAISE).
    // The SDK never calls it.
    void enableTriggersForTesting();

    // Runs an SQL text as it stands; a text of several statements runs them in order, and rows
    // they return are dropped. Statements that ran before a failing one keep their effect.
    void execute(std::string_view raw);

    // Writes one record with its upsert statement.
    template <PersistableCodable T>
    void save(const T& record) {
        writeRows(Table<T>::upsertStatement(), 1,
                  [&](StatementBinder& binder, std::size_t) { Table<T>::bind(record, binder); });
    }
    // Writes every record with one prepared statement, all or nothing (inside a transaction, or a
    // savepoint of the caller's transaction).
    template <PersistableCodable T>
    void save(std::span<const T> records) {
        writeRows(Table<T>::upsertStatement(), records.size(),
                  [&](StatementBinder& binder, std::size_t i) { Table<T>::bind(records[i], binder); });
    }
    template <PersistableCodable T>
    void save(const std::vector<T>& records) {
        save(std::span<const T>(records));
    }

    template <PersistableCodable T>
    std::vector<T> fetchAll() {
        return fetch<T>(Table<T>::selectAllStatement());
    }
    // Runs a query of T's columns (usually T's select-all statement with a WHERE clause).
    template <PersistableCodable T>
    std::vector<T> fetch(std::string_view filteredSelectSql) {
        std::vector<T> out;
        readRows(filteredSelectSql, [&](const DatabaseRow& row) { out.push_back(Table<T>::fromRow(row)); });
        return out;
    }
    template <PersistableCodable T>
    void deleteAll() {
        execute(Table<T>::deleteAllStatement());
    }

private:
    friend class Transaction;

    // A borrowed callable, so that the templates above reach the non-template code without
    // allocating.
    template <class Signature>
    class FunctionRef;
    template <class R, class... Args>
    class FunctionRef<R(Args...)> {
    public:
        template <class F>
            requires(!std::same_as<std::remove_cvref_t<F>, FunctionRef>)
        FunctionRef(F&& f)
            : object_(const_cast<void*>(static_cast<const void*>(&f))),
              call_([](void* object, Args... args) -> R {
                  return (*static_cast<std::remove_reference_t<F>*>(object))(std::forward<Args>(args)...);
              }) {}
        R operator()(Args... args) const { return call_(object_, std::forward<Args>(args)...); }

    private:
        void* object_;
        R (*call_)(void*, Args...);
    };

    void writeRows(std::string_view sql, std::size_t count, FunctionRef<void(StatementBinder&, std::size_t)> bindRow);
    void readRows(std::string_view sql, FunctionRef<void(const DatabaseRow&)> onRow) const;
    void executeLocked(std::string_view raw);
    [[noreturn]] void fail() const;
    // SQLite's progress handler: abandons the running statement once it ran too long.
    static int onProgress(void* manager);

    std::string path_;
    sqlite3* db_ = nullptr;
    std::unique_ptr<StatementCache> cache_;
    mutable std::recursive_mutex mutex_;
    int savepointCounter_ = 0;
    // Progress handler calls since the running statement started; reset as each one starts.
    mutable std::uint64_t statementTicks_ = 0;
};

// A transaction on a DrovelDBManager: BEGIN IMMEDIATE, or a savepoint when a transaction is
// already open, so transactions nest. Rolled back on destruction unless committed. Nested
// transactions end before the one around them.
class Transaction {
public:
    explicit Transaction(DrovelDBManager& db);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    // Makes the changes permanent (or part of the enclosing transaction). Throws DatabaseError on
    // failure, in which case the destructor still rolls back.
    void commit();
    // Drops the changes now; does nothing once committed or rolled back. Never throws.
    void rollback() noexcept;

private:
    DrovelDBManager& db_;
    std::string savepoint_;  // empty for a top-level transaction
    bool done_ = false;
};

// ---- implementation ----

template <std::integral I>
    requires(!std::same_as<I, bool> && !std::same_as<I, std::int64_t>)
void StatementBinder::bind(std::string_view key, I value) {
    if constexpr (std::is_unsigned_v<I> && sizeof(I) >= sizeof(std::int64_t)) {
        if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            throw DatabaseError("value of parameter '" + std::string(key) + "' does not fit in 64 signed bits");
    }
    bind(key, static_cast<std::int64_t>(value));
}

template <class T>
T DatabaseRow::get(Column column) const {
    if constexpr (detail::isOptional<T>) {
        int index = resolve(column);
        if (isNull(index)) return std::nullopt;
        return get<typename T::value_type>(index);
    } else if constexpr (std::same_as<T, bool>) {
        return boolean(column);
    } else if constexpr (std::same_as<T, std::int64_t>) {
        return int64(column);
    } else if constexpr (std::integral<T>) {
        int index = resolve(column);
        std::int64_t value = int64(index);
        if (!std::in_range<T>(value)) outOfRange(index, value);
        return static_cast<T>(value);
    } else if constexpr (std::floating_point<T>) {
        return static_cast<T>(number(column));
    } else if constexpr (std::same_as<T, std::string>) {
        return text(column);
    } else {
        static_assert(sizeof(T) == 0, "DatabaseRow::get: unsupported type");
    }
}

}  // namespace drovel::core
