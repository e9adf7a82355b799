// The records' database form on the current schema: what is written, and what reads back.

#include <gtest/gtest.h>

#include <chrono>

#include "data/NotifyDBManager.h"
#include "drovel/core/DrovelDBManager.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyNotificationsResponse.h"
#include "drovel/notify/NotifyTriggerEvent.h"
#include "support/SqlRows.h"
#include "support/TempDirectory.h"

using namespace drovel::notify;
using drovel::core::DatabaseError;
using drovel::core::DrovelDBManager;

static_assert(HasIntID<NotifyCampaign> && HasIntID<NotifySite> && !HasIntID<NotifyTriggerEvent>);
// Lists of records grow by moving, not copying.
static_assert(std::is_nothrow_move_constructible_v<NotifyCampaign> && std::is_nothrow_move_constructible_v<NotifySite> &&
              std::is_nothrow_move_constructible_v<NotifyNotifications>);
// Records are made with their fields, never empty.
static_assert(!std::is_default_constructible_v<NotifyCampaign> && !std::is_default_constructible_v<NotifySite> &&
              !std::is_default_constructible_v<NotifyNotifications> && !std::is_default_constructible_v<NotifyTriggerEvent> &&
              !std::is_default_constructible_v<NotifyAnalyticsEvent>);

namespace {

const char* download = R"({"min_sync_interval_seconds":60,
  "data":[{"campaign_id":7,"site_id":42,"content":{"deep_link_url":"app://7","notification":{"title":"Hi \"you\"","body":"B"},"metadata":{"k":"v"}}},
          {"campaign_id":8,"site_id":null,"content":{}}],
  "included":{"campaigns":[
     {"id":7,"region_type":"geofence","start_day":"2024-03-01","end_day":"2024-03-31","repeat_interval_days":2,
      "geofence_radius_meters":150,"content":{"notification":{"title":"Grüße"}},"defer_on_pickup":true},
     {"id":8,"region_type":"beacon","beacon_uuid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","beacon_major":65535,
      "start_day":"2024-03-01","end_day":"2024-03-31","repeat_interval_days":0,"content":{},"defer_on_pickup":false}],
   "sites":[{"id":42,"partner_identifier":"A","distance_meters":900,"latitude":"52.1","longitude":"4.3"},
            {"id":43,"distance_meters":15,"latitude":"52.2","longitude":"4.4","beacon_minor":9}]}})";

class NotifyRecordPersistence : public ::testing::Test {
protected:
    // The tables as the migrations leave them.
    void SetUp() override {
        for (int raw = 1; raw <= 7; ++raw)
            for (auto statement : NotifyDBManager::statements(*NotifyDBManager::migrationVersionFromRawValue(raw)))
                db.execute(statement);
    }

    // The only column of the first row, as text.
    std::string column(const std::string& sql) { return drovel::testing::textRows(db, sql).at(0); }

    drovel::testing::TempDirectory directory;
    DrovelDBManager db{directory.file("notify.sqlite")};
};

}  // namespace

TEST_F(NotifyRecordPersistence, ADownloadReadsBackAsDecoded) {
    auto response = NotifyNotificationsResponse::fromJson(download);
    ASSERT_TRUE(response.ok()) << response.error()->description();
    const auto& r = response.value();
    db.save(r.data);
    db.save(*r.included.campaigns);
    db.save(*r.included.sites);

    EXPECT_EQ(db.fetchAll<NotifyNotifications>(), r.data);
    EXPECT_EQ(db.fetchAll<NotifyCampaign>(), *r.included.campaigns);
    auto sites = db.fetchAll<NotifySite>();
    ASSERT_EQ(sites.size(), 2u);
    EXPECT_EQ(sites[0], r.included.sites->at(1));  // nearest first
    EXPECT_EQ(sites[1], r.included.sites->at(0));

    // Stored forms that other statements rely on.
    EXPECT_EQ(column("SELECT region_type FROM notify_campaign WHERE id = 8;"), "\"beacon\"");
    EXPECT_EQ(column("SELECT beacon_uuid FROM notify_campaign WHERE id = 8;"), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(column("SELECT content FROM notify_campaign WHERE id = 7;"), R"({"notification":{"title":"Grüße"}})");

    db.deleteAll<NotifyCampaign>();
    EXPECT_TRUE(db.fetchAll<NotifyCampaign>().empty());
}

TEST_F(NotifyRecordPersistence, AnAbsentRepeatIntervalIsStoredAsTheColumnDefault) {
    auto campaign = NotifyCampaign::fromJson(
        R"({"id":1,"region_type":"geofence","start_day":"a","end_day":"b","content":{},"defer_on_pickup":false})");
    ASSERT_TRUE(campaign.ok());
    db.save(campaign.value());
    EXPECT_EQ(db.fetchAll<NotifyCampaign>().at(0).repeatIntervalDays(), 0);
}

TEST_F(NotifyRecordPersistence, AnalyticsEventsReadBackExceptTheSdkErrorKind) {
    NotifyAnalyticsEvent clicked(NotifyAnalyticsEventType::notificationClicked, Date(std::chrono::seconds(1)), 7,
                                 {{"site_id", "42"}});
    db.save(clicked);
    EXPECT_EQ(db.fetchAll<NotifyAnalyticsEvent>(), std::vector{clicked});
    EXPECT_EQ(column("SELECT name FROM notify_analytics_event;"), "\"notification_clicked\"");
    // Deleting by guid uses the canonical text as stored.
    db.execute("DELETE FROM 'notify_analytics_event' WHERE guid=\"" + clicked.guid().uuidString() + "\";");
    EXPECT_TRUE(db.fetchAll<NotifyAnalyticsEvent>().empty());

    // The SDK-error kind is stored under its written name, which the reading direction does not know.
    db.save(NotifyAnalyticsEvent(NotifyAnalyticsEventType::sdkError, Date(std::chrono::seconds(1)), 7, {}));
    try {
        db.fetchAll<NotifyAnalyticsEvent>();
        FAIL() << "an sdk_error row read back";
    } catch (const DatabaseError& error) {
        EXPECT_EQ(error.description(), "column 'name': unknown event name \"sdk_error\"");
    }
}

TEST_F(NotifyRecordPersistence, UnreadableColumnsThrowNamingTheColumn) {
    db.execute(R"(INSERT INTO notify_campaign (id, start_day, end_day, content, region_type) VALUES (1, 'a', 'b', '{}', '"beacon_site"');)");
    EXPECT_THROW(db.fetchAll<NotifyCampaign>(), DatabaseError);
    db.execute("DELETE FROM notify_campaign;");
    db.execute(R"(INSERT INTO notify_notification (campaign_id, site_id) VALUES (1, NULL);)");
    try {
        db.fetchAll<NotifyNotifications>();
        FAIL() << "an empty content read back";
    } catch (const DatabaseError& error) {
        EXPECT_EQ(std::string(error.what()).rfind("column 'content': ", 0), 0u) << error.what();
    }
}
