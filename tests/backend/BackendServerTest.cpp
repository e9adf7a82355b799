#include <gtest/gtest.h>

#include <httplib.h>

#include <fstream>
#include <mutex>

#include "backend/BackendServer.h"
#include "drovel/notify/NotifyNotificationsResponse.h"
#include "support/TempDirectory.h"

namespace drovel::backend {
namespace {

using testing::TempDirectory;

constexpr const char* kCatalogue = R"({"min_sync_interval_seconds": 60,
  "campaigns": [{"id": 1, "region_type": "geofence", "start_day": "2026-11-01", "end_day": "2026-12-31",
                 "geofence_radius_meters": 100, "content": {}, "defer_on_pickup": false}],
  "sites": [{"id": 10, "latitude": 40.001, "longitude": -74.0}],
  "notifications": [{"campaign_id": 1, "site_id": 10, "content": {}}]})";
constexpr const char* kDownload = "/api/v1/notify/notifications?latitude=40.0&longitude=-74.0&radius=1000.0";
constexpr const char* kUpload = "/api/v1/notify/campaign_events";
constexpr const char* kInstance = "6F2A8C1E-3B4D-4E5F-9A7B-1C2D3E4F5A6B";

std::string event(const std::string& guidEnd, const char* name = "notification_triggered") {
    return R"({"guid": "6F2A8C1E-3B4D-4E5F-9A7B-1C2D3E4F5)" + guidEnd + R"(", "name": ")" + name +
           R"(", "occurred_at": "2026-11-21T09:00:00.000-05:00", "campaign_id": 1, "params": {"site_id": "10"}})";
}

std::string uploadBody(const std::vector<std::string>& events) {
    std::string list;
    for (const auto& e : events) list += (list.empty() ? "" : ",") + e;
    return R"({"data": {"app_instance_id": ")" + std::string(kInstance) + R"(", "events": [)" + list + "]}}";
}

class BackendServerTest : public ::testing::Test {
protected:
    std::unique_ptr<BackendServer> start(std::string token = {}, int failUploads = 0) {
        BackendOptions options;
        options.catalogue = Catalogue::fromJson(kCatalogue).value();
        options.token = std::move(token);
        options.failUploads = failUploads;
        options.eventsPath = directory.file("events.jsonl");
        options.log = [this](const std::string& line) {
            std::lock_guard lock(mutex);
            lines.push_back(line);
        };
        options.onEvent = [this](const ReceivedEvent& e) {
            std::lock_guard lock(mutex);
            seen.push_back(e.guid);
        };
        auto server = BackendServer::start(std::move(options));
        EXPECT_TRUE(server) << server.error()->description();
        return server ? std::move(server).value() : nullptr;
    }
    httplib::Headers bearer(const std::string& token) { return {{"Authorization", "Bearer " + token}}; }

    TempDirectory directory;
    std::mutex mutex;
    std::vector<std::string> lines;
    std::vector<std::string> seen;
};

TEST_F(BackendServerTest, ServesTheDownloadToTheRightTokenOnly) {
    auto server = start("secret");
    httplib::Client client(server->baseURL());
    auto missing = client.Get(kDownload);
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 401);
    EXPECT_EQ(missing->body, R"({"error":"missing API token"})");
    EXPECT_EQ(client.Get(kDownload, bearer("guess"))->status, 401);

    // Plain even where the client would take it compressed (the module's transport accepts any
    // encoding): compressing a large download took longer than the module's time limit.
    auto headers = bearer("secret");
    headers.emplace("Accept-Encoding", "gzip, deflate, br");
    auto answer = client.Get(kDownload, headers);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_FALSE(answer->has_header("Content-Encoding")) << answer->get_header_value("Content-Encoding");
    auto decoded = notify::NotifyNotificationsResponse::fromJson(answer->body);
    ASSERT_TRUE(decoded) << decoded.error()->description();
    EXPECT_EQ(decoded.value().included.sites->at(0).distanceMeters(), 111);

    EXPECT_EQ(client.Get("/api/v1/sites?latitude=40&longitude=-74&radius=500&page=1&per=5", bearer("secret"))->status, 200);
    server->stop();
    EXPECT_EQ(lines, (std::vector<std::string>{
                         std::string("GET ") + kDownload + " 401 (missing API token)",
                         std::string("GET ") + kDownload + " 401 (wrong API token)",
                         std::string("GET ") + kDownload + " 200 (1 sites, 1 pairs, 1 campaigns)",
                         "GET /api/v1/sites?latitude=40&longitude=-74&radius=500&page=1&per=5 200 (1 sites)",
                     }));
}

TEST_F(BackendServerTest, AMalformedRequestGetsA400SayingWhy) {
    auto server = start();
    httplib::Client client(server->baseURL());
    const std::vector<std::pair<std::string, std::string>> queries = {
        {"/api/v1/notify/notifications?latitude=40&longitude=-74", "missing query parameter radius"},
        {"/api/v1/notify/notifications?latitude=north&longitude=-74&radius=1", "latitude: expected a number"},
        {"/api/v1/notify/notifications?latitude=40&longitude=-181&radius=1", "longitude: expected a number"},
        {"/api/v1/sites?latitude=40&longitude=-74&radius=1&page=0&per=5", "page: expected a number from 1.0"},
        {"/api/v1/sites?latitude=40&longitude=-74&radius=1&page=1.5&per=5", "page and per must be whole numbers"},
    };
    for (const auto& [path, message] : queries) {
        auto answer = client.Get(path);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 400) << path;
        EXPECT_NE(answer->body.find(message), std::string::npos) << answer->body;
    }
    const std::vector<std::pair<std::string, std::string>> bodies = {
        {"", "malformed JSON"},
        {"{\"data\": {\"events\": []}}", "data: missing required key 'app_instance_id'"},
        {uploadBody({R"({"guid": "nope", "name": "x", "occurred_at": "x", "params": {}})"}), "data.events[0].guid: expected a UUID"},
        {uploadBody({R"({"guid": "6F2A8C1E-3B4D-4E5F-9A7B-1C2D3E4F5A6B", "name": "x", "occurred_at": "x"})"}),
         "data.events[0]: missing required key 'params'"},
        {uploadBody({event("A01") + "]}}"}), "(root)"},
    };
    for (const auto& [body, message] : bodies) {
        auto answer = client.Post(kUpload, body, "application/json");
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 400) << body;
        EXPECT_NE(answer->body.find(message), std::string::npos) << answer->body;
    }
    EXPECT_TRUE(server->events().empty());
}

TEST_F(BackendServerTest, KeepsEachEventOnceByGuidAndFailsTheFirstUploadsWhenAsked) {
    auto server = start({}, 2);
    httplib::Client client(server->baseURL());
    const std::string first = uploadBody({event("A01"), event("A02", "sdk_error")});
    EXPECT_EQ(client.Post(kUpload, first, "application/json")->status, 500);
    EXPECT_EQ(client.Post(kUpload, first, "application/json")->status, 500);
    EXPECT_TRUE(server->events().empty());
    EXPECT_EQ(client.Post(kUpload, first, "application/json")->status, 204);
    // A retried batch with one new event keeps only the new one; a repeat within a batch counts once.
    const std::string retry = uploadBody({event("A02"), event("A03"), event("a03")});
    EXPECT_EQ(client.Post(kUpload, retry, "application/json")->status, 204);
    EXPECT_EQ(server->uploadCount(), 4);
    server->stop();

    auto events = server->events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[1].name, "sdk_error");
    EXPECT_EQ(events[2].guid, "6F2A8C1E-3B4D-4E5F-9A7B-1C2D3E4F5A03");
    EXPECT_EQ(events[0].appInstanceID, kInstance);
    EXPECT_EQ(events[0].params, (std::map<std::string, std::string>{{"site_id", "10"}}));
    EXPECT_EQ(seen.size(), 3u);
    EXPECT_EQ(lines.back(), std::string("POST ") + kUpload + " 204 (3 events, 1 new)");

    // A new server on the same file knows the events already kept.
    std::ofstream(directory.file("events.jsonl"), std::ios::app) << "{\"truncated\n";
    seen.clear();
    auto again = start();
    httplib::Client client2(again->baseURL());
    EXPECT_EQ(client2.Post(kUpload, uploadBody({event("A01"), event("A04")}), "application/json")->status, 204);
    EXPECT_EQ(again->events().size(), 4u);
    EXPECT_EQ(seen, (std::vector<std::string>{"6F2A8C1E-3B4D-4E5F-9A7B-1C2D3E4F5A04"}));
    std::ifstream file(directory.file("events.jsonl"));
    std::string line;
    int count = 0;
    while (std::getline(file, line)) count += line.find("\"guid\"") != std::string::npos;
    EXPECT_EQ(count, 4);
}

TEST_F(BackendServerTest, APortInUseIsRefused) {
    auto server = start();
    BackendOptions options;
    options.catalogue = Catalogue::fromJson(kCatalogue).value();
    options.port = server->port();
    auto second = BackendServer::start(std::move(options));
    ASSERT_FALSE(second);
    EXPECT_EQ(second.error()->description(), "cannot listen on 127.0.0.1:" + std::to_string(server->port()));
}

}  // namespace
}  // namespace drovel::backend
