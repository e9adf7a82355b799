#pragma once
// The Linux reference platform: a Platform for a host process on Linux.
//
// Real seams: user defaults in a JSON file (FileUserDefaults), HTTP through libcurl
// (CurlHttpTransport), a name look-up for connectivity (LinuxConnectivityProbe), the system clock,
// an in-process default notification centre, the host's main queue and the global queue. Seams
// that need a device (notifications, location, beacons)
// are the "no device" ones, which answer truthfully that nothing is available; the simulated
// device replaces them when a host wants notifications scheduled and fired. The application is
// headless (starts active, cannot open URLs), and background tasks launch when the host says so.

#include <map>
#include <memory>
#include <string>

#include "drovel/core/Error.h"
#include "drovel/platform/Platform.h"

namespace drovel::platform {

struct LinuxPlatformOptions {
    // The app's data folder: the user defaults are "<directory>/UserDefaults.json", the
    // application-support directory is "<directory>/ApplicationSupport".
    std::string directory;
    // The app bundle's info dictionary ("CFBundleShortVersionString", "CFBundleVersion", ...).
    std::map<std::string, std::string, std::less<>> bundleInfo;
    // The main queue the host pumps; none: a new one.
    std::shared_ptr<MainQueue> mainQueue;
};

// $DROVEL_HOME, else $XDG_DATA_HOME/drovel, else $HOME/.local/share/drovel, else ./drovel.
std::string defaultLinuxDirectory();

// Creates the folders as needed; fails when they cannot be created.
core::Result<Platform> makeLinuxPlatform(LinuxPlatformOptions options);
core::Result<Platform> makeLinuxPlatform(const std::string& directory);

}  // namespace drovel::platform
