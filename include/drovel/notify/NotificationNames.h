#pragma once
// Names of the broadcasts the module posts on the default NotificationCenter; each text equals its name.

#include <string_view>

namespace drovel::notify::NotificationName {

// Posted after each successful campaign sync, right after lastSync was stored. No object.
inline constexpr std::string_view notifyCampaignsUpdated = "notifyCampaignsUpdated";
// Declared for hosts; the module never posts it.
inline constexpr std::string_view notifyCampaignsError = "notifyCampaignsError";
// Declared for hosts; the module never posts it.
inline constexpr std::string_view notifySitesError = "notifySitesError";
// Posted when saving a freshly fetched list of notifications fails; the object is the error.
inline constexpr std::string_view notifyNotificationsError = "notifyNotificationsError";

}  // namespace drovel::notify::NotificationName
