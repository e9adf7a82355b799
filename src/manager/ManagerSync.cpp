// Sync orchestration: one sync at a time on the serial queue, the checks of doSync in order, the
// daily and backend throttles, the position, the fetch, the analytics upload and the record of a
// finished sync.

#include <ctime>
#include <future>

#include "Helpers/LocationManager.h"
#include "Helpers/UserDefaultsKey.h"
#include "data/NotifyInteractor.h"
#include "data/SyncHistory.h"
#include "drovel/notify/Manager.h"
#include "drovel/notify/NotificationNames.h"
#include "manager/ManagerLog.h"

namespace drovel::notify {

namespace {

std::string errorText(const core::ErrorPtr& error) { return error ? error->description() : "nil"; }

std::string_view applicationStateText(platform::ApplicationState state) {
    switch (state) {
        case platform::ApplicationState::active: return "SyncDebug: applicationState = .active";
        case platform::ApplicationState::inactive: return "SyncDebug: applicationState = .inactive";
        case platform::ApplicationState::background: return "SyncDebug: applicationState = .background";
    }
    return "SyncDebug: applicationState = .unknown";
}

// The start of the local calendar day (TZ) that holds date.
std::time_t startOfDay(platform::Date date) {
    std::time_t time = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    if (!localtime_r(&time, &local)) return time;
    local.tm_hour = 0;
    local.tm_min = 0;
    local.tm_sec = 0;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

bool isLocationAuthorized(platform::AuthorizationStatus status) {
    return status == platform::AuthorizationStatus::authorizedAlways ||
           status == platform::AuthorizationStatus::authorizedWhenInUse;
}

}  // namespace

// ---- sync(force:callback:) ----

void Manager::sync(bool force, Callback callback) {
    constexpr std::string_view function = "sync(force:callback:)";
    managerLog().verbose("SyncDebug: sync(force = " + std::string(boolText(force)), DROVEL_SOURCE(kManagerFile, function));
    managerLog().verbose("SyncDebug: Testing the serial queue", DROVEL_SOURCE(kManagerFile, function));
    serialQueue_->async([] {
        managerLog().verbose("SyncDebug: The serial queue is working.", DROVEL_SOURCE(kManagerFile, "sync(force:callback:)"));
    });
    platform_.mainQueue->async([application = platform_.application] {
        managerLog().verbose(applicationStateText(application->applicationState()),
                             DROVEL_SOURCE(kManagerFile, "sync(force:callback:)"));
    });
    if (!isNotifyEnabled_) {
        managerLog().verbose("SyncDebug: Notify not enabled", DROVEL_SOURCE(kManagerFile, function));
        if (callback) {
            platform_.mainQueue->async([callback = std::move(callback)] {
                callback(makeNotifyError(NotifyErrorType::notifyModuleNotEnabled));
            });
        }
        return;
    }
    managerLog().verbose("SyncDebug: Entering dispatch group", DROVEL_SOURCE(kManagerFile, function));
    serialQueue_->async([weak = weak_from_this(), force, callback = std::move(callback)] {
        if (auto self = weak.lock()) self->runSyncJob(force, callback);
    });
}

void Manager::runSyncJob(bool force, Callback callback) {
    // The job keeps the manager alive until its group is left: every step below reports into it.
    auto group = std::make_shared<platform::DispatchGroup>();
    group->enter();
    detectTriggeredCampaigns();
    std::optional<platform::UserInfo> clicked;
    {
        std::lock_guard lock(mutex_);
        clicked = std::exchange(clickedUserInfo_, std::nullopt);
    }
    if (clicked) recordClickEvent(*clicked);

    auto report = [mainQueue = platform_.mainQueue, callback, group](bool success, core::ErrorPtr error) {
        constexpr std::string_view function = "sync(force:callback:)";
        managerLog().verbose("SyncDebug: doSync() callback result: " + std::string(boolText(success)) +
                                 " error: " + errorText(error),
                             DROVEL_SOURCE(kManagerFile, function));
        if (!callback) {
            managerLog().verbose("SyncDebug: Leaving dispatch group", DROVEL_SOURCE(kManagerFile, function));
            group->leave();
            return;
        }
        mainQueue->async([callback, error, group] {
            callback(error);
            managerLog().verbose("SyncDebug: Leaving dispatch group", DROVEL_SOURCE(kManagerFile, "sync(force:callback:)"));
            group->leave();
        });
    };
    syncAnalyticsEvents([weak = weak_from_this(), force, report](core::ErrorPtr) {
        if (auto self = weak.lock()) self->doSync(force, report);
        else report(false, nullptr);
    });
    group->wait();
}

// ---- analytics ----

void Manager::syncAnalyticsEvents(Callback callback) {
    constexpr std::string_view function = "syncAnalyticsEvents(callback:)";
    managerLog().verbose("SyncDebug: Syncing analytics events", DROVEL_SOURCE(kManagerFile, function));
    if (!interactor_->shouldUploadAnalyticsEvents()) {
        managerLog().verbose("SyncDebug: shouldUploadAnalyticsEvents() = false", DROVEL_SOURCE(kManagerFile, function));
        if (callback) callback(nullptr);
        return;
    }
    auto application = platform_.application;
    auto task = std::make_shared<std::atomic<platform::BackgroundTaskIdentifier>>(platform::kInvalidBackgroundTask);
    task->store(application->beginBackgroundTask("DrovelNotify.syncAnalyticsEvents",
                                                 [application, task] { application->endBackgroundTask(task->load()); }));
    managerLog().verbose("SyncDebug: uploadAnalyticsEventsInDB", DROVEL_SOURCE(kManagerFile, function));
    interactor_->uploadAnalyticsEventsInDB(
        [weak = weak_from_this(), application, task, callback = std::move(callback)](core::ErrorPtr error) {
            if (error && weak.lock()) {
                managerLog().error("Error syncing analytics: " + error->description(),
                                   DROVEL_SOURCE(kManagerFile, "syncAnalyticsEvents(callback:)"));
            }
            application->endBackgroundTask(task->load());
            if (callback) callback(error);
        });
}

void Manager::logSdkErrorEvent(NotifyErrorType type, const core::ErrorPtr& error) {
    managerLog().verbose("SyncDebug: Logging SDK error events", DROVEL_SOURCE(kManagerFile, "logSdkErrorEvent(type:error:)"));
    // An SDK-error event has no campaign, and the analytics table requires a campaign id, so saving
    // it fails and the interactor logs "Failed to save NotifyAnalyticsEvent with error: ". That is
    // how the product records these events for now; the table and the decoding stay as they are.
    interactor_->logAnalyticsEvent(NotifyAnalyticsEventType::sdkError, std::nullopt,
                                   {{"reason", std::string(string(type))},
                                    {"message", error ? error->localizedDescription() : std::string()}});
}

// ---- doSync ----

bool Manager::notificationsPermitted() const {
    // Blocks the calling thread (the serial queue's sync, never the main queue) until the centre
    // answers; the centre answers on a thread of its own.
    auto answer = std::make_shared<std::promise<bool>>();
    auto permitted = answer->get_future();
    userNotificationCenter_->getNotificationSettings(
        [answer](platform::NotificationSettings settings) { answer->set_value(settings.permitsNotifications()); });
    return permitted.get();
}

void Manager::doSync(bool force, DoSyncCallback callback) {
    constexpr std::string_view function = "doSync(_:callback:)";
    if (!notificationsPermitted()) {
        auto error = makeNotifyError(NotifyErrorType::notificationPermissionDenied);
        logSdkErrorEvent(NotifyErrorType::notificationPermissionDenied, error);
        callback(false, error);
        return;
    }
    managerLog().verbose("SyncDebug: doSync()", DROVEL_SOURCE(kManagerFile, function));

    if (!locationServicesEnabledFunc_() || !isLocationAuthorized(locationAuthorizationStatusFunc_())) {
        managerLog().info("Skipping DrovelNotify sync - no location authorization", DROVEL_SOURCE(kManagerFile, function));
        auto error = makeNotifyError(NotifyErrorType::noLocationPermission);
        logSdkErrorEvent(NotifyErrorType::noLocationPermission, error);
        callback(false, error);
        return;
    }

    if (!force && !dueForSync()) {
        managerLog().verbose("SyncDebug: Not forced or dueForSync()", DROVEL_SOURCE(kManagerFile, function));
        if (bgOrPushSyncInProgress_) SyncHistory::addEvent(platform_, "skipped sync");
        callback(false, nullptr);
        return;
    }
    // A forced sync starts the repeat bookkeeping of triggered campaigns afresh.
    if (force) interactor_->deleteAllTriggerEvents();
    if (bgOrPushSyncInProgress_) SyncHistory::addEvent(platform_, "do campaign sync");

    managerLog().verbose("SyncDebug: requestLocationIfNeeded()", DROVEL_SOURCE(kManagerFile, function));
    if (auto location = locationManager_->lastLocation()) {
        managerLog().verbose("SyncDebug: using existing location", DROVEL_SOURCE(kManagerFile, function));
        doSyncAtPosition(force, location, std::move(callback));
        return;
    }
    requestLocation([weak = weak_from_this(), force, callback](std::optional<platform::Location> location) {
        if (auto self = weak.lock()) self->doSyncAtPosition(force, location, callback);
        else callback(false, nullptr);
    });
}

void Manager::doSyncAtPosition(bool force, std::optional<platform::Location> location, DoSyncCallback callback) {
    constexpr std::string_view function = "doSync(_:callback:)";
    if (!location) {
        auto lastError = locationManager_->lastError();
        managerLog().verbose("SyncDebug: locationManager.requestLocationIfNeeded() failed! - location == nil error: " +
                                 errorText(lastError),
                             DROVEL_SOURCE(kManagerFile, function));
        callback(false, lastError);
        return;
    }
    const auto notifyConfig = config();
    const double radius =
        notifyConfig ? notifyConfig->defaultSiteSearchRadiusMeters : core::WrongSiteArrivalConfig::defaultSiteSearchRadius;
    fetchNotifications(
        force, location->coordinate.latitude, location->coordinate.longitude, radius,
        [weak = weak_from_this(), callback](const std::vector<NotifyNotifications>*, core::ErrorPtr error) {
            constexpr std::string_view function = "doSync(_:callback:)";
            if (error) {
                managerLog().verbose("SyncDebug: fetchNotificatios() error " + error->description(),
                                     DROVEL_SOURCE(kManagerFile, function));
                managerLog().error(error->localizedDescription(), DROVEL_SOURCE(kManagerFile, function));
                callback(false, error);
                return;
            }
            auto self = weak.lock();
            if (!self) {
                callback(false, nullptr);
                return;
            }
            if (self->interactor_->snapshot().campaigns->empty()) {
                managerLog().verbose("SyncDebug: Campaigns count = 0", DROVEL_SOURCE(kManagerFile, function));
                self->updateLastSync();
                self->removePendingV2Notifications([callback] { callback(true, nullptr); });
                return;
            }
            self->updateLastSync();
            // The set-up's error reaches the caller, but the sync itself succeeded.
            self->setUpCampaigns([callback](core::ErrorPtr error) { callback(true, error); });
        });
}

bool Manager::dueForSync() const {
    auto last = lastSync();
    if (!last) return true;
    return startOfDay(*last) < startOfDay(platform_.clock->now());
}

// ---- fetch ----

void Manager::fetchNotifications(bool force, double latitude, double longitude, double searchRadius,
                                 FetchCallback callback) {
    constexpr std::string_view function = "fetchNotifications(force:forLatitude:forLongitude:searchRadius:callback:)";
    managerLog().verbose("SyncDebug: fetchNotifications()", DROVEL_SOURCE(kManagerFile, function));
    if (!core_->isCoreConfigured()) {
        managerLog().verbose("SyncDebug: Core is not configured", DROVEL_SOURCE(kManagerFile, function));
        auto error = makeNotifyError(NotifyErrorType::coreIsNotConfigured);
        logSdkErrorEvent(NotifyErrorType::coreIsNotConfigured, error);
        if (callback) callback(nullptr, error);
        return;
    }
    const auto lastFetch = interactor_->lastFetch();
    if (!force && lastFetch) {
        // In seconds as doubles: the backend's interval may be any number, however large.
        const double sinceLastFetch = std::chrono::duration<double>(platform_.clock->now() - *lastFetch).count();
        if (interactor_->kMinSyncInterval() >= sinceLastFetch) {
            managerLog().verbose("SyncDebug: fetchNotifications() success.", DROVEL_SOURCE(kManagerFile, function));
            if (callback) callback(interactor_->snapshot().notifications.get(), nullptr);
            return;
        }
    }
    interactor_->service().fetchNotifications(
        latitude, longitude, searchRadius,
        [weak = weak_from_this(), callback](core::Result<NotifyNotificationsResponse> result) {
            constexpr std::string_view function =
                "fetchNotifications(force:forLatitude:forLongitude:searchRadius:callback:)";
            if (!result.ok()) {
                managerLog().verbose("SyncDebug: fetchNotifications() failed with error " +
                                         result.error()->localizedDescription(),
                                     DROVEL_SOURCE(kManagerFile, function));
                if (callback) callback(nullptr, result.error());
                return;
            }
            auto self = weak.lock();
            if (!self) {
                if (callback) callback(nullptr, nullptr);
                return;
            }
            self->interactor_->storeNotificationsResponse(std::move(result).value());
            self->interactor_->updateLastFetch(self->platform_.clock->now());
            managerLog().verbose("SyncDebug: fetchNotifications() success.", DROVEL_SOURCE(kManagerFile, function));
            if (callback) callback(self->interactor_->snapshot().notifications.get(), nullptr);
        });
}

void Manager::updateLastSync() {
    const auto now = platform_.clock->now();
    setLastSync(now);
    set(*platform_.userDefaults, UserDefaultsKey::lastSync, now);
    platform_.notificationCenter->post(NotificationName::notifyCampaignsUpdated);
}

// ---- performSyncIfNeeded, on the main queue ----

void Manager::performSyncIfNeeded() {
    constexpr std::string_view function = "performSyncIfNeeded()";
    if (!isNotifyEnabled_) {
        managerLog().verbose("SyncDebug: DrovelNotify Manager ignoring performSyncIfNeeded. isNotifyEnabled = False",
                             DROVEL_SOURCE(kManagerFile, function));
        return;
    }
    auto location = locationManager_->lastLocation();
    if (location && location->timestamp > platform_.clock->now() - std::chrono::seconds(3600)) {
        managerLog().verbose("SyncDebug: Sync initiated from performSyncIfNeeded. Fresh cache location. ",
                             DROVEL_SOURCE(kManagerFile, function));
        sync(false, [](core::ErrorPtr error) {
            const std::string text = "SyncDebug: Finished Sync initiated from performSyncIfNeeded. Fresh cache location.";
            managerLog().verbose(error ? text + " error " + error->localizedDescription() : text,
                                 DROVEL_SOURCE(kManagerFile, "performSyncIfNeeded()"));
        });
        managerLog().verbose("SyncDebug: DrovelNotify Manager completed performSyncIfNeeded. Fresh cache location.",
                             DROVEL_SOURCE(kManagerFile, function));
        return;
    }
    requestLocation([weak = weak_from_this()](std::optional<platform::Location> location) {
        constexpr std::string_view function = "performSyncIfNeeded()";
        auto self = weak.lock();
        if (!self) return;
        if (!location) {
            managerLog().verbose("SyncDebug: DrovelNotify Manager performSyncIfNeeded.requestLocation().result != .success",
                                 DROVEL_SOURCE(kManagerFile, function));
            return;
        }
        managerLog().verbose("SyncDebug: Sync initiated from performSyncIfNeeded.requestLocation()",
                             DROVEL_SOURCE(kManagerFile, function));
        self->sync(false, [](core::ErrorPtr error) {
            const std::string text = "SyncDebug: Finished Sync initiated from performSyncIfNeeded.requestLocation()";
            managerLog().verbose(error ? text + " error " + error->localizedDescription() : text,
                                 DROVEL_SOURCE(kManagerFile, "performSyncIfNeeded()"));
        });
    });
}

}  // namespace drovel::notify
