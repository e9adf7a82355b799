#pragma once
// One campaign shown at one site, with the content to show there (it may differ per site).
//
// JSON: {"campaign_id": 7, "site_id": 42, "content": {...}}; "site_id" is missing or null for a
// campaign that is not tied to a site (beacon campaigns).

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/notify/NotifyCampaign.h"

namespace drovel::notify {

struct NotifyNotifications {
    std::int64_t campaignID;
    std::optional<std::int64_t> siteID;
    NotifyCampaignContent content;

    static core::Result<NotifyNotifications> fromJson(std::string_view json);
    void writeJson(core::JsonWriter& writer) const;
    std::string toJson() const;
    // The database form, for the core library's DrovelDBManager (PersistableCodable): table
    // 'notify_notification', one column per JSON key. Content is stored as its JSON text. The
    // create statement is the table's first layout, without content; nothing runs it.
    static std::string_view createStatement();
    static std::string_view upsertStatement();
    static std::string_view selectAllStatement();
    static std::string_view deleteAllStatement();
    void bind(core::StatementBinder& binder) const;
    // Throws core::DatabaseError naming the column when a value cannot be read back.
    static NotifyNotifications fromRow(const core::DatabaseRow& row);
    bool operator==(const NotifyNotifications&) const = default;
};

}  // namespace drovel::notify
