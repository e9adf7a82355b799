#pragma once
// The app configuration that the backend hands the SDK, and the small records the core library
// shares with its modules. Each has a JSON form (decode: fromJson, encode: writeJson/toJson) so
// that the command-line tool and the sample backend can read and write them.
// Decoding never throws: a malformed document gives an error naming the key path.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"

namespace drovel::core {

class JsonWriter;

// The Notify section of the app configuration.
// JSON: {"default_site_search_radius_meters": 1000.0, "analytics_event_limit": 20}
struct NotifyConfig {
    double defaultSiteSearchRadiusMeters = 0;
    // Largest analytics upload batch, when given; a value below 1 fails decoding.
    std::optional<std::int64_t> analyticsEventLimit;

    static Result<NotifyConfig> fromJson(std::string_view json);
    void writeJson(JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const NotifyConfig&) const = default;
};

// JSON: {"notify": {...} or absent, "notify_max_sites": 5 or absent}
struct AppConfigData {
    std::optional<NotifyConfig> notify;        // absent: the Notify module is not enabled for the app
    std::optional<std::int64_t> notifyMaxSites;  // the most sites one site-notification call may cover

    static Result<AppConfigData> fromJson(std::string_view json);
    void writeJson(JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const AppConfigData&) const = default;
};

// JSON: {"data": {...} or absent}
struct AppConfig {
    std::optional<AppConfigData> data;

    static Result<AppConfig> fromJson(std::string_view json);
    void writeJson(JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const AppConfig&) const = default;
};

// The kinds of remote (push) message the core library hands on; compared by raw value.
enum class RemoteNotificationMessageType { backgroundSync, orderUpdate, marketing };
std::string_view rawValue(RemoteNotificationMessageType type);  // "background_sync", "order_update", "marketing"
std::optional<RemoteNotificationMessageType> remoteNotificationMessageTypeFromRawValue(std::string_view raw);

// What a push message carried.
// JSON: {"message_type": "background_sync" or absent, "force_sync_notify_campaigns": false or absent}
struct PushData {
    std::optional<std::string> messageType;  // the raw value as sent; unknown kinds are kept as text
    bool forceSyncNotifyCampaigns = false;

    static Result<PushData> fromJson(std::string_view json);
    void writeJson(JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const PushData&) const = default;
};

struct WrongSiteArrivalConfig {
    // Search radius, in metres, when the app configuration gives none.
    static constexpr double defaultSiteSearchRadius = 1000.0;
};

}  // namespace drovel::core
