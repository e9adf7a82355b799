// The two backend requests as they reach the transport: path, method, query and body.

#include <gtest/gtest.h>
#include <simdjson.h>

#include <future>
#include <set>

#include "data/NotifyService.h"
#include "support/FakeHttpTransport.h"

using namespace drovel::notify;
using drovel::core::APIError;
using drovel::core::ErrorPtr;
using drovel::core::Result;
using drovel::platform::HttpMethod;
using drovel::testing::urlPath;
using drovel::testing::urlQueryItems;

namespace {

std::set<std::string> keys(simdjson::dom::object object) {
    std::set<std::string> out;
    for (auto member : object) out.insert(std::string(member.key));
    return out;
}

struct NotifyServiceTest : ::testing::Test {
    std::shared_ptr<drovel::testing::FakeHttpTransport> transport = std::make_shared<drovel::testing::FakeHttpTransport>();
    NotifyService service{transport, drovel::core::APIServiceConfiguration{"https://backend.test", "token"}};
};

}  // namespace

TEST_F(NotifyServiceTest, DownloadSendsEachCoordinateAsItsShortestRoundTripText) {
    struct Case {
        double latitude, longitude, radius;
        std::vector<std::pair<std::string, std::string>> query;
    };
    const Case cases[] = {
        {40, -74, 1000, {{"latitude", "40.0"}, {"longitude", "-74.0"}, {"radius", "1000.0"}}},
        {52.123456, 0.1 + 0.2, 1e21, {{"latitude", "52.123456"}, {"longitude", "0.30000000000000004"}, {"radius", "1e+21"}}},
    };
    transport->respond(HttpMethod::get, "/api/v1/notify/notifications", 200,
                       R"({"min_sync_interval_seconds": 60, "data": [], "included": {}})");
    for (const auto& c : cases) {
        std::promise<Result<NotifyNotificationsResponse>> answer;
        service.fetchNotifications(c.latitude, c.longitude, c.radius, [&](auto result) { answer.set_value(result); });
        auto result = answer.get_future().get();
        ASSERT_TRUE(result.ok()) << result.error()->description();
        EXPECT_EQ(result.value().minSyncIntervalSeconds, 60);

        const auto request = transport->requests().back();
        EXPECT_EQ(request.method, HttpMethod::get);
        EXPECT_EQ(urlPath(request.url), "/api/v1/notify/notifications");
        EXPECT_EQ(urlQueryItems(request.url), c.query);
    }
}

TEST_F(NotifyServiceTest, UploadPostsTheBatchUnderDataAndReportsFailures) {
    const auto appInstanceID = *UUID::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    NotifyAnalyticsEvent event(NotifyAnalyticsEventType::notificationClicked, {}, 7, {{"site_id", "42"}});
    // Scripted answers are given out in order; the body of a success is not read.
    transport->respond(HttpMethod::post, "/api/v1/notify/campaign_events", 201, "not JSON");
    transport->respond(HttpMethod::post, "/api/v1/notify/campaign_events", 500, "");
    auto upload = [&] {
        std::promise<ErrorPtr> answer;
        service.uploadAnalytics({NotifyAnalyticsBody(appInstanceID, {event})}, [&](ErrorPtr e) { answer.set_value(e); });
        return answer.get_future().get();
    };
    EXPECT_EQ(upload(), nullptr);
    ErrorPtr failure = upload();
    ASSERT_NE(APIError::from(failure), nullptr);
    EXPECT_EQ(APIError::from(failure)->status(), 500);

    const auto request = transport->requests().front();
    EXPECT_EQ(request.method, HttpMethod::post);
    EXPECT_EQ(urlPath(request.url), "/api/v1/notify/campaign_events");
    simdjson::dom::parser parser;
    simdjson::dom::object root = parser.parse(request.body).get_object().value();
    EXPECT_EQ(keys(root), std::set<std::string>{"data"});
    simdjson::dom::object data = root["data"].get_object().value();
    EXPECT_EQ(keys(data), (std::set<std::string>{"app_instance_id", "events"}));
    EXPECT_EQ(std::string_view(data["app_instance_id"].get_string().value()), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    simdjson::dom::array events = data["events"].get_array().value();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(std::string_view(events.at(0)["guid"].get_string().value()), event.guid().uuidString());
}
