#pragma once
// Local notifications: requests that the system shows when the device enters a region.

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/platform/Clock.h"
#include "drovel/platform/Location.h"
#include "drovel/platform/UserInfo.h"

namespace drovel::platform {

enum class NotificationSound { none, defaultSound };

// What a notification shows, and the user-info it carries back when tapped.
struct NotificationContent {
    std::string title;
    std::string subtitle;
    std::string body;
    NotificationSound sound = NotificationSound::none;
    UserInfo userInfo;
    bool operator==(const NotificationContent&) const = default;
};

// Fires when the device enters (or leaves, as the region asks) a circular or a beacon region.
struct NotificationTrigger {
    std::variant<CircularRegion, BeaconRegion> region;
    bool repeats = false;
    bool operator==(const NotificationTrigger&) const = default;
};

// A scheduled notification. Adding a request with the identifier of a pending one replaces it.
struct NotificationRequest {
    std::string identifier;
    NotificationContent content;
    // None: shown at once.
    std::optional<NotificationTrigger> trigger;

    // "<NotificationRequest: identifier: ..., content: {title: ..., body: ..., userInfo: ...},
    //  trigger: ...>", for logs.
    std::string description() const;
    bool operator==(const NotificationRequest&) const = default;
};

// The action identifier of a plain tap on a notification.
inline constexpr std::string_view kNotificationDefaultActionIdentifier =
    "com.apple.UNNotificationDefaultActionIdentifier";

// The user's answer to a delivered notification.
struct NotificationResponse {
    std::string actionIdentifier{kNotificationDefaultActionIdentifier};
    // The request of the delivered notification.
    NotificationRequest request;
    // When the notification was delivered.
    Date date;
};

// Whether the app may post notifications. The raw values are the platform's.
enum class NotificationAuthorizationStatus {
    notDetermined = 0,
    denied = 1,
    authorized = 2,
    provisional = 3,
    ephemeral = 4,
};

struct NotificationSettings {
    NotificationAuthorizationStatus authorizationStatus = NotificationAuthorizationStatus::notDetermined;
    // True for authorized, provisional and ephemeral: the statuses under which notifications show.
    bool permitsNotifications() const {
        return authorizationStatus == NotificationAuthorizationStatus::authorized ||
               authorizationStatus == NotificationAuthorizationStatus::provisional ||
               authorizationStatus == NotificationAuthorizationStatus::ephemeral;
    }
};

// What an authorisation request asks for.
struct NotificationAuthorizationOptions {
    bool badge = false;
    bool sound = false;
    bool alert = false;
    bool provisional = false;
};

// Why the notification centre refused an operation. The codes are the platform's.
class UserNotificationError : public core::Error {
public:
    enum class Code { notificationsNotAllowed = 1, attachmentInvalidURL = 100, notificationInvalidNoDate = 1400,
                      notificationInvalidNoContent = 1401 };
    explicit UserNotificationError(Code code) : code_(code) {}
    Code code() const { return code_; }
    std::string description() const override {
        if (code_ == Code::notificationsNotAllowed) return "Notifications are not allowed for this application";
        return "The operation couldn\u2019t be completed. (UNErrorDomain error " +
               std::to_string(static_cast<int>(code_)) + ".)";
    }

private:
    Code code_;
};

// The system's notification centre. Any thread may call every operation. Completions run on a
// background thread of the centre, never on the main queue, and possibly before the call returns;
// so a thread other than the main one may block waiting for a completion.
class UserNotificationCenter {
public:
    using AddCompletion = std::function<void(core::ErrorPtr error)>;
    // The list is lent for the duration of the call (a centre may hand over the list it keeps):
    // copy what must outlive the completion, and read what you need before adding or removing
    // requests from within it, which may change the list.
    using PendingCompletion = std::function<void(const std::vector<NotificationRequest>& requests)>;
    using SettingsCompletion = std::function<void(NotificationSettings settings)>;
    using AuthorizationCompletion = std::function<void(bool granted, core::ErrorPtr error)>;

    virtual ~UserNotificationCenter() = default;

    // Schedules the request; the completion receives the error when it could not be scheduled.
    virtual void add(NotificationRequest request, AddCompletion completionHandler) = 0;
    // Every request scheduled and not yet delivered, in the order they were added.
    virtual void getPendingNotificationRequests(PendingCompletion completionHandler) = 0;
    // Unschedules the pending requests with these identifiers; unknown identifiers are ignored.
    // Takes effect before the call returns.
    virtual void removePendingNotificationRequests(std::vector<std::string> identifiers) = 0;
    virtual void getNotificationSettings(SettingsCompletion completionHandler) = 0;
    // Asks the user once; later calls answer with the first decision.
    virtual void requestAuthorization(NotificationAuthorizationOptions options,
                                      AuthorizationCompletion completionHandler) = 0;
};

}  // namespace drovel::platform
