#pragma once
// Records that a campaign fired, for its repeat bookkeeping.
//
// JSON:
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
