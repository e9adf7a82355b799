// Dates far from today (a backend's "no end" of 9999-12-31, a start of 0001-01-01) through every
// conversion the module makes: campaign days, stored trigger events and analytics events (the
// active-campaign filter is in NotifyInteractorTest).

#include <gtest/gtest.h>

#include <chrono>

#include "data/NotifyDBManager.h"
#include "data/NotifyDateFormat.h"
#include "NotifyTestData.h"
#include "support/ScopedTimeZone.h"
#include "support/TempDirectory.h"

using namespace drovel::notify;
using namespace std::chrono;
using drovel::testing::campaignJson;
using drovel::testing::campaignsDownload;
using drovel::testing::decodedResponse;

namespace {

long long epochSeconds(Date date) { return floor<seconds>(date).time_since_epoch().count(); }

struct FarDay {
    const char* text;
    long long midnightUTC;  // seconds since 1970
};
const FarDay kFarDays[] = {
    {"0001-01-01", -62135596800},
    {"1600-01-01", -11676096000},
    {"2300-01-01", 10413792000},
    {"9999-12-31", 253402214400},
};

class FarDatesTest : public ::testing::Test {
protected:
    drovel::testing::ScopedTimeZone zone{"UTC"};
    drovel::testing::TempDirectory directory;
    NotifyDBManager database{directory.file("DrovelNotify.sqlite"), true};
};

}  // namespace

TEST_F(FarDatesTest, CampaignDaysFromYear1To9999DecodeToTheirOwnMidnights) {
    for (const FarDay& start : kFarDays) {
        for (const FarDay& end : kFarDays) {
            if (end.midnightUTC < start.midnightUTC) continue;
            SCOPED_TRACE(std::string(start.text) + " to " + end.text);
            auto response = decodedResponse(campaignsDownload(campaignJson(1, start.text, end.text)));
            auto interval = response.included.campaigns->front().dateInterval();
            ASSERT_TRUE(interval);
            EXPECT_EQ(epochSeconds(interval->start), start.midnightUTC);
            EXPECT_EQ(epochSeconds(interval->end), end.midnightUTC + 86399);
        }
    }
    // In another zone the days start at that zone's midnight.
    drovel::testing::ScopedTimeZone::set("EST5");
    auto day = parseDay("9999-12-31");
    ASSERT_TRUE(day);
    auto start = startOfDay(*day);
    ASSERT_TRUE(start);
    EXPECT_EQ(epochSeconds(*start), 253402214400 + 5 * 3600);
    EXPECT_EQ(iso8601FullLocalTZ(*start), "9999-12-31T00:00:00.000-05:00");
}

TEST_F(FarDatesTest, FarDatesSurviveTheDatabase) {
    auto& db = database.dbManager();
    auto response = decodedResponse(campaignsDownload(campaignJson(1, "0001-01-01", "9999-12-31")));
    db.save(*response.included.campaigns);
    auto campaigns = db.fetchAll<NotifyCampaign>();
    ASSERT_EQ(campaigns.size(), 1u);
    EXPECT_EQ(campaigns[0].dateInterval(), response.included.campaigns->front().dateInterval());

    for (const FarDay& day : kFarDays) {
        SCOPED_TRACE(day.text);
        auto date = dateFromISO8601Text(std::string(day.text) + "T23:59:59.999999Z");
        ASSERT_TRUE(date);
        EXPECT_EQ(epochSeconds(*date), day.midnightUTC + 86399);
        db.deleteAll<NotifyTriggerEvent>();
        db.save(NotifyTriggerEvent(*date, 1, std::nullopt));
        auto events = db.fetchAll<NotifyTriggerEvent>();
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].lastTriggeredAt(), *date);
        EXPECT_EQ(iso8601Text(*date), std::string(day.text) + "T23:59:59.999999Z");

        NotifyAnalyticsEvent event(NotifyAnalyticsEventType::notificationTriggered, *date, 1, {});
        EXPECT_EQ(event.occurredAt(), std::string(day.text) + "T23:59:59.999Z");
    }
}
