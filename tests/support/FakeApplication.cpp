#include "support/FakeApplication.h"
#include "support/Locked.h"

#include <algorithm>

namespace drovel::testing {

using namespace platform;

bool RecordingApplicationDelegate::application(Application&, std::string_view, const OpenURLOptions&) { return handles_; }

FakeApplication::FakeApplication(std::shared_ptr<MainQueue> mainQueue) : mainQueue_(std::move(mainQueue)) {}

ApplicationState FakeApplication::applicationState() const { return lockedCopy(mutex_, state_); }

std::shared_ptr<ApplicationDelegate> FakeApplication::delegate() const { return lockedCopy(mutex_, delegate_); }

void FakeApplication::open(std::string_view url, const OpenURLOptions& options, OpenCompletion completionHandler) {
    bool success;
    {
        std::lock_guard lock(mutex_);
        openedURLs_.emplace_back(url);
        success = openResult_;
    }
    if (!completionHandler) return;
    if (mainQueue_) {
        mainQueue_->async([completion = std::move(completionHandler), success] { completion(success); });
    } else {
        completionHandler(success);
    }
}

void FakeApplication::setMinimumBackgroundFetchInterval(double interval) {
    std::lock_guard lock(mutex_);
    fetchIntervals_.push_back(interval);
}

BackgroundTaskIdentifier FakeApplication::beginBackgroundTask(std::string_view name,
                                                              std::function<void()> expirationHandler) {
    std::lock_guard lock(mutex_);
    begun_.emplace_back(name);
    BackgroundTaskIdentifier identifier = nextTask_++;
    running_.push_back({identifier, std::string(name), std::move(expirationHandler)});
    return identifier;
}

void FakeApplication::endBackgroundTask(BackgroundTaskIdentifier identifier) {
    std::lock_guard lock(mutex_);
    std::erase_if(running_, [&](const Task& task) { return task.identifier == identifier; });
}

void FakeApplication::setApplicationState(ApplicationState state) { lockedAssign(mutex_, state_, state); }

void FakeApplication::setDelegate(std::shared_ptr<ApplicationDelegate> delegate) { lockedAssign(mutex_, delegate_, std::move(delegate)); }

void FakeApplication::setOpenResult(bool success) { lockedAssign(mutex_, openResult_, success); }

void FakeApplication::expireBackgroundTasks() {
    std::vector<std::function<void()>> handlers;
    {
        std::lock_guard lock(mutex_);
        for (const auto& task : running_)
            if (task.expirationHandler) handlers.push_back(task.expirationHandler);
    }
    // Unlocked: a handler ends its task.
    for (auto& handler : handlers) handler();
}

std::vector<std::string> FakeApplication::openedURLs() const { return lockedCopy(mutex_, openedURLs_); }

std::vector<double> FakeApplication::fetchIntervals() const { return lockedCopy(mutex_, fetchIntervals_); }

std::vector<std::string> FakeApplication::begunBackgroundTasks() const { return lockedCopy(mutex_, begun_); }

std::vector<std::string> FakeApplication::runningBackgroundTasks() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& task : running_) names.push_back(task.name);
    return names;
}

}  // namespace drovel::testing
