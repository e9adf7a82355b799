#pragma once
// A BackgroundTaskScheduler for tests: registration and submission answer as scripted, every call
// is recorded, and the test launches registered tasks itself.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "drovel/platform/BackgroundTaskScheduler.h"

namespace drovel::testing {

// A launched task; records how the app completed it.
class FakeBackgroundTask : public platform::BackgroundTask {
public:
    FakeBackgroundTask(std::string identifier, platform::BackgroundTaskKind kind)
        : identifier_(std::move(identifier)), kind_(kind) {}

    const std::string& identifier() const override { return identifier_; }
    platform::BackgroundTaskKind kind() const override { return kind_; }
    void setExpirationHandler(std::function<void()> handler) override;
    void setTaskCompleted(bool success) override;

    // The first success reported, or none while the task runs.
    std::optional<bool> completion() const;
    // Every setTaskCompleted() call, in order (only the first counts for the system).
    std::vector<bool> completionCalls() const;
    bool hasExpirationHandler() const;
    // Runs the expiration handler on the calling thread, as the system does when time is up.
    void expire();

private:
    std::string identifier_;
    platform::BackgroundTaskKind kind_;
    mutable std::mutex mutex_;
    std::function<void()> expirationHandler_;
    std::vector<bool> completions_;
};

class FakeBackgroundTaskScheduler : public platform::BackgroundTaskScheduler {
public:
    bool registerForTask(std::string identifier, LaunchHandler launchHandler) override;
    core::ErrorPtr submit(platform::BackgroundTaskRequest taskRequest) override;
    void cancel(std::string_view) override {}

    // ---- scripting (defaults: registration succeeds, submission is accepted) ----
    void setSubmitError(core::ErrorPtr error);
    // Drops every registered launch handler (and what they hold), as the system does when the app
    // ends; launch() then finds nothing.
    void unregisterAll();
    // Runs the handler registered under identifier on the calling thread with a new task, and
    // returns the task; nullptr when nothing is registered.
    std::shared_ptr<FakeBackgroundTask> launch(std::string_view identifier);

    // ---- inspection ----
    // Every identifier passed to registerForTask(), in order.
    std::vector<std::string> registrations() const;
    // Every request passed to submit(), in order, rejected ones included.
    std::vector<platform::BackgroundTaskRequest> submissions() const;

private:
    mutable std::mutex mutex_;
    core::ErrorPtr submitError_;
    std::map<std::string, LaunchHandler, std::less<>> handlers_;
    std::vector<std::string> registrations_;
    std::vector<platform::BackgroundTaskRequest> submissions_;
};

}  // namespace drovel::testing
