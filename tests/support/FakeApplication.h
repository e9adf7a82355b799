#pragma once
// An Application for tests: state, delegate and open results as scripted; records every URL
// opened, every fetch interval set and every background task.
//
// Open completions go through the main queue given at construction (the test pumps it), or,
// without one, run inside open().

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "drovel/platform/Application.h"
#include "drovel/platform/MainQueue.h"

namespace drovel::testing {

// An application delegate that handles URLs as told.
class RecordingApplicationDelegate : public platform::ApplicationDelegate {
public:
    RecordingApplicationDelegate(bool implementsOpenURL, bool handlesURLs)
        : implements_(implementsOpenURL), handles_(handlesURLs) {}

    bool implementsOpenURL() const override { return implements_; }
    bool application(platform::Application& application, std::string_view openURL,
                     const platform::OpenURLOptions& options) override;

private:
    bool implements_;
    bool handles_;
};

class FakeApplication : public platform::Application {
public:
    explicit FakeApplication(std::shared_ptr<platform::MainQueue> mainQueue = nullptr);

    platform::ApplicationState applicationState() const override;
    std::shared_ptr<platform::ApplicationDelegate> delegate() const override;
    void open(std::string_view url, const platform::OpenURLOptions& options, OpenCompletion completionHandler) override;
    void setMinimumBackgroundFetchInterval(double interval) override;
    platform::BackgroundTaskIdentifier beginBackgroundTask(std::string_view name,
                                                           std::function<void()> expirationHandler) override;
    void endBackgroundTask(platform::BackgroundTaskIdentifier identifier) override;

    // ---- scripting (defaults: active, no delegate, opening succeeds) ----
    void setApplicationState(platform::ApplicationState state);
    void setDelegate(std::shared_ptr<platform::ApplicationDelegate> delegate);
    void setOpenResult(bool success);
    // Runs the expiration handler of every running background task, on the calling thread.
    void expireBackgroundTasks();

    // ---- inspection ----
    std::vector<std::string> openedURLs() const;
    // Every interval set, in order.
    std::vector<double> fetchIntervals() const;
    // Names of every background task begun, in order.
    std::vector<std::string> begunBackgroundTasks() const;
    // Names of the tasks begun and not yet ended.
    std::vector<std::string> runningBackgroundTasks() const;

private:
    struct Task {
        platform::BackgroundTaskIdentifier identifier;
        std::string name;
        std::function<void()> expirationHandler;
    };

    std::shared_ptr<platform::MainQueue> mainQueue_;
    mutable std::mutex mutex_;
    platform::ApplicationState state_ = platform::ApplicationState::active;
    std::shared_ptr<platform::ApplicationDelegate> delegate_;
    bool openResult_ = true;
    std::vector<std::string> openedURLs_;
    std::vector<double> fetchIntervals_;
    std::vector<std::string> begun_;
    std::vector<Task> running_;
    platform::BackgroundTaskIdentifier nextTask_ = 1;
};

}  // namespace drovel::testing
