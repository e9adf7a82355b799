#pragma once
// The simulated device's notification centre: the app's view of the device's pending and
// delivered requests (SimulatedDevice fires them). Completions run on the centre's own serial
// queue, never inside the call.

#include <memory>

#include "drovel/platform/DispatchQueue.h"
#include "drovel/platform/UserNotificationCenter.h"
#include "linux/SimulatedDevice.h"

namespace drovel::platform {

class SimulatedUserNotificationCenter final : public UserNotificationCenter {
public:
    explicit SimulatedUserNotificationCenter(std::shared_ptr<SimulatedDevice> device);

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
    std::shared_ptr<SimulatedDevice> device_;
    std::shared_ptr<DispatchQueue> queue_;
};

}  // namespace drovel::platform
