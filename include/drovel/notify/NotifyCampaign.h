#pragma once
// A campaign as the backend sends it: what triggers it, when it runs and what it shows.
//
// JSON:
//   {"id": 7, "region_type": "geofence" | "beacon", "beacon_uuid": "E621E1F8-...", "beacon_major": 12,
//    "start_day": "2024-03-01", "end_day": "2024-03-31", "repeat_interval_days": 1,
//    "geofence_radius_meters": 150, "content": {...}, "defer_on_pickup": false}
// Optional keys may be missing or null; the others are required. Decoding never throws: a
// malformed document gives an error naming the key path.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/notify/NotifyRecord.h"

namespace drovel::notify {

enum class NotifyCampaignRegionType { geofence, beacon };

// "geofence" or "beacon".
std::string_view rawValue(NotifyCampaignRegionType type);
// Only the two wire values give a region type.
std::optional<NotifyCampaignRegionType> notifyCampaignRegionTypeFromRawValue(std::string_view raw);

// JSON: {"title": "...", "body": "..."}, both optional. Immutable.
class NotifyCampaignNotification {
public:
    NotifyCampaignNotification(std::optional<std::string> title, std::optional<std::string> body)
        : title_(std::move(title)), body_(std::move(body)) {}

    // Template texts of the notification.
    const std::optional<std::string>& title() const { return title_; }
    const std::optional<std::string>& body() const { return body_; }

    void writeJson(core::JsonWriter& writer) const;
    bool operator==(const NotifyCampaignNotification&) const = default;

private:
    std::optional<std::string> title_;
    std::optional<std::string> body_;
};

// JSON: {"deep_link_url": "...", "notification": {...}, "metadata": {"key": "value", ...}}, each optional.
class NotifyCampaignContent {
public:
    using Metadata = std::map<std::string, std::string, std::less<>>;

    NotifyCampaignContent(std::optional<std::string> deepLinkURL, std::optional<NotifyCampaignNotification> notification,
                          std::optional<Metadata> metadata)
        : deepLinkURL_(std::move(deepLinkURL)), notification_(std::move(notification)), metadata_(std::move(metadata)) {}

    // Opened when the user taps the notification.
    const std::optional<std::string>& deepLinkURL() const { return deepLinkURL_; }
    const std::optional<NotifyCampaignNotification>& notification() const { return notification_; }
    // Free key/value pairs carried into the notification.
    const std::optional<Metadata>& metadata() const { return metadata_; }

    static core::Result<NotifyCampaignContent> fromJson(std::string_view json);
    void writeJson(core::JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const NotifyCampaignContent&) const = default;

private:
    std::optional<std::string> deepLinkURL_;
    std::optional<NotifyCampaignNotification> notification_;
    std::optional<Metadata> metadata_;
};

class NotifyCampaign {
public:
    NotifyCampaign(std::int64_t id, NotifyCampaignRegionType regionType, std::optional<UUID> beaconUUID,
                   std::optional<std::uint16_t> beaconMajor, std::string startDay, std::string endDay,
                   std::optional<std::int64_t> repeatIntervalDays, std::optional<std::int64_t> geofenceRadiusMeters,
                   NotifyCampaignContent content, bool deferOnPickup);

    std::int64_t id() const { return id_; }
    NotifyCampaignRegionType regionType() const { return regionType_; }
    // Proximity UUID and major of beacon campaigns.
    const std::optional<UUID>& beaconUUID() const { return beaconUUID_; }
    std::optional<std::uint16_t> beaconMajor() const { return beaconMajor_; }
    // First and last day of the campaign, "yyyy-MM-dd" as sent.
    const std::string& startDay() const { return startDay_; }
    const std::string& endDay() const { return endDay_; }
    std::optional<std::int64_t> repeatIntervalDays() const { return repeatIntervalDays_; }
    std::optional<std::int64_t> geofenceRadiusMeters() const { return geofenceRadiusMeters_; }
    const NotifyCampaignContent& content() const { return content_; }
    // Held back while the user has a pickup under way.
    bool deferOnPickup() const { return deferOnPickup_; }

    // From the local midnight of the start day to 86399 seconds after the local midnight of the end
    // day, in the time zone current at the first call; absent when either day is not a real
    // "yyyy-MM-dd" date. Computed on the first call and kept; any thread.
    std::optional<DateInterval> dateInterval() const;

    static core::Result<NotifyCampaign> fromJson(std::string_view json);
    void writeJson(core::JsonWriter& writer) const;
    // The members only, so that a caller can add keys of its own before closing the object.
    void writeJsonMembers(core::JsonWriter& writer) const;
    std::string toJson() const;
    // Compares the wire fields; the cached interval plays no part.
    bool operator==(const NotifyCampaign&) const = default;

private:
    std::int64_t id_;
    NotifyCampaignRegionType regionType_;
    std::optional<UUID> beaconUUID_;
    std::optional<std::uint16_t> beaconMajor_;
    std::string startDay_;
    std::string endDay_;
    std::optional<std::int64_t> repeatIntervalDays_;
    std::optional<std::int64_t> geofenceRadiusMeters_;
    NotifyCampaignContent content_;
    bool deferOnPickup_;
    detail::Lazy<std::optional<DateInterval>> dateInterval_;
};

}  // namespace drovel::notify
