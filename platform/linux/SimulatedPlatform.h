#pragma once
// A Platform on a simulated device: the Linux reference platform (file user defaults, libcurl,
// real queues, in-process broadcasts) with the device's notification centre, location service,
// application, clock and connectivity in place of the host's.

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "drovel/core/Error.h"
#include "drovel/platform/Platform.h"
#include "linux/HeadlessBackgroundTaskScheduler.h"
#include "linux/SimulatedApplication.h"
#include "linux/SimulatedDevice.h"
#include "linux/SimulatedLocationProvider.h"

namespace drovel::platform {

struct SimulatedPlatformOptions {
    // The device folder (SimulatedDevice.h describes it); created when missing.
    std::string directory;
    std::map<std::string, std::string, std::less<>> bundleInfo;
    // The main queue the host pumps; none: a new one.
    std::shared_ptr<MainQueue> mainQueue;
    // The state of a new device folder (see SimulatedDeviceOptions).
    std::optional<SimulatedDeviceState> fresh;
    // How long the device waits for its changes to pause before writing its state file (see
    // SimulatedDeviceOptions); a benchmark raises it to keep the phone's own bookkeeping out of
    // the module's time.
    std::chrono::milliseconds stateFlushDelay{10};
};

// The platform, and the typed seams a scenario drives.
struct SimulatedPlatform {
    Platform platform;
    std::shared_ptr<SimulatedDevice> device;
    std::shared_ptr<SimulatedApplication> application;
    std::shared_ptr<SimulatedLocationProvider> locationProvider;
    // Launches the app's background refresh task when the scenario says so.
    std::shared_ptr<HeadlessBackgroundTaskScheduler> backgroundTaskScheduler;
};

// Fails with a message when the folder cannot be made or its state file is unreadable.
// platform.systemMajorVersion is the device's OS version at this moment.
core::Result<SimulatedPlatform> makeSimulatedPlatform(SimulatedPlatformOptions options);

}  // namespace drovel::platform
