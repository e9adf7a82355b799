#include "Helpers/UserDefaultsKey.h"

#include <simdjson.h>

#include "data/ModuleLogger.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"

namespace drovel::notify {

namespace {

constexpr std::string_view kFile = "Helpers/UserDefaultsKey";

platform::DefaultsBytes bytesOf(const std::string& text) { return platform::DefaultsBytes(text.begin(), text.end()); }

std::string_view textOf(const platform::DefaultsBytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// A number stored under a key of the location map; integers count as numbers.
std::optional<double> number(const platform::DefaultsDictionary& map, std::string_view key) {
    auto entry = map.find(key);
    if (entry == map.end()) return std::nullopt;
    if (auto d = entry->second.get<double>()) return *d;
    if (auto i = entry->second.get<std::int64_t>()) return static_cast<double>(*i);
    return std::nullopt;
}

bool isUTF8(std::string_view text) { return simdjson::validate_utf8(text.data(), text.size()); }

}  // namespace

std::string_view rawValue(UserDefaultsKey key) {
    switch (key) {
        case UserDefaultsKey::lastSync: return "DrovelNotify.lastSync";
        case UserDefaultsKey::lastLocation: return "DrovelNotify.lastLocation";
        case UserDefaultsKey::loadedCampaigns: return "DrovelNotify.loadedCampaigns";
        case UserDefaultsKey::customTemplateContent: return "DrovelNotify.customTemplateContent";
        case UserDefaultsKey::lastFetch: return "DrovelNotify.lastFetch";
        case UserDefaultsKey::minSyncInterval: return "DrovelNotify.minSyncInterval";
    }
    return "DrovelNotify.unknown";
}

std::optional<platform::Date> date(const platform::UserDefaults& defaults, UserDefaultsKey key) {
    return defaults.date(rawValue(key));
}

void set(platform::UserDefaults& defaults, UserDefaultsKey key, platform::Date value) {
    defaults.setDate(rawValue(key), value);
}

double doubleValue(const platform::UserDefaults& defaults, UserDefaultsKey key) {
    return defaults.doubleValue(rawValue(key)).value_or(0);
}

void set(platform::UserDefaults& defaults, UserDefaultsKey key, double value) {
    defaults.setDouble(rawValue(key), value);
}

std::optional<platform::Location> lastLocation(const platform::UserDefaults& defaults) {
    auto map = defaults.dictionary(rawValue(UserDefaultsKey::lastLocation));
    if (!map) return std::nullopt;
    auto latitude = number(*map, "lat");
    auto longitude = number(*map, "lon");
    if (!latitude || !longitude) return std::nullopt;
    platform::Location location;
    location.coordinate = {*latitude, *longitude};
    auto timestamp = map->find("timestamp");
    const platform::Date* stamp = timestamp == map->end() ? nullptr : timestamp->second.get<platform::Date>();
    location.timestamp = stamp ? *stamp : kDistantPast;
    return location;
}

void setLastLocation(platform::UserDefaults& defaults, const platform::Location& location) {
    defaults.setDictionary(rawValue(UserDefaultsKey::lastLocation),
                           {{"lat", location.coordinate.latitude},
                            {"lon", location.coordinate.longitude},
                            {"timestamp", location.timestamp}});
}

std::optional<LoadedCampaigns> loadedCampaigns(const platform::UserDefaults& defaults) {
    auto data = defaults.data(rawValue(UserDefaultsKey::loadedCampaigns));
    if (!data) return std::nullopt;
    auto loaded = LoadedCampaigns::fromJson(textOf(*data));
    if (!loaded) return std::nullopt;
    return std::move(loaded).value();
}

void setLoadedCampaigns(platform::UserDefaults& defaults, const LoadedCampaigns& loaded) {
    defaults.setData(rawValue(UserDefaultsKey::loadedCampaigns), bytesOf(loaded.toJson()));
}

std::optional<CustomTemplateContent> customTemplateContent(const platform::UserDefaults& defaults) {
    auto data = defaults.data(rawValue(UserDefaultsKey::customTemplateContent));
    if (!data) return std::nullopt;
    auto content = paramsFromJson(textOf(*data));
    if (!content) return std::nullopt;
    return std::move(content).value();
}

void setCustomTemplateContent(platform::UserDefaults& defaults, const CustomTemplateContent& content) {
    // The writer would quietly replace bad bytes; like the platform's serialiser, refuse them
    // instead, so the values read back are the values given.
    for (const auto& [key, value] : content) {
        if (isUTF8(key) && isUTF8(value)) continue;
        core::SimpleError error("The custom template content holds text that is not valid UTF-8");
        moduleLogger().error("Encoding failed while saving custom template content: " + error.description(),
                             DROVEL_SOURCE(kFile, "set(customTemplateContent:)"));
        return;
    }
    defaults.setData(rawValue(UserDefaultsKey::customTemplateContent), bytesOf(paramsJson(content)));
}

}  // namespace drovel::notify
