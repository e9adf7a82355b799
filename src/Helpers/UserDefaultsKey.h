#pragma once
// The values the module keeps in the host app's standard user defaults, each under its own key,
// with typed reads and writes. The defaults are the platform's (Platform::userDefaults); any thread.

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "drovel/notify/LoadedCampaigns.h"
#include "drovel/platform/Location.h"
#include "drovel/platform/UserDefaults.h"

namespace drovel::notify {

enum class UserDefaultsKey {
    lastSync,               // date: the manager's last sync
    lastLocation,           // {"lat": number, "lon": number, "timestamp": date}: the last position kept
    loadedCampaigns,        // data, the JSON of LoadedCampaigns: which campaigns were set up as notifications
    customTemplateContent,  // data, a JSON object of strings: the app's custom template values
    lastFetch,              // date: the last campaign download
    minSyncInterval,        // double, seconds: least time between downloads
};

// "DrovelNotify." followed by the case name, e.g. "DrovelNotify.lastSync".
std::string_view rawValue(UserDefaultsKey key);

// The app's custom template values, offered to the notification templates under "app".
using CustomTemplateContent = std::map<std::string, std::string, std::less<>>;

// The platform's distant past: 0001-01-01T00:00:00Z.
inline constexpr platform::Date kDistantPast{std::chrono::sys_days{std::chrono::year{1} / 1 / 1}};

// None when the key was never written or holds another kind of value.
std::optional<platform::Date> date(const platform::UserDefaults& defaults, UserDefaultsKey key);
void set(platform::UserDefaults& defaults, UserDefaultsKey key, platform::Date value);
// The platform's plain double lookup: 0 when the key was never written or holds no number.
double doubleValue(const platform::UserDefaults& defaults, UserDefaultsKey key);
void set(platform::UserDefaults& defaults, UserDefaultsKey key, double value);

// Latitude and longitude as stored, altitude and accuracies 0, and the stored timestamp (the distant
// past when it is missing). None when "lat" or "lon" is missing or not a number.
std::optional<platform::Location> lastLocation(const platform::UserDefaults& defaults);
void setLastLocation(platform::UserDefaults& defaults, const platform::Location& location);

// None when nothing readable is stored.
std::optional<LoadedCampaigns> loadedCampaigns(const platform::UserDefaults& defaults);
void setLoadedCampaigns(platform::UserDefaults& defaults, const LoadedCampaigns& loaded);

// None when nothing readable is stored.
std::optional<CustomTemplateContent> customTemplateContent(const platform::UserDefaults& defaults);
// set(customTemplateContent:). Stores the map as the JSON data of an object of strings. A key or
// value that is not valid UTF-8 cannot be serialised: nothing is stored, and "Encoding failed while
// saving custom template content: <error>" is logged at error level.
void setCustomTemplateContent(platform::UserDefaults& defaults, const CustomTemplateContent& content);

}  // namespace drovel::notify
