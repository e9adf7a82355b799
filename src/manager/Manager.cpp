// The manager's object, its switches and its lifecycle: construction, configure, app
// configuration reports, setup and unconfigure on the main queue, clearing site notifications.

#include "drovel/notify/Manager.h"

#include <charconv>

#include "Helpers/LocationManager.h"
#include "Helpers/UserDefaultsKey.h"
#include "data/ModuleLogger.h"
#include "data/NotifyDBManager.h"
#include "data/NotifyInteractor.h"
#include "data/NotifyService.h"
#include "data/SyncHistory.h"
#include "drovel/core/DatabaseError.h"
#include "manager/ManagerLog.h"

namespace drovel::notify {

namespace {

// Opens the process's database; when that fails (a junk file, a folder that cannot be written) the
// module keeps working on a database in memory, which lasts until the process ends.
std::shared_ptr<NotifyDBManager> openDatabase(const std::string& applicationSupportDirectory) {
    try {
        return NotifyDBManager::shared(applicationSupportDirectory);
    } catch (const core::DatabaseError& error) {
        managerLog().error("Failed to open the Notify database with error: " + error.description(),
                           DROVEL_SOURCE(kManagerFile, "init()"));
    }
    try {
        return std::make_shared<NotifyDBManager>(":memory:", true);
    } catch (const core::DatabaseError& error) {
        core::programmingError("Cannot open a Notify database in memory: " + error.description());
    }
}

}  // namespace

core::Logger& managerLog() { return moduleLogger(); }

std::string formatNumber(double value) {
    char text[64];
    auto end = std::to_chars(text, text + sizeof text, value).ptr;
    std::string result(text, end);
    // Whole numbers keep one decimal, as the platform prints doubles ("10800.0").
    if (result.find_first_of(".eEn") == std::string::npos) result += ".0";
    return result;
}

std::shared_ptr<Manager> Manager::make(platform::Platform platform, std::shared_ptr<core::Core> core,
                                       std::shared_ptr<NotifyDBManager> database) {
    return std::shared_ptr<Manager>(new Manager(std::move(platform), std::move(core), std::move(database)));
}

Manager::Manager(platform::Platform platform, std::shared_ptr<core::Core> core, std::shared_ptr<NotifyDBManager> database)
    : platform_(std::move(platform)),
      core_(std::move(core)),
      serialQueue_(std::make_shared<platform::DispatchQueue>("DrovelNotify.serial")) {
    if (!core_) core::programmingError("Manager needs the core library's state");
    if (!database) database = openDatabase(platform_.applicationSupportDirectory);
    interactor_ = std::make_shared<NotifyInteractor>(std::make_shared<NotifyService>(*core_), platform_, core_,
                                                     std::move(database));
    locationManager_ = std::make_shared<LocationManager>(platform_);
    locationServicesEnabledFunc_ = [provider = platform_.locationProvider] { return provider->locationServicesEnabled(); };
    locationAuthorizationStatusFunc_ = [provider = platform_.locationProvider] { return provider->authorizationStatus(); };
    userNotificationCenter_ = platform_.userNotificationCenter;
}

Manager::~Manager() { managerLog().verbose("DrovelNotify Manager deinit", DROVEL_SOURCE(kManagerFile, "deinit")); }

core::Logger& Manager::logger() const { return managerLog(); }

std::optional<platform::Date> Manager::lastSync() const {
    std::lock_guard lock(mutex_);
    return lastSync_;
}

std::optional<core::NotifyConfig> Manager::config() const {
    std::lock_guard lock(mutex_);
    return config_;
}

void Manager::setLastSync(std::optional<platform::Date> date) {
    {
        std::lock_guard lock(mutex_);
        lastSync_ = date;
    }
    if (date) SyncHistory::updateLastSync(*platform_.userDefaults, *date);
}

// ---- configure ----

void Manager::configure(std::optional<std::string> bgTaskIdentifier, Callback bgSyncCallback) {
    managerLog().verbose("DrovelNotify Manager configure()",
                         DROVEL_SOURCE(kManagerFile, "configure(bgTaskIdentifier:bgSyncCallback:)"));
    {
        std::lock_guard lock(mutex_);
        bgTaskIdentifier_ = std::move(bgTaskIdentifier);
    }
    if (platform_.systemMajorVersion >= 13) setupBGAppRefresh();
    {
        std::lock_guard lock(mutex_);
        bgSyncCallback_ = std::move(bgSyncCallback);
    }
    platform_.notificationCenter->post("DrovelModuleConfigure", std::any(shared_from_this()));
    // The core library reports app configurations, orders and log levels to registered modules,
    // and passes notification responses to registered handlers; both hold the manager weakly.
    core_->registerModule(weak_from_this());
    core_->notifications().addNotificationHandler(weak_from_this());
    isManagerConfigured_ = true;
}

// ---- app configuration ----

void Manager::configUpdated(const core::AppConfig& appConfig, const std::optional<core::PushData>& pushData) {
    constexpr std::string_view function = "configUpdated(_:pushData:)";
    managerLog().verbose("SyncDebug: AppConfig Updated", DROVEL_SOURCE(kManagerFile, function));
    if (appConfig.data && appConfig.data->notifyMaxSites) maxSites_ = *appConfig.data->notifyMaxSites;
    if (!appConfig.data || !appConfig.data->notify) {
        managerLog().verbose("SyncDebug: Notify not enabled", DROVEL_SOURCE(kManagerFile, function));
        setIsNotifyEnabled(false);
        return;
    }
    const core::NotifyConfig& notifyConfig = *appConfig.data->notify;
    {
        std::lock_guard lock(mutex_);
        config_ = notifyConfig;
    }
    setIsNotifyEnabled(true);
    if (auto limit = notifyConfig.analyticsEventLimit) {
        // A decoded configuration never carries a limit below 1; one built in code might, and an
        // upload cannot be cut into batches of nothing, so such a value is refused.
        if (*limit >= 1) {
            interactor_->kAnalyticsEventLimit = *limit;
        } else {
            managerLog().error("Ignoring analytics event limit " + std::to_string(*limit),
                               DROVEL_SOURCE(kManagerFile, function));
        }
    }

    if (pushData && pushData->messageType &&
        *pushData->messageType == core::rawValue(core::RemoteNotificationMessageType::backgroundSync)) {
        managerLog().verbose("Starting sync initiated from push notification", DROVEL_SOURCE(kManagerFile, function));
        SyncHistory::addPushSyncAttemptEvent(platform_);
        bgOrPushSyncInProgress_ = true;
        sync(pushData->forceSyncNotifyCampaigns, [weak = weak_from_this(), platform = platform_](core::ErrorPtr error) {
            SyncHistory::addPushSyncCompleteEvent(platform, error);
            if (auto self = weak.lock()) self->bgOrPushSyncInProgress_ = false;
            if (error) {
                managerLog().error("Failed sync initiated from push notification with error: " +
                                       error->localizedDescription(),
                                   DROVEL_SOURCE(kManagerFile, "configUpdated(_:pushData:)"));
            } else {
                managerLog().verbose("Finished sync initiated from push notification",
                                     DROVEL_SOURCE(kManagerFile, "configUpdated(_:pushData:)"));
            }
        });
    }

    managerLog().verbose("SyncDebug: Starting Notify.Setup()", DROVEL_SOURCE(kManagerFile, function));
    platform_.mainQueue->async([weak = weak_from_this()] {
        if (auto self = weak.lock()) self->setup();
    });
}

void Manager::setIsNotifyEnabled(bool enabled) {
    isNotifyEnabled_ = enabled;
    if (enabled) return;
    // Switching off happens on every configuration without a Notify section, also when the module
    // was off already: whatever an earlier run left pending is removed.
    removePendingV2Notifications(nullptr);
    platform_.mainQueue->async([weak = weak_from_this()] {
        if (auto self = weak.lock()) self->unconfigure();
    });
}

std::vector<std::string> Manager::pendingIdentifiers(const std::vector<platform::NotificationRequest>& requests,
                                                     const std::function<bool(const platform::UserInfo&)>& keep) const {
    std::vector<std::string> identifiers;
    identifiers.reserve(requests.size());
    for (const auto& request : requests)
        if (keep(request.content.userInfo)) identifiers.push_back(request.identifier);
    return identifiers;
}

void Manager::removePendingV2Notifications(std::function<void()> done) {
    // The platform's removal reports no error, so there is nothing to log here.
    userNotificationCenter_->getPendingNotificationRequests(
        [weak = weak_from_this(), done = std::move(done)](const std::vector<platform::NotificationRequest>& requests) {
            if (auto self = weak.lock()) {
                auto identifiers = self->pendingIdentifiers(requests, [](const platform::UserInfo& userInfo) {
                    auto source = platform::userInfoGet<std::string>(userInfo, kMessageSourceKey);
                    return source && *source == kCampaignMessageSource;
                });
                self->userNotificationCenter_->removePendingNotificationRequests(std::move(identifiers));
            }
            if (done) done();
        });
}

// ---- setup and unconfigure, on the main queue ----

void Manager::setup() {
    constexpr std::string_view function = "setup()";
    if (isNotifyConfigured_) {
        managerLog().verbose("SyncDebug: Skipping setup, Notify module is already configured",
                             DROVEL_SOURCE(kManagerFile, function));
        return;
    }
    setLastSync(date(*platform_.userDefaults, UserDefaultsKey::lastSync));

    managerLog().verbose("SyncDebug: Legacy app setting minimumBackgroundFetchInterval to " +
                             formatNumber(defaultBGFetchInterval_),
                         DROVEL_SOURCE(kManagerFile, function));
    platform_.application->setMinimumBackgroundFetchInterval(kBackgroundSyncInterval);

    managerLog().verbose("SyncDebug: addObserver for UIApplication.didBecomeActiveNotification",
                         DROVEL_SOURCE(kManagerFile, function));
    auto token = platform_.notificationCenter->addObserver(
        platform::ApplicationNotification::didBecomeActive, [weak = weak_from_this()](const platform::Notification&) {
            if (auto self = weak.lock()) self->performSyncIfNeeded();
        });
    std::optional<platform::ObserverToken> previous;
    {
        std::lock_guard lock(mutex_);
        previous = std::exchange(didBecomeActiveObserver_, token);
    }
    if (previous) platform_.notificationCenter->removeObserver(*previous);

    performSyncIfNeeded();

    managerLog().verbose("SyncDebug: Notify module is now configured", DROVEL_SOURCE(kManagerFile, function));
    isNotifyConfigured_ = true;
}

void Manager::unconfigure() {
    managerLog().verbose("SyncDebug: removeObserver for UIApplication.didBecomeActiveNotification",
                         DROVEL_SOURCE(kManagerFile, "unconfigure()"));
    std::optional<platform::ObserverToken> active, background;
    {
        std::lock_guard lock(mutex_);
        active = std::exchange(didBecomeActiveObserver_, std::nullopt);
        background = std::exchange(didEnterBackgroundObserver_, std::nullopt);
    }
    if (active) platform_.notificationCenter->removeObserver(*active);
    if (background) platform_.notificationCenter->removeObserver(*background);
    platform_.application->setMinimumBackgroundFetchInterval(platform::kBackgroundFetchIntervalNever);
    isNotifyConfigured_ = false;
}

// ---- smaller operations ----

void Manager::ordersUpdated(const std::vector<core::Order>& orders) {
    managerLog().info("Orders Updated " + std::to_string(orders.size()), DROVEL_SOURCE(kManagerFile, "ordersUpdated(_:)"));
    setUpCampaigns(nullptr);
}

void Manager::setLogLevel(core::LogLevel logLevel) { managerLog().setLogLevel(logLevel); }

void Manager::setLogWriteEnabled(bool logWriteEnabled) { managerLog().setWriteEnabled(logWriteEnabled); }

void Manager::clear(Callback callback) {
    userNotificationCenter_->getPendingNotificationRequests(
        [weak = weak_from_this(), callback = std::move(callback)](const std::vector<platform::NotificationRequest>& requests) {
            if (auto self = weak.lock()) {
                self->userNotificationCenter_->removePendingNotificationRequests(
                    self->pendingIdentifiers(requests, &Manager::isDrovelNotifyUserInfo));
            }
            if (callback) callback(nullptr);
        });
}

bool Manager::isDrovelNotifyUserInfo(const platform::UserInfo& userInfo) {
    auto source = platform::userInfoGet<std::string>(userInfo, kMessageSourceKey);
    return source && *source == kSiteMessageSource;
}

void Manager::updateCustomTemplateContent(CustomTemplateContent content) {
    sync(false, [weak = weak_from_this(), defaults = platform_.userDefaults,
                 content = std::move(content)](core::ErrorPtr error) {
        if (error) {
            managerLog().error("Failed to sync while updating custom template content: error " +
                                   error->localizedDescription(),
                               DROVEL_SOURCE(kManagerFile, "updateCustomTemplateContent(_:)"));
        }
        setCustomTemplateContent(*defaults, content);
        auto self = weak.lock();
        if (!self) return;
        bool loaded;
        {
            std::lock_guard lock(self->mutex_);
            loaded = !self->loadedCampaigns_.empty();
        }
        if (loaded) self->setUpCampaigns(nullptr);
    });
}

// ---- positions ----

void Manager::requestLocation(LocationCallback callback) {
    {
        std::lock_guard lock(mutex_);
        locationWaiters_.push_back(std::move(callback));
    }
    locationManager_->requestLocation([weak = weak_from_this()](LocationManager::LocationResult result) {
        auto self = weak.lock();
        if (!self) return;
        std::vector<LocationCallback> waiters;
        {
            std::lock_guard lock(self->mutex_);
            waiters.swap(self->locationWaiters_);
        }
        std::optional<platform::Location> location;
        if (result.ok()) location = result.value();
        for (auto& waiter : waiters) waiter(location);
    });
}

}  // namespace drovel::notify
