#pragma once
// The application object of a Linux host process, which has no home screen, no URL handlers and
// is never suspended. Its state is what the host sets; it starts active.

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "drovel/platform/Application.h"
#include "drovel/platform/MainQueue.h"
#include "drovel/platform/NotificationCenter.h"

namespace drovel::platform {

class HeadlessApplication final : public Application {
public:
    // Lifecycle broadcasts go to notificationCenter; completions and expiration handlers run on
    // mainQueue.
    HeadlessApplication(std::shared_ptr<MainQueue> mainQueue, std::shared_ptr<NotificationCenter> notificationCenter);

    ApplicationState applicationState() const override { return state_.load(); }
    std::shared_ptr<ApplicationDelegate> delegate() const override;
    // Nothing on the host can open URLs: the completion runs on the main queue with false.
    void open(std::string_view url, const OpenURLOptions& options, OpenCompletion completionHandler) override;
    void setMinimumBackgroundFetchInterval(double interval) override;
    // Always granted; the time never runs out until expireBackgroundTasks() is called.
    BackgroundTaskIdentifier beginBackgroundTask(std::string_view name, std::function<void()> expirationHandler) override;
    void endBackgroundTask(BackgroundTaskIdentifier identifier) override;

    // On the main queue. Moving to active posts UIApplicationDidBecomeActiveNotification, moving
    // to background posts UIApplicationDidEnterBackgroundNotification (on the calling thread).
    void setApplicationState(ApplicationState state);
    void setDelegate(std::shared_ptr<ApplicationDelegate> delegate);
    // The last interval set; kBackgroundFetchIntervalNever until one is set.
    double minimumBackgroundFetchInterval() const;
    // Names of the background tasks begun and not yet ended.
    std::vector<std::string> activeBackgroundTasks() const;
    // As the system does before it suspends an app: queues the expiration handler of every running
    // background task on the main queue.
    void expireBackgroundTasks();

private:
    struct Task {
        std::string name;
        std::function<void()> expirationHandler;
    };

    std::shared_ptr<MainQueue> mainQueue_;
    std::shared_ptr<NotificationCenter> notificationCenter_;
    std::atomic<ApplicationState> state_{ApplicationState::active};
    mutable std::mutex mutex_;
    std::shared_ptr<ApplicationDelegate> delegate_;
    double fetchInterval_ = kBackgroundFetchIntervalNever;
    std::map<BackgroundTaskIdentifier, Task> tasks_;
    BackgroundTaskIdentifier nextTask_ = 1;
};

}  // namespace drovel::platform
