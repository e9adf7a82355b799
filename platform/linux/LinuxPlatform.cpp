#include "linux/LinuxPlatform.h"

#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#include "drovel/core/Core.h"
#include "drovel/notify/Manager.h"
#include "linux/CurlHttpTransport.h"
#include "linux/FileUserDefaults.h"
#include "linux/HeadlessApplication.h"
#include "linux/HeadlessBackgroundTaskScheduler.h"
#include "linux/LinuxConnectivityProbe.h"
#include "linux/LocalNotificationCenter.h"
#include "linux/NoDeviceLocationProvider.h"
#include "linux/NoDeviceUserNotificationCenter.h"
#include "linux/SystemClock.h"

namespace drovel::platform {

std::string defaultLinuxDirectory() {
    if (const char* home = std::getenv("DROVEL_HOME"); home && *home) return home;
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data) return std::string(data) + "/drovel";
    if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.local/share/drovel";
    return "./drovel";
}

core::Result<Platform> makeLinuxPlatform(LinuxPlatformOptions options) {
    namespace fs = std::filesystem;
    const fs::path directory(options.directory.empty() ? defaultLinuxDirectory() : options.directory);
    const fs::path support = directory / "ApplicationSupport";
    std::error_code error;
    fs::create_directories(support, error);
    if (error)
        return core::makeError<core::SimpleError>("Cannot create the folder " + support.string() + ": " +
                                                  error.message());

    Platform platform;
    platform.mainQueue = options.mainQueue ? std::move(options.mainQueue) : std::make_shared<MainQueue>();
    platform.globalQueue = ConcurrentQueue::global();
    platform.clock = std::make_shared<SystemClock>();
    platform.notificationCenter = std::make_shared<LocalNotificationCenter>();
    platform.userDefaults = std::make_shared<FileUserDefaults>((directory / "UserDefaults.json").string());
    platform.httpTransport = std::make_shared<CurlHttpTransport>();
    platform.connectivityProbe = std::make_shared<LinuxConnectivityProbe>();
    platform.userNotificationCenter = std::make_shared<NoDeviceUserNotificationCenter>();
    platform.locationProvider = std::make_shared<NoDeviceLocationProvider>(platform.mainQueue);
    platform.application = std::make_shared<HeadlessApplication>(platform.mainQueue, platform.notificationCenter);
    platform.backgroundTaskScheduler = std::make_shared<HeadlessBackgroundTaskScheduler>();
    platform.applicationSupportDirectory = support.string();
    platform.bundleInfo = std::move(options.bundleInfo);
    return platform;
}

core::Result<Platform> makeLinuxPlatform(const std::string& directory) {
    LinuxPlatformOptions options;
    options.directory = directory;
    return makeLinuxPlatform(std::move(options));
}

}  // namespace drovel::platform

namespace drovel::notify {

// The module's process-wide manager comes from the platform library, which knows the platform to
// fall back on: a host that installed no default platform gets the Linux reference platform in the
// default folder (or, when that folder cannot be made, in the temporary directory).
const std::shared_ptr<Manager>& Manager::shared() {
    // Never released, like the core library's state it works with.
    static const auto* instance = [] {
        if (!platform::hasDefaultPlatform()) {
            auto made = platform::makeLinuxPlatform(platform::defaultLinuxDirectory());
            if (!made) {
                const auto fallback = std::filesystem::temp_directory_path() / ("drovel-" + std::to_string(getuid()));
                made = platform::makeLinuxPlatform(fallback.string());
            }
            if (!made) core::programmingError("No folder for the Linux platform: " + made.error()->description());
            platform::installDefaultPlatform(std::move(made).value());
        }
        return new std::shared_ptr<Manager>(Manager::make(platform::defaultPlatform(), core::Core::shared()));
    }();
    return *instance;
}

}  // namespace drovel::notify
