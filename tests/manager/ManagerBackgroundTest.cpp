// Background work on the fake platform: the refresh task and its expiry, scheduling on entry into
// the background, and the legacy fetch.

#include "manager/ManagerHarness.h"

namespace drovel::notify::test {
namespace {


constexpr const char* kTask = "com.example.app.refresh";

struct Background : Harness {
    Background() { manager().configure(kTask, bgSyncs.callback()); }
    std::vector<core::ErrorPtr> errors() { return bgSyncs.all(); }
    Reports bgSyncs;
};

TEST(ManagerBackgroundTest, TheRefreshTaskCompletesSuccessfullyAlsoWhenItsSyncFails) {
    Background h;
    EXPECT_EQ(h.fake.backgroundTaskScheduler->registrations(), std::vector<std::string>{kTask});
    EXPECT_TRUE(h.logs->contains("SyncDebug: BGTaskScheduler registration result true"));
    h.enable();
    h.fake.locationProvider->setLocationServicesEnabled(false);

    auto task = h.fake.backgroundTaskScheduler->launch(kTask);
    ASSERT_TRUE(task);
    ASSERT_TRUE(h.pumpUntil([&] { return task->completion().has_value(); }));
    EXPECT_EQ(task->completionCalls(), std::vector<bool>{true});
    ASSERT_EQ(h.errors().size(), 1u);
    EXPECT_EQ(errorType(h.errors()[0]), NotifyErrorType::noLocationPermission);
    EXPECT_FALSE(h.manager().bgOrPushSyncInProgress());

    // The next refresh was asked for three hours ahead, before any work.
    auto submissions = h.fake.backgroundTaskScheduler->submissions();
    ASSERT_EQ(submissions.size(), 1u);
    EXPECT_EQ(submissions[0].identifier, kTask);
    EXPECT_EQ(submissions[0].earliestBeginDate, h.fake.clock->now() + std::chrono::seconds(10800));
    EXPECT_EQ(h.fake.connectivityProbe->timeLimits(), std::vector<std::chrono::milliseconds>{2000ms});
    for (const char* line : {"SyncDebug: BGTaskScheduler started task com.example.app.refresh",
                             "SyncDebug: Non-legacy app started BGAppRefreshTask", "SyncDebug: Internet Connected = true",
                             "SyncDebug: Starting sync from BGAppRefreshTask..."})
        EXPECT_TRUE(h.logs->contains(line)) << line;
    const auto diary = h.diary();
    ASSERT_EQ(diary.size(), 2u);
    EXPECT_NE(diary[1].find(" bg try"), std::string::npos);
    EXPECT_NE(diary[0].find(" bg done, Error = Location permission is missing"), std::string::npos);
}

TEST(ManagerBackgroundTest, AnOfflineDeviceStillSyncs) {
    Background h;
    h.enable();
    h.fake.connectivityProbe->setAnswer(false);
    auto task = h.fake.backgroundTaskScheduler->launch(kTask);
    ASSERT_TRUE(h.pumpUntil([&] { return task->completion().has_value(); }));
    EXPECT_TRUE(h.logs->contains("SyncDebug: Internet Connected = false"));
    EXPECT_EQ(h.errors(), std::vector<core::ErrorPtr>{nullptr});
    EXPECT_EQ(h.notificationsRequests(), 1u);
    EXPECT_TRUE(h.diaryHas(" do campaign sync"));
}

TEST(ManagerBackgroundTest, ExpiryCancelsTheRequestsAndCompletesTheTaskUnsuccessfully) {
    Background h;
    h.enable();
    h.fake.connectivityProbe->setAnswer(std::nullopt);
    auto task = h.fake.backgroundTaskScheduler->launch(kTask);
    ASSERT_TRUE(task->hasExpirationHandler());
    task->expire();
    EXPECT_EQ(task->completion(), false);
    EXPECT_EQ(h.fake.httpTransport->cancelAllCount(), 1u);
    EXPECT_TRUE(h.diaryHas(" backgroundTaskExpired"));
    // The sync still runs to its end; the task's first completion stands.
    h.fake.connectivityProbe->answer(true);
    ASSERT_TRUE(h.pumpUntil([&] { return task->completionCalls().size() == 2; }));
    EXPECT_EQ(task->completion(), false);
}

TEST(ManagerBackgroundTest, EnteringTheBackgroundSchedulesTheNextRefresh) {
    Background h;
    h.fake.notificationCenter->post(platform::ApplicationNotification::didEnterBackground);
    EXPECT_EQ(h.fake.backgroundTaskScheduler->submissions().size(), 1u);
    EXPECT_TRUE(h.logs->contains("SyncDebug: Received didEnterBackgroundNotification"));
    EXPECT_TRUE(h.logs->contains("SyncDebug: Scheduling BGAppRefreshTask..."));

    h.fake.backgroundTaskScheduler->setSubmitError(core::makeError<platform::BackgroundTaskSchedulerError>(
        platform::BackgroundTaskSchedulerError::Code::notPermitted));
    h.fake.notificationCenter->post(platform::ApplicationNotification::didEnterBackground);
    EXPECT_TRUE(h.logs->contains("Notify: Unable to submit BGTaskScheduler request: "));

    // A second configure replaces the observer rather than adding one.
    h.manager().configure(kTask, nullptr);
    h.fake.notificationCenter->post(platform::ApplicationNotification::didEnterBackground);
    EXPECT_EQ(h.fake.backgroundTaskScheduler->submissions().size(), 3u);
}

TEST(ManagerBackgroundTest, TheLegacyFetchAlwaysAnswersNewData) {
    Harness h;
    h.enable();
    h.fake.locationProvider->setAuthorizationStatus(platform::AuthorizationStatus::denied);
    std::optional<platform::BackgroundFetchResult> result;
    h.manager().performFetchWithCompletionHandler([&](platform::BackgroundFetchResult answer) { result = answer; });
    ASSERT_TRUE(h.pumpUntil([&] { return result.has_value(); }));
    EXPECT_EQ(result, platform::BackgroundFetchResult::newData);
    EXPECT_TRUE(h.diaryHas(" bg done, Error = Location permission is missing"));
}

}  // namespace
}  // namespace drovel::notify::test
