#pragma once
// The simulated device's application object. Its state is the device's (SimulatedDevice::
// setAppState changes it and posts the lifecycle broadcasts); opening a URL succeeds and is
// recorded by the device as an openedURL event. Background tasks, the delegate and the fetch
// interval behave as on the headless Linux application.

#include <memory>

#include "drovel/platform/Application.h"
#include "drovel/platform/MainQueue.h"
#include "linux/HeadlessApplication.h"
#include "linux/SimulatedDevice.h"

namespace drovel::platform {

class SimulatedApplication final : public Application {
public:
    SimulatedApplication(std::shared_ptr<SimulatedDevice> device, std::shared_ptr<MainQueue> mainQueue,
                         std::shared_ptr<NotificationCenter> notificationCenter);

    ApplicationState applicationState() const override { return device_->appState(); }
    std::shared_ptr<ApplicationDelegate> delegate() const override { return headless_->delegate(); }
    // The completion runs on the main queue with true.
    void open(std::string_view url, const OpenURLOptions& options, OpenCompletion completionHandler) override;
    void setMinimumBackgroundFetchInterval(double interval) override {
        headless_->setMinimumBackgroundFetchInterval(interval);
    }
    BackgroundTaskIdentifier beginBackgroundTask(std::string_view name,
                                                 std::function<void()> expirationHandler) override {
        return headless_->beginBackgroundTask(name, std::move(expirationHandler));
    }
    void endBackgroundTask(BackgroundTaskIdentifier identifier) override { headless_->endBackgroundTask(identifier); }

    void setDelegate(std::shared_ptr<ApplicationDelegate> delegate) { headless_->setDelegate(std::move(delegate)); }
    // The last interval set; kBackgroundFetchIntervalNever until one is set.
    double minimumBackgroundFetchInterval() const { return headless_->minimumBackgroundFetchInterval(); }
    std::vector<std::string> activeBackgroundTasks() const { return headless_->activeBackgroundTasks(); }
    void expireBackgroundTasks() { headless_->expireBackgroundTasks(); }

private:
    std::shared_ptr<SimulatedDevice> device_;
    std::shared_ptr<MainQueue> mainQueue_;
    std::shared_ptr<HeadlessApplication> headless_;
};

}  // namespace drovel::platform
