#include "linux/NoDeviceUserNotificationCenter.h"

namespace drovel::platform {

NoDeviceUserNotificationCenter::NoDeviceUserNotificationCenter()
    : queue_(std::make_shared<DispatchQueue>("com.apple.usernotifications.UNUserNotificationServiceConnection")) {}

void NoDeviceUserNotificationCenter::add(NotificationRequest request, AddCompletion completionHandler) {
    if (!completionHandler) return;
    queue_->async([completion = std::move(completionHandler)] {
        completion(core::makeError<UserNotificationError>(UserNotificationError::Code::notificationsNotAllowed));
    });
}

void NoDeviceUserNotificationCenter::getPendingNotificationRequests(PendingCompletion completionHandler) {
    if (!completionHandler) return;
    queue_->async([completion = std::move(completionHandler)] { completion({}); });
}

void NoDeviceUserNotificationCenter::removePendingNotificationRequests(std::vector<std::string> identifiers) {}

void NoDeviceUserNotificationCenter::getNotificationSettings(SettingsCompletion completionHandler) {
    if (!completionHandler) return;
    queue_->async([completion = std::move(completionHandler)] { completion(NotificationSettings{}); });
}

void NoDeviceUserNotificationCenter::requestAuthorization(NotificationAuthorizationOptions options,
                                                          AuthorizationCompletion completionHandler) {
    if (!completionHandler) return;
    queue_->async([completion = std::move(completionHandler)] { completion(false, nullptr); });
}

}  // namespace drovel::platform
