#pragma once
// Working out which campaign notifications fired, and the parameters of the analytics events for
// fired and tapped notifications. Pure functions: the manager fetches the pending requests, ranges
// beacons and records the events.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "drovel/notify/LoadedCampaigns.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyCampaign.h"
#include "drovel/notify/NotifySite.h"
#include "drovel/platform/UserNotificationCenter.h"
#include "manager/CampaignRequestBuilder.h"

namespace drovel::notify {

// The loaded store without what the still-pending campaign requests name
// (LoadedCampaigns::removePending for each request with an integer campaign id). What remains is
// exactly what fired: geofence entries listing their fired sites, and beacon entries with an empty
// list (which make the module range beacons, LoadedCampaigns::needToRangeForSite).
LoadedCampaigns firedCampaigns(LoadedCampaigns loaded, const std::vector<platform::NotificationRequest>& pending);

// The beacon UUID to range with: the first campaign's, in order, that has one.
std::optional<UUID> beaconUUIDForRanging(const std::vector<NotifyCampaign>& campaigns);
// The first site whose beaconMinor is the ranged beacon's minor.
std::optional<std::int64_t> siteIDForBeaconMinor(const std::vector<NotifySite>& sites, std::uint16_t minor);

// One "notification_triggered" event, and what its trigger event records.
struct TriggeredEvent {
    std::int64_t campaignID;
    // The fired geofence site, or the site found by ranging for a beacon entry; else none.
    std::optional<std::int64_t> siteID;
    // "site_id" (decimal) when there is a site, and "content_metadata_" + key for each value of
    // the campaign content's metadata, rendered.
    NotifyAnalyticsEvent::Params params;
};

// One event per fired pair, in store order: a geofence entry gives one per remaining site, a
// beacon entry (empty list) one with the ranged site when ranging found one. A campaign that is
// no longer stored still gives its events, without metadata.
std::vector<TriggeredEvent> notificationTriggeredEvents(const LoadedCampaigns& fired,
                                                        std::optional<std::int64_t> rangedSiteID,
                                                        const std::vector<NotifyCampaign>& campaigns,
                                                        CampaignTextRenderer& renderer);

// The "notification_clicked" event of a tapped campaign notification: the campaign id, and as
// parameters "site_id" when the user info has one and each text value of its metadata under
// "content_metadata_" + key (already rendered when the request was built). None without an integer
// campaign id.
struct ClickedEvent {
    std::int64_t campaignID;
    NotifyAnalyticsEvent::Params params;
};
std::optional<ClickedEvent> notificationClickedEvent(const platform::UserInfo& userInfo);

}  // namespace drovel::notify
