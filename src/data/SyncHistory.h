#pragma once
// A short human-readable diary of background and push syncs, and a few status texts, kept in the
// host app's user defaults under "NotifySDK." keys for support staff to read.
//
// Diary: "NotifySDK.bgFetch0" (newest) ... "NotifySDK.bgFetch9" are read back; each new entry is put
// in front and the whole list written back, so "NotifySDK.bgFetch10" is written but never read
// again (a stale eleventh key, kept on purpose).
//
// Every operation is static and thread-safe as far as the user defaults are; two entries appended
// at the same moment from two threads may lose one of them. Nothing here throws.

#include <atomic>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/platform/Clock.h"

namespace drovel::core {
class Core;
}
namespace drovel::platform {
struct Platform;
class UserDefaults;
}  // namespace drovel::platform

namespace drovel::notify {

class SyncHistory {
public:
    SyncHistory() = delete;

    // When false, no operation writes to the user defaults (the verbose log lines are still written).
    static inline std::atomic<bool> writeToDefaultsEnabled{true};

    static constexpr std::string_view bgFetchKeyPrefix = "NotifySDK.bgFetch";
    static constexpr std::string_view lastSyncKey = "NotifySDK.lastSync";
    static constexpr std::string_view appInstanceIDKey = "NotifySDK.appInstanceID";
    static constexpr std::string_view appVersionKey = "NotifySDK.appVersion";

    // "NotifySDK.bgFetch" + index.
    static std::string bgFetchKey(int index);

    // The diary's date form: short date and medium time in the device's time zone (TZ, read at each
    // call), in the US English pattern "M/d/yy, h:mm:ss AM", e.g. "3/14/26, 1:05:09 PM". Empty when
    // the C library cannot convert the date.
    static std::string formattedDate(platform::Date date);

    // Appends formatted now + " " + text and logs that entry at verbose level.
    static void addEvent(const platform::Platform& platform, std::string_view text);
    // Puts entry in front of the diary (see above).
    static void append(platform::UserDefaults& defaults, std::string entry);
    // addEvent("backgroundTaskExpired").
    static void addBGTaskExpiredEvent(const platform::Platform& platform);
    // "<now> push try"; logs the entry + " Push fetch".
    static void addPushSyncAttemptEvent(const platform::Platform& platform);
    // "<now> push done" (+ ", Error = <description>"); logs the entry + " Push fetch".
    static void addPushSyncCompleteEvent(const platform::Platform& platform, const core::ErrorPtr& error);
    // "<now> bg try"; logs the entry + " BG fetch".
    static void addBGFetchAttemptEvent(const platform::Platform& platform);
    // "<now> bg done" (+ ", Error = <description>"); logs the entry + " BG fetch".
    static void addBGFetchCompleteEvent(const platform::Platform& platform, const core::ErrorPtr& error);

    // Stores formattedDate(date) under "NotifySDK.lastSync".
    static void updateLastSync(platform::UserDefaults& defaults, platform::Date date);
    // Stores the core library's app instance id, in canonical (upper-case) UUID text, under
    // "NotifySDK.appInstanceID".
    static void updateAppInstanceID(platform::UserDefaults& defaults, core::Core& core);
    // "<CFBundleShortVersionString or ?.?> Build <CFBundleVersion or ?>", from the platform's bundle info.
    static std::string appVersion(const platform::Platform& platform);
    // Stores appVersion() under "NotifySDK.appVersion".
    static void updateAppVersion(const platform::Platform& platform);
};

}  // namespace drovel::notify
