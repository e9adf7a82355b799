#pragma once
// The notification centre of a host without a device to show notifications on. It never shows
// anything and says so: authorisation stays notDetermined, a request for it is declined, adding a
// request fails with notificationsNotAllowed, and nothing is ever pending. (The simulated device
// is the centre to use when notifications should be scheduled and fired.)
// Completions run on the centre's own serial queue.

#include <memory>

#include "drovel/platform/DispatchQueue.h"
#include "drovel/platform/UserNotificationCenter.h"

namespace drovel::platform {

class NoDeviceUserNotificationCenter final : public UserNotificationCenter {
public:
    NoDeviceUserNotificationCenter();

    void add(NotificationRequest request, AddCompletion completionHandler) override;
    void getPendingNotificationRequests(PendingCompletion completionHandler) override;
    void removePendingNotificationRequests(std::vector<std::string> identifiers) override;
    void getNotificationSettings(SettingsCompletion completionHandler) override;
    void requestAuthorization(NotificationAuthorizationOptions options,
                              AuthorizationCompletion completionHandler) override;

private:
    std::shared_ptr<DispatchQueue> queue_;
};

}  // namespace drovel::platform
