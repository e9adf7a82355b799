#pragma once
// A UserNotificationCenter for tests: keeps pending requests in memory, answers authorisation as
// scripted, fails adds as scripted, and records every call.
//
// Completions run on the fake's own serial queue by default, as the system's do (never inside the
// call); setCallbackQueue(nullptr) makes them run inside the call instead.

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "drovel/platform/DispatchQueue.h"
#include "drovel/platform/UserNotificationCenter.h"

namespace drovel::testing {

class FakeUserNotificationCenter : public platform::UserNotificationCenter {
public:
    FakeUserNotificationCenter();

    void add(platform::NotificationRequest request, AddCompletion completionHandler) override;
    void getPendingNotificationRequests(PendingCompletion completionHandler) override;
    void removePendingNotificationRequests(std::vector<std::string> identifiers) override;
    void getNotificationSettings(SettingsCompletion completionHandler) override;
    void requestAuthorization(platform::NotificationAuthorizationOptions options,
                              AuthorizationCompletion completionHandler) override;

    // ---- scripting ----
    void setCallbackQueue(std::shared_ptr<platform::Queue> queue);
    // Starts as authorized.
    void setAuthorizationStatus(platform::NotificationAuthorizationStatus status);
    // Every add of this identifier fails with error (until another failAdds replaces it).
    void failAdds(std::string identifier, core::ErrorPtr error);
    void setPending(std::vector<platform::NotificationRequest> requests);
    // As the system does when a trigger fires: takes the pending request out and returns it.
    std::optional<platform::NotificationRequest> deliver(std::string_view identifier);

    // ---- inspection ----
    std::vector<platform::NotificationRequest> pending() const;
    std::vector<std::string> pendingIdentifiers() const;
    // Every request passed to add(), failed ones included, in call order.
    std::vector<platform::NotificationRequest> addedRequests() const;
    std::size_t getPendingCount() const;
    // Waits until every completion queued so far has run (only with a callback queue).
    void waitForCallbacks() const;

private:
    void deliverCompletion(platform::Job job);

    mutable std::mutex mutex_;
    std::shared_ptr<platform::Queue> callbackQueue_;
    platform::NotificationAuthorizationStatus status_ = platform::NotificationAuthorizationStatus::authorized;
    std::string failingIdentifier_;
    core::ErrorPtr addError_;
    std::vector<platform::NotificationRequest> pending_;
    std::vector<platform::NotificationRequest> added_;
    std::size_t getPendingCount_ = 0;
};

}  // namespace drovel::testing
