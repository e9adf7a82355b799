#include "drovel/notify/NotifyNotifications.h"

#include "data/NotifyRecordJson.h"
#include "data/NotifyTables.h"
#include "data/RecordFields.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

namespace {

// In the constructor's order.
constexpr std::tuple notificationsFields{
    fields::Field<&NotifyNotifications::campaignID, fields::Int64>{"campaign_id"},
    fields::Field<&NotifyNotifications::siteID, fields::Int64>{"site_id"},
    fields::Field<&NotifyNotifications::content, fields::JsonTextColumn<json::ContentJson>>{"content"},
};

}  // namespace

void NotifyNotifications::writeJson(core::JsonWriter& writer) const {
    fields::writeObject(writer, *this, notificationsFields);
}

std::string NotifyNotifications::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyNotifications> NotifyNotifications::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyNotifications>(json, json::readNotifications);
}

namespace json {

NotifyNotifications readNotifications(JsonReader& reader, JsonValue value) {
    return fields::read<NotifyNotifications>(reader, value, notificationsFields);
}

}  // namespace json

}  // namespace drovel::notify

namespace drovel::core {

void Table<notify::NotifyNotifications>::bind(const notify::NotifyNotifications& record, StatementBinder& binder) {
    notify::fields::bind(binder, record, notify::notificationsFields);
}

notify::NotifyNotifications Table<notify::NotifyNotifications>::fromRow(const DatabaseRow& row) {
    return notify::fields::fromRow<notify::NotifyNotifications>(row, notify::notificationsFields);
}

}  // namespace drovel::core
