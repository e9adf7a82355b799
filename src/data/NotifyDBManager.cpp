#include "data/NotifyDBManager.h"

#include <filesystem>
#include <mutex>

#include "data/ModuleLogger.h"
#include "drovel/core/Error.h"

namespace drovel::notify {

namespace {

constexpr std::string_view kFile = "NotifyDBManager";

using MigrationVersion = NotifyDBManager::MigrationVersion;

struct Migration {
    MigrationVersion version;
    std::string_view caseName;
    std::vector<std::string_view> statements;
};

// Every version in the order a database is walked through them, with the statements that installed
// databases have been migrated with. They are history: never edit one, add a version instead (a
// case of MigrationVersion and a row here). Made on first use, so that code running during static
// initialisation may open a database.
const std::vector<Migration>& migrations() {
    static const std::vector<Migration> table{
    {MigrationVersion::v1, "v1", {
        // First install.
        "CREATE TABLE 'notify_campaign' (id INTEGER PRIMARY KEY NOT NULL, targeting_type INTEGER NOT NULL, "
        "interest_area_id INTEGER, start_day TEXT NOT NULL, end_day TEXT NOT NULL, repeatability TEXT NOT NULL, "
        "geofence_radius_meters INTEGER, content TEXT, last_triggered_at TEXT);",
        "CREATE TABLE 'notify_site' (id INTEGER PRIMARY KEY NOT NULL, partner_identifier TEXT, "
        "distance_meters INTEGER NOT NULL, latitude TEXT NOT NULL, longitude TEXT NOT NULL, beacon_minor INTEGER, "
        "campaign_ids TEXT NOT NULL);",
        "CREATE TABLE 'notify_analytics_event' (guid TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, "
        "occurred_at TEXT NOT NULL, campaign_id INTEGER NOT NULL, params TEXT NOT NULL);",
        "CREATE TABLE 'notify_interest_area' (id INTEGER PRIMARY KEY NOT NULL, name TEXT, "
        "beacon_major INTEGER NOT NULL);",
    }},
    {MigrationVersion::v2, "v2", {
        // Trigger times move out of the campaign table.
        "ALTER TABLE 'notify_campaign' RENAME TO 'old_notify_campaign';",
        "CREATE TABLE 'notify_campaign' (id INTEGER PRIMARY KEY NOT NULL, targeting_type INTEGER NOT NULL, "
        "interest_area_id INTEGER, start_day TEXT NOT NULL, end_day TEXT NOT NULL, repeatability TEXT NOT NULL, "
        "geofence_radius_meters INTEGER, content TEXT);",
        "INSERT INTO 'notify_campaign' (id, targeting_type, interest_area_id, start_day, end_day, repeatability, "
        "geofence_radius_meters, content) SELECT id, targeting_type, interest_area_id, start_day, end_day, "
        "repeatability, geofence_radius_meters, content FROM 'old_notify_campaign';",
        "CREATE TABLE IF NOT EXISTS 'notify_trigger_event' (last_triggered_at TEXT NOT NULL, "
        "campaign_id INTEGER NOT NULL, site_id INTEGER);",
        "INSERT INTO 'notify_trigger_event' (campaign_id, last_triggered_at) SELECT id, last_triggered_at FROM "
        "'old_notify_campaign' WHERE last_triggered_at IS NOT NULL;",
        "DROP TABLE 'old_notify_campaign';",
    }},
    {MigrationVersion::v3, "v3", {
        // Defer on pickup.
        "ALTER TABLE 'notify_campaign' RENAME TO 'old_notify_campaign';",
        "CREATE TABLE 'notify_campaign' (id INTEGER PRIMARY KEY NOT NULL, targeting_type INTEGER NOT NULL, "
        "interest_area_id INTEGER, start_day TEXT NOT NULL, end_day TEXT NOT NULL, repeatability TEXT NOT NULL, "
        "geofence_radius_meters INTEGER, content TEXT, defer_on_pickup BOOLEAN NOT NULL DEFAULT 0);",
        "INSERT INTO 'notify_campaign' (id, targeting_type, interest_area_id, start_day, end_day, repeatability, "
        "geofence_radius_meters, content) SELECT id, targeting_type, interest_area_id, start_day, end_day, "
        "repeatability, geofence_radius_meters, content FROM 'old_notify_campaign';",
        "DROP TABLE 'old_notify_campaign';",
    }},
    {MigrationVersion::v4, "v4", {
        // Region types, one notification row per campaign/site pair, interest areas removed. The
        // old targeting types were stored as JSON text, double quotes included.
        "ALTER TABLE 'notify_campaign' ADD COLUMN region_type TEXT",
        "ALTER TABLE 'notify_campaign' ADD COLUMN beacon_uuid TEXT",
        "ALTER TABLE 'notify_campaign' ADD COLUMN beacon_major INTEGER DEFAULT NULL",
        R"(UPDATE 'notify_campaign' SET region_type='"beacon"' WHERE targeting_type in ('"beacon_area_of_interest"','"beacon_site"'))",
        R"(UPDATE 'notify_campaign' SET region_type='"geofence"' WHERE targeting_type='"geofence_approach"')",
        "UPDATE notify_campaign SET beacon_major = a.beacon_major FROM (SELECT id, beacon_major FROM "
        "notify_interest_area) AS a WHERE interest_area_id = a.id",
        "CREATE TABLE 'notify_notification' (id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL, "
        "campaign_id INTEGER NOT NULL, site_id INTEGER);",
        R"(INSERT INTO 'notify_notification' (campaign_id, site_id) SELECT c.id, NULL FROM 'notify_campaign' as c WHERE c.region_type='"beacon"';)",
        // Every geofence campaign is paired with every stored site.
        R"(INSERT INTO 'notify_notification' (campaign_id, site_id) SELECT c.id, s.id FROM 'notify_campaign' as c CROSS JOIN notify_site as s WHERE c.region_type='"geofence"';)",
        "DROP TABLE 'notify_interest_area';",
        "ALTER TABLE 'notify_campaign' DROP COLUMN 'targeting_type';",
        "ALTER TABLE 'notify_campaign' DROP COLUMN 'interest_area_id';",
        "ALTER TABLE 'notify_site' DROP COLUMN 'campaign_ids';",
    }},
    {MigrationVersion::v5, "v5", {
        // Content per notification row.
        "ALTER TABLE 'notify_notification' ADD COLUMN content TEXT NOT NULL DEFAULT ''",
        "UPDATE notify_notification SET content = (SELECT notify_campaign.content FROM notify_campaign WHERE "
        "notify_campaign.id = notify_notification.campaign_id) WHERE EXISTS (SELECT 1 FROM notify_campaign WHERE "
        "notify_campaign.id = notify_notification.campaign_id);",
    }},
    {MigrationVersion::v6, "v6", {
        // A repeat interval replaces the repeatability, which was stored as the bare word.
        "ALTER TABLE 'notify_campaign' ADD COLUMN repeat_interval_days INTEGER NOT NULL DEFAULT 0",
        "UPDATE 'notify_campaign' SET repeat_interval_days = 1 WHERE repeatability = 'daily';",
    }},
    {MigrationVersion::v7, "v7", {
        "ALTER TABLE 'notify_campaign' DROP COLUMN 'repeatability';",
    }},
    };
    return table;
}

const Migration& migration(MigrationVersion version) {
    for (const Migration& migration : migrations())
        if (migration.version == version) return migration;
    core::programmingError("unknown Notify migration version " + std::to_string(NotifyDBManager::rawValue(version)));
}

bool fileExists(const std::string& path) {
    std::error_code error;
    // A path that cannot be examined counts as missing; opening it then reports the problem.
    return std::filesystem::exists(path, error);
}

}  // namespace

const std::vector<MigrationVersion>& NotifyDBManager::allMigrationVersions() {
    static const std::vector<MigrationVersion> versions = [] {
        std::vector<MigrationVersion> out;
        for (const Migration& migration : migrations()) out.push_back(migration.version);
        return out;
    }();
    return versions;
}

std::optional<MigrationVersion> NotifyDBManager::migrationVersionFromRawValue(long long raw) {
    for (const Migration& migration : migrations())
        if (rawValue(migration.version) == raw) return migration.version;
    return std::nullopt;
}

std::string_view NotifyDBManager::caseName(MigrationVersion version) { return migration(version).caseName; }

const std::vector<std::string_view>& NotifyDBManager::statements(MigrationVersion version) {
    return migration(version).statements;
}

NotifyDBManager::NotifyDBManager(const std::string& path, bool migrate)
    : NotifyDBManager(path, migrate, [](MigrationVersion version) { return statements(version); }) {}

NotifyDBManager::NotifyDBManager(const std::string& path, bool migrate, MigrationStatements migrationStatements)
    // needsInit_ is declared before dbManager_, so the file is looked for before opening creates it.
    : needsInit_(!fileExists(path)), dbManager_(path), migrationStatements_(std::move(migrationStatements)) {
    if (!migrate) return;
    for (MigrationVersion version : allMigrationVersions()) migrateForVersion(version);
}

std::string NotifyDBManager::databasePath(const std::string& applicationSupportDirectory) {
    return applicationSupportDirectory + "/" + std::string(fileName);
}

std::shared_ptr<NotifyDBManager> NotifyDBManager::shared(const std::string& applicationSupportDirectory) {
    static std::mutex mutex;
    // Never destroyed: worker threads may still use the database while the process exits.
    static auto* instance = new std::shared_ptr<NotifyDBManager>();
    std::lock_guard lock(mutex);
    if (!*instance) {
        // The host's configuration, not the module, decides the folder; an unusable one becomes an
        // error the caller logs rather than a stopped process.
        if (applicationSupportDirectory.empty())
            throw core::DatabaseError("The application-support directory is unknown; cannot open DrovelNotify.sqlite");
        *instance = std::make_shared<NotifyDBManager>(databasePath(applicationSupportDirectory), true);
    }
    return *instance;
}

void NotifyDBManager::migrateForVersion(MigrationVersion version) {
    const int target = rawValue(version);
    try {
        if (dbManager_.dbVersion() >= target) return;
        for (std::string_view statement : migrationStatements_(version)) dbManager_.execute(statement);
        dbManager_.setDbVersion(target);
    } catch (const core::DatabaseError& error) {
        // No rollback, and the walk goes on: the next version checks only dbVersion, so it runs
        // and, when it succeeds, moves dbVersion past this one. Installed databases have always
        // been migrated this way.
        moduleLogger().error(
            "Could not execute Notify migration " + std::string(caseName(version)) + " with error:" + error.description(),
            DROVEL_SOURCE(kFile, "migrateForVersion(_:)"));
    }
}

std::string filteredStatement(std::string_view statement, std::string_view column, std::string_view value) {
    const std::string clause = " WHERE " + std::string(column) + "=\"" + std::string(value) + "\";";
    std::string out;
    out.reserve(statement.size() + clause.size());
    for (char c : statement) {
        if (c == ';') out += clause;
        else out += c;
    }
    return out;
}

std::string filteredStatement(std::string_view statement, std::int64_t campaignID) {
    return filteredStatement(statement, "campaign_id", std::to_string(campaignID));
}

}  // namespace drovel::notify
