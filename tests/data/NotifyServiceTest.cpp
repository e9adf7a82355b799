// The two backend requests as they reach the transport: path, method, query and body.

#include <gtest/gtest.h>

#include <future>

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

struct NotifyServiceTest : ::testing::Test {
    std::shared_ptr<drovel::testing::FakeHttpTransport> transport = std::make_shared<drovel::testing::FakeHttpTransport>();
    NotifyService service{transport, drovel::core::APIServiceConfiguration{"https://backend.test", "token"}};
};

}  // namespace

TEST_F(NotifyServiceTest, DownloadSendsEachCoordinateAsItsShortestRoundTripText) {
    transport->respond(HttpMethod::get, "/api/v1/notify/notifications", 200,
                       R"({"min_sync_interval_seconds": 60, "data": [], "included": {}})");
    std::promise<Result<NotifyNotificationsResponse>> answer;
    service.fetchNotifications(40, 0.1 + 0.2, 1e21, [&](auto result) { answer.set_value(result); });
    auto result = answer.get_future().get();
    ASSERT_TRUE(result.ok()) << result.error()->description();
    EXPECT_EQ(result.value().minSyncIntervalSeconds, 60);

    const auto request = transport->requests().back();
    EXPECT_EQ(request.method, HttpMethod::get);
    EXPECT_EQ(urlPath(request.url), "/api/v1/notify/notifications");
    EXPECT_EQ(urlQueryItems(request.url), (std::vector<std::pair<std::string, std::string>>{
                                              {"latitude", "40.0"}, {"longitude", "0.30000000000000004"}, {"radius", "1e+21"}}));
}

TEST_F(NotifyServiceTest, UploadPostsTheBatchUnderDataAndReportsFailures) {
    const NotifyAnalyticsBody body(*UUID::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"),
                                   {NotifyAnalyticsEvent(NotifyAnalyticsEventType::notificationClicked, {}, 7, {{"site_id", "42"}})});
    // Scripted answers are given out in order; the body of a success is not read.
    transport->respond(HttpMethod::post, "/api/v1/notify/campaign_events", 201, "not JSON");
    transport->respond(HttpMethod::post, "/api/v1/notify/campaign_events", 500, "");
    auto upload = [&] {
        std::promise<ErrorPtr> answer;
        service.uploadAnalytics({body}, [&](ErrorPtr e) { answer.set_value(e); });
        return answer.get_future().get();
    };
    EXPECT_EQ(upload(), nullptr);
    ErrorPtr failure = upload();
    ASSERT_NE(APIError::from(failure), nullptr);
    EXPECT_EQ(APIError::from(failure)->status(), 500);

    const auto request = transport->requests().front();
    EXPECT_EQ(request.method, HttpMethod::post);
    EXPECT_EQ(urlPath(request.url), "/api/v1/notify/campaign_events");
    EXPECT_EQ(request.body, R"({"data":)" + body.toJson() + "}");
}
