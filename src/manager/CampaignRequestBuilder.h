#pragma once
// The pending notifications the module schedules: campaign requests (geofence approach, beacon
// site, beacon area of interest) with their texts rendered through the template engine, the
// trigger-history rule that holds a campaign back, and the first-generation site notifications.
// Pure functions of their inputs: the manager gathers the campaigns, sites, pairs, trigger events,
// custom template content and time, and adds what these return to the notification centre.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Helpers/UserDefaultsKey.h"
#include "drovel/core/Site.h"
#include "drovel/notify/NotificationInfo.h"
#include "drovel/notify/NotifyCampaign.h"
#include "drovel/notify/NotifyError.h"
#include "drovel/notify/NotifyNotifications.h"
#include "drovel/notify/NotifySite.h"
#include "drovel/notify/NotifyTriggerEvent.h"
#include "drovel/platform/Location.h"
#include "drovel/platform/UserNotificationCenter.h"
#include "template/Context.h"

namespace drovel::notify {

// The user-info keys and values of campaign notifications (read back by detection and taps).
namespace campaignUserInfo {
inline constexpr std::string_view kMessageSourceKey = "message_source";
// Marks campaign notifications; site notifications carry kSiteMessageSource instead.
inline constexpr std::string_view kMessageSource = "drovel.notify.v2";
inline constexpr std::string_view kSiteMessageSource = "drovel.notify";
inline constexpr std::string_view kCampaignIDKey = "Drovel.Notify.CampaignID";
inline constexpr std::string_view kSiteIDKey = "Drovel.Notify.SiteID";
inline constexpr std::string_view kDeepLinkURLKey = "Drovel.Notify.DeepLinkURL";
inline constexpr std::string_view kMetadataKey = "Drovel.Notify.Metadata";
}  // namespace campaignUserInfo

// ---- Rendering -------------------------------------------------------------------------------

// The custom template content stored under "DrovelNotify.customTemplateContent"; empty when the
// key is absent, the data does not parse, or it is not an object of strings.
CustomTemplateContent storedCustomTemplateContent(const platform::UserDefaults& defaults);

// A context whose only variable is "app", holding the custom template content as a dictionary of
// strings (templates read app.<key>); no counters, no cycle groups.
std::shared_ptr<templating::Context> makeRenderingContext(const CustomTemplateContent& customTemplateContent);

// Renders campaign texts with the custom template content. Each notification content gets a
// fresh context (a tag of its title may set a variable that its body reads, but nothing leaks
// into the next content). A text whose output is empty, or that the engine abandons, is shown as
// written. Not thread-safe: one set-up at a time.
//
// Cost: a set-up renders the same few texts for many sites, so texts rendered in a fresh context
// that leave it unchanged are remembered by their text, and texts without "{{" or "{%" are not
// rendered at all. Both give what a rendering would: the output of such a text depends on nothing
// but the text and the fresh context (and the clock, for "now" in a date filter, which does not
// move noticeably during one set-up). A template error is therefore logged once per set-up, not
// once per site.
class CampaignTextRenderer {
public:
    explicit CampaignTextRenderer(const CustomTemplateContent& customTemplateContent);

    // The texts of one notification content, rendered in order in one fresh context.
    class ContentRendering {
    public:
        std::string render(std::string_view text);

    private:
        friend class CampaignTextRenderer;
        explicit ContentRendering(CampaignTextRenderer& renderer) : renderer_(renderer) {}
        CampaignTextRenderer& renderer_;
        // None while the content's texts have left the fresh context unchanged.
        std::shared_ptr<templating::Context> context_;
    };

    ContentRendering beginContent() { return ContentRendering(*this); }
    // One text in a fresh context.
    std::string render(std::string_view text) { return beginContent().render(text); }
    // Every value rendered in one fresh context, in key order; the keys are kept as they are.
    NotifyCampaignContent::Metadata renderMetadata(const NotifyCampaignContent::Metadata& metadata);

    // How many texts went through the engine (the others were plain or remembered).
    std::size_t engineRenderings() const { return engineRenderings_; }

private:
    struct Remembered {
        std::string rendered;
        // False: the text changes the context (assign, capture, counters, cycles), so the texts
        // after it in the same content must be rendered in that changed context.
        bool leavesContextUnchanged;
    };
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };

    std::shared_ptr<templating::Context> freshContext();
    bool isFresh(const templating::Context& context) const;

    templating::Context::Dictionary freshVariables_;
    // A fresh context that a rendering left unchanged, reused for the next one.
    std::shared_ptr<templating::Context> spare_;
    std::unordered_map<std::string, Remembered, TextHash, std::equal_to<>> remembered_;
    std::size_t engineRenderings_ = 0;
};

// ---- Campaign requests -----------------------------------------------------------------------

// "drovel.notify.v2 geofence_approach <campaign id> <site id>", in a circular region of that
// identifier centred on the site, radius geofenceRadiusMeters. None unless the campaign is a
// geofence campaign with a radius and the site's coordinate parses.
std::optional<platform::NotificationRequest> geofenceApproachRequest(const NotifyCampaign& campaign,
                                                                     const NotifySite& site,
                                                                     const NotifyCampaignContent& content,
                                                                     CampaignTextRenderer& renderer);
// "drovel.notify.v2 beacon_site <campaign id>", in the beacon region of the campaign's UUID.
// None unless the campaign is a beacon campaign with a beacon UUID.
std::optional<platform::NotificationRequest> beaconSiteRequest(const NotifyCampaign& campaign,
                                                               const NotifyCampaignContent& content,
                                                               CampaignTextRenderer& renderer);
// "drovel.notify.v2 beacon_area_of_interest <campaign id>", in the beacon region of the campaign's
// UUID and that major. None unless the campaign is a beacon campaign with a beacon UUID.
std::optional<platform::NotificationRequest> beaconAreaOfInterestRequest(const NotifyCampaign& campaign,
                                                                         std::uint16_t major,
                                                                         const NotifyCampaignContent& content,
                                                                         CampaignTextRenderer& renderer);

// The campaigns of one region type, in their order.
std::vector<const NotifyCampaign*> geofenceCampaigns(const std::vector<NotifyCampaign>& campaigns);
std::vector<const NotifyCampaign*> beaconCampaigns(const std::vector<NotifyCampaign>& campaigns);

// Whether the campaign's trigger history holds it back at `now`. The product's rule: a campaign
// that fired waits repeatIntervalDays whole 24-hour days after its latest trigger event, i.e. it is
// held back while now is earlier than that event plus the interval. Without an interval (absent,
// 0, or a nonsensical negative value) it fires once: held back while it has any trigger event.
// Trigger events are cleared by a forced sync and when the campaign stops being active, which lets
// it fire again. Without trigger events a campaign is never held back.
bool isHeldBackByTriggerHistory(const NotifyCampaign& campaign, const std::vector<NotifyTriggerEvent>& triggerEvents,
                                platform::Date now);

// A campaign's trigger events (the interactor's fetchTriggerEventsFor(campaignID:)).
using TriggerEventsFetch = std::function<std::vector<NotifyTriggerEvent>(std::int64_t campaignID)>;

// Every request a set-up adds, in its order: one per stored pair, skipping the pairs whose campaign
// (of the pair's kind: with a site, a geofence campaign; without, a beacon campaign) or site is not
// stored, whose campaign is held back by its trigger history, or whose request cannot be built.
// A pair without a site gives the beacon-site request, or the area-of-interest request when its
// campaign has a major. Each request's texts come from the pair's own content.
// fetchTriggerEvents is called at most once per campaign.
std::vector<platform::NotificationRequest> campaignNotificationRequests(
    const std::vector<NotifyCampaign>& campaigns, const std::vector<NotifySite>& sites,
    const std::vector<NotifyNotifications>& notifications, const TriggerEventsFetch& fetchTriggerEvents,
    platform::Date now, const CustomTemplateContent& customTemplateContent);
// The same requests, each handed over as soon as it is built (for adding it at once, without
// holding every request of a set-up in memory).
using CampaignRequestSink = std::function<void(platform::NotificationRequest request)>;
void buildCampaignNotificationRequests(const std::vector<NotifyCampaign>& campaigns, const std::vector<NotifySite>& sites,
                                       const std::vector<NotifyNotifications>& notifications,
                                       const TriggerEventsFetch& fetchTriggerEvents, platform::Date now,
                                       const CustomTemplateContent& customTemplateContent,
                                       const CampaignRequestSink& sink);

// The campaign id and site id an added request records in LoadedCampaigns; none when its user
// info has no integer campaign id.
struct CampaignRequestKey {
    std::int64_t campaignID;
    std::optional<std::int64_t> siteID;
};
std::optional<CampaignRequestKey> campaignRequestKey(const platform::UserInfo& userInfo);

// ---- Site notifications ----------------------------------------------------------------------

// "drovel.notify <site id>": the info's title and content, default sound, its data with
// "message_source" = "drovel.notify" (replacing any value the data carries), in a circular region
// of the same identifier on the site's geofence, entry only. None when the site has no geofence or
// the geofence has no coordinate.
std::optional<platform::NotificationRequest> siteNotificationRequest(const core::Site& site,
                                                                     const NotificationInfo& notification);

// The checks of createForSites and createForSitesInRegion, in their order: the manager must be
// configured, location services on and authorised (always or when in use), and no more than
// maxSites sites (exactly maxSites is fine; no site count: not checked). The first that fails.
std::optional<NotifyErrorType> siteNotificationsCheck(bool isManagerConfigured, bool locationServicesEnabled,
                                                      platform::AuthorizationStatus authorizationStatus,
                                                      std::optional<std::size_t> siteCount, std::int64_t maxSites);

}  // namespace drovel::notify
