// The scenario runner end to end: the real drovel-notify simulate against the real backend process
// on loopback, and the diagnostics on the device folder it leaves.

#include <gtest/gtest.h>

#include <fstream>

#include "simulator/SimulatorTestSupport.h"

namespace drovel::simulator {
namespace {

constexpr const char* kBundled = DROVEL_SOURCE_DIR "/examples/scenario.json";

TEST(SimulateCommandTest, TheBundledScenarioTellsTheWholeStoryAgainstTheBackendProcess) {
    TempDirectory directory;
    BackendProcess backend(kCatalogue, directory.file("events.jsonl"), 0);
    ASSERT_FALSE(backend.url().empty());
    const auto run = runCommand(cliCommand({"simulate", kBundled, "--backend", backend.url(), "--device",
                                            directory.file("device"), "--json"}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto out = lines(run.out);

    EXPECT_FALSE(matching(out, {"\"event\":\"sync\"", "\"fetched\":true", "\"error\":null"}).empty());
    // The walk fires the coffee campaign at two sites, the store's beacon the welcome.
    EXPECT_FALSE(matching(out, {"\"event\":\"delivered\"", "geofence_approach 101 1", "Good morning, Ann!"}).empty());
    EXPECT_FALSE(matching(out, {"\"event\":\"delivered\"", "geofence_approach 101 2"}).empty());
    EXPECT_FALSE(matching(out, {"\"event\":\"delivered\"", "beacon_site 105", "Welcome in, Ann"}).empty());
    EXPECT_EQ(matching(out, {"\"event\":\"opened_url\"", "drovelshop://offers/101"}).size(), 2u);
    EXPECT_FALSE(matching(out, {"\"event\":\"delivered\"", "Your order is ready"}).empty());
    EXPECT_TRUE(matching(out, {"\"event\":\"error\""}).empty()) << run.out;
    // Switching the module off removes its campaign notifications.
    EXPECT_NE(out.back().find("\"summary\""), std::string::npos);
    EXPECT_NE(out.at(out.size() - 2).find("\"event\":\"removed\""), std::string::npos) << run.out;

    const auto events = lines(readFile(directory.file("events.jsonl")));
    EXPECT_FALSE(matching(events, {"\"notification_triggered\"", "\"campaign_id\":101"}).empty());
    EXPECT_FALSE(matching(events, {"\"notification_triggered\"", "\"campaign_id\":105"}).empty());
    EXPECT_EQ(matching(events, {"\"notification_clicked\""}).size(), 2u) << readFile(directory.file("events.jsonl"));

    const auto status = runCommand(cliCommand({"--device", directory.file("device"), "status", "--json"}));
    ASSERT_EQ(status.exitCode, 0) << status.err;
    EXPECT_NE(status.out.find("\"notify_enabled\":false"), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("\"stored_campaigns\":6"), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("\"analytics_events_waiting\":0"), std::string::npos) << status.out;

    const auto purge = runCommand(cliCommand({"--device", directory.file("device"), "purge"}));
    ASSERT_EQ(purge.exitCode, 0) << purge.err;
    EXPECT_NE(purge.out.find("Removed the database"), std::string::npos) << purge.out;
    const auto after = runCommand(cliCommand({"--device", directory.file("device"), "status", "--json"}));
    EXPECT_NE(after.out.find("\"stored_campaigns\":null"), std::string::npos) << after.out;
    EXPECT_NE(after.out.find("\"last_sync\":null"), std::string::npos) << after.out;
}

// The demo shows a marketing team what a phone shows: the same events at the same simulated times
// on every run, whatever the machine's load (each step waits for all of the module's work).
TEST(SimulateCommandTest, TheBundledDemoTellsTheSameStoryOnEveryRun) {
    auto withoutGuids = [](std::string text) {
        for (auto at = text.find("\"guid\":\""); at != std::string::npos; at = text.find("\"guid\":\"", at))
            text.erase(at, 8 + 36 + 2);
        return text;
    };
    const auto first = runCommand(cliCommand({"simulate", "--json"}));
    ASSERT_EQ(first.exitCode, 0) << first.err;
    const auto second = runCommand(cliCommand({"simulate", "--json"}));
    ASSERT_EQ(second.exitCode, 0) << second.err;
    EXPECT_EQ(withoutGuids(first.out), withoutGuids(second.out));

    // What the embedded backend received, and when: the tap while active uploads at once, with what
    // fired before it; the tap in the background waits for the next sync.
    const struct {
        const char* time;
        const char* name;
        const char* campaign;
        const char* site;
    } uploads[] = {
        {"09:22:54", "notification_triggered", "101", "1"}, {"09:22:54", "notification_triggered", "102", "1"},
        {"09:22:54", "notification_triggered", "103", "1"}, {"09:22:54", "notification_clicked", "101", "1"},
        {"09:39:41", "notification_triggered", "101", "2"}, {"09:39:41", "notification_triggered", "107", "2"},
        {"09:39:41", "notification_clicked", "101", "2"},   {"10:06:42", "notification_triggered", "105", "1"},
    };
    const auto uploaded = matching(lines(first.out), {"\"event\":\"uploaded\""});
    ASSERT_EQ(uploaded.size(), std::size(uploads)) << first.out;
    for (std::size_t i = 0; i < uploaded.size(); ++i) {
        const auto& u = uploads[i];
        EXPECT_FALSE(matching({uploaded[i]}, {std::string("\"t\":\"2026-11-21T") + u.time, std::string("\"name\":\"") + u.name,
                                              std::string("\"campaign_id\":") + u.campaign + ",",
                                              std::string("\"site_id\":\"") + u.site + "\""})
                         .empty())
            << uploaded[i];
    }

    const auto readable = runCommand(cliCommand({"simulate"}));
    ASSERT_EQ(readable.exitCode, 0) << readable.err;
    EXPECT_EQ(lines(readable.out).back(), "Summary: 58 scheduled, 9 delivered, 2 clicks, 8 events uploaded, 0 SDK errors");
}

TEST(SimulateCommandTest, AScenarioWithAMistakeIsRefusedBeforeAnythingRuns) {
    TempDirectory directory;
    const std::string catalogue = std::string("\"catalogue\": \"") + kCatalogue + "\"";
    const std::string deep = std::string(100, '[') + std::string(100, ']');
    const struct {
        std::string scenario;
        std::string message;
    } cases[] = {
        {"{" + catalogue + ", \"steps\": [{\"at\": \"+1m\", \"launch\": null}, {\"at\": \"+1m\", \"dance\": 1}]}",
         "step 2: unknown action \"dance\""},
        {"{" + catalogue + ", \"steps\": [{\"at\": \"10 minutes\", \"launch\": null}]}", "step 1: bad offset \"10 minutes\""},
        {"{" + catalogue + ", \"steps\": [{\"at\": \"+1m\", \"walk\": {\"to\": [95, 0]}}]}", "step 1: walk: to must be a position"},
        {"{" + catalogue + ", \"steps\": [{\"at\": \"+1m\", \"launch\": null, \"sync\": {}}]}", "step 1: more than one action"},
        {"{\"catalogue\": \"nowhere.json\", \"steps\": []}", "catalogue: missing file"},
        {"{" + catalogue + ", \"steps\": [", "bad JSON"},
        {"{" + catalogue + ", \"steps\": [], \"device\": " + deep + "}", "bad JSON"},
    };
    for (const auto& c : cases) {
        std::ofstream(directory.file("s.json"), std::ios::trunc) << c.scenario;
        const auto run = runCommand(cliCommand({"simulate", directory.file("s.json"), "--device", directory.file("device")}));
        EXPECT_EQ(run.exitCode, 2) << c.scenario;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_TRUE(run.out.empty()) << run.out;
    }
    // Nothing ran: no device was made.
    EXPECT_NE(runCommand(cliCommand({"--device", directory.file("device"), "status"})).exitCode, 0);
}

}  // namespace
}  // namespace drovel::simulator
