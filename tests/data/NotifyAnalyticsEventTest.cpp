// Analytics events: the local time stamp, the event and upload-body JSON (the kind names in both
// directions show in the wire form).

#include <gtest/gtest.h>

#include <chrono>
#include <set>

#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "support/ScopedTimeZone.h"

using namespace drovel::notify;
using namespace std::chrono;

TEST(NotifyAnalyticsEvent, NewEventsGetFreshGuidsAndALocalTimeStamp) {
    drovel::testing::ScopedTimeZone zone("Europe/Amsterdam");
    Date date(seconds(1709251200) + milliseconds(42));  // 2024-03-01T00:00:00.042Z
    NotifyAnalyticsEvent winter(NotifyAnalyticsEventType::notificationClicked, date, 7, {});
    NotifyAnalyticsEvent summer(NotifyAnalyticsEventType::notificationClicked, date + hours(24 * 122), 7, {});
    zone.set("UTC");
    NotifyAnalyticsEvent utc(NotifyAnalyticsEventType::sdkError, date, std::nullopt, {});

    EXPECT_EQ(winter.occurredAt(), "2024-03-01T01:00:00.042+01:00");
    EXPECT_EQ(summer.occurredAt(), "2024-07-01T02:00:00.042+02:00");
    EXPECT_EQ(utc.occurredAt(), "2024-03-01T00:00:00.042Z");

    // Events made at the same instant still differ.
    std::set<std::string> guids;
    for (int i = 0; i < 1000; ++i)
        guids.insert(NotifyAnalyticsEvent(NotifyAnalyticsEventType::notificationTriggered, date, 1, {}).guid().uuidString());
    EXPECT_EQ(guids.size(), 1000u);
}

TEST(NotifyAnalyticsEvent, EncodesItsWireFormAndReadsItBack) {
    auto guid = *UUID::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    NotifyAnalyticsEvent triggered(guid, NotifyAnalyticsEventType::notificationTriggered, "2024-03-01T01:00:00.042+01:00",
                                   7, {{"b", "2"}, {"a", "\"1\""}});
    EXPECT_EQ(triggered.toJson(),
              R"({"guid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"notification_triggered",)"
              R"("occurred_at":"2024-03-01T01:00:00.042+01:00","campaign_id":7,"params":{"a":"\"1\"","b":"2"}})");
    auto back = NotifyAnalyticsEvent::fromJson(triggered.toJson());
    ASSERT_TRUE(back.ok()) << back.error()->description();
    EXPECT_EQ(back.value(), triggered);

    // An SDK error is written as "sdk_error", which does not read back.
    NotifyAnalyticsEvent error(guid, NotifyAnalyticsEventType::sdkError, "t", std::nullopt, {});
    EXPECT_EQ(error.toJson(), R"({"guid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"sdk_error","occurred_at":"t","params":{}})");
    auto unreadable = NotifyAnalyticsEvent::fromJson(error.toJson());
    ASSERT_FALSE(unreadable.ok());
    EXPECT_EQ(unreadable.error()->description(), "name: unknown event name \"sdk_error\"");
    auto renamed = NotifyAnalyticsEvent::fromJson(
        R"({"guid":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f","name":"notification_permission_denied","occurred_at":"t","params":{}})");
    ASSERT_TRUE(renamed.ok());
    EXPECT_EQ(renamed.value(), error);

    for (auto [text, message] : {
             std::pair{R"({"guid":"x","name":"notification_clicked","occurred_at":"t","params":{}})",
                       "guid: expected a UUID in the form XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX"},
             std::pair{R"({"guid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"notification_clicked","occurred_at":"t"})",
                       "(root): missing required key 'params'"},
             std::pair{R"({"guid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"notification_clicked","occurred_at":"t","params":{"a":1}})",
                       "params.a: expected a string"},
         }) {
        auto decoded = NotifyAnalyticsEvent::fromJson(text);
        ASSERT_FALSE(decoded.ok()) << text;
        EXPECT_EQ(decoded.error()->description(), message);
    }
}

TEST(NotifyAnalyticsBody, HoldsTheInstanceIdAndOneBatch) {
    auto guid = *UUID::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    auto app = *UUID::fromString("00000000-0000-4000-8000-000000000001");
    NotifyAnalyticsBody body(app, {NotifyAnalyticsEvent(guid, NotifyAnalyticsEventType::notificationClicked, "t", 3, {})});
    EXPECT_EQ(body.toJson(),
              R"({"app_instance_id":"00000000-0000-4000-8000-000000000001","events":[{"guid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
              R"("name":"notification_clicked","occurred_at":"t","campaign_id":3,"params":{}}]})");
    EXPECT_EQ(NotifyAnalyticsBody(app, {}).toJson(), R"({"app_instance_id":"00000000-0000-4000-8000-000000000001","events":[]})");
    EXPECT_EQ(paramsJson({{"k", "v"}}), R"({"k":"v"})");
    EXPECT_EQ(paramsFromJson(R"({"k":"v"})").value(), (NotifyAnalyticsEvent::Params{{"k", "v"}}));
}
