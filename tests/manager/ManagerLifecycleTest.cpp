// The manager's switches and lifecycle: configure, app configurations with and without a Notify
// section, pushes, setup and unconfigure, and the small operations.

#include <future>

#include "data/SyncHistory.h"
#include "manager/ManagerHarness.h"
#include "support/ScopedTimeZone.h"

namespace drovel::notify::test {
namespace {


TEST(ManagerLifecycleTest, ConfigureRegistersWithTheCoreLibraryAndAnnouncesItself) {
    Harness h;
    std::shared_ptr<Manager> announced;
    h.fake.notificationCenter->addObserver("DrovelModuleConfigure", [&](const platform::Notification& notification) {
        announced = std::any_cast<std::shared_ptr<Manager>>(notification.object);
    });
    Manager& manager = h.manager();
    EXPECT_FALSE(manager.isManagerConfigured());
    manager.configure(std::nullopt, nullptr);
    EXPECT_TRUE(manager.isManagerConfigured());
    EXPECT_EQ(announced.get(), &manager);
    announced.reset();
    EXPECT_TRUE(h.logs->contains("DrovelNotify Manager configure()"));
    // No task identifier: nothing registered, no background observer, nothing scheduled.
    EXPECT_TRUE(h.fake.backgroundTaskScheduler->registrations().empty());
    h.fake.notificationCenter->post(platform::ApplicationNotification::didEnterBackground);
    EXPECT_TRUE(h.fake.backgroundTaskScheduler->submissions().empty());
    // Registered as a module: the core library's app configuration reaches the manager.
    h.core->updateAppConfig(notifyAppConfig());
    EXPECT_TRUE(manager.isNotifyEnabled());
    EXPECT_TRUE(h.pumpUntil([&] { return manager.isNotifyConfigured(); }));
}

// A configuration without a Notify section removes the pending campaign notifications and
// unconfigures, whether or not the module was ever enabled.
TEST(ManagerLifecycleTest, AConfigurationWithoutNotifySwitchesTheModuleOff) {
    for (bool enabledBefore : {false, true}) {
        SCOPED_TRACE(enabledBefore);
        Harness h;
        h.fake.userNotificationCenter->setPending({pendingRequest("drovel.notify.v2 beacon_site 7", "drovel.notify.v2"),
                                                   pendingRequest("drovel.notify 3", "drovel.notify"),
                                                   pendingRequest("other", "someone else")});
        if (enabledBefore) h.enable();
        h.manager().configUpdated(core::AppConfig{}, std::nullopt);
        EXPECT_FALSE(h.manager().isNotifyEnabled());
        ASSERT_TRUE(h.pumpUntil([&] {
            auto intervals = h.fake.application->fetchIntervals();
            return !intervals.empty() && intervals.back() == platform::kBackgroundFetchIntervalNever &&
                   h.fake.userNotificationCenter->pendingIdentifiers().size() == 2;
        }));
        EXPECT_EQ(h.fake.userNotificationCenter->pendingIdentifiers(), (std::vector<std::string>{"drovel.notify 3", "other"}));
        EXPECT_FALSE(h.manager().isNotifyConfigured());
        EXPECT_TRUE(h.logs->contains("SyncDebug: Notify not enabled"));
        EXPECT_TRUE(h.logs->contains("SyncDebug: removeObserver for UIApplication.didBecomeActiveNotification"));
        // The activation observer is gone: activation starts nothing.
        h.logs->clear();
        h.fake.notificationCenter->post(platform::ApplicationNotification::didBecomeActive);
        EXPECT_FALSE(h.logs->contains("performSyncIfNeeded"));
    }
}

TEST(ManagerLifecycleTest, MaxSitesKeepsTheLastValueCarried) {
    Harness h;
    for (auto [config, expected] : {std::pair{notifyAppConfig(9), 9}, std::pair{notifyAppConfig(), 9},
                                    std::pair{core::AppConfig{}, 9}, std::pair{notifyAppConfig(5), 5}}) {
        h.manager().configUpdated(config, std::nullopt);
        EXPECT_EQ(Manager::maxSites(), expected);
    }
    EXPECT_TRUE(h.pumpUntil([&] { return h.manager().isNotifyConfigured(); }));
}

// The configuration's analytics event limit becomes the upload batch size.
TEST(ManagerLifecycleTest, TheAnalyticsEventLimitSetsTheBatchSize) {
    Harness h;
    for (int i = 0; i < 3; ++i)
        h.database->dbManager().save(
            NotifyAnalyticsEvent(NotifyAnalyticsEventType::notificationClicked, h.fake.clock->now(), 7, {}));
    auto config = notifyAppConfig();
    config.data->notify->analyticsEventLimit = 2;
    h.manager().configUpdated(config, std::nullopt);
    EXPECT_EQ(h.syncAndWait(true), nullptr);
    std::size_t uploads = h.fake.httpTransport->requestCount() - h.notificationsRequests();
    EXPECT_EQ(uploads, 2u);
}

TEST(ManagerLifecycleTest, ABackgroundSyncPushStartsASyncAndOtherPushesOnlySetUp) {
    drovel::testing::ScopedTimeZone zone("UTC");
    {
        SCOPED_TRACE("forced background sync on a day that already synced");
        Harness h;
        set(*h.fake.userDefaults, UserDefaultsKey::lastSync, h.fake.clock->now() - 1h);
        h.database->dbManager().save(NotifyTriggerEvent(h.fake.clock->now() - 1h, 7, 10));
        h.manager().configUpdated(notifyAppConfig(), core::PushData{"background_sync", true});
        EXPECT_TRUE(h.manager().bgOrPushSyncInProgress());
        ASSERT_TRUE(h.pumpUntil([&] { return h.logs->contains("Finished sync initiated from push notification"); }));
        EXPECT_TRUE(h.logs->contains("Starting sync initiated from push notification"));
        EXPECT_TRUE(h.logs->contains("SyncDebug: sync(force = true"));
        EXPECT_EQ(h.notificationsRequests(), 1u);
        EXPECT_TRUE(h.triggerEvents().empty());
        EXPECT_FALSE(h.manager().bgOrPushSyncInProgress());
        const auto diary = h.diary();
        ASSERT_EQ(diary.size(), 3u);
        EXPECT_NE(diary[2].find(" push try"), std::string::npos);
        EXPECT_NE(diary[1].find(" do campaign sync"), std::string::npos);
        EXPECT_NE(diary[0].find(" push done"), std::string::npos);
        EXPECT_TRUE(h.pumpUntil([&] { return h.manager().isNotifyConfigured(); }));
    }
    {
        SCOPED_TRACE("an unforced push on a day that already synced is skipped");
        Harness h;
        set(*h.fake.userDefaults, UserDefaultsKey::lastSync, h.fake.clock->now() - 1h);
        h.enable();  // setup loads lastSync
        h.manager().configUpdated(notifyAppConfig(), core::PushData{"background_sync", false});
        ASSERT_TRUE(h.pumpUntil([&] { return h.logs->contains("Finished sync initiated from push notification"); }));
        EXPECT_EQ(h.notificationsRequests(), 0u);
        EXPECT_TRUE(h.diaryHas(" skipped sync"));
    }
    {
        SCOPED_TRACE("another message type");
        Harness h;
        h.manager().configUpdated(notifyAppConfig(), core::PushData{"order_update", true});
        EXPECT_TRUE(h.pumpUntil([&] { return h.manager().isNotifyConfigured(); }));
        EXPECT_FALSE(h.logs->contains("Starting sync initiated from push notification"));
        EXPECT_FALSE(h.logs->contains("SyncDebug: sync(force = "));
        EXPECT_FALSE(h.manager().bgOrPushSyncInProgress());
        EXPECT_TRUE(h.diary().empty());
    }
}

TEST(ManagerLifecycleTest, SetupRunsOnceUntilUnconfigured) {
    Harness h;
    h.enable();
    EXPECT_EQ(h.fake.application->fetchIntervals(), std::vector<double>{10800});
    EXPECT_TRUE(h.logs->contains("SyncDebug: Legacy app setting minimumBackgroundFetchInterval to 10800.0"));
    EXPECT_EQ(h.fake.locationProvider->requestLocationCount(), 1u);

    h.manager().configUpdated(notifyAppConfig(), std::nullopt);
    EXPECT_TRUE(h.pumpUntil([&] { return h.logs->contains("SyncDebug: Skipping setup, Notify module is already configured"); }));
    EXPECT_EQ(h.fake.locationProvider->requestLocationCount(), 1u);

    // Each activation runs performSyncIfNeeded once, through the one observer.
    h.fake.notificationCenter->post(platform::ApplicationNotification::didBecomeActive);
    EXPECT_EQ(h.fake.locationProvider->requestLocationCount(), 2u);

    h.manager().configUpdated(core::AppConfig{}, std::nullopt);
    ASSERT_TRUE(h.pumpUntil([&] { return !h.manager().isNotifyConfigured(); }));
    h.enable();
    EXPECT_EQ(h.fake.locationProvider->requestLocationCount(), 3u);
    h.fake.notificationCenter->post(platform::ApplicationNotification::didBecomeActive);
    EXPECT_EQ(h.fake.locationProvider->requestLocationCount(), 4u);
    EXPECT_EQ(h.logs->count("SyncDebug: Notify module is now configured"), 2u);
}

// Only the first generation's marker, as text, makes a site notification.
TEST(ManagerLifecycleTest, ClearRemovesOnlySiteNotifications) {
    Harness h;
    for (bool anyPending : {false, true}) {
        if (anyPending)
            h.fake.userNotificationCenter->setPending({pendingRequest("drovel.notify.v2 beacon_site 7", "drovel.notify.v2"),
                                                       pendingRequest("drovel.notify 3", "drovel.notify"),
                                                       pendingRequest("number", 1)});
        std::promise<core::ErrorPtr> answer;
        h.manager().clear([&](core::ErrorPtr error) { answer.set_value(error); });
        auto future = answer.get_future();
        ASSERT_EQ(future.wait_for(kLimit), std::future_status::ready);
        EXPECT_EQ(future.get(), nullptr);
    }
    EXPECT_EQ(h.fake.userNotificationCenter->pendingIdentifiers(),
              (std::vector<std::string>{"drovel.notify.v2 beacon_site 7", "number"}));
}

TEST(ManagerLifecycleTest, CustomTemplateContentIsStoredAfterTheSyncEvenWhenItFails) {
    Harness h;
    h.manager().updateCustomTemplateContent({{"name", "Ada"}});
    ASSERT_TRUE(h.pumpUntil([&] { return customTemplateContent(*h.fake.userDefaults).has_value(); }));
    EXPECT_EQ(customTemplateContent(*h.fake.userDefaults), (CustomTemplateContent{{"name", "Ada"}}));
    EXPECT_TRUE(h.logs->contains("Failed to sync while updating custom template content: error "));
}

}  // namespace
}  // namespace drovel::notify::test
