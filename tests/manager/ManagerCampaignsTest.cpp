// Campaign notifications on the fake platform: what a sync schedules, the repeat rules, failed
// adds, and the detection of fired notifications at the next sync. The whole story on the real
// platform and backend is told by the simulator's scenario tests.

#include <algorithm>

#include "manager/ManagerHarness.h"

namespace drovel::notify::test {
namespace {

using platform::UserInfo;

constexpr std::string_view kGeofence10 = "drovel.notify.v2 geofence_approach 7 10";
constexpr std::string_view kGeofence11 = "drovel.notify.v2 geofence_approach 7 11";
constexpr std::string_view kBeaconSite = "drovel.notify.v2 beacon_site 8";
constexpr std::string_view kBeaconArea = "drovel.notify.v2 beacon_area_of_interest 9";

std::vector<std::string> sorted(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

std::optional<platform::NotificationRequest> pendingNamed(Harness& h, std::string_view identifier) {
    for (auto& request : h.fake.userNotificationCenter->pending())
        if (request.identifier == identifier) return request;
    return std::nullopt;
}

// A harness with the campaigns download and the app's name, after one forced sync.
struct CampaignsHarness : Harness {
    CampaignsHarness() {
        answerNotifications(200, kCampaigns);
        setCustomTemplateContent(*fake.userDefaults, {{"name", "Ann"}, {"tier", "gold"}});
        failUploads();
        enable();
        EXPECT_EQ(syncAndWait(true), nullptr);
        settleCentre();
    }
    // Re-runs the set-up as an orders report does, and waits for its adds.
    void setUpAgain(std::size_t adds) {
        const auto before = fake.userNotificationCenter->addedRequests().size();
        manager().ordersUpdated({});
        EXPECT_TRUE(pumpUntil([&] { return fake.userNotificationCenter->addedRequests().size() >= before + adds; }));
        settleCentre();
    }
    // Runs an unforced sync whose beacon ranging fails.
    void syncRangingFails() {
        bool done = false;
        manager().sync(false, [&](core::ErrorPtr) { done = true; });
        ASSERT_TRUE(pumpUntil([&] { return !fake.locationProvider->rangedConstraints().empty(); }));
        const auto constraint = fake.locationProvider->rangedConstraints()[0];
        EXPECT_EQ(constraint.uuid, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
        fake.locationProvider->reportRangingFailure(constraint, makeNotifyError(NotifyErrorType::noBeaconInRange));
        ASSERT_TRUE(pumpUntil([&] { return done; }));
    }
};

TEST(ManagerCampaignsTest, ASyncSchedulesEveryPairWithRenderedTexts) {
    CampaignsHarness h;
    EXPECT_EQ(sorted(h.fake.userNotificationCenter->pendingIdentifiers()),
              sorted({std::string(kBeaconArea), std::string(kBeaconSite), std::string(kGeofence10),
                      std::string(kGeofence11)}));

    auto geofence = pendingNamed(h, kGeofence10);
    ASSERT_TRUE(geofence);
    EXPECT_EQ(geofence->content.title, "Hi Ann");
    EXPECT_EQ(geofence->content.body, "Near SITE");
    EXPECT_EQ(geofence->content.sound, platform::NotificationSound::defaultSound);
    EXPECT_EQ(geofence->content.userInfo,
              (UserInfo{{"message_source", "drovel.notify.v2"}, {"Drovel.Notify.CampaignID", 7},
                        {"Drovel.Notify.SiteID", 10}, {"Drovel.Notify.DeepLinkURL", "shop://deal/Ann"},
                        {"Drovel.Notify.Metadata", UserInfo{{"tier", "gold"}}}}));
    // What each kind of template and region gives is in CampaignRequestBuilderTest.

    auto loaded = loadedCampaigns(*h.fake.userDefaults);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->store, (std::map<std::int64_t, std::vector<std::int64_t>>{{7, {10, 11}}, {8, {}}, {9, {}}}));
}

TEST(ManagerCampaignsTest, TriggerHistoryHoldsACampaignBackUntilItsIntervalOrAForcedSync) {
    CampaignsHarness h;
    const auto now = h.fake.clock->now();
    // Campaign 7 (two sites) repeats daily, 8 has no interval, 9 (the area request) has no events. The
    // rule itself is in CampaignRequestBuilderTest; this checks that each campaign's stored events are read.
    struct Case {
        const char* name;
        std::vector<NotifyTriggerEvent> events;
        std::vector<std::string> scheduled;
    };
    const Case cases[] = {
        {"after the interval", {NotifyTriggerEvent(now - 25h, 7, 10)},
         {std::string(kBeaconArea), std::string(kBeaconSite), std::string(kGeofence10), std::string(kGeofence11)}},
        {"each campaign by its own events",
         {NotifyTriggerEvent(now - 24h * 300, 8, std::nullopt), NotifyTriggerEvent(now - 1h, 7, 10),
          NotifyTriggerEvent(now - 24h * 300, 7, 11)},
         {std::string(kBeaconArea)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        h.database->dbManager().deleteAll<NotifyTriggerEvent>();
        for (const auto& event : c.events) h.database->dbManager().save(event);
        h.setUpAgain(c.scheduled.size());
        EXPECT_EQ(sorted(h.fake.userNotificationCenter->pendingIdentifiers()), c.scheduled);
    }
    // A forced sync starts the repeat bookkeeping afresh.
    EXPECT_EQ(h.syncAndWait(true), nullptr);
    h.settleCentre();
    EXPECT_TRUE(pendingNamed(h, kBeaconSite));
}

TEST(ManagerCampaignsTest, AFailedAddIsLoggedRecordedAndNotRemembered) {
    CampaignsHarness h;
    auto error = std::make_shared<platform::UserNotificationError>(platform::UserNotificationError::Code::notificationsNotAllowed);
    h.fake.userNotificationCenter->failAdds(std::string(kGeofence11), error);
    const auto sdkErrorsBefore = h.logs->count("SyncDebug: Logging SDK error events");
    h.setUpAgain(4);
    EXPECT_TRUE(h.logs->contains("Orders Updated 0"));

    auto failed = h.fake.userNotificationCenter->addedRequests().back();
    for (const auto& request : h.fake.userNotificationCenter->addedRequests())
        if (request.identifier == kGeofence11) failed = request;
    EXPECT_TRUE(h.logs->contains("Failed to add notification request " + failed.description() +
                               ", with error: Notifications are not allowed for this application"));
    EXPECT_EQ(h.logs->count("SyncDebug: Logging SDK error events"), sdkErrorsBefore + 1);
    ASSERT_TRUE(h.pumpUntil([&] { return loadedCampaigns(*h.fake.userDefaults).has_value(); }));
    EXPECT_EQ(loadedCampaigns(*h.fake.userDefaults)->store,
              (std::map<std::int64_t, std::vector<std::int64_t>>{{7, {10}}, {8, {}}, {9, {}}}));
}

TEST(ManagerCampaignsTest, AFiredGeofenceRequestIsLoggedWithItsSiteAtTheNextSync) {
    CampaignsHarness h;
    ASSERT_TRUE(h.fake.userNotificationCenter->deliver(kGeofence10));
    // Not due again today: the sync only detects.
    EXPECT_EQ(h.syncAndWait(false), nullptr);

    auto triggered = h.analyticsEvents(NotifyAnalyticsEventType::notificationTriggered);
    ASSERT_EQ(triggered.size(), 1u);
    EXPECT_EQ(triggered[0].campaignID(), 7);
    EXPECT_EQ(triggered[0].params(), (NotifyAnalyticsEvent::Params{{"content_metadata_tier", "gold"}, {"site_id", "10"}}));
    ASSERT_EQ(h.triggerEvents().size(), 1u);
    EXPECT_EQ(h.triggerEvents()[0], NotifyTriggerEvent(h.fake.clock->now(), 7, 10));
    EXPECT_TRUE(h.logs->contains("SyncDebug: campaigns.needToRangeForSite == false"));
    EXPECT_TRUE(h.logs->contains("SyncDebug: Leaving DG for detectTriggeredCampaigns()"));

    // What fired is forgotten: the next detection does not count it again.
    EXPECT_EQ(h.syncAndWait(false), nullptr);
    EXPECT_EQ(h.analyticsEvents(NotifyAnalyticsEventType::notificationTriggered).size(), 1u);
}

// Without a beacon in range the event has no site (the site by minor is in TriggeredCampaignsTest).
TEST(ManagerCampaignsTest, AFiredBeaconRequestIsLoggedWithoutASiteWhenRangingFails) {
    CampaignsHarness h;
    ASSERT_TRUE(h.fake.userNotificationCenter->deliver(kBeaconSite));
    ASSERT_NO_FATAL_FAILURE(h.syncRangingFails());
    auto triggered = h.analyticsEvents(NotifyAnalyticsEventType::notificationTriggered);
    ASSERT_EQ(triggered.size(), 1u);
    EXPECT_EQ(triggered[0].campaignID(), 8);
    EXPECT_EQ(triggered[0].params(), (NotifyAnalyticsEvent::Params{{"content_metadata_kind", "b"}}));
    EXPECT_TRUE(h.logs->contains("SyncDebug: Finished locationManager.rangeForSiteIfNeeded"));
    EXPECT_TRUE(h.logs->contains("SyncDebug: Ranging failed: "));
}

TEST(ManagerCampaignsTest, NothingIsDetectedBeforeASetUp) {
    Harness h;
    h.failUploads();
    h.enable();
    EXPECT_EQ(h.syncAndWait(false), nullptr);
    EXPECT_TRUE(h.logs->contains("SyncDebug: Stopped Detecting triggered campaigns. No campaigns have been loaded"));
    EXPECT_TRUE(h.analyticsEvents(NotifyAnalyticsEventType::notificationTriggered).empty());
}


}  // namespace
}  // namespace drovel::notify::test
