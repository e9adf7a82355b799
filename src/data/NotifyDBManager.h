#pragma once
// The module's SQLite database "DrovelNotify.sqlite": finds the file, opens it through the core
// library's DrovelDBManager and brings its schema to the current version with seven numbered
// migrations. The records store themselves in it through dbManager() (PersistableCodable).
//
// Schema version 7 holds five tables: 'notify_campaign', 'notify_site', 'notify_notification',
// 'notify_trigger_event' and 'notify_analytics_event'.
//
// Threads: takes no lock of its own; callers serialise their use, as for DrovelDBManager.
// Errors: opening and the record operations throw core::DatabaseError; a failing migration is
// logged and skipped (see migrateForVersion).

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "data/NotifyTables.h"
#include "drovel/core/DrovelDBManager.h"

namespace drovel::notify {

class NotifyDBManager {
public:
    // A new version is a case here and a row in the migration table (NotifyDBManager.cpp), which
    // everything below reads.
    enum class MigrationVersion : int { v1 = 1, v2, v3, v4, v5, v6, v7 };

    // Every version, in the order a database is walked through them.
    static const std::vector<MigrationVersion>& allMigrationVersions();

    static constexpr int rawValue(MigrationVersion version) { return static_cast<int>(version); }
    // 1 to 7 give a version; any other integer gives none.
    static std::optional<MigrationVersion> migrationVersionFromRawValue(long long raw);
    // The case's name as log lines show it: "v1" ... "v7".
    static std::string_view caseName(MigrationVersion version);

    // The SQL texts of one migration, in the order they run.
    static const std::vector<std::string_view>& statements(MigrationVersion version);

    // Where migrateForVersion takes each version's statements from. The views must stay valid for
    // the life of the manager.
    using MigrationStatements = std::function<std::vector<std::string_view>(MigrationVersion)>;

    // Opens (creating the file and its folder when missing) the database at path; needsInit()
    // tells whether the file was missing before. With migrate, runs migrateForVersion for v1 to v7
    // in order. Throws core::DatabaseError when the file cannot be made or opened, or is not a
    // database (such a file is left as it is).
    NotifyDBManager(const std::string& path, bool migrate);
    // The same, with the migrations' statements taken from migrationStatements: for tests that need
    // a migration to fail. The module always uses the form above.
    NotifyDBManager(const std::string& path, bool migrate, MigrationStatements migrationStatements);

    NotifyDBManager(const NotifyDBManager&) = delete;
    NotifyDBManager& operator=(const NotifyDBManager&) = delete;

    // The database file's name in the application-support directory.
    static constexpr std::string_view fileName = "DrovelNotify.sqlite";
    // "<applicationSupportDirectory>/DrovelNotify.sqlite".
    static std::string databasePath(const std::string& applicationSupportDirectory);

    // The process's database, made on the first successful call with the database path in
    // applicationSupportDirectory (the platform's; the folder is created when missing) and
    // migrated on the calling thread. Later calls return the same instance whatever directory they
    // name. Throws core::DatabaseError when the directory is empty or the database cannot be opened;
    // the next call then tries again. Thread-safe; the instance lives until the process ends.
    static std::shared_ptr<NotifyDBManager> shared(const std::string& applicationSupportDirectory);

    // Brings the database to `version` when it is at the version before or lower:
    // 1. if dbVersion is already `version` or more, does nothing;
    // 2. runs the version's statements in order;
    // 3. when all succeed, sets dbVersion to `version`.
    // When a statement fails, the rest of the version is skipped, dbVersion stays, and the line
    // "Could not execute Notify migration v<n> with error:<description>" is logged at error level.
    // Statements of the version that ran before the failure keep their effect. Never throws.
    void migrateForVersion(MigrationVersion version);

    core::DrovelDBManager& dbManager() { return dbManager_; }
    const core::DrovelDBManager& dbManager() const { return dbManager_; }
    // True when the database file did not exist when this manager was created.
    bool needsInit() const { return needsInit_; }

private:
    bool needsInit_;
    core::DrovelDBManager dbManager_;
    MigrationStatements migrationStatements_;
};

// A record's select-all or delete-all statement narrowed to one campaign: every ";" becomes
// ` WHERE campaign_id="<campaignID>";`. The database compares the quoted id with the column as a
// number, through the column's integer affinity.
std::string filteredStatement(std::string_view statement, std::int64_t campaignID);
// The same narrowing for any column: every ";" becomes ` WHERE <column>="<value>";`.
std::string filteredStatement(std::string_view statement, std::string_view column, std::string_view value);

}  // namespace drovel::notify
