#include "drovel/notify/NotifyAnalyticsEvent.h"

#include "data/NotifyDateFormat.h"
#include "data/NotifyRecordJson.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

std::string_view rawValue(NotifyAnalyticsEventType type) {
    switch (type) {
        case NotifyAnalyticsEventType::notificationTriggered: return "notification_triggered";
        case NotifyAnalyticsEventType::notificationClicked: return "notification_clicked";
        case NotifyAnalyticsEventType::sdkError: return "sdk_error";
    }
    return "sdk_error";
}

std::optional<NotifyAnalyticsEventType> notifyAnalyticsEventTypeFromRawValue(std::string_view raw) {
    if (raw == "notification_triggered") return NotifyAnalyticsEventType::notificationTriggered;
    if (raw == "notification_clicked") return NotifyAnalyticsEventType::notificationClicked;
    // The SDK-error kind is read back under another name than it is written with; keep both
    // directions as they are ("sdk_error" reads back as nothing).
    if (raw == "notification_permission_denied") return NotifyAnalyticsEventType::sdkError;
    return std::nullopt;
}

namespace {

void writeParams(core::JsonWriter& writer, const NotifyAnalyticsEvent::Params& params) {
    writer.beginObject();
    for (const auto& [key, value] : params) writer.key(key).value(value);
    writer.endObject();
}

}  // namespace

NotifyAnalyticsEvent::NotifyAnalyticsEvent(NotifyAnalyticsEventType type, Date occurredAt,
                                           std::optional<std::int64_t> campaignID, Params params)
    : NotifyAnalyticsEvent(UUID::random(), type, iso8601FullLocalTZ(occurredAt), campaignID, std::move(params)) {}

NotifyAnalyticsEvent::NotifyAnalyticsEvent(UUID guid, NotifyAnalyticsEventType name, std::string occurredAt,
                                           std::optional<std::int64_t> campaignID, Params params)
    : guid_(guid), name_(name), occurredAt_(std::move(occurredAt)), campaignID_(campaignID), params_(std::move(params)) {}

void NotifyAnalyticsEvent::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    writer.key("guid").value(guid_.uuidString());
    writer.key("name").value(rawValue(name_));
    writer.key("occurred_at").value(occurredAt_);
    if (campaignID_) writer.key("campaign_id").value(*campaignID_);
    writer.key("params");
    writeParams(writer, params_);
    writer.endObject();
}

std::string NotifyAnalyticsEvent::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyAnalyticsEvent> NotifyAnalyticsEvent::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyAnalyticsEvent>(json, json::readAnalyticsEvent);
}

void NotifyAnalyticsBody::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    writer.key("app_instance_id").value(appInstanceID_.uuidString());
    writer.key("events").beginArray();
    for (const auto& event : events_) event.writeJson(writer);
    writer.endArray();
    writer.endObject();
}

std::string NotifyAnalyticsBody::toJson() const { return core::encodeJson(*this); }

std::string paramsJson(const NotifyAnalyticsEvent::Params& params) {
    core::JsonWriter writer;
    writeParams(writer, params);
    return writer.take();
}

core::Result<NotifyAnalyticsEvent::Params> paramsFromJson(std::string_view text) {
    return json::decodeDocument<NotifyAnalyticsEvent::Params>(
        text, json::readStringMap<NotifyAnalyticsEvent::Params>);
}

std::string_view NotifyAnalyticsEvent::createStatement() {
    return "CREATE TABLE 'notify_analytics_event' (guid TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, "
           "occurred_at TEXT NOT NULL, campaign_id INTEGER NOT NULL, params TEXT NOT NULL);";
}

std::string_view NotifyAnalyticsEvent::upsertStatement() {
    return "INSERT OR REPLACE INTO 'notify_analytics_event' VALUES (:guid, :name, :occurred_at, :campaign_id, "
           ":params);";
}

std::string_view NotifyAnalyticsEvent::selectAllStatement() {
    return "SELECT guid, name, occurred_at, campaign_id, params FROM 'notify_analytics_event';";
}

std::string_view NotifyAnalyticsEvent::deleteAllStatement() { return "DELETE FROM 'notify_analytics_event';"; }

void NotifyAnalyticsEvent::bind(core::StatementBinder& binder) const {
    // The guid is plain canonical text (uploads delete by it); the kind, an enumeration of strings,
    // is kept as the JSON text of its written name, quotes included.
    binder.bind("guid", guid_.uuidString());
    binder.bind("name", "\"" + std::string(rawValue(name_)) + "\"");
    binder.bind("occurred_at", occurredAt_);
    binder.bind("campaign_id", campaignID_);
    binder.bind("params", paramsJson(params_));
}

NotifyAnalyticsEvent NotifyAnalyticsEvent::fromRow(const core::DatabaseRow& row) {
    auto guid = json::uuidColumn(row, "guid");
    // Read back through the decoding direction of the kind names, so an "sdk_error" row does not
    // read back (see notifyAnalyticsEventTypeFromRawValue).
    std::string_view nameText = row.textView("name");
    std::optional<NotifyAnalyticsEventType> name;
    if (nameText.size() >= 2 && nameText.front() == '"' && nameText.back() == '"')
        name = notifyAnalyticsEventTypeFromRawValue(nameText.substr(1, nameText.size() - 2));
    if (!name) throw core::DatabaseError("column 'name': unknown event name " + std::string(nameText));
    auto occurredAt = row.text("occurred_at");
    auto campaignID = row.get<std::optional<std::int64_t>>("campaign_id");
    auto params = json::decodeJsonColumn(row, "params", &paramsFromJson);
    return NotifyAnalyticsEvent(guid, *name, std::move(occurredAt), campaignID, std::move(params));
}

namespace json {

NotifyAnalyticsEvent readAnalyticsEvent(JsonReader& reader, JsonValue value) {
    std::optional<UUID> guid;
    std::optional<NotifyAnalyticsEventType> name;
    std::optional<std::string> occurredAt;
    std::optional<std::int64_t> campaignID;
    std::optional<NotifyAnalyticsEvent::Params> params;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        if (key == "guid") {
            guid = UUID::fromString(reader.string(member));
            if (!guid) reader.fail("expected a UUID in the form XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX");
        } else if (key == "name") {
            std::string_view raw = reader.string(member);
            name = notifyAnalyticsEventTypeFromRawValue(raw);
            if (!name) reader.fail("unknown event name \"" + std::string(raw) + "\"");
        } else if (key == "occurred_at") {
            occurredAt = std::string(reader.string(member));
        } else if (key == "campaign_id") {
            campaignID = readOptionalInt(reader, member);
        } else if (key == "params") {
            params = readStringMap<NotifyAnalyticsEvent::Params>(reader, member);
        } else {
            reader.skip(member);
        }
    });
    UUID guidValue = required(reader, guid, "guid");
    NotifyAnalyticsEventType nameValue = required(reader, name, "name");
    std::string occurredAtValue = required(reader, occurredAt, "occurred_at");
    auto paramsValue = required(reader, params, "params");
    return NotifyAnalyticsEvent(guidValue, nameValue, std::move(occurredAtValue), campaignID, std::move(paramsValue));
}

}  // namespace json

}  // namespace drovel::notify
