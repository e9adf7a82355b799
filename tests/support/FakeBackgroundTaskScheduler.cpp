#include "support/FakeBackgroundTaskScheduler.h"
#include "support/Locked.h"

namespace drovel::testing {

using namespace platform;

void FakeBackgroundTask::setExpirationHandler(std::function<void()> handler) {
    std::lock_guard lock(mutex_);
    expirationHandler_ = std::move(handler);
}

void FakeBackgroundTask::setTaskCompleted(bool success) {
    // Like the platform, a finished task lets go of its expiration handler (which often holds
    // the task itself).
    std::function<void()> released;
    std::lock_guard lock(mutex_);
    completions_.push_back(success);
    released = std::move(expirationHandler_);
    expirationHandler_ = nullptr;
}

std::optional<bool> FakeBackgroundTask::completion() const {
    std::lock_guard lock(mutex_);
    if (completions_.empty()) return std::nullopt;
    return completions_.front();
}

std::vector<bool> FakeBackgroundTask::completionCalls() const { return lockedCopy(mutex_, completions_); }

bool FakeBackgroundTask::hasExpirationHandler() const {
    std::lock_guard lock(mutex_);
    return static_cast<bool>(expirationHandler_);
}

void FakeBackgroundTask::expire() {
    std::function<void()> handler;
    {
        std::lock_guard lock(mutex_);
        handler = expirationHandler_;
    }
    if (handler) handler();
}

bool FakeBackgroundTaskScheduler::registerForTask(std::string identifier, LaunchHandler launchHandler) {
    std::lock_guard lock(mutex_);
    registrations_.push_back(identifier);
    handlers_.insert_or_assign(std::move(identifier), std::move(launchHandler));
    return true;
}

void FakeBackgroundTaskScheduler::unregisterAll() {
    std::map<std::string, LaunchHandler, std::less<>> dropped;
    {
        std::lock_guard lock(mutex_);
        dropped.swap(handlers_);
    }
}

core::ErrorPtr FakeBackgroundTaskScheduler::submit(BackgroundTaskRequest taskRequest) {
    std::lock_guard lock(mutex_);
    submissions_.push_back(std::move(taskRequest));
    return submitError_;
}

void FakeBackgroundTaskScheduler::setSubmitError(core::ErrorPtr error) { lockedAssign(mutex_, submitError_, std::move(error)); }

std::shared_ptr<FakeBackgroundTask> FakeBackgroundTaskScheduler::launch(std::string_view identifier) {
    LaunchHandler handler;
    {
        std::lock_guard lock(mutex_);
        auto it = handlers_.find(identifier);
        if (it == handlers_.end()) return nullptr;
        handler = it->second;
    }
    auto task = std::make_shared<FakeBackgroundTask>(std::string(identifier), BackgroundTaskKind::appRefresh);
    handler(task);
    return task;
}

std::vector<std::string> FakeBackgroundTaskScheduler::registrations() const { return lockedCopy(mutex_, registrations_); }

std::vector<BackgroundTaskRequest> FakeBackgroundTaskScheduler::submissions() const { return lockedCopy(mutex_, submissions_); }

}  // namespace drovel::testing
