#include "drovel/notify/NotifyAnalyticsEvent.h"

#include "data/NotifyDateFormat.h"
#include "data/NotifyRecordJson.h"
#include "data/NotifyTables.h"
#include "data/RecordFields.h"
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

struct EventNames {
    using Value = NotifyAnalyticsEventType;
    static constexpr std::string_view what = "event name";
    static std::string_view rawValue(Value type) { return notify::rawValue(type); }
    // The decoding direction of the kind names, so an "sdk_error" row does not read back (see
    // notifyAnalyticsEventTypeFromRawValue).
    static std::optional<Value> fromRawValue(std::string_view raw) { return notifyAnalyticsEventTypeFromRawValue(raw); }
};

using ParamsJson = fields::StringMap<NotifyAnalyticsEvent::Params>;

// In the constructor's order.
constexpr std::tuple eventFields{
    fields::Field<&NotifyAnalyticsEvent::guid, fields::UUIDText>{"guid"},
    fields::Field<&NotifyAnalyticsEvent::name, fields::QuotedEnumeration<EventNames>>{"name"},
    fields::Field<&NotifyAnalyticsEvent::occurredAt, fields::Text>{"occurred_at"},
    fields::Field<&NotifyAnalyticsEvent::campaignID, fields::Int64>{"campaign_id"},
    fields::Field<&NotifyAnalyticsEvent::params, fields::JsonTextColumn<ParamsJson>>{"params"},
};

}  // namespace

NotifyAnalyticsEvent::NotifyAnalyticsEvent(NotifyAnalyticsEventType type, Date occurredAt,
                                           std::optional<std::int64_t> campaignID, Params params)
    : NotifyAnalyticsEvent(UUID::random(), type, iso8601FullLocalTZ(occurredAt), campaignID, std::move(params)) {}

NotifyAnalyticsEvent::NotifyAnalyticsEvent(UUID guid, NotifyAnalyticsEventType name, std::string occurredAt,
                                           std::optional<std::int64_t> campaignID, Params params)
    : guid_(guid), name_(name), occurredAt_(std::move(occurredAt)), campaignID_(campaignID), params_(std::move(params)) {}

void NotifyAnalyticsEvent::writeJson(core::JsonWriter& writer) const {
    fields::writeObject(writer, *this, eventFields);
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
    ParamsJson::write(writer, params);
    return writer.take();
}

core::Result<NotifyAnalyticsEvent::Params> paramsFromJson(std::string_view text) {
    return json::decodeDocument<NotifyAnalyticsEvent::Params>(text, ParamsJson::read);
}

namespace json {

NotifyAnalyticsEvent readAnalyticsEvent(JsonReader& reader, JsonValue value) {
    return fields::read<NotifyAnalyticsEvent>(reader, value, eventFields);
}

}  // namespace json

}  // namespace drovel::notify

namespace drovel::core {

void Table<notify::NotifyAnalyticsEvent>::bind(const notify::NotifyAnalyticsEvent& record, StatementBinder& binder) {
    notify::fields::bind(binder, record, notify::eventFields);
}

notify::NotifyAnalyticsEvent Table<notify::NotifyAnalyticsEvent>::fromRow(const DatabaseRow& row) {
    return notify::fields::fromRow<notify::NotifyAnalyticsEvent>(row, notify::eventFields);
}

}  // namespace drovel::core
