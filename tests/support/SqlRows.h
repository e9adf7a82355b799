#pragma once
// Reads any query's rows as text, for checking what a table holds; and the table of test records
// that keep their storage form as members of their own.

#include <string>
#include <vector>

#include "drovel/core/DrovelDBManager.h"

namespace drovel::testing {

// A Table<T> for a test record T that has the statements, bind and fromRow itself:
//   template <> struct drovel::core::Table<MyRecord> : drovel::testing::MemberTable<MyRecord> {};
template <class T>
struct MemberTable {
    static auto createStatement() { return T::createStatement(); }
    static auto upsertStatement() { return T::upsertStatement(); }
    static auto selectAllStatement() { return T::selectAllStatement(); }
    static auto deleteAllStatement() { return T::deleteAllStatement(); }
    static void bind(const T& record, core::StatementBinder& binder) { record.bind(binder); }
    static T fromRow(const core::DatabaseRow& row) { return T::fromRow(row); }
};

// A result row whose columns are read as text and joined with "|".
struct TextRow {
    std::string text;
    static std::string_view createStatement() { return ""; }
    static std::string_view upsertStatement() { return ""; }
    static std::string_view selectAllStatement() { return ""; }
    static std::string_view deleteAllStatement() { return ""; }
    void bind(core::StatementBinder&) const {}
    static TextRow fromRow(const core::DatabaseRow& row) {
        TextRow out;
        for (int i = 0; i < row.columnCount(); ++i) out.text += (i ? "|" : "") + row.text(i);
        return out;
    }
};

}  // namespace drovel::testing

template <>
struct drovel::core::Table<drovel::testing::TextRow> : drovel::testing::MemberTable<drovel::testing::TextRow> {};

namespace drovel::testing {

// Every row of sql, each as "col|col|...".
inline std::vector<std::string> textRows(core::DrovelDBManager& db, const std::string& sql) {
    std::vector<std::string> out;
    for (auto& row : db.fetch<TextRow>(sql)) out.push_back(std::move(row.text));
    return out;
}

}  // namespace drovel::testing
