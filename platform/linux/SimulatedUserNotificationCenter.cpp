#include "linux/SimulatedUserNotificationCenter.h"

#include <utility>

namespace drovel::platform {

SimulatedUserNotificationCenter::SimulatedUserNotificationCenter(std::shared_ptr<SimulatedDevice> device,
                                                                 std::shared_ptr<Queue> mainQueue)
    : device_(std::move(device)),
      queue_(std::make_shared<DispatchQueue>("com.apple.usernotifications.UNUserNotificationServiceConnection")),
      mainQueue_(std::move(mainQueue)) {}

void SimulatedUserNotificationCenter::post(std::function<void()> completion, bool mayWait) {
    using State = Outbox::State;
    bool deferring = false;
    {
        std::lock_guard lock(outbox_->mutex);
        outbox_->completions.push_back(std::move(completion));
        // A long burst hands over a batch now and then, so that the completions run alongside it.
        constexpr std::size_t batch = 512;
        if (outbox_->state == State::queued ||
            (outbox_->state == State::deferred && mayWait && outbox_->completions.size() < batch))
            return;
        deferring = outbox_->state == State::idle && mayWait && mainQueue_ && mainQueue_->isCurrent();
        outbox_->state = deferring ? State::deferred : State::queued;
    }
    if (!deferring) return queue_->async([outbox = outbox_] { drain(outbox); });
    mainQueue_->async([queue = queue_, outbox = outbox_] {
        {
            std::lock_guard lock(outbox->mutex);
            if (outbox->state != State::deferred) return;  // another call has started the drain
            outbox->state = State::queued;
        }
        queue->async([outbox] { drain(outbox); });
    });
}

// Runs until the outbox is empty, so a completion posted while it runs still comes before any
// posted after it.
void SimulatedUserNotificationCenter::drain(const std::shared_ptr<Outbox>& outbox) {
    std::vector<std::function<void()>> batch;
    for (;;) {
        {
            std::lock_guard lock(outbox->mutex);
            batch.clear();
            batch.swap(outbox->completions);
            if (batch.empty()) {
                outbox->state = Outbox::State::idle;
                return;
            }
        }
        for (auto& completion : batch) {
            completion();
            completion = nullptr;  // releases what it captured before the next one runs
        }
    }
}

void SimulatedUserNotificationCenter::add(NotificationRequest request, AddCompletion completionHandler) {
    core::ErrorPtr error = device_->addRequest(std::move(request));
    if (completionHandler) post([completion = std::move(completionHandler), error] { completion(error); }, true);
}

void SimulatedUserNotificationCenter::getPendingNotificationRequests(PendingCompletion completionHandler) {
    if (!completionHandler) return;
    post([completion = std::move(completionHandler), requests = device_->pendingRequests()]() mutable {
        completion(std::move(requests));
    });
}

void SimulatedUserNotificationCenter::removePendingNotificationRequests(std::vector<std::string> identifiers) {
    device_->removePendingRequests(identifiers);
}

void SimulatedUserNotificationCenter::getNotificationSettings(SettingsCompletion completionHandler) {
    if (!completionHandler) return;
    NotificationSettings settings{device_->notificationAuthorization()};
    post([completion = std::move(completionHandler), settings] { completion(settings); });
}

void SimulatedUserNotificationCenter::requestAuthorization(NotificationAuthorizationOptions options,
                                                           AuthorizationCompletion completionHandler) {
    NotificationAuthorizationStatus status = device_->notificationAuthorization();
    if (status == NotificationAuthorizationStatus::notDetermined) {
        status = options.provisional && !options.alert ? NotificationAuthorizationStatus::provisional
                                                       : NotificationAuthorizationStatus::authorized;
        SimulatedDeviceSettings settings;
        settings.notifications = status;
        device_->apply(settings);
    }
    if (!completionHandler) return;
    bool granted = NotificationSettings{status}.permitsNotifications();
    post([completion = std::move(completionHandler), granted] { completion(granted, nullptr); });
}

}  // namespace drovel::platform
