#include "drovel/notify/NotifyCampaign.h"

#include <chrono>

#include "data/NotifyDateFormat.h"
#include "data/NotifyRecordJson.h"
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

void NotifyCampaignNotification::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    if (title_) writer.key("title").value(*title_);
    if (body_) writer.key("body").value(*body_);
    writer.endObject();
}

void NotifyCampaignContent::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    if (deepLinkURL_) writer.key("deep_link_url").value(*deepLinkURL_);
    if (notification_) {
        writer.key("notification");
        notification_->writeJson(writer);
    }
    if (metadata_) {
        writer.key("metadata").beginObject();
        for (const auto& [key, value] : *metadata_) writer.key(key).value(value);
        writer.endObject();
    }
    writer.endObject();
}

std::string NotifyCampaignContent::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyCampaignContent> NotifyCampaignContent::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyCampaignContent>(json, json::readContent);
}

// ---- NotifyCampaign ----

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

bool NotifyCampaign::operator==(const NotifyCampaign& other) const {
    return id_ == other.id_ && regionType_ == other.regionType_ && beaconUUID_ == other.beaconUUID_ &&
           beaconMajor_ == other.beaconMajor_ && startDay_ == other.startDay_ && endDay_ == other.endDay_ &&
           repeatIntervalDays_ == other.repeatIntervalDays_ &&
           geofenceRadiusMeters_ == other.geofenceRadiusMeters_ && content_ == other.content_ &&
           deferOnPickup_ == other.deferOnPickup_;
}

void NotifyCampaign::writeJsonMembers(core::JsonWriter& writer) const {
    writer.key("id").value(id_);
    writer.key("region_type").value(rawValue(regionType_));
    if (beaconUUID_) writer.key("beacon_uuid").value(beaconUUID_->uuidString());
    if (beaconMajor_) writer.key("beacon_major").value(static_cast<unsigned>(*beaconMajor_));
    writer.key("start_day").value(startDay_);
    writer.key("end_day").value(endDay_);
    if (repeatIntervalDays_) writer.key("repeat_interval_days").value(*repeatIntervalDays_);
    if (geofenceRadiusMeters_) writer.key("geofence_radius_meters").value(*geofenceRadiusMeters_);
    writer.key("content");
    content_.writeJson(writer);
    writer.key("defer_on_pickup").value(deferOnPickup_);
}

void NotifyCampaign::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    writeJsonMembers(writer);
    writer.endObject();
}

std::string NotifyCampaign::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyCampaign> NotifyCampaign::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyCampaign>(json, json::readCampaign);
}

// ---- database form ----

namespace {

std::string regionTypeColumnText(NotifyCampaignRegionType type) { return "\"" + std::string(rawValue(type)) + "\""; }

NotifyCampaignRegionType regionTypeFromColumn(const core::DatabaseRow& row) {
    std::string_view text = row.textView("region_type");
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        if (auto type = notifyCampaignRegionTypeFromRawValue(text.substr(1, text.size() - 2))) return *type;
    }
    throw core::DatabaseError("column 'region_type': unknown region type " + std::string(text));
}

}  // namespace

std::string_view NotifyCampaign::createStatement() {
    // The layout from before region types; the migrations make the table and never run this.
    return "CREATE TABLE 'notify_campaign' (id INTEGER PRIMARY KEY NOT NULL, targeting_type INTEGER NOT NULL, "
           "interest_area_id INTEGER, start_day TEXT NOT NULL, end_day TEXT NOT NULL, repeatability TEXT NOT NULL, "
           "geofence_radius_meters INTEGER, content TEXT);";
}

std::string_view NotifyCampaign::upsertStatement() {
    return "INSERT OR REPLACE INTO 'notify_campaign' VALUES (:id, :start_day, :end_day, :geofence_radius_meters, "
           ":content, :defer_on_pickup, :region_type, :beacon_uuid, :beacon_major, :repeat_interval_days);";
}

std::string_view NotifyCampaign::selectAllStatement() {
    return "SELECT id, start_day, end_day, geofence_radius_meters, content, defer_on_pickup, region_type, "
           "beacon_uuid, beacon_major, repeat_interval_days FROM 'notify_campaign';";
}

std::string_view NotifyCampaign::deleteAllStatement() { return "DELETE FROM 'notify_campaign';"; }

void NotifyCampaign::bind(core::StatementBinder& binder) const {
    // Absent values stay NULL. Note that the table gives a NULL repeat_interval_days its default
    // 0 (INSERT OR REPLACE replaces a NULL in a NOT NULL column by the default).
    binder.bind("id", id_);
    binder.bind("start_day", startDay_);
    binder.bind("end_day", endDay_);
    binder.bind("geofence_radius_meters", geofenceRadiusMeters_);
    binder.bind("content", content_.toJson());
    binder.bind("defer_on_pickup", deferOnPickup_);
    binder.bind("region_type", regionTypeColumnText(regionType_));
    if (beaconUUID_) binder.bind("beacon_uuid", beaconUUID_->uuidString());
    binder.bind("beacon_major", beaconMajor_);
    binder.bind("repeat_interval_days", repeatIntervalDays_);
}

NotifyCampaign NotifyCampaign::fromRow(const core::DatabaseRow& row) {
    auto id = row.get<std::int64_t>("id");
    auto regionType = regionTypeFromColumn(row);
    std::optional<UUID> beaconUUID;
    if (!row.isNull("beacon_uuid")) beaconUUID = json::uuidColumn(row, "beacon_uuid");
    auto beaconMajor = row.get<std::optional<std::uint16_t>>("beacon_major");
    auto startDay = row.text("start_day");
    auto endDay = row.text("end_day");
    auto repeatIntervalDays = row.get<std::optional<std::int64_t>>("repeat_interval_days");
    auto geofenceRadiusMeters = row.get<std::optional<std::int64_t>>("geofence_radius_meters");
    auto content = json::decodeJsonColumn(row, "content", &NotifyCampaignContent::fromJson);
    auto deferOnPickup = row.get<bool>("defer_on_pickup");
    return NotifyCampaign(id, regionType, beaconUUID, beaconMajor, std::move(startDay), std::move(endDay),
                          repeatIntervalDays, geofenceRadiusMeters, std::move(content), deferOnPickup);
}

// ---- readers ----

namespace json {

namespace {

NotifyCampaignNotification readNotification(JsonReader& reader, JsonValue value) {
    std::optional<std::string> title, body;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        if (key == "title") title = readOptionalString(reader, member);
        else if (key == "body") body = readOptionalString(reader, member);
        else reader.skip(member);
    });
    return NotifyCampaignNotification(std::move(title), std::move(body));
}

}  // namespace

NotifyCampaignContent readContent(JsonReader& reader, JsonValue value) {
    std::optional<std::string> deepLinkURL;
    std::optional<NotifyCampaignNotification> notification;
    std::optional<NotifyCampaignContent::Metadata> metadata;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        if (key == "deep_link_url") {
            deepLinkURL = readOptionalString(reader, member);
        } else if (key == "notification") {
            notification = readOptional(reader, member, [&](JsonValue v) { return readNotification(reader, v); });
        } else if (key == "metadata") {
            metadata = readOptional(reader, member, [&](JsonValue v) {
                return readStringMap<NotifyCampaignContent::Metadata>(reader, v);
            });
        } else {
            reader.skip(member);
        }
    });
    return NotifyCampaignContent(std::move(deepLinkURL), std::move(notification), std::move(metadata));
}

NotifyCampaign readCampaign(JsonReader& reader, JsonValue value) {
    std::optional<std::int64_t> id, repeatIntervalDays, geofenceRadiusMeters;
    std::optional<NotifyCampaignRegionType> regionType;
    std::optional<UUID> beaconUUID;
    std::optional<std::uint16_t> beaconMajor;
    std::optional<std::string> startDay, endDay;
    std::optional<NotifyCampaignContent> content;
    std::optional<bool> deferOnPickup;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        if (key == "id") {
            id = reader.int64(member);
        } else if (key == "region_type") {
            std::string_view raw = reader.string(member);
            regionType = notifyCampaignRegionTypeFromRawValue(raw);
            if (!regionType) reader.fail("unknown region type \"" + std::string(raw) + "\"");
        } else if (key == "beacon_uuid") {
            beaconUUID = readOptional(reader, member, [&](JsonValue v) {
                auto uuid = UUID::fromString(reader.string(v));
                if (!uuid) reader.fail("expected a UUID in the form XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX");
                return *uuid;
            });
        } else if (key == "beacon_major") {
            beaconMajor = readOptional(reader, member, [&](JsonValue v) {
                std::int64_t major = reader.int64(v);
                if (major < 0 || major > 65535) reader.fail("expected an integer from 0 to 65535");
                return static_cast<std::uint16_t>(major);
            });
        } else if (key == "start_day") {
            startDay = std::string(reader.string(member));
        } else if (key == "end_day") {
            endDay = std::string(reader.string(member));
        } else if (key == "repeat_interval_days") {
            repeatIntervalDays = readOptionalInt(reader, member);
        } else if (key == "geofence_radius_meters") {
            geofenceRadiusMeters = readOptionalInt(reader, member);
        } else if (key == "content") {
            content = readContent(reader, member);
        } else if (key == "defer_on_pickup") {
            deferOnPickup = reader.boolean(member);
        } else {
            reader.skip(member);
        }
    });
    // Checked in declaration order, so the first missing key is the one reported.
    std::int64_t idValue = required(reader, id, "id");
    NotifyCampaignRegionType regionTypeValue = required(reader, regionType, "region_type");
    std::string startDayValue = required(reader, startDay, "start_day");
    std::string endDayValue = required(reader, endDay, "end_day");
    NotifyCampaignContent contentValue = required(reader, content, "content");
    bool deferOnPickupValue = required(reader, deferOnPickup, "defer_on_pickup");
    return NotifyCampaign(idValue, regionTypeValue, beaconUUID, beaconMajor, std::move(startDayValue),
                          std::move(endDayValue), repeatIntervalDays, geofenceRadiusMeters, std::move(contentValue),
                          deferOnPickupValue);
}

}  // namespace json

}  // namespace drovel::notify
