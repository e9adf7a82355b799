#pragma once
// Deferred background work that the system launches when it sees fit (background app refresh).

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/platform/Clock.h"

namespace drovel::platform {

enum class BackgroundTaskKind { appRefresh, processing };

// One launched background task. Any thread may call it.
class BackgroundTask {
public:
    virtual ~BackgroundTask() = default;
    virtual const std::string& identifier() const = 0;
    virtual BackgroundTaskKind kind() const = 0;
    // Runs (on a background thread) when the system is about to end the task; replaces any
    // earlier handler. The task must still be completed.
    virtual void setExpirationHandler(std::function<void()> handler) = 0;
    // Tells the system the work is done; only the first call counts.
    virtual void setTaskCompleted(bool success) = 0;
};

// A request to launch a registered task no earlier than earliestBeginDate (none: as soon as the
// system likes).
struct BackgroundTaskRequest {
    std::string identifier;
    BackgroundTaskKind kind = BackgroundTaskKind::appRefresh;
    std::optional<Date> earliestBeginDate;
};

// Why a request was not accepted. The codes are the platform's.
class BackgroundTaskSchedulerError : public core::Error {
public:
    enum class Code { unavailable = 1, tooManyPendingTaskRequests = 2, notPermitted = 3 };
    explicit BackgroundTaskSchedulerError(Code code) : code_(code) {}
    Code code() const { return code_; }
    std::string description() const override {
        return "The operation couldn\u2019t be completed. (BGTaskSchedulerErrorDomain error " +
               std::to_string(static_cast<int>(code_)) + ".)";
    }

private:
    Code code_;
};

// Any thread may call. Launch handlers run on a background thread of the scheduler.
class BackgroundTaskScheduler {
public:
    using LaunchHandler = std::function<void(std::shared_ptr<BackgroundTask> task)>;

    virtual ~BackgroundTaskScheduler() = default;

    // Registers the handler that runs when a task with this identifier is launched. False when the
    // identifier is not permitted or already registered.
    virtual bool registerForTask(std::string identifier, LaunchHandler launchHandler) = 0;
    // Submits a request, replacing an earlier one with the same identifier. The error tells why it
    // was not accepted (for example: the identifier was never registered).
    virtual core::ErrorPtr submit(BackgroundTaskRequest taskRequest) = 0;
    // Withdraws a submitted request; an unknown identifier does nothing.
    virtual void cancel(std::string_view identifier) = 0;
};

}  // namespace drovel::platform
