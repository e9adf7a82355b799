#pragma once
// Reads any query's rows as text, for checking what a table holds.

#include <string>
#include <vector>

#include "drovel/core/DrovelDBManager.h"

namespace drovel::testing {

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

// Every row of sql, each as "col|col|...".
inline std::vector<std::string> textRows(core::DrovelDBManager& db, const std::string& sql) {
    std::vector<std::string> out;
    for (auto& row : db.fetch<TextRow>(sql)) out.push_back(std::move(row.text));
    return out;
}

}  // namespace drovel::testing
