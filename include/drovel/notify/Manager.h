#pragma once
// The Notify module's one public entry point.
//
// A host touches Manager::shared(), calls configure() at launch, and lets the core library report
// the app configuration (configUpdated), orders and notification responses. The module is enabled
// by an app configuration that has a Notify section; it then keeps the device's campaign
// notifications up to date with syncs: on request (sync), on every app activation, from the
// background refresh task, from background-sync pushes and from the legacy background fetch.
//
// Threads: any thread may call the public operations. Syncs run one at a time on the module's
// serial queue "DrovelNotify.serial"; every sync callback runs on the platform's main queue, so a
// caller must never block the main queue waiting for one. Nothing here throws: failures reach the
// callbacks as errors (NotifyError for the module's own kinds).

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "drovel/core/AppConfig.h"
#include "drovel/core/Core.h"
#include "drovel/core/Error.h"
#include "drovel/core/Logger.h"
#include "drovel/notify/LoadedCampaigns.h"
#include "drovel/notify/NotificationInfo.h"
#include "drovel/notify/NotifyError.h"
#include "drovel/notify/NotifyNotifications.h"
#include "drovel/platform/Platform.h"

namespace drovel::notify {

struct CampaignRequestKey;
class LocationManager;
class NotifyDBManager;
class NotifyInteractor;

class Manager final : public core::DrovelModuleManager,
                      public core::NotificationHandler,
                      public std::enable_shared_from_this<Manager> {
public:
    // Receives the outcome of a sync: no error when it succeeded or was not due.
    using Callback = std::function<void(core::ErrorPtr error)>;
    using FetchCompletion = std::function<void(platform::BackgroundFetchResult result)>;
    using CustomTemplateContent = std::map<std::string, std::string, std::less<>>;

    // The process's manager, made once (thread-safely) on the process's default platform and the
    // core library's shared state, and never released. A host that installed no default platform
    // gets the platform library's reference platform (on Linux: makeLinuxPlatform in the default
    // folder). Supplied by the platform library that the host links.
    static const std::shared_ptr<Manager>& shared();

    // A manager on the given seams and core state, for tests and hosts that inject their own. The
    // database defaults to the process's one in the platform's application-support directory.
    static std::shared_ptr<Manager> make(platform::Platform platform, std::shared_ptr<core::Core> core,
                                         std::shared_ptr<NotifyDBManager> database = nullptr);

    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;
    ~Manager() override;

    // The module's logger ("DrovelNotify").
    core::Logger& logger() const;
    // When the last campaign sync completed.
    std::optional<platform::Date> lastSync() const;

    // Registers the background refresh task (when an identifier is given and the system has
    // background tasks), keeps bgSyncCallback for syncs the module starts on its own, announces
    // "DrovelModuleConfigure" and registers with the core library. Does not enable the module.
    void configure(std::optional<std::string> bgTaskIdentifier, Callback bgSyncCallback);

    // Starts a sync and returns at once. Unforced syncs fetch at most once per calendar day (local
    // time) and no sooner than the backend's minimum interval; a forced one always fetches and
    // restarts the repeat bookkeeping of triggered campaigns.
    void sync(bool force, Callback callback = nullptr);

    // The legacy background fetch: syncs, then always answers newData.
    void performFetchWithCompletionHandler(FetchCompletion completion);

    // A tap on one of the module's campaign notifications: records the click, opens the deep link
    // and returns the campaign's metadata; none for other notifications.
    std::optional<std::map<std::string, std::string>> handle(const platform::NotificationResponse& response) override;
    std::optional<std::map<std::string, std::string>> handleNotification(const platform::NotificationResponse& response) {
        return handle(response);
    }

    // ---- site notifications ----
    using SitesCallback = std::function<void(std::optional<std::vector<core::Site>> sites, core::ErrorPtr error)>;
    // Replaces the earlier site notifications with one per site (those without a geofence
    // coordinate are skipped). Fails with notifyModuleNotConfigured, noLocationPermission or
    // reachedTheMaxNumberOfSites (more than maxSites sites), recorded as SDK-error events. Calls
    // back with no error once every add was issued, then again for each add that failed, with its
    // error, after removing every site notification. Callbacks run on the notification centre's
    // thread (the failed checks: on the caller's).
    void createForSites(const std::vector<core::Site>& sites, const NotificationInfo& notification, Callback callback);
    // The same for the sites the core library finds in the region (first page, maxSites per page):
    // calls back with the sites at once, and again with (none, error) for each failed add. A failed
    // query gives (none, its error); a query without a list gives (none, none).
    void createForSitesInRegion(const platform::CircularRegion& region, const NotificationInfo& notification,
                                SitesCallback callback);

    // Removes the pending site notifications (those marked "drovel.notify"), then calls back with no
    // error, on the notification centre's thread.
    void clear(Callback callback);
    // True exactly when "message_source" holds the text "drovel.notify".
    static bool isDrovelNotifyUserInfo(const platform::UserInfo& userInfo);

    // Syncs, then keeps content as the values the notification templates see under "app", and
    // re-renders the pending campaign notifications with them.
    void updateCustomTemplateContent(CustomTemplateContent content);

    // ---- reports of the core library ----
    // Enables the module (a Notify section) or switches it off (none); a background-sync push
    // starts a sync.
    void configUpdated(const core::AppConfig& config, const std::optional<core::PushData>& pushData) override;
    // Re-renders the pending campaign notifications.
    void ordersUpdated(const std::vector<core::Order>& orders) override;
    void setLogLevel(core::LogLevel logLevel) override;
    void setLogWriteEnabled(bool logWriteEnabled);

    // ---- the switches, for hosts and diagnostics ----
    // configure() was called.
    bool isManagerConfigured() const { return isManagerConfigured_; }
    // The latest app configuration has a Notify section.
    bool isNotifyEnabled() const { return isNotifyEnabled_; }
    // The lifecycle observers are installed (between setup and unconfigure).
    bool isNotifyConfigured() const { return isNotifyConfigured_; }
    // A background-task or push-initiated sync is running.
    bool bgOrPushSyncInProgress() const { return bgOrPushSyncInProgress_; }
    // The Notify section of the last app configuration that enabled the module.
    std::optional<core::NotifyConfig> config() const;
    // The most sites one site-notification call may cover: 5 until an app configuration carries
    // notifyMaxSites, then the last value carried. Shared by every manager of the process.
    static std::int64_t maxSites() { return maxSites_; }

private:
    using DoSyncCallback = std::function<void(bool success, core::ErrorPtr error)>;
    // The notifications are the interactor's, lent for the call (none on failure): a copy of a
    // download's thousands of records would cost more than the sync's own work on them.
    using FetchCallback =
        std::function<void(const std::vector<NotifyNotifications>* notifications, core::ErrorPtr error)>;
    using LocationCallback = std::function<void(std::optional<platform::Location> location)>;

    Manager(platform::Platform platform, std::shared_ptr<core::Core> core, std::shared_ptr<NotifyDBManager> database);

    // ---- lifecycle (Manager.cpp) ----
    void setIsNotifyEnabled(bool enabled);
    void setup();
    void unconfigure();
    void setLastSync(std::optional<platform::Date> date);
    // Removes the pending campaign notifications of the current generation; done runs afterwards
    // on the centre's thread, also when the manager is gone.
    void removePendingV2Notifications(std::function<void()> done);
    // The position request of the sync and of app activation: every caller waiting when the
    // location manager answers gets the answer (the location manager itself keeps only the latest).
    void requestLocation(LocationCallback callback);
    std::vector<std::string> pendingIdentifiers(const std::vector<platform::NotificationRequest>& requests,
                                                const std::function<bool(const platform::UserInfo&)>& keep) const;

    // ---- sync (ManagerSync.cpp) ----
    void runSyncJob(bool force, Callback callback);
    void doSync(bool force, DoSyncCallback callback);
    void doSyncAtPosition(bool force, std::optional<platform::Location> location, DoSyncCallback callback);
    bool notificationsPermitted() const;
    bool dueForSync() const;
    void fetchNotifications(bool force, double latitude, double longitude, double searchRadius, FetchCallback callback);
    void syncAnalyticsEvents(Callback callback);
    void logSdkErrorEvent(NotifyErrorType type, const core::ErrorPtr& error);
    void updateLastSync();
    void performSyncIfNeeded();

    // ---- background work (ManagerBackground.cpp) ----
    // The refresh task's identifier; none when the host gave none (or an empty one).
    std::optional<std::string> backgroundTaskIdentifier() const;
    void setupBGAppRefresh();
    void scheduleBackgroundSyncTask();
    void handleBackgroundSyncTask(std::shared_ptr<platform::BackgroundTask> task);

    // ---- campaign notifications, detection and clicks (ManagerCampaigns.cpp) ----
    void detectTriggeredCampaigns();
    // Records "notification_triggered" events and the trigger events of the fired pairs, then
    // keeps stillPending as the loaded campaigns; on the thread the detection ends on.
    void logTriggeredEvents(const LoadedCampaigns& campaigns, std::optional<std::int64_t> rangedSiteID,
                            LoadedCampaigns stillPending);
    void recordClickEvent(const platform::UserInfo& userInfo);
    void setUpCampaigns(Callback callback);
    // Removes the pending campaign notifications; completion runs on the centre's thread with the
    // removal's error (the platform reports none).
    void getPendingV2Notifications(Callback completion);
    // The completion of one add of set-up generation `generation`: logs a failure with the request's
    // description, or records key in loadedCampaigns when it was added.
    void addNotification(const std::string& description, const std::optional<CampaignRequestKey>& key,
                         const core::ErrorPtr& error, std::uint64_t generation);
    // Stores loadedCampaigns under its key, unless a newer set-up than `generation` began.
    void storeLoadedCampaigns(std::uint64_t generation);
    void openDeepLink(const platform::UserInfo& userInfo);

    platform::Platform platform_;
    std::shared_ptr<core::Core> core_;

    std::atomic<bool> isManagerConfigured_{false};
    std::atomic<bool> bgOrPushSyncInProgress_{false};
    std::atomic<bool> isNotifyEnabled_{false};
    std::atomic<bool> isNotifyConfigured_{false};
    std::shared_ptr<platform::DispatchQueue> serialQueue_;
    std::shared_ptr<NotifyInteractor> interactor_;
    std::shared_ptr<LocationManager> locationManager_;
    const double defaultBGFetchInterval_ = 10800;
    std::function<bool()> locationServicesEnabledFunc_;
    std::function<platform::AuthorizationStatus()> locationAuthorizationStatusFunc_;
    std::shared_ptr<platform::UserNotificationCenter> userNotificationCenter_;

    // Held for a whole detection. A tap while the app is active detects on a global queue while a sync
    // may be detecting on the serial queue; both would read the same remembered requests and report
    // each fired pair twice, and their ranging requests would replace each other's callback.
    std::mutex detectionMutex_;

    // Guards the fields below, which several queues read and write.
    mutable std::mutex mutex_;
    std::optional<core::NotifyConfig> config_;
    std::optional<std::string> bgTaskIdentifier_;
    Callback bgSyncCallback_;
    std::optional<platform::Date> lastSync_;
    LoadedCampaigns loadedCampaigns_;
    // Counts set-ups; an add completing after a newer set-up began is not remembered.
    std::uint64_t setUpGeneration_ = 0;
    std::optional<platform::ObserverToken> didBecomeActiveObserver_;
    std::optional<platform::ObserverToken> didEnterBackgroundObserver_;
    std::optional<platform::UserInfo> clickedUserInfo_;
    std::vector<LocationCallback> locationWaiters_;

    static inline std::atomic<std::int64_t> maxSites_{5};
};

}  // namespace drovel::notify
