// Background work: the refresh task (registered with the scheduler, scheduled three hours ahead on
// every entry into the background and at the start of every refresh), the legacy background fetch,
// and their records in the sync diary. The push route lives with configUpdated.

#include "data/SyncHistory.h"
#include "drovel/notify/Manager.h"
#include "manager/ManagerLog.h"

namespace drovel::notify {

std::optional<std::string> Manager::backgroundTaskIdentifier() const {
    std::lock_guard lock(mutex_);
    if (!bgTaskIdentifier_ || bgTaskIdentifier_->empty()) return std::nullopt;
    return bgTaskIdentifier_;
}

void Manager::setupBGAppRefresh() {
    constexpr std::string_view function = "setupBGAppRefresh()";
    auto identifier = backgroundTaskIdentifier();
    if (!identifier) return;
    managerLog().verbose("SyncDebug: Setting up BGAppRefreshTask with identifier " + *identifier,
                         DROVEL_SOURCE(kManagerFile, function));
    // The launch handler holds the manager strongly: a launched task must be able to finish its
    // sync whatever else lets go of the manager.
    const bool registered = platform_.backgroundTaskScheduler->registerForTask(
        *identifier, [self = shared_from_this()](std::shared_ptr<platform::BackgroundTask> task) {
            managerLog().verbose("SyncDebug: BGTaskScheduler started task " + task->identifier(),
                                 DROVEL_SOURCE(kManagerFile, "setupBGAppRefresh()"));
            if (task->kind() != platform::BackgroundTaskKind::appRefresh)
                core::programmingError("The Notify refresh task identifier was launched as another kind of task");
            self->handleBackgroundSyncTask(std::move(task));
        });
    managerLog().verbose("SyncDebug: BGTaskScheduler registration result " + std::string(boolText(registered)),
                         DROVEL_SOURCE(kManagerFile, function));

    auto token = platform_.notificationCenter->addObserver(
        platform::ApplicationNotification::didEnterBackground, [weak = weak_from_this()](const platform::Notification&) {
            auto self = weak.lock();
            if (!self) return;
            managerLog().verbose("SyncDebug: Received didEnterBackgroundNotification",
                                 DROVEL_SOURCE(kManagerFile, "setupBGAppRefresh()"));
            self->scheduleBackgroundSyncTask();
        });
    std::optional<platform::ObserverToken> previous;
    {
        std::lock_guard lock(mutex_);
        previous = std::exchange(didEnterBackgroundObserver_, token);
    }
    if (previous) platform_.notificationCenter->removeObserver(*previous);
}

void Manager::scheduleBackgroundSyncTask() {
    constexpr std::string_view function = "scheduleBackgroundSyncTask()";
    auto identifier = backgroundTaskIdentifier();
    if (!identifier) return;
    managerLog().verbose("SyncDebug: Scheduling BGAppRefreshTask...", DROVEL_SOURCE(kManagerFile, function));
    platform::BackgroundTaskRequest request;
    request.identifier = *identifier;
    request.kind = platform::BackgroundTaskKind::appRefresh;
    request.earliestBeginDate = platform_.clock->now() + std::chrono::seconds(static_cast<int>(kBackgroundSyncInterval));
    if (auto error = platform_.backgroundTaskScheduler->submit(std::move(request))) {
        managerLog().error("Notify: Unable to submit BGTaskScheduler request: " + error->description(),
                           DROVEL_SOURCE(kManagerFile, function));
    }
}

void Manager::handleBackgroundSyncTask(std::shared_ptr<platform::BackgroundTask> task) {
    constexpr std::string_view function = "handleBackgroundSyncTask(task:)";
    managerLog().verbose("SyncDebug: Non-legacy app started BGAppRefreshTask", DROVEL_SOURCE(kManagerFile, function));
    // The next refresh is requested before this one does any work.
    scheduleBackgroundSyncTask();

    task->setExpirationHandler([platform = platform_, core = core_, weakTask = std::weak_ptr(task)] {
        SyncHistory::addBGTaskExpiredEvent(platform);
        core->cancelRunningURLSessions();
        if (auto expiring = weakTask.lock()) expiring->setTaskCompleted(false);
    });

    // The probe's answer is only logged: an offline device still runs the sync, which then fails
    // on its own terms. The continuation belongs to the launch handler, so it keeps the manager.
    auto startSync = [self = shared_from_this(), task](bool reachable) {
        constexpr std::string_view function = "handleBackgroundSyncTask(task:)";
        managerLog().verbose("SyncDebug: Internet Connected = " + std::string(boolText(reachable)),
                             DROVEL_SOURCE(kManagerFile, function));
        SyncHistory::addBGFetchAttemptEvent(self->platform_);
        self->bgOrPushSyncInProgress_ = true;
        managerLog().verbose("SyncDebug: Starting sync from BGAppRefreshTask...", DROVEL_SOURCE(kManagerFile, function));
        self->sync(false, [weak = std::weak_ptr(self), platform = self->platform_, task](core::ErrorPtr error) {
            auto manager = weak.lock();
            if (manager) manager->bgOrPushSyncInProgress_ = false;
            SyncHistory::addBGFetchCompleteEvent(platform, error);
            Callback bgSyncCallback;
            if (manager) {
                std::lock_guard lock(manager->mutex_);
                bgSyncCallback = manager->bgSyncCallback_;
            }
            if (bgSyncCallback) bgSyncCallback(error);
            // The task reports success even when the sync failed: the system only needs to know
            // that the work ended, and a failure would make it schedule refreshes less often.
            task->setTaskCompleted(true);
        });
    };
    if (platform_.connectivityProbe) {
        platform_.connectivityProbe->probe(kConnectivityProbeTimeLimit, std::move(startSync));
    } else {
        startSync(false);
    }
}

void Manager::performFetchWithCompletionHandler(FetchCompletion completion) {
    sync(false, [platform = platform_, completion = std::move(completion)](core::ErrorPtr error) {
        SyncHistory::addBGFetchCompleteEvent(platform, error);
        // Always newData, also after a failed or skipped sync: the system then keeps offering
        // background fetches at the same rate.
        if (completion) completion(platform::BackgroundFetchResult::newData);
    });
}

}  // namespace drovel::notify
