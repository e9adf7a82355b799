#pragma once
// Records that a campaign fired, for its repeat bookkeeping.
//
// JSON (keys are also the database columns):
//   {"last_triggered_at": "2024-03-01T12:00:00.000Z", "campaign_id": 7, "site_id": 42}
// The date is written in UTC with the fraction digits (3, 6 or 9) that the instant needs to read
// back exactly; reading accepts "Z" or a "+hh:mm" offset and 0 to 9 fraction digits.
// "site_id" is optional (missing or null).

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/notify/NotifyRecord.h"

namespace drovel::notify {

class NotifyTriggerEvent {
public:
    NotifyTriggerEvent(Date lastTriggeredAt, std::int64_t campaignID, std::optional<std::int64_t> siteID)
        : lastTriggeredAt_(lastTriggeredAt), campaignID_(campaignID), siteID_(siteID) {}

    Date lastTriggeredAt() const { return lastTriggeredAt_; }
    std::int64_t campaignID() const { return campaignID_; }
    // The site at which it fired, if known.
    std::optional<std::int64_t> siteID() const { return siteID_; }

    static core::Result<NotifyTriggerEvent> fromJson(std::string_view json);
    void writeJson(core::JsonWriter& writer) const;
    std::string toJson() const;
    // The database form, for the core library's DrovelDBManager (PersistableCodable): table
    // 'notify_trigger_event', one column per JSON key. The table has no key: every
    // save adds a row.
    static std::string_view createStatement();
    static std::string_view upsertStatement();
    static std::string_view selectAllStatement();
    static std::string_view deleteAllStatement();
    void bind(core::StatementBinder& binder) const;
    // Throws core::DatabaseError naming the column when a value cannot be read back.
    static NotifyTriggerEvent fromRow(const core::DatabaseRow& row);
    bool operator==(const NotifyTriggerEvent&) const = default;

private:
    Date lastTriggeredAt_;
    std::int64_t campaignID_;
    std::optional<std::int64_t> siteID_;
};

// The text of a date as trigger events store it: "2024-03-01T12:00:00.123Z".
std::string iso8601Text(Date date);
// Reads that text back, also with a "+hh:mm" / "-hhmm" offset instead of "Z"; anything else gives none.
std::optional<Date> dateFromISO8601Text(std::string_view text);

}  // namespace drovel::notify
