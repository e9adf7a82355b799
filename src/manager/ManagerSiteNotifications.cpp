// The host's site notifications: one plain notification per store site, replacing the previous
// call's.

#include <limits>

#include "drovel/notify/Manager.h"
#include "manager/CampaignRequestBuilder.h"
#include "manager/ManagerLog.h"

namespace drovel::notify {

void Manager::createForSites(const std::vector<core::Site>& sites, const NotificationInfo& notification,
                             Callback callback) {
    if (auto failed = siteNotificationsCheck(isManagerConfigured_, locationServicesEnabledFunc_(),
                                             locationAuthorizationStatusFunc_(), sites.size(), maxSites())) {
        logSdkErrorEvent(*failed, makeNotifyError(*failed));
        if (callback) callback(makeNotifyError(*failed));
        return;
    }
    std::vector<platform::NotificationRequest> requests;
    for (const auto& site : sites)
        if (auto request = siteNotificationRequest(site, notification)) requests.push_back(std::move(*request));

    clear([weak = weak_from_this(), requests = std::move(requests), callback](core::ErrorPtr error) mutable {
        if (error) {
            if (callback) callback(error);
            return;
        }
        auto self = weak.lock();
        if (self) {
            for (auto& request : requests) {
                auto description = request.description();
                self->userNotificationCenter_->add(
                    std::move(request), [weak, description, callback](core::ErrorPtr addError) {
                        auto self = weak.lock();
                        if (!addError || !self) return;
                        // A failed add leaves no site notification behind, so the host can try again.
                        self->clear([description, addError, callback](core::ErrorPtr removalError) {
                            constexpr std::string_view function = "createForSites(_:notification:callback:)";
                            if (removalError) {
                                managerLog().error("Failed to add notification request " + description +
                                                       ", with error: " + addError->localizedDescription(),
                                                   DROVEL_SOURCE(kManagerFile, function));
                                managerLog().error(removalError->localizedDescription(),
                                                   DROVEL_SOURCE(kManagerFile, function));
                                if (callback) callback(removalError);
                                return;
                            }
                            managerLog().error(addError->localizedDescription(), DROVEL_SOURCE(kManagerFile, function));
                            if (callback) callback(addError);
                        });
                    });
            }
        }
        if (callback) callback(nullptr);
    });
}

void Manager::createForSitesInRegion(const platform::CircularRegion& region, const NotificationInfo& notification,
                                     SitesCallback callback) {
    if (auto failed = siteNotificationsCheck(isManagerConfigured_, locationServicesEnabledFunc_(),
                                             locationAuthorizationStatusFunc_(), std::nullopt, maxSites())) {
        logSdkErrorEvent(*failed, makeNotifyError(*failed));
        if (callback) callback(std::nullopt, makeNotifyError(*failed));
        return;
    }
    const auto perPage = static_cast<int>(std::clamp<std::int64_t>(maxSites(), 0, std::numeric_limits<int>::max()));
    core_->sites().fetchWithRegion(
        region, 1, perPage,
        [weak = weak_from_this(), notification, callback](std::optional<std::vector<core::Site>> sites,
                                                          core::ErrorPtr error) {
            constexpr std::string_view function = "createForSitesInRegion(_:notification:callback:)";
            if (error) {
                managerLog().error(error->localizedDescription(), DROVEL_SOURCE(kManagerFile, function));
                if (callback) callback(std::nullopt, error);
                return;
            }
            if (!sites) {
                managerLog().error("Invalid sites, sites variable is nil", DROVEL_SOURCE(kManagerFile, function));
                if (callback) callback(std::nullopt, nullptr);
                return;
            }
            if (auto self = weak.lock()) {
                // Only the failures of the adds are passed on; the sites are reported below.
                self->createForSites(*sites, notification, [callback](core::ErrorPtr error) {
                    if (!error) return;
                    managerLog().error(error->localizedDescription(),
                                       DROVEL_SOURCE(kManagerFile, "createForSitesInRegion(_:notification:callback:)"));
                    if (callback) callback(std::nullopt, error);
                });
            }
            if (callback) callback(std::move(sites), nullptr);
        });
}

}  // namespace drovel::notify
