#pragma once
// A Platform made of fakes, with typed access to each fake. Every seam is a fresh object, so two
// FakePlatforms never share state; the application-support directory is a fresh temporary folder
// removed with the FakePlatform.

#include <memory>

#include "drovel/platform/Platform.h"
#include "linux/LocalNotificationCenter.h"
#include "support/FakeApplication.h"
#include "support/FakeBackgroundTaskScheduler.h"
#include "support/FakeClock.h"
#include "support/FakeConnectivityProbe.h"
#include "support/FakeHttpTransport.h"
#include "support/FakeLocationProvider.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeUserNotificationCenter.h"
#include "support/TempDirectory.h"

namespace drovel::testing {

struct FakePlatform {
    FakePlatform();

    // The Platform value to hand to the code under test.
    platform::Platform platform() const;

    TempDirectory directory;
    std::shared_ptr<platform::MainQueue> mainQueue;
    // A concurrent queue of this platform's own, standing in for the global queue.
    std::shared_ptr<platform::ConcurrentQueue> globalQueue;
    std::shared_ptr<FakeUserNotificationCenter> userNotificationCenter;
    std::shared_ptr<FakeLocationProvider> locationProvider;
    std::shared_ptr<FakeApplication> application;
    std::shared_ptr<FakeBackgroundTaskScheduler> backgroundTaskScheduler;
    // The in-process centre is deterministic already; tests observe it directly.
    std::shared_ptr<platform::LocalNotificationCenter> notificationCenter;
    std::shared_ptr<FakeUserDefaults> userDefaults;
    std::shared_ptr<FakeHttpTransport> httpTransport;
    std::shared_ptr<FakeConnectivityProbe> connectivityProbe;
    std::shared_ptr<FakeClock> clock;
    std::map<std::string, std::string, std::less<>> bundleInfo{{"CFBundleShortVersionString", "1.0"},
                                                                {"CFBundleVersion", "1"}};
    int systemMajorVersion = 17;
};

}  // namespace drovel::testing
