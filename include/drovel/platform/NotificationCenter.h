#pragma once
// In-process named broadcasts (the default notification centre) with block observers.

#include <any>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "drovel/platform/UserInfo.h"

namespace drovel::platform {

// The application's lifecycle broadcasts, posted on the main queue.
namespace ApplicationNotification {
inline constexpr std::string_view didBecomeActive = "UIApplicationDidBecomeActiveNotification";
inline constexpr std::string_view didEnterBackground = "UIApplicationDidEnterBackgroundNotification";
inline constexpr std::string_view willEnterForeground = "UIApplicationWillEnterForegroundNotification";
inline constexpr std::string_view willResignActive = "UIApplicationWillResignActiveNotification";
}  // namespace ApplicationNotification

// One broadcast. The object is whatever the poster attaches (an ErrorPtr, a shared_ptr to the
// sender, ...), or empty.
struct Notification {
    std::string name;
    std::any object;
    UserInfo userInfo;
};

// Identifies one observer for removal. Tokens are never reused within a centre.
struct ObserverToken {
    std::uint64_t value = 0;
    bool operator==(const ObserverToken&) const = default;
};

// Any thread may post, add and remove. Observers run synchronously on the posting thread, in the
// order they were added; post() returns after the last one. An observer may post, add and remove
// observers (itself included) while it runs. A post calls the observers present when it starts,
// except those removed before their turn; a post running on another thread at the moment of
// removal may still be inside the removed observer, or about to enter it.
class NotificationCenter {
public:
    using Block = std::function<void(const Notification& notification)>;

    virtual ~NotificationCenter() = default;

    void post(Notification notification) { postNotification(std::move(notification)); }
    void post(std::string_view name, std::any object = {}, UserInfo userInfo = {}) {
        postNotification(Notification{std::string(name), std::move(object), std::move(userInfo)});
    }
    // Runs block for every broadcast named name (an empty name: for every broadcast).
    virtual ObserverToken addObserver(std::string_view name, Block block) = 0;
    // Removing an unknown or already removed token does nothing.
    virtual void removeObserver(ObserverToken token) = 0;

protected:
    virtual void postNotification(Notification notification) = 0;
};

}  // namespace drovel::platform
