#pragma once
// What the manager's parts share: the source name of their log lines, the logger, and the fixed
// texts and numbers of the module's notifications and background work.

#include <chrono>
#include <string>
#include <string_view>

#include "drovel/core/Logger.h"

namespace drovel::notify {

// The source file every log line of the manager names.
inline constexpr std::string_view kManagerFile = "Manager";

// The module's logger ("DrovelNotify").
core::Logger& managerLog();

// The user-info key that tells which part of the module made a notification, and its two values:
// campaign notifications of the current generation, and site notifications.
inline constexpr std::string_view kMessageSourceKey = "message_source";
inline constexpr std::string_view kCampaignMessageSource = "drovel.notify.v2";
inline constexpr std::string_view kSiteMessageSource = "drovel.notify";

// Background refresh: the interval between refreshes (three hours), asked of the scheduler and set
// as the legacy background fetch interval.
inline constexpr double kBackgroundSyncInterval = 10800;
// How long the refresh task waits for the connectivity probe before syncing anyway.
inline constexpr std::chrono::milliseconds kConnectivityProbeTimeLimit{2000};

// "true" or "false".
inline std::string_view boolText(bool value) { return value ? "true" : "false"; }
// A number as the platform prints a double: "10800.0", "0.5".
std::string formatNumber(double value);

}  // namespace drovel::notify
