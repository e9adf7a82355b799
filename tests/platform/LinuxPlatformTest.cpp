#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>

#include "SimulatedDeviceTestSupport.h"
#include "linux/HeadlessApplication.h"
#include "linux/HeadlessBackgroundTaskScheduler.h"
#include "linux/LinuxPlatform.h"
#include "linux/LocalNotificationCenter.h"
#include "support/TempDirectory.h"

namespace drovel::platform {
namespace {

using namespace std::chrono_literals;
using testing::TempDirectory;

TEST(LinuxPlatformTest, BuildsEverySeamAndItsFolders) {
    TempDirectory directory;
    auto made = makeLinuxPlatform({directory.file("app"), {{"CFBundleVersion", "7"}}, nullptr});
    ASSERT_TRUE(made) << made.error()->description();
    const Platform& platform = made.value();
    EXPECT_TRUE(platform.userNotificationCenter && platform.locationProvider && platform.application &&
                platform.backgroundTaskScheduler && platform.notificationCenter && platform.userDefaults &&
                platform.httpTransport && platform.clock && platform.mainQueue && platform.globalQueue);
    EXPECT_EQ(platform.applicationSupportDirectory, directory.file("app/ApplicationSupport"));
    EXPECT_TRUE(std::filesystem::is_directory(platform.applicationSupportDirectory));
    EXPECT_EQ(platform.bundleInfo.at("CFBundleVersion"), "7");

    platform.userDefaults->setString("k", "v");
    EXPECT_TRUE(platform.userDefaults->synchronize());
    EXPECT_TRUE(std::filesystem::exists(directory.file("app/UserDefaults.json")));
}

TEST(LinuxPlatformTest, FailsCleanlyWhenTheFolderCannotBeMade) {
    TempDirectory directory;
    std::ofstream(directory.file("file")) << "x";
    auto made = makeLinuxPlatform(directory.file("file/app"));
    ASSERT_FALSE(made);
    EXPECT_NE(made.error()->description().find("Cannot create the folder"), std::string::npos);
}

TEST(LinuxPlatformTest, WithoutADeviceNothingIsAuthorisedOrScheduled) {
    TempDirectory directory;
    auto made = makeLinuxPlatform(directory.path());
    ASSERT_TRUE(made);
    Platform platform = made.value();

    std::atomic<int> answers{0};
    NotificationSettings settings;
    core::ErrorPtr addError;
    std::size_t pendingCount = 99;
    bool granted = true;
    auto& center = *platform.userNotificationCenter;
    center.getNotificationSettings([&](NotificationSettings s) { settings = s, ++answers; });
    center.add(NotificationRequest{"id", {}, std::nullopt}, [&](core::ErrorPtr e) { addError = e, ++answers; });
    center.getPendingNotificationRequests([&](std::vector<NotificationRequest> r) { pendingCount = r.size(), ++answers; });
    center.requestAuthorization({}, [&](bool g, core::ErrorPtr) { granted = g, ++answers; });
    ASSERT_TRUE(platform.mainQueue->runUntil([&] { return answers == 4; }, 5s));
    EXPECT_FALSE(settings.permitsNotifications());
    ASSERT_TRUE(addError);
    EXPECT_EQ(addError->description(), "Notifications are not allowed for this application");
    EXPECT_EQ(pendingCount, 0u);
    EXPECT_FALSE(granted);

    auto& location = *platform.locationProvider;
    EXPECT_FALSE(location.locationServicesEnabled());
    EXPECT_EQ(location.authorizationStatus(), AuthorizationStatus::notDetermined);
    EXPECT_FALSE(location.isRangingAvailable());
    auto delegate = std::make_shared<simulated::ReportLog>();
    location.setDelegate(delegate);
    location.requestLocation();
    location.startRangingBeacons(BeaconIdentityConstraint{simulated::kUUID, std::nullopt, std::nullopt});
    EXPECT_TRUE(delegate->failures.empty());  // reports never arrive inside the call
    platform.mainQueue->drain();
    EXPECT_TRUE(delegate->positions.empty() && delegate->ranges.empty());
    EXPECT_EQ(delegate->failures, (std::vector<std::string>{
                                      "The operation couldn\u2019t be completed. (kCLErrorDomain error 0.)",
                                      "The operation couldn\u2019t be completed. (kCLErrorDomain error 16.)"}));

    // A delegate that is gone gets nothing.
    location.requestLocation();
    delegate.reset();
    EXPECT_EQ(platform.mainQueue->drain(), 1u);
}

TEST(HeadlessApplicationTest, StateChangesPostLifecycleBroadcastsAndURLsDoNotOpen) {
    auto main = std::make_shared<MainQueue>();
    auto center = std::make_shared<LocalNotificationCenter>();
    HeadlessApplication application(main, center);
    std::vector<std::string> posted;
    center->addObserver("", [&](const Notification& n) { posted.push_back(n.name); });

    EXPECT_EQ(application.applicationState(), ApplicationState::active);
    application.setApplicationState(ApplicationState::inactive);
    application.setApplicationState(ApplicationState::background);
    application.setApplicationState(ApplicationState::background);
    application.setApplicationState(ApplicationState::active);
    EXPECT_EQ(posted, (std::vector<std::string>{std::string(ApplicationNotification::didEnterBackground),
                                                std::string(ApplicationNotification::didBecomeActive)}));

    std::optional<bool> opened;
    application.open("https://example.com", {}, [&](bool success) { opened = success; });
    EXPECT_FALSE(opened);
    main->drain();
    EXPECT_EQ(opened, false);

    EXPECT_EQ(application.minimumBackgroundFetchInterval(), kBackgroundFetchIntervalNever);

    int expired = 0;
    auto task = application.beginBackgroundTask("DrovelNotify.syncAnalyticsEvents", [&] { ++expired; });
    EXPECT_NE(task, kInvalidBackgroundTask);
    EXPECT_EQ(application.activeBackgroundTasks(), std::vector<std::string>{"DrovelNotify.syncAnalyticsEvents"});
    application.expireBackgroundTasks();
    main->drain();
    EXPECT_EQ(expired, 1);
    application.endBackgroundTask(task);
    application.endBackgroundTask(task);
    EXPECT_TRUE(application.activeBackgroundTasks().empty());
}

TEST(HeadlessBackgroundTaskSchedulerTest, LaunchesRegisteredTasksOnItsQueue) {
    HeadlessBackgroundTaskScheduler scheduler;
    auto refused = scheduler.submit({"unregistered", BackgroundTaskKind::appRefresh, std::nullopt});
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->description(), "The operation couldn\u2019t be completed. (BGTaskSchedulerErrorDomain error 3.)");
    EXPECT_EQ(scheduler.launch("unregistered"), nullptr);

    std::atomic<bool> expired{false};
    std::promise<void> launched;  // the handler runs on the scheduler's queue
    ASSERT_TRUE(scheduler.registerForTask("refresh", [&](std::shared_ptr<BackgroundTask> task) {
        task->setExpirationHandler([&, task] {
            expired = true;
            task->setTaskCompleted(false);
        });
        launched.set_value();
    }));
    EXPECT_FALSE(scheduler.registerForTask("refresh", [](std::shared_ptr<BackgroundTask>) {}));
    EXPECT_EQ(scheduler.submit({"refresh", BackgroundTaskKind::appRefresh, Date(std::chrono::seconds(100))}), nullptr);
    ASSERT_EQ(scheduler.pendingRequests().size(), 1u);

    auto task = scheduler.launch("refresh");
    ASSERT_TRUE(task);
    EXPECT_TRUE(scheduler.pendingRequests().empty());
    ASSERT_EQ(launched.get_future().wait_for(30s), std::future_status::ready);
    EXPECT_EQ(task->waitForCompletion(50ms), std::nullopt);
    task->expire();
    EXPECT_EQ(task->waitForCompletion(5s), false);
    EXPECT_TRUE(expired);
    task->setTaskCompleted(true);  // only the first completion counts
    EXPECT_EQ(task->completion(), false);
}

}  // namespace
}  // namespace drovel::platform
