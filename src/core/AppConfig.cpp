#include "drovel/core/AppConfig.h"

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::core {

namespace {

NotifyConfig readNotifyConfig(JsonReader& reader, JsonValue value) {
    std::optional<double> radius;
    NotifyConfig config;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "default_site_search_radius_meters") {
            radius = reader.number(field);
        } else if (key == "analytics_event_limit") {
            if (reader.isNull(field)) return;
            // The limit is a batch size: a batch of 0 events could never be uploaded, so such a
            // configuration is refused here rather than stopping the upload later.
            std::int64_t limit = reader.int64(field);
            if (limit < 1) reader.fail("expected a positive integer");
            config.analyticsEventLimit = limit;
        } else {
            reader.skip(field);
        }
    });
    config.defaultSiteSearchRadiusMeters = required(reader, radius, "default_site_search_radius_meters");
    return config;
}

AppConfigData readAppConfigData(JsonReader& reader, JsonValue value) {
    AppConfigData data;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "notify") {
            if (!reader.isNull(field)) data.notify = readNotifyConfig(reader, field);
        } else if (key == "notify_max_sites") {
            if (!reader.isNull(field)) data.notifyMaxSites = reader.int64(field);
        } else {
            reader.skip(field);
        }
    });
    return data;
}

AppConfig readAppConfig(JsonReader& reader, JsonValue value) {
    AppConfig config;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key != "data") return reader.skip(field);
        if (!reader.isNull(field)) config.data = readAppConfigData(reader, field);
    });
    return config;
}

PushData readPushData(JsonReader& reader, JsonValue value) {
    PushData push;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "message_type") {
            if (!reader.isNull(field)) push.messageType = std::string(reader.string(field));
        } else if (key == "force_sync_notify_campaigns") {
            // Absent or null: no forced sync.
            push.forceSyncNotifyCampaigns = !reader.isNull(field) && reader.boolean(field);
        } else {
            reader.skip(field);
        }
    });
    return push;
}

}  // namespace

// ---- NotifyConfig ----

Result<NotifyConfig> NotifyConfig::fromJson(std::string_view json) {
    return decodeJson<NotifyConfig>(json, readNotifyConfig);
}

void NotifyConfig::writeJson(JsonWriter& writer) const {
    writer.beginObject();
    writer.key("default_site_search_radius_meters").value(defaultSiteSearchRadiusMeters);
    if (analyticsEventLimit) writer.key("analytics_event_limit").value(*analyticsEventLimit);
    writer.endObject();
}

std::string NotifyConfig::toJson() const { return encodeJson(*this); }

// ---- AppConfigData ----

Result<AppConfigData> AppConfigData::fromJson(std::string_view json) {
    return decodeJson<AppConfigData>(json, readAppConfigData);
}

void AppConfigData::writeJson(JsonWriter& writer) const {
    writer.beginObject();
    if (notify) {
        writer.key("notify");
        notify->writeJson(writer);
    }
    if (notifyMaxSites) writer.key("notify_max_sites").value(*notifyMaxSites);
    writer.endObject();
}

std::string AppConfigData::toJson() const { return encodeJson(*this); }

// ---- AppConfig ----

Result<AppConfig> AppConfig::fromJson(std::string_view json) { return decodeJson<AppConfig>(json, readAppConfig); }

void AppConfig::writeJson(JsonWriter& writer) const {
    writer.beginObject();
    if (data) {
        writer.key("data");
        data->writeJson(writer);
    }
    writer.endObject();
}

std::string AppConfig::toJson() const { return encodeJson(*this); }

// ---- RemoteNotificationMessageType ----

std::string_view rawValue(RemoteNotificationMessageType type) {
    switch (type) {
        case RemoteNotificationMessageType::backgroundSync: return "background_sync";
        case RemoteNotificationMessageType::orderUpdate: return "order_update";
        case RemoteNotificationMessageType::marketing: return "marketing";
    }
    return {};
}

std::optional<RemoteNotificationMessageType> remoteNotificationMessageTypeFromRawValue(std::string_view raw) {
    for (auto type : {RemoteNotificationMessageType::backgroundSync, RemoteNotificationMessageType::orderUpdate,
                      RemoteNotificationMessageType::marketing})
        if (rawValue(type) == raw) return type;
    return std::nullopt;
}

// ---- PushData ----

Result<PushData> PushData::fromJson(std::string_view json) { return decodeJson<PushData>(json, readPushData); }

void PushData::writeJson(JsonWriter& writer) const {
    writer.beginObject();
    if (messageType) writer.key("message_type").value(*messageType);
    writer.key("force_sync_notify_campaigns").value(forceSyncNotifyCampaigns);
    writer.endObject();
}

std::string PushData::toJson() const { return encodeJson(*this); }

}  // namespace drovel::core
