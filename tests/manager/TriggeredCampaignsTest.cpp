// Working out what fired from the pending requests, and the triggered and clicked event parameters.

#include <gtest/gtest.h>

#include "manager/TriggeredCampaigns.h"

using namespace drovel;
using namespace drovel::notify;
using platform::UserInfo;
using Store = std::map<std::int64_t, std::vector<std::int64_t>>;
using Params = NotifyAnalyticsEvent::Params;

namespace {

platform::NotificationRequest pending(UserInfo userInfo) {
    platform::NotificationRequest request;
    request.identifier = "r";
    request.content.userInfo = std::move(userInfo);
    return request;
}

UserInfo campaignSite(std::int64_t campaignID, std::optional<std::int64_t> siteID = std::nullopt) {
    UserInfo userInfo{{"message_source", "drovel.notify.v2"}, {"Drovel.Notify.CampaignID", campaignID}};
    if (siteID) userInfo.emplace("Drovel.Notify.SiteID", *siteID);
    return userInfo;
}

NotifyCampaign campaign(std::int64_t id, std::optional<NotifyCampaignContent::Metadata> metadata,
                        std::optional<std::string> uuid = std::nullopt) {
    return NotifyCampaign(id, uuid ? NotifyCampaignRegionType::beacon : NotifyCampaignRegionType::geofence,
                          uuid ? UUID::fromString(*uuid) : std::nullopt, std::nullopt, "2024-03-01", "2024-03-31",
                          std::nullopt, 100, NotifyCampaignContent(std::nullopt, std::nullopt, std::move(metadata)), false);
}

}  // namespace

TEST(TriggeredCampaigns, WhatIsNoLongerPendingFired) {
    struct Case {
        const char* label;
        Store loaded;
        std::vector<UserInfo> pending;
        Store fired;
    };
    const Case cases[] = {
        {"one of two sites pending", {{7, {1, 2}}}, {campaignSite(7, 2)}, {{7, {1}}}},
        {"all sites pending: dropped", {{7, {1, 2}}}, {campaignSite(7, 1), campaignSite(7, 2)}, {}},
        {"beacon pending: dropped", {{9, {}}}, {campaignSite(9)}, {}},
        {"beacon fired", {{9, {}}, {7, {1}}}, {campaignSite(7, 1)}, {{9, {}}}},
        {"a site request leaves a beacon entry", {{9, {}}}, {campaignSite(9, 5)}, {{9, {}}}},
        {"a request without a site drops a geofence entry", {{7, {1, 2}}}, {campaignSite(7)}, {}},
        {"another campaign", {{7, {1}}}, {campaignSite(8, 1), campaignSite(8)}, {{7, {1}}}},
        {"unknown site", {{7, {1}}}, {campaignSite(7, 3)}, {{7, {1}}}},
        {"not ours", {{7, {1}}},
         {UserInfo{{"message_source", "drovel.notify"}}, UserInfo{{"Drovel.Notify.CampaignID", "7"}}},
         {{7, {1}}}},
        {"nothing loaded", {}, {campaignSite(7, 1)}, {}},
    };
    for (const auto& c : cases) {
        std::vector<platform::NotificationRequest> requests;
        for (const auto& userInfo : c.pending) requests.push_back(pending(userInfo));
        auto fired = firedCampaigns(LoadedCampaigns{c.loaded}, requests);
        EXPECT_EQ(fired.store, c.fired) << c.label;
    }
    EXPECT_TRUE((LoadedCampaigns{{{1, {2}}, {9, {}}}}.needToRangeForSite()));
    EXPECT_FALSE((LoadedCampaigns{{{1, {2}}}}.needToRangeForSite()));
}

TEST(TriggeredCampaigns, OneTriggeredEventPerFiredPair) {
    std::vector<NotifyCampaign> campaigns;
    campaigns.push_back(campaign(7, NotifyCampaignContent::Metadata{{"offer", "{{ app.name }}'s deal"}, {"tier", "gold"}}));
    campaigns.push_back(campaign(9, std::nullopt, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
    CampaignTextRenderer renderer(CustomTemplateContent{{"name", "Ann"}});
    LoadedCampaigns fired{{{7, {1, 22}}, {9, {}}, {11, {3}}}};

    struct Expected {
        std::int64_t campaignID;
        std::optional<std::int64_t> siteID;
        Params params;
    };
    auto check = [&](std::optional<std::int64_t> ranged, const std::vector<Expected>& expected) {
        auto events = notificationTriggeredEvents(fired, ranged, campaigns, renderer);
        ASSERT_EQ(events.size(), expected.size());
        for (std::size_t i = 0; i < events.size(); ++i) {
            EXPECT_EQ(events[i].campaignID, expected[i].campaignID) << i;
            EXPECT_EQ(events[i].siteID, expected[i].siteID) << i;
            EXPECT_EQ(events[i].params, expected[i].params) << i;
        }
    };
    const Params metadata{{"content_metadata_offer", "Ann's deal"}, {"content_metadata_tier", "gold"}};
    auto with = [](Params params, std::string siteID) {
        params.emplace("site_id", std::move(siteID));
        return params;
    };
    check(55, {{7, 1, with(metadata, "1")},
               {7, 22, with(metadata, "22")},
               {9, 55, {{"site_id", "55"}}},
               {11, 3, {{"site_id", "3"}}}});  // no longer stored: no metadata
    check(std::nullopt, {{7, 1, with(metadata, "1")}, {7, 22, with(metadata, "22")}, {9, std::nullopt, {}},
                         {11, 3, {{"site_id", "3"}}}});
}

TEST(TriggeredCampaigns, RangingPicksTheFirstUUIDAndTheSiteByMinor) {
    std::vector<NotifyCampaign> campaigns;
    campaigns.push_back(campaign(1, std::nullopt));
    EXPECT_EQ(beaconUUIDForRanging(campaigns), std::nullopt);
    campaigns.push_back(campaign(2, std::nullopt, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
    campaigns.push_back(campaign(3, std::nullopt, "00000000-0000-0000-0000-000000000001"));
    EXPECT_EQ(beaconUUIDForRanging(campaigns)->uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");

    std::vector<NotifySite> sites{NotifySite(40, std::nullopt, 1, "1", "1", std::nullopt),
                                  NotifySite(41, std::nullopt, 1, "1", "1", 7), NotifySite(42, std::nullopt, 1, "1", "1", 7)};
    EXPECT_EQ(siteIDForBeaconMinor(sites, 7), 41);
    EXPECT_EQ(siteIDForBeaconMinor(sites, 0), std::nullopt);
}

TEST(TriggeredCampaigns, ClickedEventFromTheTappedUserInfo) {
    struct Case {
        const char* label;
        UserInfo userInfo;
        std::optional<std::pair<std::int64_t, Params>> expected;
    };
    const Case cases[] = {
        {"campaign only", campaignSite(7), std::pair{7, Params{}}},
        {"site and metadata", [] {
             auto userInfo = campaignSite(7, 42);
             userInfo.emplace("Drovel.Notify.Metadata", UserInfo{{"offer", "Ann's deal"}, {"n", 3}});
             userInfo.emplace("Drovel.Notify.DeepLinkURL", "https://x.example");
             return userInfo;
         }(),
         std::pair{7, Params{{"site_id", "42"}, {"content_metadata_offer", "Ann's deal"}}}},
        {"metadata not a dictionary", [] {
             auto userInfo = campaignSite(7);
             userInfo.emplace("Drovel.Notify.Metadata", "offer");
             return userInfo;
         }(),
         std::pair{7, Params{}}},
        {"campaign id as text", UserInfo{{"Drovel.Notify.CampaignID", "7"}}, std::nullopt},
    };
    for (const auto& c : cases) {
        auto event = notificationClickedEvent(c.userInfo);
        ASSERT_EQ(event.has_value(), c.expected.has_value()) << c.label;
        if (!event) continue;
        EXPECT_EQ(event->campaignID, c.expected->first) << c.label;
        EXPECT_EQ(event->params, c.expected->second) << c.label;
    }
}
