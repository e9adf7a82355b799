#pragma once
// What the module keeps on a simulated phone (a device folder): a snapshot for diagnostics, and
// its removal.

#include <iosfwd>
#include <string>

#include "drovel/core/Error.h"

namespace drovel::simulator {

// The runner's record of the module's switches at the end of a run, in the device folder.
inline constexpr std::string_view kSessionFileName = "Session.json";

// Prints permissions, the switches of the last run, last sync and last download, pending campaign
// and site notifications, stored campaigns and sites, analytics events waiting and the sync diary;
// one JSON object with json. Fails when the folder holds no simulated device or its files cannot
// be read.
core::ErrorPtr printStatus(const std::string& directory, bool json, std::ostream& out);

// Removes the module's database, its user-defaults keys and its pending notifications (campaign
// and site ones), and prints what it removed. Fails as printStatus does.
core::ErrorPtr purgeModule(const std::string& directory, std::ostream& out);

}  // namespace drovel::simulator
