#include "linux/HeadlessApplication.h"

namespace drovel::platform {

HeadlessApplication::HeadlessApplication(std::shared_ptr<MainQueue> mainQueue,
                                         std::shared_ptr<NotificationCenter> notificationCenter)
    : mainQueue_(std::move(mainQueue)), notificationCenter_(std::move(notificationCenter)) {}

std::shared_ptr<ApplicationDelegate> HeadlessApplication::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_;
}

void HeadlessApplication::setDelegate(std::shared_ptr<ApplicationDelegate> delegate) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
}

void HeadlessApplication::open(std::string_view url, const OpenURLOptions& options, OpenCompletion completionHandler) {
    if (completionHandler) mainQueue_->async([completion = std::move(completionHandler)] { completion(false); });
}

void HeadlessApplication::setMinimumBackgroundFetchInterval(double interval) {
    std::lock_guard lock(mutex_);
    fetchInterval_ = interval;
}

double HeadlessApplication::minimumBackgroundFetchInterval() const {
    std::lock_guard lock(mutex_);
    return fetchInterval_;
}

BackgroundTaskIdentifier HeadlessApplication::beginBackgroundTask(std::string_view name,
                                                                  std::function<void()> expirationHandler) {
    std::lock_guard lock(mutex_);
    BackgroundTaskIdentifier identifier = nextTask_++;
    tasks_.emplace(identifier, Task{std::string(name), std::move(expirationHandler)});
    return identifier;
}

void HeadlessApplication::endBackgroundTask(BackgroundTaskIdentifier identifier) {
    std::lock_guard lock(mutex_);
    tasks_.erase(identifier);
}

std::vector<std::string> HeadlessApplication::activeBackgroundTasks() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& [identifier, task] : tasks_) names.push_back(task.name);
    return names;
}

void HeadlessApplication::expireBackgroundTasks() {
    std::lock_guard lock(mutex_);
    for (const auto& [identifier, task] : tasks_)
        if (task.expirationHandler) mainQueue_->async(task.expirationHandler);
}

void HeadlessApplication::setApplicationState(ApplicationState state) {
    ApplicationState previous = state_.exchange(state);
    if (previous == state) return;
    if (state == ApplicationState::active) notificationCenter_->post(ApplicationNotification::didBecomeActive);
    if (state == ApplicationState::background) notificationCenter_->post(ApplicationNotification::didEnterBackground);
}

}  // namespace drovel::platform
