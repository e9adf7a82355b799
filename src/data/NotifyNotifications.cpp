#include "drovel/notify/NotifyNotifications.h"

#include "data/NotifyRecordJson.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

void NotifyNotifications::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    writer.key("campaign_id").value(campaignID);
    if (siteID) writer.key("site_id").value(*siteID);
    writer.key("content");
    content.writeJson(writer);
    writer.endObject();
}

std::string NotifyNotifications::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyNotifications> NotifyNotifications::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyNotifications>(json, json::readNotifications);
}

std::string_view NotifyNotifications::createStatement() {
    // The layout from before per-pair content; the migrations make the table and never run this.
    return "CREATE TABLE 'notify_notification' (id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL, "
           "campaign_id INTEGER NOT NULL, site_id INTEGER);";
}

std::string_view NotifyNotifications::upsertStatement() {
    return "INSERT OR REPLACE INTO 'notify_notification' (campaign_id, site_id, content) VALUES (:campaign_id, "
           ":site_id, :content);";
}

std::string_view NotifyNotifications::selectAllStatement() {
    return "SELECT campaign_id, site_id, content FROM 'notify_notification';";
}

std::string_view NotifyNotifications::deleteAllStatement() { return "DELETE FROM 'notify_notification';"; }

void NotifyNotifications::bind(core::StatementBinder& binder) const {
    binder.bind("campaign_id", campaignID);
    binder.bind("site_id", siteID);
    binder.bind("content", content.toJson());
}

NotifyNotifications NotifyNotifications::fromRow(const core::DatabaseRow& row) {
    auto campaignID = row.get<std::int64_t>("campaign_id");
    auto siteID = row.get<std::optional<std::int64_t>>("site_id");
    return NotifyNotifications{campaignID, siteID, json::decodeJsonColumn(row, "content", &NotifyCampaignContent::fromJson)};
}

namespace json {

NotifyNotifications readNotifications(JsonReader& reader, JsonValue value) {
    std::optional<std::int64_t> campaignID, siteID;
    std::optional<NotifyCampaignContent> content;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        if (key == "campaign_id") campaignID = reader.int64(member);
        else if (key == "site_id") siteID = readOptionalInt(reader, member);
        else if (key == "content") content = readContent(reader, member);
        else reader.skip(member);
    });
    std::int64_t campaignValue = required(reader, campaignID, "campaign_id");
    return NotifyNotifications{campaignValue, siteID, required(reader, content, "content")};
}

}  // namespace json

}  // namespace drovel::notify
