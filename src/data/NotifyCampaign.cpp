#include "drovel/notify/NotifyCampaign.h"

#include <chrono>

#include "data/NotifyDateFormat.h"
#include "data/NotifyRecordJson.h"
#include "data/NotifyTables.h"
#include "data/RecordFields.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

std::string_view rawValue(NotifyCampaignRegionType type) {
    switch (type) {
        case NotifyCampaignRegionType::geofence: return "geofence";
        case NotifyCampaignRegionType::beacon: return "beacon";
    }
    return "geofence";
}

std::optional<NotifyCampaignRegionType> notifyCampaignRegionTypeFromRawValue(std::string_view raw) {
    if (raw == "geofence") return NotifyCampaignRegionType::geofence;
    if (raw == "beacon") return NotifyCampaignRegionType::beacon;
    return std::nullopt;
}

// ---- NotifyCampaignNotification, NotifyCampaignContent ----

namespace {

struct NotificationJson {
    using Value = NotifyCampaignNotification;
    static void write(core::JsonWriter& writer, const Value& notification) { notification.writeJson(writer); }
    static Value read(core::JsonReader& reader, core::JsonValue value);
};

constexpr std::tuple notificationFields{
    fields::Field<&NotifyCampaignNotification::title, fields::Text>{"title"},
    fields::Field<&NotifyCampaignNotification::body, fields::Text>{"body"},
};

constexpr std::tuple contentFields{
    fields::Field<&NotifyCampaignContent::deepLinkURL, fields::Text>{"deep_link_url"},
    fields::Field<&NotifyCampaignContent::notification, NotificationJson>{"notification"},
    fields::Field<&NotifyCampaignContent::metadata, fields::StringMap<NotifyCampaignContent::Metadata>>{"metadata"},
};

NotifyCampaignNotification NotificationJson::read(core::JsonReader& reader, core::JsonValue value) {
    return fields::read<NotifyCampaignNotification>(reader, value, notificationFields);
}

}  // namespace

void NotifyCampaignNotification::writeJson(core::JsonWriter& writer) const {
    fields::writeObject(writer, *this, notificationFields);
}

void NotifyCampaignContent::writeJson(core::JsonWriter& writer) const {
    fields::writeObject(writer, *this, contentFields);
}

std::string NotifyCampaignContent::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyCampaignContent> NotifyCampaignContent::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyCampaignContent>(json, json::readContent);
}

// ---- NotifyCampaign ----

namespace {

struct RegionTypeNames {
    using Value = NotifyCampaignRegionType;
    static constexpr std::string_view what = "region type";
    static std::string_view rawValue(Value type) { return notify::rawValue(type); }
    static std::optional<Value> fromRawValue(std::string_view raw) { return notifyCampaignRegionTypeFromRawValue(raw); }
};

// In the constructor's order.
constexpr std::tuple campaignFields{
    fields::Field<&NotifyCampaign::id, fields::Int64>{"id"},
    fields::Field<&NotifyCampaign::regionType, fields::QuotedEnumeration<RegionTypeNames>>{"region_type"},
    fields::Field<&NotifyCampaign::beaconUUID, fields::UUIDText>{"beacon_uuid"},
    fields::Field<&NotifyCampaign::beaconMajor, fields::UInt16>{"beacon_major"},
    fields::Field<&NotifyCampaign::startDay, fields::Text>{"start_day"},
    fields::Field<&NotifyCampaign::endDay, fields::Text>{"end_day"},
    fields::Field<&NotifyCampaign::repeatIntervalDays, fields::Int64>{"repeat_interval_days"},
    fields::Field<&NotifyCampaign::geofenceRadiusMeters, fields::Int64>{"geofence_radius_meters"},
    fields::Field<&NotifyCampaign::content, fields::JsonTextColumn<json::ContentJson>>{"content"},
    fields::Field<&NotifyCampaign::deferOnPickup, fields::Boolean>{"defer_on_pickup"},
};

}  // namespace

NotifyCampaign::NotifyCampaign(std::int64_t id, NotifyCampaignRegionType regionType, std::optional<UUID> beaconUUID,
                               std::optional<std::uint16_t> beaconMajor, std::string startDay, std::string endDay,
                               std::optional<std::int64_t> repeatIntervalDays,
                               std::optional<std::int64_t> geofenceRadiusMeters, NotifyCampaignContent content,
                               bool deferOnPickup)
    : id_(id),
      regionType_(regionType),
      beaconUUID_(beaconUUID),
      beaconMajor_(beaconMajor),
      startDay_(std::move(startDay)),
      endDay_(std::move(endDay)),
      repeatIntervalDays_(repeatIntervalDays),
      geofenceRadiusMeters_(geofenceRadiusMeters),
      content_(std::move(content)),
      deferOnPickup_(deferOnPickup) {}

std::optional<DateInterval> NotifyCampaign::dateInterval() const {
    return dateInterval_.get([this]() -> std::optional<DateInterval> {
        auto startDay = parseDay(startDay_);
        if (!startDay) return std::nullopt;
        auto start = startOfDay(*startDay);
        if (!start) return std::nullopt;
        auto endDay = parseDay(endDay_);
        if (!endDay) return std::nullopt;
        auto endStart = startOfDay(*endDay);
        if (!endStart) return std::nullopt;
        // The end day is inclusive, up to its last whole second. An end before the start is kept
        // as sent; such an interval contains no date.
        return DateInterval{*start, *endStart + std::chrono::seconds(86399)};
    });
}

void NotifyCampaign::writeJsonMembers(core::JsonWriter& writer) const {
    fields::writeMembers(writer, *this, campaignFields);
}

void NotifyCampaign::writeJson(core::JsonWriter& writer) const { fields::writeObject(writer, *this, campaignFields); }

std::string NotifyCampaign::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyCampaign> NotifyCampaign::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyCampaign>(json, json::readCampaign);
}

// ---- readers ----

namespace json {

NotifyCampaignContent readContent(JsonReader& reader, JsonValue value) {
    return fields::read<NotifyCampaignContent>(reader, value, contentFields);
}

NotifyCampaign readCampaign(JsonReader& reader, JsonValue value) {
    return fields::read<NotifyCampaign>(reader, value, campaignFields);
}

}  // namespace json

}  // namespace drovel::notify

// ---- database form ----

namespace drovel::core {

void Table<notify::NotifyCampaign>::bind(const notify::NotifyCampaign& record, StatementBinder& binder) {
    notify::fields::bind(binder, record, notify::campaignFields);
}

notify::NotifyCampaign Table<notify::NotifyCampaign>::fromRow(const DatabaseRow& row) {
    return notify::fields::fromRow<notify::NotifyCampaign>(row, notify::campaignFields);
}

}  // namespace drovel::core
