#include "linux/SimulatedPlatform.h"

#include "linux/LinuxPlatform.h"
#include "linux/SimulatedClock.h"
#include "linux/SimulatedNetwork.h"
#include "linux/SimulatedUserNotificationCenter.h"

namespace drovel::platform {

core::Result<SimulatedPlatform> makeSimulatedPlatform(SimulatedPlatformOptions options) {
    LinuxPlatformOptions hostOptions;
    hostOptions.directory = options.directory;
    hostOptions.bundleInfo = std::move(options.bundleInfo);
    hostOptions.mainQueue = std::move(options.mainQueue);
    auto base = makeLinuxPlatform(std::move(hostOptions));
    if (!base) return base.error();

    SimulatedPlatform simulated;
    simulated.platform = std::move(base).value();
    Platform& platform = simulated.platform;

    SimulatedDeviceOptions deviceOptions;
    deviceOptions.directory = std::move(options.directory);
    deviceOptions.notificationCenter = platform.notificationCenter;
    deviceOptions.fresh = std::move(options.fresh);
    deviceOptions.flushDelay = options.stateFlushDelay;
    auto device = SimulatedDevice::open(std::move(deviceOptions));
    if (!device) return device.error();
    simulated.device = std::move(device).value();

    const auto& simulatedDevice = simulated.device;
    simulated.application =
        std::make_shared<SimulatedApplication>(simulatedDevice, platform.mainQueue, platform.notificationCenter);
    simulated.locationProvider = std::make_shared<SimulatedLocationProvider>(simulatedDevice, platform.mainQueue);
    simulated.backgroundTaskScheduler = std::make_shared<HeadlessBackgroundTaskScheduler>();

    platform.userNotificationCenter = std::make_shared<SimulatedUserNotificationCenter>(simulatedDevice, platform.mainQueue);
    platform.locationProvider = simulated.locationProvider;
    platform.application = simulated.application;
    platform.backgroundTaskScheduler = simulated.backgroundTaskScheduler;
    platform.clock = std::make_shared<SimulatedClock>(simulatedDevice);
    platform.connectivityProbe = std::make_shared<SimulatedConnectivityProbe>(simulatedDevice);
    platform.httpTransport = std::make_shared<SimulatedHttpTransport>(simulatedDevice, platform.httpTransport);
    platform.applicationSupportDirectory = simulatedDevice->applicationSupportDirectory();
    platform.systemMajorVersion = simulatedDevice->osVersion();
    return simulated;
}

}  // namespace drovel::platform
