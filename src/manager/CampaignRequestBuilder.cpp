#include "manager/CampaignRequestBuilder.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <chrono>
#include <cstring>
#include <unordered_map>
#include <utility>

#include "template/Render.h"

namespace drovel::notify {

namespace {

using platform::NotificationRequest;
using platform::UserInfo;
using templating::Token;

// Whether the lexer would find a statement ("{{" or "{%") in the text. Without one the text is a
// single text token, which the engine outputs as it is.
bool hasStatement(std::string_view text) {
    for (std::size_t from = 0; from + 1 < text.size();) {
        const void* brace = std::memchr(text.data() + from, '{', text.size() - from - 1);
        if (!brace) return false;
        std::size_t position = static_cast<const char*>(brace) - text.data();
        if (text[position + 1] == '{' || text[position + 1] == '%') return true;
        from = position + 1;
    }
    return false;
}

Token::Value::Dictionary freshVariablesOf(const CustomTemplateContent& customTemplateContent) {
    Token::Value::Dictionary app;
    for (const auto& [key, value] : customTemplateContent) app.set(key, Token::Value::string(value));
    Token::Value::Dictionary variables;
    variables.set("app", Token::Value::dictionary(std::move(app)));
    return variables;
}

std::string requestIdentifier(std::string_view kind, std::int64_t campaignID,
                              std::optional<std::int64_t> siteID = std::nullopt) {
    // Reserved at its final size: a set-up makes one identifier per request.
    constexpr std::string_view prefix = "drovel.notify.v2 ";
    char campaign[24];
    char site[24];
    const char* campaignEnd = std::to_chars(std::begin(campaign), std::end(campaign), campaignID).ptr;
    const char* siteEnd = siteID ? std::to_chars(std::begin(site), std::end(site), *siteID).ptr : site;
    std::string identifier;
    identifier.reserve(prefix.size() + kind.size() + 2 + static_cast<std::size_t>(campaignEnd - campaign) +
                       static_cast<std::size_t>(siteEnd - site));
    identifier.append(prefix).append(kind).append(1, ' ').append(campaign, static_cast<std::size_t>(campaignEnd - campaign));
    if (siteID) identifier.append(1, ' ').append(site, static_cast<std::size_t>(siteEnd - site));
    return identifier;
}

// Title and body when the content has a notification (each only when present), the default sound,
// and the user info keys in this order: source, campaign, site, deep link, metadata. The texts
// are rendered in that order in one fresh context.
platform::NotificationContent campaignContent(std::int64_t campaignID, std::optional<std::int64_t> siteID,
                                              const NotifyCampaignContent& content, CampaignTextRenderer& renderer) {
    using namespace campaignUserInfo;
    auto rendering = renderer.beginContent();
    platform::NotificationContent result;
    if (const auto& notification = content.notification()) {
        if (notification->title()) result.title = rendering.render(*notification->title());
        if (notification->body()) result.body = rendering.render(*notification->body());
    }
    result.sound = platform::NotificationSound::defaultSound;
    UserInfo& userInfo = result.userInfo;
    userInfo.emplace(kMessageSourceKey, kMessageSource);
    userInfo.emplace(kCampaignIDKey, campaignID);
    if (siteID) userInfo.emplace(kSiteIDKey, *siteID);
    if (content.deepLinkURL()) userInfo.emplace(kDeepLinkURLKey, rendering.render(*content.deepLinkURL()));
    if (content.metadata()) {
        UserInfo metadata;
        for (const auto& [key, value] : *content.metadata()) metadata.emplace(key, rendering.render(value));
        userInfo.emplace(kMetadataKey, std::move(metadata));
    }
    return result;
}

NotificationRequest locationRequest(std::string identifier, platform::NotificationContent content,
                                    std::variant<platform::CircularRegion, platform::BeaconRegion> region) {
    NotificationRequest request;
    request.identifier = std::move(identifier);
    request.content = std::move(content);
    request.trigger = platform::NotificationTrigger{std::move(region), false};
    return request;
}

std::optional<NotificationRequest> beaconRequest(std::string_view kind, const NotifyCampaign& campaign,
                                                 std::optional<std::uint16_t> major,
                                                 const NotifyCampaignContent& content, CampaignTextRenderer& renderer) {
    if (campaign.regionType() != NotifyCampaignRegionType::beacon || !campaign.beaconUUID()) return std::nullopt;
    std::string identifier = requestIdentifier(kind, campaign.id());
    platform::BeaconRegion region;
    region.identifier = identifier;
    region.uuid = campaign.beaconUUID()->uuidString();
    region.major = major;
    region.notifyOnEntry = true;
    region.notifyOnExit = false;
    return locationRequest(std::move(identifier), campaignContent(campaign.id(), std::nullopt, content, renderer),
                           std::move(region));
}

std::vector<const NotifyCampaign*> campaignsOfType(const std::vector<NotifyCampaign>& campaigns,
                                                   NotifyCampaignRegionType type) {
    std::vector<const NotifyCampaign*> matching;
    for (const auto& campaign : campaigns)
        if (campaign.regionType() == type) matching.push_back(&campaign);
    return matching;
}

// Id -> record; the first record of an id wins, as a search in list order would find it.
template <class Record>
std::unordered_map<std::int64_t, const Record*> indexByID(const std::vector<const Record*>& records) {
    std::unordered_map<std::int64_t, const Record*> index;
    index.reserve(records.size());
    for (const Record* record : records) index.emplace(record->id(), record);
    return index;
}

template <class Record>
const Record* find(const std::unordered_map<std::int64_t, const Record*>& index, std::int64_t id) {
    auto found = index.find(id);
    return found == index.end() ? nullptr : found->second;
}

}  // namespace

// ---- Rendering -------------------------------------------------------------------------------

CustomTemplateContent storedCustomTemplateContent(const platform::UserDefaults& defaults) {
    // Absent, unparseable and wrongly shaped data all read as none; no message either way.
    return customTemplateContent(defaults).value_or(CustomTemplateContent{});
}

std::shared_ptr<templating::Context> makeRenderingContext(const CustomTemplateContent& customTemplateContent) {
    return std::make_shared<templating::Context>(freshVariablesOf(customTemplateContent));
}

CampaignTextRenderer::CampaignTextRenderer(const CustomTemplateContent& customTemplateContent)
    : freshVariables_(freshVariablesOf(customTemplateContent)) {}

std::shared_ptr<templating::Context> CampaignTextRenderer::freshContext() {
    if (spare_ && spare_.use_count() == 1) return std::exchange(spare_, nullptr);
    return std::make_shared<templating::Context>(freshVariables_);
}

bool CampaignTextRenderer::isFresh(const templating::Context& context) const {
    return context.counters.empty() && context.groups.empty() && context.variables == freshVariables_;
}

std::string CampaignTextRenderer::ContentRendering::render(std::string_view text) {
    // Nothing to render: the engine would give the text back (an empty text is shown as written).
    if (!hasStatement(text)) return std::string(text);
    CampaignTextRenderer& renderer = renderer_;
    if (context_) {
        ++renderer.engineRenderings_;
        return templating::render(text, context_);
    }
    auto known = renderer.remembered_.find(text);
    if (known != renderer.remembered_.end() && known->second.leavesContextUnchanged) return known->second.rendered;

    auto context = renderer.freshContext();
    ++renderer.engineRenderings_;
    std::string rendered = templating::render(text, context);
    bool unchanged = renderer.isFresh(*context);
    if (known != renderer.remembered_.end()) known->second = {rendered, unchanged};
    else renderer.remembered_.emplace(std::string(text), Remembered{rendered, unchanged});
    if (unchanged) renderer.spare_ = std::move(context);
    else context_ = std::move(context);
    return rendered;
}

NotifyCampaignContent::Metadata CampaignTextRenderer::renderMetadata(const NotifyCampaignContent::Metadata& metadata) {
    auto rendering = beginContent();
    NotifyCampaignContent::Metadata rendered;
    for (const auto& [key, value] : metadata) rendered.emplace_hint(rendered.end(), key, rendering.render(value));
    return rendered;
}

// ---- Campaign requests -----------------------------------------------------------------------

std::optional<NotificationRequest> geofenceApproachRequest(const NotifyCampaign& campaign, const NotifySite& site,
                                                           const NotifyCampaignContent& content,
                                                           CampaignTextRenderer& renderer) {
    if (campaign.regionType() != NotifyCampaignRegionType::geofence) return std::nullopt;
    auto radius = campaign.geofenceRadiusMeters();
    auto center = site.locationCoordinate();
    if (!radius || !center) return std::nullopt;
    std::string identifier = requestIdentifier("geofence_approach", campaign.id(), site.id());
    platform::CircularRegion region;
    region.identifier = identifier;
    region.center = *center;
    region.radius = static_cast<double>(*radius);
    region.notifyOnEntry = true;
    region.notifyOnExit = false;
    return locationRequest(std::move(identifier), campaignContent(campaign.id(), site.id(), content, renderer),
                           std::move(region));
}

std::optional<NotificationRequest> beaconSiteRequest(const NotifyCampaign& campaign,
                                                     const NotifyCampaignContent& content,
                                                     CampaignTextRenderer& renderer) {
    return beaconRequest("beacon_site", campaign, std::nullopt, content, renderer);
}

std::optional<NotificationRequest> beaconAreaOfInterestRequest(const NotifyCampaign& campaign, std::uint16_t major,
                                                               const NotifyCampaignContent& content,
                                                               CampaignTextRenderer& renderer) {
    return beaconRequest("beacon_area_of_interest", campaign, major, content, renderer);
}

std::vector<const NotifyCampaign*> geofenceCampaigns(const std::vector<NotifyCampaign>& campaigns) {
    return campaignsOfType(campaigns, NotifyCampaignRegionType::geofence);
}

std::vector<const NotifyCampaign*> beaconCampaigns(const std::vector<NotifyCampaign>& campaigns) {
    return campaignsOfType(campaigns, NotifyCampaignRegionType::beacon);
}

bool isHeldBackByTriggerHistory(const NotifyCampaign& campaign, const std::vector<NotifyTriggerEvent>& triggerEvents,
                                platform::Date now) {
    if (triggerEvents.empty()) return false;
    std::int64_t days = campaign.repeatIntervalDays().value_or(0);
    if (days <= 0) return true;
    auto latest = std::max_element(triggerEvents.begin(), triggerEvents.end(), [](const auto& a, const auto& b) {
                      return a.lastTriggeredAt() < b.lastTriggeredAt();
                  })->lastTriggeredAt();
    // In 128 bits: a backend's interval may be far larger than the clock's range.
    using Ticks = platform::Date::duration;
    constexpr __int128 ticksPerDay = std::chrono::duration_cast<Ticks>(std::chrono::hours(24)).count();
    __int128 releasedAt = static_cast<__int128>(latest.time_since_epoch().count()) + days * ticksPerDay;
    return static_cast<__int128>(now.time_since_epoch().count()) < releasedAt;
}

void buildCampaignNotificationRequests(const std::vector<NotifyCampaign>& campaigns, const std::vector<NotifySite>& sites,
                                       const std::vector<NotifyNotifications>& notifications,
                                       const TriggerEventsFetch& fetchTriggerEvents, platform::Date now,
                                       const CustomTemplateContent& customTemplateContent,
                                       const CampaignRequestSink& sink) {
    auto geofenceIndex = indexByID(geofenceCampaigns(campaigns));
    auto beaconIndex = indexByID(beaconCampaigns(campaigns));
    std::vector<const NotifySite*> sitePointers;
    sitePointers.reserve(sites.size());
    for (const auto& site : sites) sitePointers.push_back(&site);
    auto siteIndex = indexByID(sitePointers);

    // One look at each campaign's history: the pairs of a campaign share it.
    std::unordered_map<std::int64_t, bool> heldBack;
    auto isHeldBack = [&](const NotifyCampaign& campaign) {
        auto [entry, isNew] = heldBack.try_emplace(campaign.id(), false);
        if (isNew) entry->second = isHeldBackByTriggerHistory(campaign, fetchTriggerEvents(campaign.id()), now);
        return entry->second;
    };

    CampaignTextRenderer renderer(customTemplateContent);
    for (const auto& pair : notifications) {
        std::optional<NotificationRequest> request;
        if (!pair.siteID) {
            const NotifyCampaign* campaign = find(beaconIndex, pair.campaignID);
            if (!campaign || isHeldBack(*campaign) || !campaign->beaconUUID()) continue;
            if (auto major = campaign->beaconMajor())
                request = beaconAreaOfInterestRequest(*campaign, *major, pair.content, renderer);
            else
                request = beaconSiteRequest(*campaign, pair.content, renderer);
        } else {
            const NotifyCampaign* campaign = find(geofenceIndex, pair.campaignID);
            const NotifySite* site = find(siteIndex, *pair.siteID);
            if (!campaign || !site || isHeldBack(*campaign)) continue;
            request = geofenceApproachRequest(*campaign, *site, pair.content, renderer);
        }
        if (request) sink(std::move(*request));
    }
}

std::vector<NotificationRequest> campaignNotificationRequests(const std::vector<NotifyCampaign>& campaigns,
                                                              const std::vector<NotifySite>& sites,
                                                              const std::vector<NotifyNotifications>& notifications,
                                                              const TriggerEventsFetch& fetchTriggerEvents,
                                                              platform::Date now,
                                                              const CustomTemplateContent& customTemplateContent) {
    std::vector<NotificationRequest> requests;
    buildCampaignNotificationRequests(campaigns, sites, notifications, fetchTriggerEvents, now, customTemplateContent,
                                      [&](NotificationRequest request) { requests.push_back(std::move(request)); });
    return requests;
}

std::optional<CampaignRequestKey> campaignRequestKey(const UserInfo& userInfo) {
    const auto* campaignID = platform::userInfoGet<std::int64_t>(userInfo, campaignUserInfo::kCampaignIDKey);
    if (!campaignID) return std::nullopt;
    const auto* siteID = platform::userInfoGet<std::int64_t>(userInfo, campaignUserInfo::kSiteIDKey);
    return CampaignRequestKey{*campaignID, siteID ? std::optional(*siteID) : std::nullopt};
}

// ---- Site notifications ----------------------------------------------------------------------

std::optional<NotificationRequest> siteNotificationRequest(const core::Site& site,
                                                           const NotificationInfo& notification) {
    if (!site.geofence) return std::nullopt;
    auto center = site.geofence->locationCoordinate();
    if (!center) return std::nullopt;
    std::string identifier = "drovel.notify " + std::to_string(site.id);

    platform::NotificationContent content;
    content.title = notification.title();
    content.body = notification.content();
    content.sound = platform::NotificationSound::defaultSound;
    content.userInfo = notification.data().value_or(UserInfo{});
    content.userInfo.insert_or_assign(std::string(campaignUserInfo::kMessageSourceKey),
                                      platform::UserInfoValue(campaignUserInfo::kSiteMessageSource));

    platform::CircularRegion region;
    region.identifier = identifier;
    region.center = *center;
    region.radius = site.geofence->radiusMeters;
    region.notifyOnEntry = true;
    region.notifyOnExit = false;
    return locationRequest(std::move(identifier), std::move(content), std::move(region));
}

std::optional<NotifyErrorType> siteNotificationsCheck(bool isManagerConfigured, bool locationServicesEnabled,
                                                      platform::AuthorizationStatus authorizationStatus,
                                                      std::optional<std::size_t> siteCount, std::int64_t maxSites) {
    using platform::AuthorizationStatus;
    if (!isManagerConfigured) return NotifyErrorType::notifyModuleNotConfigured;
    bool authorized = authorizationStatus == AuthorizationStatus::authorizedAlways ||
                      authorizationStatus == AuthorizationStatus::authorizedWhenInUse;
    if (!locationServicesEnabled || !authorized) return NotifyErrorType::noLocationPermission;
    // A negative limit accepts no site at all.
    if (siteCount && (maxSites < 0 || *siteCount > static_cast<std::uint64_t>(maxSites)))
        return NotifyErrorType::reachedTheMaxNumberOfSites;
    return std::nullopt;
}

}  // namespace drovel::notify
