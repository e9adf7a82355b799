#pragma once
// The sample backend's catalogue: the campaigns, sites and campaign/site pairs it serves.
//
// JSON:
//   {"min_sync_interval_seconds": 3600,
//    "campaigns": [<campaign in its wire form>, ...],
//    "sites": [{"id": 1, "partner_identifier": "NYC-001" (optional), "name": "Main St" (optional),
//               "latitude": 40.7128 or "40.7128", "longitude": -74.006 or "-74.006",
//               "beacon_minor": 12 (optional), "radius_meters": 150 (optional, default 100)}, ...],
//    "notifications": [{"campaign_id": 7, "site_id": 1 or null, "content": <campaign content>}, ...]}
// Loading checks everything the module would refuse (each campaign and content decodes as the
// module decodes it) and that every pair names a campaign and a site of the catalogue, so a bad
// catalogue fails with a message naming the key path instead of serving downloads that fail.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/core/Site.h"

namespace drovel::backend {

struct CatalogueSite {
    std::int64_t id = 0;
    std::optional<std::string> partnerIdentifier;
    // The name the core library's sites query answers with: the catalogue's, else the partner
    // identifier, else "Site <id>".
    std::string name;
    // As the wire form carries them: decimal texts.
    std::string latitude;
    std::string longitude;
    core::LocationCoordinate coordinate;
    std::optional<std::int64_t> beaconMinor;
    // The geofence radius of the core library's sites query.
    double radiusMeters = 100;
};

struct CatalogueCampaign {
    std::int64_t id = 0;
    // The campaign's JSON as written in the catalogue, served as it is.
    std::string json;
};

struct CatalogueNotification {
    std::int64_t campaignID = 0;
    std::optional<std::int64_t> siteID;
    // The content's JSON as written in the catalogue.
    std::string contentJson;
};

// What a download answer holds, for the request log.
struct DownloadSummary {
    std::size_t sites = 0;
    std::size_t pairs = 0;
    std::size_t campaigns = 0;
};

class Catalogue {
public:
    static constexpr std::size_t maxFileBytes = 256u << 20;

    static core::Result<Catalogue> fromJson(std::string_view json);
    // Messages start with the path: "<path>: campaigns[2].region_type: ...".
    static core::Result<Catalogue> load(const std::string& path);

    std::int64_t minSyncIntervalSeconds() const { return minSyncIntervalSeconds_; }
    const std::vector<CatalogueCampaign>& campaigns() const { return campaigns_; }
    const std::vector<CatalogueSite>& sites() const { return sites_; }
    const std::vector<CatalogueNotification>& notifications() const { return notifications_; }

    // The sites within radius metres of the centre (great-circle distance), nearest first (ties by
    // id), with their distances in metres.
    std::vector<std::pair<const CatalogueSite*, double>> sitesWithin(core::LocationCoordinate centre, double radius) const;

    // The answer to a campaigns download around the centre: the sites within the radius with
    // "distance_meters", the pairs of those sites and the pairs without a site (in catalogue
    // order), and the campaigns those pairs name (in catalogue order).
    std::string notificationsResponse(core::LocationCoordinate centre, double radius,
                                      DownloadSummary* summary = nullptr) const;
    // The answer to the core library's sites query: {"data": [site, ...]}, one page (pages count
    // from 1) of the sites within the radius, nearest first.
    std::string sitesResponse(core::LocationCoordinate centre, double radius, std::size_t page, std::size_t per,
                              std::size_t* count = nullptr) const;

private:
    std::int64_t minSyncIntervalSeconds_ = 0;
    std::vector<CatalogueCampaign> campaigns_;
    std::vector<CatalogueSite> sites_;
    std::vector<CatalogueNotification> notifications_;
};

// The whole text read as a decimal number ("." separator, nothing else around it), or none.
std::optional<double> parseDecimal(std::string_view text);

}  // namespace drovel::backend
