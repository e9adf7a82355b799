// Taps on campaign notifications: the click event (at once while the app is active, else at the
// next sync), the deep link, and the campaign's metadata for the caller.

#include "data/NotifyInteractor.h"
#include "drovel/notify/Manager.h"
#include "manager/CampaignRequestBuilder.h"
#include "manager/ManagerLog.h"

namespace drovel::notify {

namespace {

// A deep link is opened when it looks like an absolute URL: a scheme (a letter, then letters,
// digits, "+", "-" or "."), a colon, something after it, and no spaces or control characters.
bool isValidURL(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 1 == text.size()) return false;
    if (!std::isalpha(static_cast<unsigned char>(text[0]))) return false;
    for (std::size_t i = 1; i < colon; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') return false;
    }
    for (unsigned char c : text)
        if (c <= ' ' || c == 0x7f) return false;
    return true;
}

// The metadata when it is a dictionary of texts only.
std::optional<std::map<std::string, std::string>> metadataOf(const platform::UserInfo& userInfo) {
    const auto* metadata = platform::userInfoGet<platform::UserInfo>(userInfo, campaignUserInfo::kMetadataKey);
    if (!metadata) return std::nullopt;
    std::map<std::string, std::string> texts;
    for (const auto& [key, value] : *metadata) {
        const auto* text = value.get<std::string>();
        if (!text) return std::nullopt;
        texts.emplace(key, *text);
    }
    return texts;
}

}  // namespace

std::optional<std::map<std::string, std::string>> Manager::handle(const platform::NotificationResponse& response) {
    const auto& userInfo = response.request.content.userInfo;
    const auto* source = platform::userInfoGet<std::string>(userInfo, campaignUserInfo::kMessageSourceKey);
    if (!source || *source != campaignUserInfo::kMessageSource) return std::nullopt;
    const auto* campaignID = platform::userInfoGet<std::int64_t>(userInfo, campaignUserInfo::kCampaignIDKey);
    if (!campaignID) return std::nullopt;
    const auto campaigns = interactor_->snapshot().campaigns;
    if (std::none_of(campaigns->begin(), campaigns->end(), [&](const auto& campaign) { return campaign.id() == *campaignID; }))
        return std::nullopt;

    if (platform_.application->applicationState() == platform::ApplicationState::active) {
        // The click is recorded and uploaded at once, after a detection that records what fired
        // before it.
        platform_.globalQueue->async([weak = weak_from_this(), userInfo] {
            auto self = weak.lock();
            if (!self) return;
            self->detectTriggeredCampaigns();
            self->recordClickEvent(userInfo);
            self->syncAnalyticsEvents(nullptr);
        });
    } else {
        // Only the latest tap before the next sync is kept.
        std::lock_guard lock(mutex_);
        clickedUserInfo_ = userInfo;
    }
    openDeepLink(userInfo);
    return metadataOf(userInfo);
}

void Manager::openDeepLink(const platform::UserInfo& userInfo) {
    const auto* url = platform::userInfoGet<std::string>(userInfo, campaignUserInfo::kDeepLinkURLKey);
    if (!url || !isValidURL(*url)) return;
    auto application = platform_.application;
    if (auto delegate = application->delegate();
        delegate && delegate->implementsOpenURL() && delegate->application(*application, *url, {}))
        return;
    application->open(*url, {}, [url = *url](bool success) {
        if (!success)
            managerLog().error("Failed to open deepLinkURL: " + url, DROVEL_SOURCE(kManagerFile, "handle(response:)"));
    });
}

}  // namespace drovel::notify
