// A run killed (SIGKILL) while it stores a download or while an upload is answered, and the next
// run on the same device folder: the database opens whole, holds one complete download, and every
// analytics event recorded before the kill reaches the backend once.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "simulator/SimulatorTestSupport.h"

namespace drovel::simulator {
namespace {

// Two towns far apart (more than the 5 km search radius): the first download holds campaigns 1 to
// 3, each at its own site on one street; the second, at the other town, campaigns 11 to 15. A
// download of the second town writes 15 rows: 5 notifications, 5 sites, 5 campaigns.
std::string twoTownCatalogue() {
    std::string campaigns, sites, notifications;
    auto add = [&](int id, double latitude, double longitude) {
        const std::string content = R"({"deep_link_url": "drovelshop://offers/)" + std::to_string(id) +
                                    R"(", "notification": {"title": "Offer )" + std::to_string(id) +
                                    R"(", "body": "Hello {{ app.first_name | default: 'you' }}"}, "metadata": {"category": "c)" +
                                    std::to_string(id) + "\"}}";
        const char* separator = campaigns.empty() ? "" : ",";
        campaigns += separator + std::string(R"({"id": )") + std::to_string(id) +
                     R"(, "region_type": "geofence", "start_day": "2026-11-01", "end_day": "2026-12-31", "content": )" +
                     content + R"(, "defer_on_pickup": false, "geofence_radius_meters": 100})";
        sites += separator + std::string(R"({"id": )") + std::to_string(id) + R"(, "partner_identifier": "S-)" +
                 std::to_string(id) + R"(", "latitude": ")" + std::to_string(latitude) + R"(", "longitude": ")" +
                 std::to_string(longitude) + R"(", "beacon_minor": )" + std::to_string(id) + "}";
        notifications += separator + std::string(R"({"campaign_id": )") + std::to_string(id) +
                         R"(, "site_id": )" + std::to_string(id) + R"(, "content": )" + content + "}";
    };
    for (int i = 1; i <= 3; ++i) add(i, 44.4700 + 0.003 * i, -73.2126);
    for (int i = 11; i <= 15; ++i) add(i, 44.6000 + 0.003 * (i - 10), -73.0000);
    return R"({"min_sync_interval_seconds": 3600, "campaigns": [)" + campaigns + R"(], "sites": [)" + sites +
           R"(], "notifications": [)" + notifications + "]}";
}

std::string scenario(const std::string& steps) {
    return R"({"start": "2026-11-21T09:00:00", "time_zone": "America/New_York",
      "device": {"position": [44.4700, -73.2126], "notifications": "authorized", "location": "always", "app_state": "active"},
      "config": {"notify": {"default_site_search_radius_meters": 5000}}, "catalogue": "catalogue.json",
      "steps": [)" + steps + "]}";
}

// The first day in the first town: a download, a walk past the three sites, a tap on the last.
const std::string kFirstRun = scenario(R"({"at": "+0s", "launch": null},
    {"at": "+10m", "walk": {"to": [44.4820, -73.2126], "speed_mps": 1.4}},
    {"at": "+1m", "tap": "latest"})");
// The next day in the other town: the launch syncs (uploads, then downloads the second town).
const std::string kNextDay = scenario(R"({"at": "+1d", "move": [44.6075, -73.0000]}, {"at": "+1m", "launch": null})");

// One column of a table, sorted and joined with commas; "unreadable: ..." when the query fails.
std::string column(sqlite3* db, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
        return std::string("unreadable: ") + sqlite3_errmsg(db);
    std::string joined;
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW)
        joined += (joined.empty() ? "" : ",") + std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    if (rc != SQLITE_DONE) joined = std::string("unreadable: ") + sqlite3_errmsg(db);
    sqlite3_finalize(statement);
    return joined;
}

struct Stored {
    std::string integrity, campaigns, sites, notifications;
};

Stored readDatabase(const std::string& path) {
    Stored stored;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        stored.integrity = column(db, "PRAGMA integrity_check");
        stored.campaigns = column(db, "SELECT id FROM notify_campaign ORDER BY id");
        stored.sites = column(db, "SELECT id FROM notify_site ORDER BY id");
        stored.notifications = column(db, "SELECT campaign_id FROM notify_notification ORDER BY campaign_id");
    }
    sqlite3_close(db);
    return stored;
}

struct KillCase {
    const char* kill;
    // The backend answers 500 to this many uploads: the first run's (after the tap), and for a kill
    // in the store also the killed run's, so that the events wait in the database.
    int failUploads;
};

void PrintTo(const KillCase& c, std::ostream* out) { *out << c.kill; }

// One test per kill point (each plays three runs, slow under the sanitizers), from one table.
class KillRecoveryTest : public ::testing::TestWithParam<KillCase> {};

INSTANTIATE_TEST_SUITE_P(KillPoints, KillRecoveryTest,
                         ::testing::Values(KillCase{"store:1", 2},   // the download's first row
                                           KillCase{"store:8", 2},   // among the sites
                                           KillCase{"store:15", 2},  // the last row, just before the commit
                                           KillCase{"upload", 1}),   // the backend kept the events; the answer never arrives
                         [](const auto& info) {
                             std::string name = info.param.kill;
                             std::replace(name.begin(), name.end(), ':', '_');
                             return name;
                         });

TEST_P(KillRecoveryTest, ARunKilledWhileStoringOrUploadingLeavesAWholeDatabaseAndLosesNoEvent) {
    constexpr const char* kFirstTown = "1,2,3";
    constexpr const char* kOtherTown = "11,12,13,14,15";
    const KillCase& c = GetParam();
    TempDirectory directory;
    std::ofstream(directory.file("catalogue.json")) << twoTownCatalogue();
    BackendProcess backend(directory.file("catalogue.json"), directory.file("events.jsonl"), c.failUploads);
    ASSERT_FALSE(backend.url().empty());
    auto play = [&](const std::string& name, const std::string& text, const std::string& kill) {
        std::ofstream(directory.file(name)) << text;
        const std::string environment = kill.empty() ? "" : "DROVEL_SIMULATE_KILL=" + kill + " ";
        return runCommand(environment + cliCommand({"simulate", directory.file(name), "--backend", backend.url(),
                                                    "--device", directory.file("device"), "--json"}));
    };

    const auto first = play("first.json", kFirstRun, "");
    ASSERT_EQ(first.exitCode, 0) << first.err;
    ASSERT_EQ(matching(lines(first.out), {"\"event\":\"delivered\""}).size(), 3u) << first.out;

    const auto killed = play("killed.json", kNextDay, c.kill);
    ASSERT_EQ(killed.exitCode, 128 + SIGKILL) << killed.out << killed.err;
    EXPECT_EQ(killed.out.find("\"summary\""), std::string::npos);

    // Whatever the kill interrupted, the file opens whole with one complete download.
    const auto stored = readDatabase(directory.file("device/ApplicationSupport/DrovelNotify.sqlite"));
    EXPECT_EQ(stored.integrity, "ok");
    EXPECT_TRUE(stored.campaigns == kFirstTown || stored.campaigns == kOtherTown) << stored.campaigns;
    EXPECT_EQ(stored.sites, stored.campaigns);
    EXPECT_EQ(stored.notifications, stored.campaigns);
    const auto status = runCommand(cliCommand({"--device", directory.file("device"), "status", "--json"}));
    EXPECT_EQ(status.exitCode, 0) << status.err;
    EXPECT_NE(status.out.find("\"analytics_events_waiting\":4"), std::string::npos) << status.out;

    const auto next = play("next.json", kNextDay, "");
    ASSERT_EQ(next.exitCode, 0) << next.err;
    EXPECT_FALSE(matching(lines(next.out), {"\"event\":\"sync\"", "\"fetched\":true", "\"error\":null"}).empty())
        << next.out;
    EXPECT_EQ(readDatabase(directory.file("device/ApplicationSupport/DrovelNotify.sqlite")).campaigns, kOtherTown);
    const auto after = runCommand(cliCommand({"--device", directory.file("device"), "status", "--json"}));
    EXPECT_NE(after.out.find("\"analytics_events_waiting\":0"), std::string::npos) << after.out;

    // Three sites fired and one notification was tapped: four events, each once.
    const auto events = lines(readFile(directory.file("events.jsonl")));
    const auto received = guids(events);
    EXPECT_EQ(received.size(), 4u) << readFile(directory.file("events.jsonl"));
    EXPECT_EQ(std::set<std::string>(received.begin(), received.end()).size(), received.size());
    for (const char* campaign : {"1", "2", "3"})
        EXPECT_EQ(matching(events, {"\"notification_triggered\"", std::string("\"campaign_id\":") + campaign + ","}).size(), 1u)
            << campaign;
    EXPECT_EQ(matching(events, {"\"notification_clicked\"", "\"campaign_id\":3,"}).size(), 1u);
}

TEST(KillPointTest, AKillPointOfAnotherFormIsRefusedBeforeAnythingRuns) {
    TempDirectory directory;
    for (const char* kill : {"store", "store:", "store:0", "store:-1", "store:2x", "upload:0", "uploads", "crash"}) {
        const auto run = runCommand("DROVEL_SIMULATE_KILL=" + std::string(kill) + " " +
                                    cliCommand({"simulate", "--device", directory.file("device")}));
        EXPECT_EQ(run.exitCode, 2) << kill;
        EXPECT_NE(run.err.find("DROVEL_SIMULATE_KILL: \"" + std::string(kill) + "\""), std::string::npos) << run.err;
        EXPECT_TRUE(run.out.empty()) << run.out;
    }
}

}  // namespace
}  // namespace drovel::simulator
