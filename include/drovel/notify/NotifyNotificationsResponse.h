#pragma once
// The backend's answer to a campaigns download.
//
// JSON: {"min_sync_interval_seconds": 3600,
//        "data": [{"campaign_id": 7, "site_id": 42, "content": {...}}, ...],
//        "included": {"campaigns": [...], "sites": [...]}}
// The three top-level keys are required; inside "included" both lists may be missing or null.
// Decoding is all or nothing: the first missing or mistyped required key, unknown region type,
// beacon major outside 0..65535, malformed UUID or integer that does not fit fails the whole
// document with a message naming the key path, e.g.
//   "included.campaigns[3].beacon_major: expected an integer from 0 to 65535".

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/notify/NotifyCampaign.h"
#include "drovel/notify/NotifyNotifications.h"
#include "drovel/notify/NotifySite.h"

namespace drovel::notify {

struct IncludedData {
    std::optional<std::vector<NotifyCampaign>> campaigns;
    std::optional<std::vector<NotifySite>> sites;

    void writeJson(core::JsonWriter& writer) const;
    bool operator==(const IncludedData&) const = default;
};

struct NotifyNotificationsResponse {
    // Least number of seconds between two downloads.
    std::int64_t minSyncIntervalSeconds;
    // Every campaign/site pair to set up.
    std::vector<NotifyNotifications> data;
    // The campaigns and sites the pairs refer to.
    IncludedData included;

    // Decoding does not keep the text: the records own their strings.
    static core::Result<NotifyNotificationsResponse> fromJson(std::string_view json);
    void writeJson(core::JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const NotifyNotificationsResponse&) const = default;
};

}  // namespace drovel::notify
