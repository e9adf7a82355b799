// Sync orchestration on the fake platform: one sync at a time, the daily and forced paths, the
// position rule of app activation, and every row of the failure table.

#include "manager/ManagerHarness.h"
#include "support/ScopedTimeZone.h"

namespace drovel::notify::test {
namespace {

using drovel::testing::ScopedTimeZone;

// A local time in the current TZ.
platform::Date localTime(int year, int month, int day, int hour, int minute, int second = 0) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return platform::toDate(std::chrono::system_clock::from_time_t(std::mktime(&tm)));
}

TEST(ManagerSyncTest, TheSecondSyncJobStartsAfterTheFirstCallbackRan) {
    Harness h;
    h.enable();
    std::vector<std::size_t> jobsStartedAtCallback;
    auto callback = [&](core::ErrorPtr) { jobsStartedAtCallback.push_back(h.logs->count("SyncDebug: Syncing analytics events")); };
    h.manager().sync(true, callback);
    h.manager().sync(true, callback);
    ASSERT_TRUE(h.pumpUntil([&] { return jobsStartedAtCallback.size() == 2; }));
    // Each job logs "Syncing analytics events" as it starts: when the first callback ran, the second
    // job had not started yet.
    EXPECT_EQ(jobsStartedAtCallback, (std::vector<std::size_t>{1, 2}));
    EXPECT_EQ(h.notificationsRequests(), 2u);
    EXPECT_TRUE(h.pumpUntil([&] { return h.logs->count("SyncDebug: Leaving dispatch group") == 2; }));
}

TEST(ManagerSyncTest, AnUnforcedSyncOnTheSameDayIsSkippedAndAForcedOneFetches) {
    ScopedTimeZone zone("UTC");
    Harness h;
    const auto earlierToday = h.fake.clock->now() - 3h;
    set(*h.fake.userDefaults, UserDefaultsKey::lastSync, earlierToday);
    h.database->dbManager().save(NotifyTriggerEvent(earlierToday, 7, 10));
    h.enable();
    ASSERT_EQ(h.manager().lastSync(), earlierToday);

    EXPECT_EQ(h.syncAndWait(false), nullptr);
    EXPECT_TRUE(h.logs->contains("SyncDebug: Not forced or dueForSync()"));
    EXPECT_TRUE(h.logs->contains("SyncDebug: doSync() callback result: false error: nil"));
    EXPECT_EQ(h.manager().lastSync(), earlierToday);
    EXPECT_EQ(h.notificationsRequests(), 0u);
    EXPECT_EQ(h.triggerEvents().size(), 1u);

    auto forcedError = h.syncAndWait(true);
    EXPECT_EQ(forcedError, nullptr) << forcedError->description();
    EXPECT_TRUE(h.triggerEvents().empty());
    EXPECT_EQ(h.notificationsRequests(), 1u);
    // The stored position and the configured search radius.
    EXPECT_TRUE(h.fake.httpTransport->requests().back().url.ends_with(
        "/notifications?latitude=52.2&longitude=4.4&radius=500.0"))
        << h.fake.httpTransport->requests().back().url;
    EXPECT_EQ(h.manager().lastSync(), h.fake.clock->now());
    EXPECT_EQ(date(*h.fake.userDefaults, UserDefaultsKey::lastSync), h.fake.clock->now());
    EXPECT_TRUE(h.fake.userDefaults->string("NotifySDK.lastSync"));
    EXPECT_EQ(h.campaignsUpdated.load(), 1);
    EXPECT_TRUE(h.logs->contains("SyncDebug: using existing location"));
    EXPECT_TRUE(h.logs->contains("SyncDebug: doSync() callback result: true error: nil"));
}

// Calendar days in the local time zone: a minute after midnight is a new day, whatever UTC says.
TEST(ManagerSyncTest, DueForSyncGoesByTheLocalCalendarDay) {
    ScopedTimeZone zone("Asia/Tokyo");
    struct Case {
        const char* name;
        int lastDay, lastHour, lastMinute;
        bool fetches;
    };
    const Case cases[] = {
        {"a minute before midnight", 14, 23, 59, true},
        {"half a minute after midnight", 15, 0, 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Harness h;
        h.fake.clock->set(localTime(2026, 3, 15, 0, 1));
        set(*h.fake.userDefaults, UserDefaultsKey::lastSync, localTime(2026, 3, c.lastDay, c.lastHour, c.lastMinute, 30));
        h.enable();
        EXPECT_EQ(h.syncAndWait(false), nullptr);
        EXPECT_EQ(h.notificationsRequests(), c.fetches ? 1u : 0u);
    }
}

// The backend's minimum interval answers an unforced sync from the stored list, and that still
// counts as a completed sync.
TEST(ManagerSyncTest, TheBackendsMinimumIntervalAnswersFromTheStore) {
    ScopedTimeZone zone("UTC");
    Harness h;
    h.fake.clock->set(localTime(2026, 3, 14, 23, 55));
    h.answerNotifications(200, R"({"min_sync_interval_seconds": 900, "data": [], "included": {}})");
    h.enable();
    EXPECT_EQ(h.syncAndWait(true), nullptr);
    // A new calendar day, ten minutes after the fetch: due, but within the backend's 900 s.
    h.fake.clock->advance(10min);
    EXPECT_EQ(h.syncAndWait(false), nullptr);
    EXPECT_EQ(h.notificationsRequests(), 1u);
    // The stored position and the configured search radius.
    EXPECT_TRUE(h.fake.httpTransport->requests().back().url.ends_with(
        "/notifications?latitude=52.2&longitude=4.4&radius=500.0"))
        << h.fake.httpTransport->requests().back().url;
    EXPECT_EQ(h.manager().lastSync(), h.fake.clock->now());
    EXPECT_EQ(h.campaignsUpdated.load(), 2);
    // Once the interval has passed, the next day's sync fetches again.
    h.fake.clock->advance(24h);
    EXPECT_EQ(h.syncAndWait(false), nullptr);
    EXPECT_EQ(h.notificationsRequests(), 2u);
}

// App activation: a fix younger than an hour starts the sync at once; an older one asks for a new
// position first.
TEST(ManagerSyncTest, AppActivationUsesAPositionYoungerThanAnHour) {
    for (auto age : {59min, 61min}) {
        SCOPED_TRACE(age.count());
        Harness h;
        setLastLocation(*h.fake.userDefaults, locationAt(h.fake.clock->now() - age));
        h.enable();
        const bool fresh = age < 60min;
        EXPECT_EQ(h.logs->contains("SyncDebug: Sync initiated from performSyncIfNeeded. Fresh cache location. "), fresh);
        EXPECT_EQ(h.fake.locationProvider->requestLocationCount(), fresh ? 0u : 1u);
        if (fresh) {
            EXPECT_TRUE(h.pumpUntil([&] {
                return h.logs->contains("SyncDebug: Finished Sync initiated from performSyncIfNeeded. Fresh cache location.");
            }));
            EXPECT_EQ(h.notificationsRequests(), 1u);
        } else {
            h.fake.locationProvider->reportLocations({locationAt(h.fake.clock->now())});
            EXPECT_TRUE(h.pumpUntil([&] {
                return h.logs->contains("SyncDebug: Finished Sync initiated from performSyncIfNeeded.requestLocation()");
            }));
            EXPECT_TRUE(h.logs->contains("SyncDebug: Sync initiated from performSyncIfNeeded.requestLocation()"));
        }
    }
}

TEST(ManagerSyncTest, AnEmptyCampaignListStillRecordsTheSyncAndRemovesCampaignNotifications) {
    Harness h;
    h.answerNotifications(200, kNoCampaigns);
    h.fake.userNotificationCenter->setPending({pendingRequest("drovel.notify.v2 beacon_site 7", "drovel.notify.v2"),
                                               pendingRequest("drovel.notify 3", "drovel.notify")});
    h.enable();
    EXPECT_EQ(h.syncAndWait(true), nullptr);
    EXPECT_TRUE(h.logs->contains("SyncDebug: Campaigns count = 0"));
    EXPECT_EQ(h.manager().lastSync(), h.fake.clock->now());
    EXPECT_EQ(h.campaignsUpdated.load(), 1);
    EXPECT_EQ(h.fake.userNotificationCenter->pendingIdentifiers(), std::vector<std::string>{"drovel.notify 3"});
}

// Every row of the failure table: what the callback gets, the line a support engineer searches
// for, and whether an SDK-error event is recorded (its save fails on the table's campaign id).
TEST(ManagerSyncTest, EveryFailureReachesTheCallbackWithItsLogAndEvent) {
    auto locationDenied = core::makeError<platform::LocationError>(platform::LocationError::Code::denied);
    struct Row {
        const char* name;
        bool coreConfigured;
        bool enable;
        std::function<void(Harness&)> script;
        std::optional<NotifyErrorType> type;  // none: another error (this one, when given)
        std::string log;
        bool sdkEvent;
        core::ErrorPtr exactly = nullptr;
    };
    const Row rows[] = {
        {"module not enabled", true, false, [](Harness&) {}, NotifyErrorType::notifyModuleNotEnabled,
         "SyncDebug: Notify not enabled", false},
        {"notifications not permitted", true, true,
         [](Harness& h) { h.fake.userNotificationCenter->setAuthorizationStatus(platform::NotificationAuthorizationStatus::denied); },
         NotifyErrorType::notificationPermissionDenied, "SyncDebug: Logging SDK error events", true},
        {"location services off", true, true, [](Harness& h) { h.fake.locationProvider->setLocationServicesEnabled(false); },
         NotifyErrorType::noLocationPermission, "Skipping DrovelNotify sync - no location authorization", true},
        {"location not authorised", true, true,
         [](Harness& h) { h.fake.locationProvider->setAuthorizationStatus(platform::AuthorizationStatus::denied); },
         NotifyErrorType::noLocationPermission, "Skipping DrovelNotify sync - no location authorization", true},
        {"no position", true, true,
         [&](Harness& h) {
             h.fake.userDefaults->removeObject("DrovelNotify.lastLocation");
             h.fake.locationProvider->setLocationAnswer(locationDenied);
         },
         std::nullopt, "SyncDebug: locationManager.requestLocationIfNeeded() failed! - location == nil error: " +
                           locationDenied->description(),
         false, locationDenied},
        {"core library not configured", false, true, [](Harness&) {}, NotifyErrorType::coreIsNotConfigured,
         "SyncDebug: Core is not configured", true},
        {"fetch failed", true, true, [](Harness& h) { h.answerNotifications(500, ""); }, std::nullopt,
         "SyncDebug: fetchNotificatios() error ", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Harness h(row.coreConfigured);
        row.script(h);
        if (row.enable) h.enable();
        auto error = h.syncAndWait(true);
        ASSERT_TRUE(error);
        EXPECT_EQ(errorType(error), row.type);
        EXPECT_TRUE(!row.exactly || error == row.exactly);
        EXPECT_TRUE(h.logs->contains(row.log));
        EXPECT_EQ(h.logs->contains("SyncDebug: Logging SDK error events"), row.sdkEvent);
        EXPECT_EQ(h.logs->contains("Failed to save NotifyAnalyticsEvent with error: "), row.sdkEvent);
        EXPECT_FALSE(h.manager().lastSync());
        EXPECT_EQ(h.campaignsUpdated.load(), 0);
    }
}

TEST(ManagerSyncTest, AFailedAnalyticsUploadIsLoggedAndTheSyncGoesOn) {
    Harness h;
    h.database->dbManager().save(
        NotifyAnalyticsEvent(NotifyAnalyticsEventType::notificationClicked, h.fake.clock->now(), 7, {}));
    h.failUploads();
    h.enable();
    EXPECT_EQ(h.syncAndWait(true), nullptr);
    EXPECT_TRUE(h.logs->contains("SyncDebug: uploadAnalyticsEventsInDB"));
    EXPECT_TRUE(h.logs->contains("Error syncing analytics: "));
    EXPECT_EQ(h.notificationsRequests(), 1u);
    EXPECT_EQ(h.fake.application->begunBackgroundTasks(), std::vector<std::string>{"DrovelNotify.syncAnalyticsEvents"});
    EXPECT_TRUE(h.fake.application->runningBackgroundTasks().empty());
}

}  // namespace
}  // namespace drovel::notify::test
