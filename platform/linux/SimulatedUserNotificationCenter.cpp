#include "linux/SimulatedUserNotificationCenter.h"

namespace drovel::platform {

SimulatedUserNotificationCenter::SimulatedUserNotificationCenter(std::shared_ptr<SimulatedDevice> device)
    : device_(std::move(device)),
      queue_(std::make_shared<DispatchQueue>("com.apple.usernotifications.UNUserNotificationServiceConnection")) {}

void SimulatedUserNotificationCenter::add(NotificationRequest request, AddCompletion completionHandler) {
    core::ErrorPtr error = device_->addRequest(std::move(request));
    if (completionHandler) queue_->async([completion = std::move(completionHandler), error] { completion(error); });
}

void SimulatedUserNotificationCenter::getPendingNotificationRequests(PendingCompletion completionHandler) {
    if (!completionHandler) return;
    queue_->async([completion = std::move(completionHandler), requests = device_->pendingRequests()]() mutable {
        completion(std::move(requests));
    });
}

void SimulatedUserNotificationCenter::removePendingNotificationRequests(std::vector<std::string> identifiers) {
    device_->removePendingRequests(identifiers);
}

void SimulatedUserNotificationCenter::getNotificationSettings(SettingsCompletion completionHandler) {
    if (!completionHandler) return;
    NotificationSettings settings{device_->notificationAuthorization()};
    queue_->async([completion = std::move(completionHandler), settings] { completion(settings); });
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
    queue_->async([completion = std::move(completionHandler), granted] { completion(granted, nullptr); });
}

}  // namespace drovel::platform
