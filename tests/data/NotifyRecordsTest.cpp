// The records' computed values (date interval, coordinate), UUIDs, trigger-event dates and
// LoadedCampaigns.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "drovel/notify/LoadedCampaigns.h"
#include "drovel/notify/NotifyCampaign.h"
#include "drovel/notify/NotifySite.h"
#include "drovel/notify/NotifyTriggerEvent.h"
#include "support/ScopedTimeZone.h"

using namespace drovel::notify;
using namespace std::chrono;

namespace {

using TimeZone = drovel::testing::ScopedTimeZone;

NotifyCampaign campaign(std::string startDay, std::string endDay) {
    return NotifyCampaign(1, NotifyCampaignRegionType::geofence, std::nullopt, std::nullopt, std::move(startDay),
                          std::move(endDay), std::nullopt, 100, NotifyCampaignContent(std::nullopt, std::nullopt, std::nullopt),
                          false);
}

NotifySite site(std::string latitude, std::string longitude) {
    return NotifySite(1, std::nullopt, 10, std::move(latitude), std::move(longitude), std::nullopt);
}

long long epoch(Date date) { return duration_cast<seconds>(date.time_since_epoch()).count(); }

}  // namespace

TEST(NotifyCampaignDateInterval, RunsFromLocalMidnightToTheLastSecondOfTheEndDay) {
    struct Case {
        const char* zone;
        const char* start;
        const char* end;
        std::optional<std::pair<long long, long long>> expected;  // epoch seconds
    };
    const Case cases[] = {
        {"UTC", "2024-03-01", "2024-03-01", std::pair{1709251200LL, 1709251200LL + 86399}},
        {"Europe/Amsterdam", "2024-03-01", "2024-03-01", std::pair{1709247600LL, 1709247600LL + 86399}},
        // Clocks go forward on 31 March: the end is 86399 s after midnight, not the day's last second.
        {"Europe/Amsterdam", "2024-03-31", "2024-03-31", std::pair{1711839600LL, 1711839600LL + 86399}},
        // Midnight is skipped here (clocks jumped from 00:00 to 01:00): the day starts at 01:00 -02.
        {"America/Sao_Paulo", "2018-11-04", "2018-11-04", std::pair{1541300400LL, 1541300400LL + 86399}},
        // An end day before the start day is kept as sent.
        {"UTC", "2024-03-02", "2024-03-01", std::pair{1709337600LL, 1709251200LL + 86399}},
        {"UTC", "2024-3-1x", "2024-03-01", std::nullopt},
        // The formatter reads shorter numeric fields, as the platform's does.
        {"UTC", "2024-3-1", "2024-03-01", std::pair{1709251200LL, 1709251200LL + 86399}},
        {"UTC", "2024-003-01", "2024-03-01", std::nullopt},
        {"UTC", "2024-02-30", "2024-03-01", std::nullopt},
        {"UTC", " 2024-03-01", "2024-03-01", std::nullopt},
        {"UTC", "2024-03-01", "2024-03-01T00:00", std::nullopt},
        {"UTC", "2024-03-01", "", std::nullopt},
    };
    for (const auto& c : cases) {
        TimeZone zone(c.zone);
        auto interval = campaign(c.start, c.end).dateInterval();
        std::string label = std::string(c.zone) + " " + c.start + ".." + c.end;
        ASSERT_EQ(interval.has_value(), c.expected.has_value()) << label;
        if (!interval) continue;
        EXPECT_EQ(epoch(interval->start), c.expected->first) << label;
        EXPECT_EQ(epoch(interval->end), c.expected->second) << label;
    }
}

TEST(NotifyCampaignDateInterval, IsComputedOnceAndKeptByCopies) {
    std::optional<NotifyCampaign> first;
    {
        TimeZone zone("UTC");
        first.emplace(campaign("2024-03-01", "2024-03-01"));
        ASSERT_EQ(epoch(first->dateInterval()->start), 1709251200);
    }
    TimeZone zone("Asia/Tokyo");
    // The kept value does not follow the time zone; a copy keeps it too, a new campaign does not.
    EXPECT_EQ(epoch(first->dateInterval()->start), 1709251200);
    NotifyCampaign copy = *first;
    EXPECT_EQ(epoch(copy.dateInterval()->start), 1709251200);
    EXPECT_EQ(epoch(campaign("2024-03-01", "2024-03-01").dateInterval()->start), 1709251200 - 9 * 3600);
}

TEST(NotifySiteLocationCoordinate, ReadsWholeNumberTextsOnly) {
    struct Case {
        const char* latitude;
        const char* longitude;
        std::optional<std::pair<double, double>> expected;
    };
    const Case cases[] = {
        {"52.1", "-0.5", std::pair{52.1, -0.5}},
        {"+52.1", "4", std::pair{52.1, 4.0}},
        {"1e1", "-.5", std::pair{10.0, -0.5}},
        {"95.5", "200", std::pair{95.5, 200.0}},  // the range is not checked
        {" 52.1", "4", std::nullopt},
        {"52,1", "4", std::nullopt},
        {"52.1 ", "4", std::nullopt},
        {"52.1", "", std::nullopt},
        {"52.1", "4x", std::nullopt},
        {"0x10", "4", std::nullopt},
        {"+-1", "4", std::nullopt},
    };
    for (const auto& c : cases) {
        auto coordinate = site(c.latitude, c.longitude).locationCoordinate();
        std::string label = std::string("'") + c.latitude + "', '" + c.longitude + "'";
        ASSERT_EQ(coordinate.has_value(), c.expected.has_value()) << label;
        if (!coordinate) continue;
        EXPECT_EQ(coordinate->latitude, c.expected->first) << label;
        EXPECT_EQ(coordinate->longitude, c.expected->second) << label;
    }
}

TEST(UUID, ParsesTheCanonicalFormOnlyAndWritesUpperCase) {
    auto uuid = UUID::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(uuid.has_value());
    EXPECT_EQ(uuid->uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(uuid->bytes()[0], 0xE6);
    EXPECT_EQ(uuid->bytes()[15], 0x5F);
    // The forms refused are those of the platform's canonical UUID text, which fromString builds on.
    EXPECT_FALSE(UUID::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5").has_value());

    auto a = UUID::random(), b = UUID::random();
    EXPECT_NE(a, b);
    EXPECT_EQ(a.uuidString()[14], '4');  // version 4
    EXPECT_NE(std::string("89AB").find(a.uuidString()[19]), std::string::npos);
    EXPECT_EQ(UUID::fromString(a.uuidString()), a);
}

TEST(NotifyTriggerEvent, DatesReadBackToTheSameInstant) {
    const Date dates[] = {
        Date(seconds(1709251200)),
        Date(seconds(1709251200) + milliseconds(123)),
        Date(seconds(1709251200) + microseconds(123456)),
        Date(seconds(-1) + milliseconds(1)),
    };
    for (Date date : dates) {
        std::string text = iso8601Text(date);
        EXPECT_EQ(dateFromISO8601Text(text), date) << text;
        NotifyTriggerEvent event(date, 7, std::nullopt);
        auto decoded = NotifyTriggerEvent::fromJson(event.toJson());
        ASSERT_TRUE(decoded.ok()) << event.toJson();
        EXPECT_EQ(decoded.value(), event);
    }
    EXPECT_EQ(iso8601Text(Date(seconds(1709251200) + milliseconds(5))), "2024-03-01T00:00:00.005Z");
    EXPECT_EQ(NotifyTriggerEvent(Date(seconds(1709251200)), 7, 42).toJson(),
              R"({"last_triggered_at":"2024-03-01T00:00:00.000Z","campaign_id":7,"site_id":42})");

    EXPECT_EQ(dateFromISO8601Text("2024-03-01T01:30:00+01:30"), Date(seconds(1709251200)));
    EXPECT_EQ(dateFromISO8601Text("2024-02-29T19:00:00.5-0500"), Date(seconds(1709251200) + milliseconds(500)));
    for (const char* bad : {"2024-03-01", "2024-03-01T00:00:00", "2024-03-01 00:00:00Z", "2024-02-30T00:00:00Z",
                            "2024-03-01T24:00:00Z", "2024-03-01T00:00:00.Z", "2024-03-01T00:00:00.1234567890Z",
                            "2024-03-01T00:00:00Zx"})
        EXPECT_FALSE(dateFromISO8601Text(bad).has_value()) << bad;
    auto bad = NotifyTriggerEvent::fromJson(R"({"last_triggered_at":"yesterday","campaign_id":7})");
    ASSERT_FALSE(bad.ok());
    EXPECT_EQ(bad.error()->description(), "last_triggered_at: expected an ISO 8601 date-time");
}

TEST(LoadedCampaigns, RemembersSitesPerCampaignAndRoundTrips) {
    LoadedCampaigns loaded;
    EXPECT_TRUE(loaded.empty());
    loaded.add(7, 42);
    loaded.add(7, 43);
    loaded.add(9, std::nullopt);
    EXPECT_TRUE(loaded.needToRangeForSite());
    loaded.add(9, 1);
    EXPECT_FALSE(loaded.needToRangeForSite());
    loaded.remove(7, 42);
    loaded.remove(8, 1);  // unknown campaign: nothing happens
    EXPECT_EQ(loaded.store, (std::map<std::int64_t, std::vector<std::int64_t>>{{7, {43}}, {9, {1}}}));
    loaded.remove(9, 1);
    EXPECT_TRUE(loaded.needToRangeForSite());  // an emptied list counts as a campaign to range

    EXPECT_EQ(loaded.toJson(), R"({"store":{"7":[43],"9":[]}})");
    auto back = LoadedCampaigns::fromJson(loaded.toJson());
    ASSERT_TRUE(back.ok());
    EXPECT_EQ(back.value(), loaded);
    auto badKey = LoadedCampaigns::fromJson(R"({"store":{"7x":[1]}})");
    ASSERT_FALSE(badKey.ok());
    EXPECT_EQ(badKey.error()->description(), "store.7x: expected a campaign id as the key");
    EXPECT_FALSE(LoadedCampaigns::fromJson("{}").ok());
}
