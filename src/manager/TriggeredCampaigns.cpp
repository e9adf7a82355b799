#include "manager/TriggeredCampaigns.h"

#include <unordered_map>
#include <utility>

namespace drovel::notify {

namespace {

constexpr std::string_view kSiteIDParameter = "site_id";
constexpr std::string_view kMetadataParameterPrefix = "content_metadata_";

void addMetadataParameter(NotifyAnalyticsEvent::Params& params, std::string_view key, std::string value) {
    std::string name(kMetadataParameterPrefix);
    name += key;
    params.insert_or_assign(std::move(name), std::move(value));
}

}  // namespace

LoadedCampaigns firedCampaigns(LoadedCampaigns loaded, const std::vector<platform::NotificationRequest>& pending) {
    for (const auto& request : pending)
        if (auto key = campaignRequestKey(request.content.userInfo)) loaded.removePending(key->campaignID, key->siteID);
    return loaded;
}

std::optional<UUID> beaconUUIDForRanging(const std::vector<NotifyCampaign>& campaigns) {
    for (const auto& campaign : campaigns)
        if (campaign.beaconUUID()) return campaign.beaconUUID();
    return std::nullopt;
}

std::optional<std::int64_t> siteIDForBeaconMinor(const std::vector<NotifySite>& sites, std::uint16_t minor) {
    for (const auto& site : sites)
        if (site.beaconMinor() == std::int64_t{minor}) return site.id();
    return std::nullopt;
}

std::vector<TriggeredEvent> notificationTriggeredEvents(const LoadedCampaigns& fired,
                                                        std::optional<std::int64_t> rangedSiteID,
                                                        const std::vector<NotifyCampaign>& campaigns,
                                                        CampaignTextRenderer& renderer) {
    std::unordered_map<std::int64_t, const NotifyCampaign*> index;
    for (const auto& campaign : campaigns) index.emplace(campaign.id(), &campaign);

    std::vector<TriggeredEvent> events;
    for (const auto& entry : fired.store) {
        // A named variable, not a structured binding: the lambda below captures it.
        const std::int64_t campaignID = entry.first;
        const auto& siteIDs = entry.second;
        // The campaign's metadata, rendered once for all its sites.
        NotifyAnalyticsEvent::Params common;
        auto found = index.find(campaignID);
        if (found != index.end())
            if (const auto& metadata = found->second->content().metadata())
                for (auto& [key, value] : renderer.renderMetadata(*metadata))
                    addMetadataParameter(common, key, std::move(value));

        auto add = [&](std::optional<std::int64_t> siteID) {
            TriggeredEvent event{campaignID, siteID, common};
            if (siteID) event.params.insert_or_assign(std::string(kSiteIDParameter), std::to_string(*siteID));
            events.push_back(std::move(event));
        };
        if (siteIDs.empty()) add(rangedSiteID);
        for (std::int64_t siteID : siteIDs) add(siteID);
    }
    return events;
}

std::optional<ClickedEvent> notificationClickedEvent(const platform::UserInfo& userInfo) {
    auto key = campaignRequestKey(userInfo);
    if (!key) return std::nullopt;
    ClickedEvent event{key->campaignID, {}};
    if (key->siteID) event.params.insert_or_assign(std::string(kSiteIDParameter), std::to_string(*key->siteID));
    if (const auto* metadata = platform::userInfoGet<platform::UserInfo>(userInfo, campaignUserInfo::kMetadataKey))
        for (const auto& [metadataKey, value] : *metadata)
            if (const auto* text = value.get<std::string>()) addMetadataParameter(event.params, metadataKey, *text);
    return event;
}

}  // namespace drovel::notify
