#include "data/SyncHistory.h"

#include <cstdio>
#include <ctime>
#include <vector>

#include "data/ModuleLogger.h"
#include "drovel/core/Core.h"
#include "drovel/notify/NotifyRecord.h"
#include "drovel/platform/Platform.h"

namespace drovel::notify {

namespace {

constexpr std::string_view kFile = "SyncHistory";
// Entries read back from the diary; one more than this is written.
constexpr int kDiaryEntriesRead = 10;

bool writing() { return SyncHistory::writeToDefaultsEnabled.load(std::memory_order_relaxed); }

std::string stamped(const platform::Platform& platform, std::string_view text) {
    std::string entry = SyncHistory::formattedDate(platform.clock->now());
    entry += text;
    return entry;
}

std::string withError(std::string entry, const core::ErrorPtr& error) {
    if (error) entry += ", Error = " + error->description();
    return entry;
}

void record(const platform::Platform& platform, std::string entry, std::string_view logSuffix,
            std::string_view operation) {
    SyncHistory::append(*platform.userDefaults, entry);
    moduleLogger().verbose(entry + std::string(logSuffix), DROVEL_SOURCE(kFile, operation));
}

}  // namespace

std::string SyncHistory::bgFetchKey(int index) { return std::string(bgFetchKeyPrefix) + std::to_string(index); }

std::string SyncHistory::formattedDate(platform::Date date) {
    std::time_t seconds = platform::timeT(date);
    // localtime_r alone need not notice a changed TZ.
    tzset();
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) return {};
    int hour = local.tm_hour % 12 == 0 ? 12 : local.tm_hour % 12;
    char text[64];
    int length = std::snprintf(text, sizeof text, "%d/%d/%02d, %d:%02d:%02d %s", local.tm_mon + 1, local.tm_mday,
                               (local.tm_year + 1900) % 100, hour, local.tm_min, local.tm_sec,
                               local.tm_hour < 12 ? "AM" : "PM");
    if (length <= 0) return {};
    return std::string(text, static_cast<std::size_t>(length));
}

void SyncHistory::addEvent(const platform::Platform& platform, std::string_view text) {
    std::string entry = stamped(platform, " ");
    entry += text;
    append(*platform.userDefaults, entry);
    moduleLogger().verbose(entry, DROVEL_SOURCE(kFile, "addEvent(_:)"));
}

void SyncHistory::append(platform::UserDefaults& defaults, std::string entry) {
    if (!writing()) return;
    std::vector<std::string> entries{std::move(entry)};
    for (int i = 0; i < kDiaryEntriesRead; ++i) {
        // Missing and non-text values are skipped, so later entries move up and leave no gap.
        if (auto text = defaults.string(bgFetchKey(i))) entries.push_back(std::move(*text));
    }
    // All of them go back, up to eleven: the last key is written but never read again.
    for (std::size_t i = 0; i < entries.size(); ++i)
        defaults.setString(bgFetchKey(static_cast<int>(i)), std::move(entries[i]));
}

void SyncHistory::addBGTaskExpiredEvent(const platform::Platform& platform) {
    addEvent(platform, "backgroundTaskExpired");
}

void SyncHistory::addPushSyncAttemptEvent(const platform::Platform& platform) {
    record(platform, stamped(platform, " push try"), " Push fetch", "addPushSyncAttemptEvent()");
}

void SyncHistory::addPushSyncCompleteEvent(const platform::Platform& platform, const core::ErrorPtr& error) {
    record(platform, withError(stamped(platform, " push done"), error), " Push fetch",
           "addPushSyncCompleteEvent(error:)");
}

void SyncHistory::addBGFetchAttemptEvent(const platform::Platform& platform) {
    record(platform, stamped(platform, " bg try"), " BG fetch", "addBGFetchAttemptEvent()");
}

void SyncHistory::addBGFetchCompleteEvent(const platform::Platform& platform, const core::ErrorPtr& error) {
    record(platform, withError(stamped(platform, " bg done"), error), " BG fetch", "addBGFetchCompleteEvent(error:)");
}

void SyncHistory::updateLastSync(platform::UserDefaults& defaults, platform::Date date) {
    if (writing()) defaults.setString(lastSyncKey, formattedDate(date));
}

void SyncHistory::updateAppInstanceID(platform::UserDefaults& defaults, core::Core& core) {
    if (!writing()) return;
    std::string id = core.appInstanceID();
    // The core library keeps the id in lower case; the canonical text is upper case.
    auto uuid = UUID::fromString(id);
    defaults.setString(appInstanceIDKey, uuid ? uuid->uuidString() : id);
}

std::string SyncHistory::appVersion(const platform::Platform& platform) {
    auto value = [&](std::string_view key, std::string_view fallback) {
        auto entry = platform.bundleInfo.find(key);
        return entry == platform.bundleInfo.end() ? std::string(fallback) : entry->second;
    };
    return value("CFBundleShortVersionString", "?.?") + " Build " + value("CFBundleVersion", "?");
}

void SyncHistory::updateAppVersion(const platform::Platform& platform) {
    if (writing()) platform.userDefaults->setString(appVersionKey, appVersion(platform));
}

}  // namespace drovel::notify
