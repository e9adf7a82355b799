#pragma once
// Background tasks on a Linux host. There is no system that decides when to launch them: the
// scheduler keeps the registrations and the submitted requests, and the host launches a task with
// launch() (the CLI's background-refresh command does). Launch handlers and expiration handlers
// run on the scheduler's own serial queue.

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "drovel/platform/BackgroundTaskScheduler.h"
#include "drovel/platform/DispatchQueue.h"

namespace drovel::platform {

// A launched task; tells the host when the app has finished it.
class HeadlessBackgroundTask final : public BackgroundTask {
public:
    HeadlessBackgroundTask(std::string identifier, BackgroundTaskKind kind, std::shared_ptr<Queue> queue);

    const std::string& identifier() const override { return identifier_; }
    BackgroundTaskKind kind() const override { return kind_; }
    void setExpirationHandler(std::function<void()> handler) override;
    void setTaskCompleted(bool success) override;

    // The success the app reported, or none while the task runs.
    std::optional<bool> completion() const;
    // Waits until the app completes the task, for at most timeout; none when it did not.
    std::optional<bool> waitForCompletion(std::chrono::milliseconds timeout) const;
    // As the system does when the time is up: queues the expiration handler (if any).
    void expire();

private:
    std::string identifier_;
    BackgroundTaskKind kind_;
    std::shared_ptr<Queue> queue_;
    mutable std::mutex mutex_;
    mutable std::condition_variable completed_;
    std::function<void()> expirationHandler_;
    std::optional<bool> success_;
};

class HeadlessBackgroundTaskScheduler final : public BackgroundTaskScheduler {
public:
    HeadlessBackgroundTaskScheduler();

    bool registerForTask(std::string identifier, LaunchHandler launchHandler) override;
    // notPermitted when the identifier was never registered.
    core::ErrorPtr submit(BackgroundTaskRequest taskRequest) override;
    void cancel(std::string_view identifier) override;
    // Drops every registration and submitted request, as the system does when the app ends; the
    // launch handlers (which hold the app's objects strongly) are released with them.
    void unregisterAll();

    // The submitted requests not yet launched, in identifier order.
    std::vector<BackgroundTaskRequest> pendingRequests() const;
    // Launches the task registered under identifier now, whatever its request's earliest begin date
    // says, and withdraws its request. Returns the task, or nullptr when nothing is registered
    // under identifier. The launch handler runs on the scheduler's queue.
    std::shared_ptr<HeadlessBackgroundTask> launch(std::string_view identifier);

private:
    std::shared_ptr<DispatchQueue> queue_;
    mutable std::mutex mutex_;
    std::map<std::string, LaunchHandler, std::less<>> handlers_;
    std::map<std::string, BackgroundTaskRequest, std::less<>> requests_;
};

}  // namespace drovel::platform
