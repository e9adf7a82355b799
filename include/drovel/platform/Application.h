#pragma once
// The running application: its state, URL opening, and the time it gets in the background.

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace drovel::platform {

// The raw values are the platform's.
enum class ApplicationState { active = 0, inactive = 1, background = 2 };

// The answer a background fetch gives the system. The raw values are the platform's.
enum class BackgroundFetchResult { newData = 0, noData = 1, failed = 2 };

// Background fetch intervals in seconds.
inline constexpr double kBackgroundFetchIntervalMinimum = 0;
// No background fetches at all.
inline constexpr double kBackgroundFetchIntervalNever = std::numeric_limits<double>::max();

// Identifies a stretch of background time; kInvalidBackgroundTask means none was granted.
using BackgroundTaskIdentifier = std::uint64_t;
inline constexpr BackgroundTaskIdentifier kInvalidBackgroundTask = 0;

// Options of an open-URL request (none are used by the module: it passes empty options).
using OpenURLOptions = std::map<std::string, std::string, std::less<>>;

class Application;

// The host app's delegate, as far as URL opening goes. Called on the main queue.
class ApplicationDelegate {
public:
    virtual ~ApplicationDelegate() = default;
    // Whether the delegate handles URLs at all; when false, openURL is never called.
    virtual bool implementsOpenURL() const { return false; }
    // True when the app handled the URL itself.
    virtual bool application(Application& application, std::string_view openURL, const OpenURLOptions& options) {
        return false;
    }
};

// applicationState, delegate, open and setMinimumBackgroundFetchInterval are called on the main
// queue only; beginBackgroundTask and endBackgroundTask on any thread. Completions and expiration
// handlers run on the main queue.
class Application {
public:
    using OpenCompletion = std::function<void(bool success)>;

    virtual ~Application() = default;

    virtual ApplicationState applicationState() const = 0;
    // The host's delegate, or none.
    virtual std::shared_ptr<ApplicationDelegate> delegate() const = 0;
    // Asks the system to open the URL with the app registered for it; the completion (may be empty)
    // tells whether it was opened.
    virtual void open(std::string_view url, const OpenURLOptions& options, OpenCompletion completionHandler) = 0;
    // The least time between background fetches, in seconds, or kBackgroundFetchIntervalNever.
    virtual void setMinimumBackgroundFetchInterval(double interval) = 0;
    // Asks for time to finish work in the background. The expiration handler (may be empty) runs
    // shortly before the time is up; it must end the task. Returns kInvalidBackgroundTask when no
    // time is granted.
    virtual BackgroundTaskIdentifier beginBackgroundTask(std::string_view name,
                                                         std::function<void()> expirationHandler) = 0;
    // Ends the task; ending an unknown or already ended task does nothing.
    virtual void endBackgroundTask(BackgroundTaskIdentifier identifier) = 0;
};

}  // namespace drovel::platform
