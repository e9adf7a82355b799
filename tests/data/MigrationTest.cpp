// The schema walk: a fresh database and databases left at older versions by earlier releases, each
// migrated to version 7 and compared row by row.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "data/NotifyDBManager.h"
#include "drovel/core/DrovelDBManager.h"
#include "support/SqlRows.h"
#include "support/TempDirectory.h"

using drovel::core::DrovelDBManager;
using drovel::notify::NotifyDBManager;
using drovel::testing::textRows;
using Version = NotifyDBManager::MigrationVersion;

namespace {

// The column names of table, then every row with each value as an SQL literal (quote()), so that
// types show: 7, '7', '"beacon"', NULL.
std::vector<std::string> tableRows(DrovelDBManager& db, const std::string& table, const std::string& order) {
    auto names = textRows(db, "SELECT name FROM pragma_table_info('" + table + "');");
    std::string header, select;
    for (const auto& name : names) {
        header += (header.empty() ? "" : "|") + name;
        select += (select.empty() ? "" : ", ") + ("quote(" + name + ")");
    }
    auto rows = textRows(db, "SELECT " + select + " FROM '" + table + "' ORDER BY " + order + ";");
    rows.insert(rows.begin(), header);
    return rows;
}

// Each column as its declaration reads: "id INTEGER PRIMARY KEY NOT NULL".
std::vector<std::string> layout(DrovelDBManager& db, const std::string& table) {
    return textRows(db, "SELECT name || ' ' || type || iif(pk, ' PRIMARY KEY', '') || iif(\"notnull\", ' NOT NULL', '')"
                        " || iif(dflt_value IS NULL, '', ' DEFAULT ' || dflt_value) FROM pragma_table_info('" +
                            table + "');");
}

using Rows = std::vector<std::string>;
const std::string campaignHeader =
    "id|start_day|end_day|geofence_radius_meters|content|defer_on_pickup|region_type|beacon_uuid|beacon_major|"
    "repeat_interval_days";
const std::string siteHeader = "id|partner_identifier|distance_meters|latitude|longitude|beacon_minor";

const std::vector<std::pair<std::string, Rows>> currentLayout = {
    {"notify_analytics_event",
     {"guid TEXT PRIMARY KEY NOT NULL", "name TEXT NOT NULL", "occurred_at TEXT NOT NULL",
      "campaign_id INTEGER NOT NULL", "params TEXT NOT NULL"}},
    {"notify_campaign",
     {"id INTEGER PRIMARY KEY NOT NULL", "start_day TEXT NOT NULL", "end_day TEXT NOT NULL",
      "geofence_radius_meters INTEGER", "content TEXT", "defer_on_pickup BOOLEAN NOT NULL DEFAULT 0",
      "region_type TEXT", "beacon_uuid TEXT", "beacon_major INTEGER DEFAULT NULL",
      "repeat_interval_days INTEGER NOT NULL DEFAULT 0"}},
    {"notify_notification",
     {"id INTEGER PRIMARY KEY NOT NULL", "campaign_id INTEGER NOT NULL", "site_id INTEGER",
      "content TEXT NOT NULL DEFAULT ''"}},
    {"notify_site",
     {"id INTEGER PRIMARY KEY NOT NULL", "partner_identifier TEXT", "distance_meters INTEGER NOT NULL",
      "latitude TEXT NOT NULL", "longitude TEXT NOT NULL", "beacon_minor INTEGER"}},
    {"notify_trigger_event", {"last_triggered_at TEXT NOT NULL", "campaign_id INTEGER NOT NULL", "site_id INTEGER"}},
};

void expectCurrentSchema(DrovelDBManager& db) {
    EXPECT_EQ(db.dbVersion(), 7);
    std::vector<std::string> tables;
    for (const auto& [table, columns] : currentLayout) {
        tables.push_back(table);
        EXPECT_EQ(layout(db, table), columns) << table;
    }
    tables.push_back("sqlite_sequence");  // kept by AUTOINCREMENT
    EXPECT_EQ(textRows(db, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name;"), tables);
    auto notificationTable = textRows(db, "SELECT sql FROM sqlite_master WHERE name = 'notify_notification';");
    ASSERT_EQ(notificationTable.size(), 1u);
    EXPECT_NE(notificationTable[0].find("AUTOINCREMENT"), std::string::npos);
}

class Migration : public ::testing::Test {
protected:
    // A database as a release at `version` left it: the statements of v1 to `version`, then the
    // rows that release wrote.
    void makeFixture(int version, const std::string& rows) {
        DrovelDBManager db(path);
        for (int raw = 1; raw <= version; ++raw)
            for (auto statement : NotifyDBManager::statements(*NotifyDBManager::migrationVersionFromRawValue(raw)))
                db.execute(statement);
        db.setDbVersion(version);
        db.execute(rows);
    }

    // Opens the database as the module does, noting which versions ran statements.
    NotifyDBManager& open() {
        manager.emplace(path, true, [this](Version version) {
            ran.push_back(NotifyDBManager::rawValue(version));
            return NotifyDBManager::statements(version);
        });
        return *manager;
    }

    drovel::testing::TempDirectory directory;
    std::string path = directory.file("DrovelNotify.sqlite");
    std::vector<int> ran;
    std::optional<NotifyDBManager> manager;
};

}  // namespace

TEST_F(Migration, FreshDatabaseRunsEveryVersionAndLaterOpeningsRunNone) {
    EXPECT_TRUE(open().needsInit());
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
    expectCurrentSchema(manager->dbManager());

    manager->dbManager().execute("INSERT INTO notify_site VALUES (1, NULL, 5, '1', '2', NULL);");
    manager.reset();
    ran.clear();
    EXPECT_FALSE(open().needsInit());
    EXPECT_EQ(ran, std::vector<int>{});
    EXPECT_EQ(tableRows(manager->dbManager(), "notify_site", "id"),
              (Rows{siteHeader, "1|NULL|5|'1'|'2'|NULL"}));
}

TEST_F(Migration, Version1MovesTriggerTimesAndPairsCampaignsWithSites) {
    makeFixture(1, R"(
        INSERT INTO notify_interest_area VALUES (10, 'Front', 100), (11, 'Back', 200);
        INSERT INTO notify_campaign VALUES
          (1, '"beacon_site"', 10, '2024-03-01', '2024-03-31', 'daily', NULL, '{"notification":{"title":"B"}}', '2024-03-02T10:00:00.000Z'),
          (2, '"geofence_approach"', NULL, '2024-04-01', '2024-04-30', 'once', 150, '{"deep_link_url":"app://2"}', NULL),
          (3, '"beacon_area_of_interest"', 11, '2024-05-01', '2024-05-02', 'daily', NULL, '{}', '2024-05-01T08:30:00.000Z');
        INSERT INTO notify_site VALUES (20, 'A', 900, '52.1', '4.3', NULL, '[2]'), (21, NULL, 15, '52.2', '4.4', 9, '[2]');
        INSERT INTO notify_analytics_event VALUES ('G-1', 'notification_clicked', '2024-03-02T10:05:00.000Z', 1, '{}');
    )");
    auto& db = open().dbManager();
    EXPECT_FALSE(manager->needsInit());
    EXPECT_EQ(ran, (std::vector<int>{2, 3, 4, 5, 6, 7}));
    expectCurrentSchema(db);

    EXPECT_EQ(tableRows(db, "notify_campaign", "id"),
              (Rows{
                  campaignHeader,
                  R"(1|'2024-03-01'|'2024-03-31'|NULL|'{"notification":{"title":"B"}}'|0|'"beacon"'|NULL|100|1)",
                  R"(2|'2024-04-01'|'2024-04-30'|150|'{"deep_link_url":"app://2"}'|0|'"geofence"'|NULL|NULL|0)",
                  R"(3|'2024-05-01'|'2024-05-02'|NULL|'{}'|0|'"beacon"'|NULL|200|1)",
              }));
    // Beacon campaigns get one row without a site; the geofence campaign one row per stored site.
    EXPECT_EQ(tableRows(db, "notify_notification", "id"),
              (Rows{
                  "id|campaign_id|site_id|content",
                  R"(1|1|NULL|'{"notification":{"title":"B"}}')",
                  R"(2|3|NULL|'{}')",
                  R"(3|2|20|'{"deep_link_url":"app://2"}')",
                  R"(4|2|21|'{"deep_link_url":"app://2"}')",
              }));
    EXPECT_EQ(tableRows(db, "notify_trigger_event", "campaign_id"),
              (Rows{"last_triggered_at|campaign_id|site_id", "'2024-03-02T10:00:00.000Z'|1|NULL", "'2024-05-01T08:30:00.000Z'|3|NULL"}));
    EXPECT_EQ(tableRows(db, "notify_site", "id"),
              (Rows{siteHeader, "20|'A'|900|'52.1'|'4.3'|NULL", "21|NULL|15|'52.2'|'4.4'|9"}));
    EXPECT_EQ(tableRows(db, "notify_analytics_event", "guid"),
              (Rows{"guid|name|occurred_at|campaign_id|params", "'G-1'|'notification_clicked'|'2024-03-02T10:05:00.000Z'|1|'{}'"}));
}

TEST_F(Migration, Version3ComparesTargetingTypesAsJsonTextAndRepeatabilityAsBareWord) {
    makeFixture(3, R"(
        INSERT INTO notify_interest_area VALUES (30, 'Door', 7), (31, 'Unused', 8);
        INSERT INTO notify_campaign VALUES
          (5, '"beacon_site"', 30, '2024-03-01', '2024-03-31', 'daily', NULL, '{"metadata":{"k":"v"}}', 1),
          (6, '"geofence_approach"', NULL, '2024-03-01', '2024-03-31', 'weekly', 200, '{"deep_link_url":"app://6"}', 0),
          (7, '"geofence_approach"', NULL, '2024-03-01', '2024-03-31', '"daily"', 300, '{}', 0),
          (8, 'beacon_site', 31, '2024-03-01', '2024-03-31', 'daily', NULL, '{}', 0);
        INSERT INTO notify_site VALUES (40, 'P40', 30, '1', '2', NULL, '[6]'), (41, 'P41', 10, '3', '4', NULL, '[6]'),
          (42, 'P42', 20, '5', '6', 1, '[7]');
        INSERT INTO notify_trigger_event VALUES ('2024-03-05T00:00:00.000Z', 5, NULL), ('2024-03-06T00:00:00.000Z', 6, 40);
    )");
    auto& db = open().dbManager();
    EXPECT_EQ(ran, (std::vector<int>{4, 5, 6, 7}));
    expectCurrentSchema(db);

    // 8's targeting type lacks the quotes, so it matches neither type; 7's repeatability has them,
    // so it is not 'daily'.
    EXPECT_EQ(tableRows(db, "notify_campaign", "id"),
              (Rows{
                  campaignHeader,
                  R"(5|'2024-03-01'|'2024-03-31'|NULL|'{"metadata":{"k":"v"}}'|1|'"beacon"'|NULL|7|1)",
                  R"(6|'2024-03-01'|'2024-03-31'|200|'{"deep_link_url":"app://6"}'|0|'"geofence"'|NULL|NULL|0)",
                  R"(7|'2024-03-01'|'2024-03-31'|300|'{}'|0|'"geofence"'|NULL|NULL|0)",
                  R"(8|'2024-03-01'|'2024-03-31'|NULL|'{}'|0|NULL|NULL|8|1)",
              }));
    // Every geofence campaign is paired with every stored site, whatever campaign_ids said.
    EXPECT_EQ(tableRows(db, "notify_notification", "id"),
              (Rows{
                  "id|campaign_id|site_id|content",
                  R"(1|5|NULL|'{"metadata":{"k":"v"}}')",
                  R"(2|6|40|'{"deep_link_url":"app://6"}')",
                  R"(3|6|41|'{"deep_link_url":"app://6"}')",
                  R"(4|6|42|'{"deep_link_url":"app://6"}')",
                  R"(5|7|40|'{}')",
                  R"(6|7|41|'{}')",
                  R"(7|7|42|'{}')",
              }));
    EXPECT_EQ(tableRows(db, "notify_trigger_event", "campaign_id"),
              (Rows{"last_triggered_at|campaign_id|site_id", "'2024-03-05T00:00:00.000Z'|5|NULL", "'2024-03-06T00:00:00.000Z'|6|40"}));
    EXPECT_EQ(textRows(db, "SELECT group_concat(id, ',') FROM (SELECT id FROM notify_site ORDER BY id);"),
              Rows{"40,41,42"});

}

TEST_F(Migration, Version6OnlyDropsRepeatability) {
    makeFixture(6, R"(
        INSERT INTO notify_campaign (id, start_day, end_day, repeatability, geofence_radius_meters, content,
            defer_on_pickup, region_type, beacon_uuid, beacon_major, repeat_interval_days) VALUES
          (9, '2024-03-01', '2024-03-31', 'daily', NULL, '{}', 1, '"beacon"', 'E621E1F8-C36C-495A-93FC-0C247A3E6E5F', 65535, 3),
          (10, '2024-03-01', '2024-03-31', 'once', 50, '{}', 0, '"geofence"', NULL, NULL, 0);
        INSERT INTO notify_notification (campaign_id, site_id, content) VALUES (9, NULL, '{"x":1}'), (10, 77, '{}');
    )");
    auto& db = open().dbManager();
    EXPECT_EQ(ran, std::vector<int>{7});
    expectCurrentSchema(db);

    // v6's update does not run again: 9 keeps its interval of 3.
    EXPECT_EQ(tableRows(db, "notify_campaign", "id"),
              (Rows{
                  campaignHeader,
                  R"(9|'2024-03-01'|'2024-03-31'|NULL|'{}'|1|'"beacon"'|'E621E1F8-C36C-495A-93FC-0C247A3E6E5F'|65535|3)",
                  R"(10|'2024-03-01'|'2024-03-31'|50|'{}'|0|'"geofence"'|NULL|NULL|0)",
              }));
    EXPECT_EQ(tableRows(db, "notify_notification", "id"),
              (Rows{"id|campaign_id|site_id|content", R"(1|9|NULL|'{"x":1}')", "2|10|77|'{}'"}));
}
