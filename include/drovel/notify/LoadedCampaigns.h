#pragma once
// Which campaigns were set up as pending notifications, and for which sites: campaign id -> site
// ids. A beacon campaign, set up without a site, has an empty list.
//
// JSON (as kept in the user defaults): {"store": {"7": [42, 43], "9": []}}; the object keys are the
// campaign ids in decimal.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"

namespace drovel::core {
class JsonWriter;
}

namespace drovel::notify {

struct LoadedCampaigns {
    std::map<std::int64_t, std::vector<std::int64_t>> store;

    // Records a request that was set up: the site is appended to the campaign's list (a request
    // without a site only makes sure the campaign has an entry).
    void add(std::int64_t campaignID, std::optional<std::int64_t> siteID);
    // Forgets one site of a campaign (every occurrence); the campaign's entry stays, possibly empty.
    void remove(std::int64_t campaignID, std::int64_t siteID);
    // Forgets what a still-pending request names, so that what remains is what fired. The
    // product's rules: a request without a site (a beacon request that has not fired) removes its
    // campaign's entry; a request with a site removes that site, and an entry whose list becomes
    // empty through it is dropped (all its requests are still pending). An entry that was already
    // empty (a beacon campaign) is not touched by a request with a site.
    void removePending(std::int64_t campaignID, std::optional<std::int64_t> siteID);
    // True when any campaign has an empty site list, i.e. a beacon campaign whose site must be ranged.
    bool needToRangeForSite() const;
    bool empty() const { return store.empty(); }

    static core::Result<LoadedCampaigns> fromJson(std::string_view json);
    void writeJson(core::JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const LoadedCampaigns&) const = default;
};

}  // namespace drovel::notify
