#pragma once
// The simulated device's notification centre: the app's view of the device's pending and
// delivered requests (SimulatedDevice fires them). Completions run on the centre's own serial
// queue, never inside the call, in the order of the calls.

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "drovel/platform/DispatchQueue.h"
#include "drovel/platform/UserNotificationCenter.h"
#include "linux/SimulatedDevice.h"

namespace drovel::platform {

class SimulatedUserNotificationCenter final : public UserNotificationCenter {
public:
    // The completions of adds made from a job of mainQueue (may be empty) are handed over in
    // batches of 512, the rest once that job has ended or sooner when another call needs an
    // answer: a set-up's thousands of adds wake the centre's queue a few times, not once each. A
    // main-queue job must not block waiting for an add's completion (the module never does; it
    // may block for the other answers).
    explicit SimulatedUserNotificationCenter(std::shared_ptr<SimulatedDevice> device,
                                             std::shared_ptr<Queue> mainQueue = nullptr);

    void add(NotificationRequest request, AddCompletion completionHandler) override;
    // The requests pending at the moment of the call.
    void getPendingNotificationRequests(PendingCompletion completionHandler) override;
    void removePendingNotificationRequests(std::vector<std::string> identifiers) override;
    void getNotificationSettings(SettingsCompletion completionHandler) override;
    // The simulated user answers at once: a status not yet determined becomes authorized (or
    // provisional when only that is asked for); a decision already made stays as it is.
    void requestAuthorization(NotificationAuthorizationOptions options,
                              AuthorizationCompletion completionHandler) override;

private:
    // The completions waiting for the queue, in the order of the calls.
    struct Outbox {
        std::mutex mutex;
        std::vector<std::function<void()>> completions;
        // idle: no drain; deferred: one starts when the main-queue job ends; queued: one is queued
        // or running, and runs until the outbox is empty.
        enum class State { idle, deferred, queued } state = State::idle;
    };
    static void drain(const std::shared_ptr<Outbox>& outbox);
    // Queues the completion behind those of earlier calls; an add's may wait for the main-queue
    // job to end.
    void post(std::function<void()> completion, bool mayWait = false);

    std::shared_ptr<SimulatedDevice> device_;
    std::shared_ptr<DispatchQueue> queue_;
    std::shared_ptr<Queue> mainQueue_;
    std::shared_ptr<Outbox> outbox_ = std::make_shared<Outbox>();
};

}  // namespace drovel::platform
