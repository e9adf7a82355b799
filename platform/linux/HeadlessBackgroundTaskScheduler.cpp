#include "linux/HeadlessBackgroundTaskScheduler.h"

namespace drovel::platform {

HeadlessBackgroundTask::HeadlessBackgroundTask(std::string identifier, BackgroundTaskKind kind,
                                               std::shared_ptr<Queue> queue)
    : identifier_(std::move(identifier)), kind_(kind), queue_(std::move(queue)) {}

void HeadlessBackgroundTask::setExpirationHandler(std::function<void()> handler) {
    std::lock_guard lock(mutex_);
    expirationHandler_ = std::move(handler);
}

void HeadlessBackgroundTask::setTaskCompleted(bool success) {
    // A finished task lets go of its expiration handler, which often holds the task itself.
    std::function<void()> released;
    std::lock_guard lock(mutex_);
    if (success_) return;
    success_ = success;
    released = std::move(expirationHandler_);
    expirationHandler_ = nullptr;
    completed_.notify_all();
}

std::optional<bool> HeadlessBackgroundTask::completion() const {
    std::lock_guard lock(mutex_);
    return success_;
}

std::optional<bool> HeadlessBackgroundTask::waitForCompletion(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    completed_.wait_for(lock, timeout, [&] { return success_.has_value(); });
    return success_;
}

void HeadlessBackgroundTask::expire() {
    std::function<void()> handler;
    {
        std::lock_guard lock(mutex_);
        handler = expirationHandler_;
    }
    if (handler) queue_->async(std::move(handler));
}

HeadlessBackgroundTaskScheduler::HeadlessBackgroundTaskScheduler()
    : queue_(std::make_shared<DispatchQueue>("com.apple.BGTaskScheduler")) {}

bool HeadlessBackgroundTaskScheduler::registerForTask(std::string identifier, LaunchHandler launchHandler) {
    std::lock_guard lock(mutex_);
    return handlers_.emplace(std::move(identifier), std::move(launchHandler)).second;
}

void HeadlessBackgroundTaskScheduler::unregisterAll() {
    std::map<std::string, LaunchHandler, std::less<>> handlers;
    {
        std::lock_guard lock(mutex_);
        handlers.swap(handlers_);
        requests_.clear();
    }
    // The handlers are destroyed outside the lock: what they release may call back in.
}

core::ErrorPtr HeadlessBackgroundTaskScheduler::submit(BackgroundTaskRequest taskRequest) {
    std::lock_guard lock(mutex_);
    if (!handlers_.contains(taskRequest.identifier))
        return core::makeError<BackgroundTaskSchedulerError>(BackgroundTaskSchedulerError::Code::notPermitted);
    std::string identifier = taskRequest.identifier;
    requests_.insert_or_assign(std::move(identifier), std::move(taskRequest));
    return nullptr;
}

void HeadlessBackgroundTaskScheduler::cancel(std::string_view identifier) {
    std::lock_guard lock(mutex_);
    if (auto it = requests_.find(identifier); it != requests_.end()) requests_.erase(it);
}

std::vector<BackgroundTaskRequest> HeadlessBackgroundTaskScheduler::pendingRequests() const {
    std::lock_guard lock(mutex_);
    std::vector<BackgroundTaskRequest> requests;
    for (const auto& [identifier, request] : requests_) requests.push_back(request);
    return requests;
}

std::shared_ptr<HeadlessBackgroundTask> HeadlessBackgroundTaskScheduler::launch(std::string_view identifier) {
    LaunchHandler handler;
    BackgroundTaskKind kind = BackgroundTaskKind::appRefresh;
    {
        std::lock_guard lock(mutex_);
        auto registered = handlers_.find(identifier);
        if (registered == handlers_.end()) return nullptr;
        handler = registered->second;
        if (auto it = requests_.find(identifier); it != requests_.end()) {
            kind = it->second.kind;
            requests_.erase(it);
        }
    }
    auto task = std::make_shared<HeadlessBackgroundTask>(std::string(identifier), kind, queue_);
    queue_->async([handler = std::move(handler), task] { handler(task); });
    return task;
}

}  // namespace drovel::platform
