// Campaign notifications: setting them up after a sync, and detecting at the next sync which of
// them fired.

#include <mutex>
#include <unordered_map>

#include "Helpers/LocationManager.h"
#include "Helpers/UserDefaultsKey.h"
#include "data/NotifyInteractor.h"
#include "drovel/notify/Manager.h"
#include "manager/CampaignRequestBuilder.h"
#include "manager/ManagerLog.h"
#include "manager/TriggeredCampaigns.h"

namespace drovel::notify {

namespace {

// What was loaded and has not fired: the fired sites taken out of their campaigns' lists, and the
// fired beacon campaigns (empty lists) dropped, as are geofence campaigns left without a site.
LoadedCampaigns withoutFired(LoadedCampaigns loaded, const LoadedCampaigns& fired) {
    for (const auto& [campaignID, sites] : fired.store) {
        if (sites.empty()) {
            loaded.store.erase(campaignID);
            continue;
        }
        for (auto siteID : sites) loaded.remove(campaignID, siteID);
        if (auto it = loaded.store.find(campaignID); it != loaded.store.end() && it->second.empty())
            loaded.store.erase(it);
    }
    return loaded;
}

// The adds of one set-up: how many have not completed yet, plus one until every add was issued.
struct SetUpAdds {
    SetUpAdds(std::weak_ptr<Manager> manager, std::uint64_t generation, platform::Date now,
              CustomTemplateContent customTemplateContent)
        : manager(std::move(manager)),
          generation(generation),
          now(now),
          customTemplateContent(std::move(customTemplateContent)) {}

    // The description of this set-up's request with that identifier, for the log of a failed add.
    // The centre owns the requests, and keeping a copy of each for a rare failure would cost every
    // set-up; so the first failure builds the set-up's requests again (the trigger history only
    // leaves requests out, it changes none) and keeps their descriptions.
    std::string describe(const std::string& identifier, const NotifyInteractor& interactor) {
        std::call_once(described, [&] {
            const auto data = interactor.snapshot();
            buildCampaignNotificationRequests(
                *data.campaigns, *data.sites, *data.notifications,
                [](std::int64_t) { return std::vector<NotifyTriggerEvent>{}; }, now, customTemplateContent,
                [&](platform::NotificationRequest request) {
                    descriptions.emplace(request.identifier, request.description());
                });
        });
        auto found = descriptions.find(identifier);
        return found == descriptions.end() ? identifier : found->second;
    }

    const std::weak_ptr<Manager> manager;
    const std::uint64_t generation;
    const platform::Date now;
    const CustomTemplateContent customTemplateContent;
    std::atomic<std::size_t> outstanding{1};

private:
    std::once_flag described;
    std::unordered_map<std::string, std::string> descriptions;
};

}  // namespace

// ---- set-up ----

void Manager::getPendingV2Notifications(Callback completion) {
    constexpr std::string_view function = "getPendingV2Notifications(callback:)";
    managerLog().verbose("SyncDebug: Getting pending notifications", DROVEL_SOURCE(kManagerFile, function));
    removePendingV2Notifications([completion = std::move(completion)] {
        managerLog().verbose("SyncDebug: Completed getting pending notifications",
                             DROVEL_SOURCE(kManagerFile, "getPendingV2Notifications(callback:)"));
        // The platform's removal reports no error.
        if (completion) completion(nullptr);
    });
}

void Manager::setUpCampaigns(Callback callback) {
    constexpr std::string_view function = "setUpCampaigns(callback:)";
    if (!notificationsPermitted()) {
        logSdkErrorEvent(NotifyErrorType::notificationPermissionDenied,
                         makeNotifyError(NotifyErrorType::notificationPermissionDenied));
        if (callback) callback(makeNotifyError(NotifyErrorType::notificationPermissionDenied));
        return;
    }
    managerLog().verbose("SyncDebug: setUpCampaigns()", DROVEL_SOURCE(kManagerFile, function));
    getPendingV2Notifications([weak = weak_from_this(), callback = std::move(callback)](core::ErrorPtr error) {
        constexpr std::string_view function = "setUpCampaigns(callback:)";
        auto self = weak.lock();
        if (!self) return;
        if (error) {
            managerLog().error("Error clearing campaign notifications: " + error->localizedDescription(),
                               DROVEL_SOURCE(kManagerFile, function));
            if (callback) callback(error);
            return;
        }
        std::uint64_t generation;
        {
            std::lock_guard lock(self->mutex_);
            self->loadedCampaigns_ = {};
            generation = ++self->setUpGeneration_;
        }
        self->platform_.userDefaults->removeObject(rawValue(UserDefaultsKey::loadedCampaigns));
        if (self->interactor_->snapshot().campaigns->empty()) {
            if (callback) callback(nullptr);
            return;
        }
        self->platform_.mainQueue->async([weak, callback, generation] {
            auto self = weak.lock();
            if (!self) return;
            // The remembered store is written once, when the last add of this set-up has completed:
            // writing it after each of thousands of adds would cost time quadratic in their number.
            auto& interactor = *self->interactor_;
            auto adds = std::make_shared<SetUpAdds>(weak, generation, self->platform_.clock->now(),
                                                    storedCustomTemplateContent(*self->platform_.userDefaults));
            // The whole trigger history in one read: a query per campaign costs a statement each.
            std::unordered_map<std::int64_t, std::vector<NotifyTriggerEvent>> triggerEvents;
            for (auto& event : interactor.fetchAllTriggerEvents())
                triggerEvents[event.campaignID()].push_back(std::move(event));
            const auto data = interactor.snapshot();
            buildCampaignNotificationRequests(
                *data.campaigns, *data.sites, *data.notifications,
                [&](std::int64_t campaignID) {
                    auto found = triggerEvents.find(campaignID);
                    return found == triggerEvents.end() ? std::vector<NotifyTriggerEvent>{} : std::move(found->second);
                },
                adds->now, adds->customTemplateContent,
                [&](platform::NotificationRequest request) {
                    ++adds->outstanding;
                    // The completion keeps only what it records: the centre owns the request.
                    auto completion = [adds, identifier = request.identifier,
                                       key = campaignRequestKey(request.content.userInfo)](core::ErrorPtr error) {
                        auto self = adds->manager.lock();
                        if (self)
                            self->addNotification(error ? adds->describe(identifier, *self->interactor_) : identifier,
                                                  key, error, adds->generation);
                        if (--adds->outstanding == 0 && self) self->storeLoadedCampaigns(adds->generation);
                    };
                    self->userNotificationCenter_->add(std::move(request), std::move(completion));
                });
            if (--adds->outstanding == 0) self->storeLoadedCampaigns(generation);
            if (callback) callback(nullptr);
        });
    });
}

void Manager::addNotification(const std::string& description, const std::optional<CampaignRequestKey>& key,
                              const core::ErrorPtr& error, std::uint64_t generation) {
    if (error) {
        managerLog().error("Failed to add notification request " + description + ", with error: " +
                               error->localizedDescription(),
                           DROVEL_SOURCE(kManagerFile, "addNotification(request:)"));
        logSdkErrorEvent(NotifyErrorType::unableToSetUpNotification,
                         makeNotifyError(NotifyErrorType::unableToSetUpNotification));
        return;
    }
    if (!key) return;
    std::lock_guard lock(mutex_);
    if (setUpGeneration_ == generation) loadedCampaigns_.add(key->campaignID, key->siteID);
}

void Manager::storeLoadedCampaigns(std::uint64_t generation) {
    LoadedCampaigns loaded;
    {
        std::lock_guard lock(mutex_);
        if (setUpGeneration_ != generation) return;
        loaded = loadedCampaigns_;
    }
    setLoadedCampaigns(*platform_.userDefaults, loaded);
}

// ---- detection ----

void Manager::detectTriggeredCampaigns() {
    constexpr std::string_view function = "detectTriggeredCampaigns()";
    if (!notificationsPermitted()) return;
    // One detection at a time: the next one reads what this one leaves remembered. The wait below
    // never needs the queue a detection runs on (the centre and ranging answer elsewhere).
    std::lock_guard detecting(detectionMutex_);
    managerLog().verbose("SyncDebug: Detecting triggered campaigns", DROVEL_SOURCE(kManagerFile, function));
    auto loaded = loadedCampaigns(*platform_.userDefaults);
    if (!loaded) {
        managerLog().verbose("SyncDebug: Stopped Detecting triggered campaigns. No campaigns have been loaded",
                             DROVEL_SOURCE(kManagerFile, function));
        return;
    }
    auto group = std::make_shared<platform::DispatchGroup>();
    managerLog().verbose("SyncDebug: Entering DG for detectTriggeredCampaigns()", DROVEL_SOURCE(kManagerFile, function));
    group->enter();
    userNotificationCenter_->getPendingNotificationRequests([weak = weak_from_this(), group, loaded = std::move(*loaded)](
                                                                const std::vector<platform::NotificationRequest>& pending) {
        constexpr std::string_view function = "detectTriggeredCampaigns()";
        auto self = weak.lock();
        if (!self) {
            group->leave();
            return;
        }
        managerLog().verbose("SyncDebug: Removing pending campaigns", DROVEL_SOURCE(kManagerFile, function));
        auto fired = firedCampaigns(loaded, pending);
        auto stillPending = withoutFired(loaded, fired);
        managerLog().verbose("SyncDebug: Finished removing pending campaigns", DROVEL_SOURCE(kManagerFile, function));
        if (fired.empty()) {
            group->leave();
            return;
        }
        if (!fired.needToRangeForSite()) {
            managerLog().verbose("SyncDebug: campaigns.needToRangeForSite == false", DROVEL_SOURCE(kManagerFile, function));
            self->logTriggeredEvents(fired, std::nullopt, std::move(stillPending));
            managerLog().verbose("SyncDebug: Leaving DG for detectTriggeredCampaigns()",
                                 DROVEL_SOURCE(kManagerFile, function));
            group->leave();
            return;
        }
        managerLog().verbose("SyncDebug: campaigns.needToRangeForSite == true", DROVEL_SOURCE(kManagerFile, function));
        auto uuid = beaconUUIDForRanging(*self->interactor_->snapshot().campaigns);
        if (!uuid) {
            managerLog().verbose("SyncDebug: No beaconUUID found in campaigns", DROVEL_SOURCE(kManagerFile, function));
            self->logTriggeredEvents(fired, std::nullopt, std::move(stillPending));
            group->leave();
            return;
        }
        // This runs on the centre's thread, never the main queue, as ranging requires.
        self->locationManager_->rangeForSiteIfNeeded(
            uuid->uuidString(), [weak, group, fired, stillPending](LocationManager::BeaconResult result) mutable {
                constexpr std::string_view function = "detectTriggeredCampaigns()";
                auto self = weak.lock();
                if (!self) {
                    group->leave();
                    return;
                }
                managerLog().verbose("SyncDebug: Finished locationManager.rangeForSiteIfNeeded",
                                     DROVEL_SOURCE(kManagerFile, function));
                std::optional<std::int64_t> siteID;
                if (result.ok()) {
                    siteID = siteIDForBeaconMinor(*self->interactor_->snapshot().sites, result.value().minor);
                } else {
                    managerLog().error("SyncDebug: Ranging failed: " + result.error()->description(),
                                       DROVEL_SOURCE(kManagerFile, function));
                }
                self->logTriggeredEvents(fired, siteID, std::move(stillPending));
                group->leave();
            });
    });
    group->wait();
}

void Manager::logTriggeredEvents(const LoadedCampaigns& campaigns, std::optional<std::int64_t> rangedSiteID,
                                 LoadedCampaigns stillPending) {
    managerLog().verbose("SyncDebug: Logging triggered events",
                         DROVEL_SOURCE(kManagerFile, "logTriggeredEvents(_:rangeResult:)"));
    CampaignTextRenderer renderer(storedCustomTemplateContent(*platform_.userDefaults));
    const auto now = platform_.clock->now();
    for (auto& event : notificationTriggeredEvents(campaigns, rangedSiteID, *interactor_->snapshot().campaigns, renderer)) {
        // The product's rule: every fired pair also leaves a trigger event (the geofence site or the
        // site found by ranging, else none), which holds its campaign back for its repeat interval.
        interactor_->saveTriggerEvent(NotifyTriggerEvent(now, event.campaignID, event.siteID));
        interactor_->logAnalyticsEvent(NotifyAnalyticsEventType::notificationTriggered, event.campaignID,
                                       std::move(event.params));
    }
    // A fired request is no longer scheduled: it is forgotten, so that a detection before the next
    // set-up does not count it again.
    {
        std::lock_guard lock(mutex_);
        loadedCampaigns_ = stillPending;
    }
    setLoadedCampaigns(*platform_.userDefaults, stillPending);
}

// ---- clicks ----

void Manager::recordClickEvent(const platform::UserInfo& userInfo) {
    auto event = notificationClickedEvent(userInfo);
    if (!event) return;
    interactor_->logAnalyticsEvent(NotifyAnalyticsEventType::notificationClicked, event->campaignID,
                                   std::move(event->params));
}

}  // namespace drovel::notify
