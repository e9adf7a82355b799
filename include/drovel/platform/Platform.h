#pragma once
// Every platform seam the module uses, bundled in one value. The module receives a Platform at
// construction and reaches the platform only through it, so two managers can run side by side on
// different platforms (tests run them on fakes).

#include <map>
#include <memory>
#include <string>

#include "drovel/platform/Application.h"
#include "drovel/platform/BackgroundTaskScheduler.h"
#include "drovel/platform/Clock.h"
#include "drovel/platform/ConnectivityProbe.h"
#include "drovel/platform/DispatchQueue.h"
#include "drovel/platform/HttpTransport.h"
#include "drovel/platform/LocationProvider.h"
#include "drovel/platform/MainQueue.h"
#include "drovel/platform/NotificationCenter.h"
#include "drovel/platform/UserDefaults.h"
#include "drovel/platform/UserNotificationCenter.h"

namespace drovel::platform {

struct Platform {
    std::shared_ptr<UserNotificationCenter> userNotificationCenter;
    std::shared_ptr<LocationProvider> locationProvider;
    std::shared_ptr<Application> application;
    std::shared_ptr<BackgroundTaskScheduler> backgroundTaskScheduler;
    // The default notification centre.
    std::shared_ptr<NotificationCenter> notificationCenter;
    // The standard user defaults.
    std::shared_ptr<UserDefaults> userDefaults;
    std::shared_ptr<HttpTransport> httpTransport;
    std::shared_ptr<ConnectivityProbe> connectivityProbe;
    std::shared_ptr<Clock> clock;
    // The run loop every public callback is delivered on.
    std::shared_ptr<MainQueue> mainQueue;
    // The global queue of default quality of service.
    std::shared_ptr<Queue> globalQueue;
    // The application-support directory (the database lives here); it exists.
    std::string applicationSupportDirectory;
    // The app bundle's info dictionary: "CFBundleShortVersionString", "CFBundleVersion", ...
    std::map<std::string, std::string, std::less<>> bundleInfo;
    // The major version of the operating system the app runs on (the platform's, so 13 and later
    // have the newer ranging and background-task interfaces).
    int systemMajorVersion = 17;
};

// The process's default platform, which Manager::shared() uses. A host installs it once, before
// first use: calling defaultPlatform() before installDefaultPlatform(), or installing after
// defaultPlatform() was first called, is a programming error. Thread-safe; the returned reference
// stays valid for the life of the process.
Platform& defaultPlatform();
void installDefaultPlatform(Platform platform);
// True once a default platform was installed.
bool hasDefaultPlatform();

}  // namespace drovel::platform
