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
    bool operator==(const NotifyNotifications&) const = default;
};

}  // namespace drovel::notify
