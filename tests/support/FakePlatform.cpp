#include "support/FakePlatform.h"

namespace drovel::testing {

FakePlatform::FakePlatform()
    : mainQueue(std::make_shared<platform::MainQueue>()),
      globalQueue(std::make_shared<platform::ConcurrentQueue>("FakePlatform.global", 16)),
      userNotificationCenter(std::make_shared<FakeUserNotificationCenter>()),
      locationProvider(std::make_shared<FakeLocationProvider>(mainQueue)),
      application(std::make_shared<FakeApplication>(mainQueue)),
      backgroundTaskScheduler(std::make_shared<FakeBackgroundTaskScheduler>()),
      notificationCenter(std::make_shared<platform::LocalNotificationCenter>()),
      userDefaults(std::make_shared<FakeUserDefaults>()),
      httpTransport(std::make_shared<FakeHttpTransport>()),
      connectivityProbe(std::make_shared<FakeConnectivityProbe>()),
      clock(std::make_shared<FakeClock>()) {}

platform::Platform FakePlatform::platform() const {
    platform::Platform p;
    p.userNotificationCenter = userNotificationCenter;
    p.locationProvider = locationProvider;
    p.application = application;
    p.backgroundTaskScheduler = backgroundTaskScheduler;
    p.notificationCenter = notificationCenter;
    p.userDefaults = userDefaults;
    p.httpTransport = httpTransport;
    p.connectivityProbe = connectivityProbe;
    p.clock = clock;
    p.mainQueue = mainQueue;
    p.globalQueue = globalQueue;
    p.applicationSupportDirectory = directory.path();
    p.bundleInfo = bundleInfo;
    p.systemMajorVersion = systemMajorVersion;
    return p;
}

}  // namespace drovel::testing
