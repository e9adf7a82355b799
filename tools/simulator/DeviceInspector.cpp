#include "simulator/DeviceInspector.h"

#include <sqlite3.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "drovel/core/JsonWriter.h"
#include "data/NotifyDBManager.h"
#include "drovel/notify/Manager.h"
#include "linux/FileUserDefaults.h"
#include "linux/SimulatedDevice.h"
#include "simulator/Scenario.h"

namespace drovel::simulator {

namespace {

namespace fs = std::filesystem;

// Prefixes of the module's user-defaults keys (its own values and its sync diary).
constexpr std::string_view kModuleKeyPrefixes[] = {"DrovelNotify.", "NotifySDK."};
// Campaign notifications carry this identifier prefix; site ones the "drovel.notify" source.
constexpr std::string_view kCampaignRequestPrefix = "drovel.notify.v2 ";

core::ErrorPtr fail(std::string text) { return core::makeError<core::SimpleError>(std::move(text)); }

bool isModuleKey(std::string_view key) {
    for (auto prefix : kModuleKeyPrefixes)
        if (key.starts_with(prefix)) return true;
    return false;
}

bool isCampaignRequest(const platform::NotificationRequest& request) {
    return request.identifier.starts_with(kCampaignRequestPrefix);
}

core::Result<std::shared_ptr<platform::SimulatedDevice>> openDevice(const std::string& directory) {
    std::error_code ec;
    if (!fs::is_regular_file(fs::path(directory) / platform::SimulatedDevice::stateFileName, ec))
        return fail("no simulated device in " + directory);
    platform::SimulatedDeviceOptions options;
    options.directory = directory;
    return platform::SimulatedDevice::open(std::move(options));
}

std::string databasePath(const platform::SimulatedDevice& device) {
    return (fs::path(device.applicationSupportDirectory()) / notify::NotifyDBManager::fileName).string();
}

// Row counts of the module's tables; -1 for a table that is not there (or no database).
struct Counts {
    long long campaigns = -1, sites = -1, analyticsEvents = -1;
};

long long countRows(sqlite3* db, const char* table) {
    sqlite3_stmt* statement = nullptr;
    const std::string sql = std::string("SELECT COUNT(*) FROM '") + table + "'";
    long long count = -1;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
        count = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return count;
}

Counts countStored(const std::string& path) {
    Counts counts;
    std::error_code ec;
    if (!fs::exists(path, ec)) return counts;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 2000);
        counts.campaigns = countRows(db, "notify_campaign");
        counts.sites = countRows(db, "notify_site");
        counts.analyticsEvents = countRows(db, "notify_analytics_event");
    }
    sqlite3_close(db);
    return counts;
}

std::string dateText(const std::optional<platform::Date>& date) {
    return date ? platform::deviceDateText(*date) : std::string();
}

std::string sessionText(const std::string& directory) {
    std::ifstream file(fs::path(directory) / kSessionFileName);
    std::ostringstream text;
    text << file.rdbuf();
    // The runner writes one small JSON object; anything else is shown as unknown.
    std::string session = text.str();
    while (!session.empty() && std::isspace(static_cast<unsigned char>(session.back()))) session.pop_back();
    if (session.size() > 4096 || session.find('{') != 0) return "null";
    return session;
}

}  // namespace

core::ErrorPtr printStatus(const std::string& directory, bool json, std::ostream& out) {
    auto opened = openDevice(directory);
    if (!opened) return opened.error();
    const auto& device = *opened.value();
    const auto state = device.state();
    platform::FileUserDefaults defaults(device.userDefaultsPath());
    const auto counts = countStored(databasePath(device));

    std::vector<std::string> campaignPending, sitePending, diary;
    for (const auto& pending : state.pending) {
        if (isCampaignRequest(pending.request)) campaignPending.push_back(pending.request.identifier);
        else if (notify::Manager::isDrovelNotifyUserInfo(pending.request.content.userInfo))
            sitePending.push_back(pending.request.identifier);
    }
    for (int i = 0; i < 11; ++i)
        if (auto entry = defaults.string("NotifySDK.bgFetch" + std::to_string(i))) diary.push_back(*entry);
    const auto lastSync = defaults.date("DrovelNotify.lastSync");
    const auto lastFetch = defaults.date("DrovelNotify.lastFetch");
    const std::string session = sessionText(directory);

    if (json) {
        core::JsonWriter writer;
        auto list = [&writer](std::string_view key, const std::vector<std::string>& items) {
            writer.key(key).beginArray();
            for (const auto& item : items) writer.value(item);
            writer.endArray();
        };
        auto optionalCount = [&writer](std::string_view key, long long count) {
            writer.key(key);
            if (count < 0) writer.null();
            else writer.value(count);
        };
        writer.beginObject();
        writer.key("now").value(platform::deviceDateText(state.now));
        writer.key("permissions").beginObject();
        writer.key("notifications").value(platform::notificationAuthorizationName(state.notifications));
        writer.key("location").value(platform::locationAuthorizationName(state.location));
        writer.key("location_services").value(state.locationServices);
        writer.key("ranging_available").value(state.rangingAvailable);
        writer.endObject();
        writer.key("session").raw(session);
        writer.key("last_sync");
        if (lastSync) writer.value(dateText(lastSync)); else writer.null();
        writer.key("last_fetch");
        if (lastFetch) writer.value(dateText(lastFetch)); else writer.null();
        list("pending_campaign_notifications", campaignPending);
        list("pending_site_notifications", sitePending);
        optionalCount("stored_campaigns", counts.campaigns);
        optionalCount("stored_sites", counts.sites);
        optionalCount("analytics_events_waiting", counts.analyticsEvents);
        list("sync_diary", diary);
        writer.endObject();
        out << writer.str() << '\n';
        return nullptr;
    }
    auto count = [](long long value) { return value < 0 ? std::string("none (no database)") : std::to_string(value); };
    out << "Device " << directory << " at " << platform::deviceDateText(state.now) << '\n'
        << "Permissions: notifications " << platform::notificationAuthorizationName(state.notifications)
        << ", location " << platform::locationAuthorizationName(state.location) << ", location services "
        << (state.locationServices ? "on" : "off") << ", ranging " << (state.rangingAvailable ? "available" : "unavailable")
        << '\n'
        << "Last run's switches: " << session << '\n'
        << "Last sync: " << (lastSync ? dateText(lastSync) : "never") << '\n'
        << "Last download: " << (lastFetch ? dateText(lastFetch) : "never") << '\n'
        << "Pending campaign notifications: " << campaignPending.size() << '\n';
    for (const auto& identifier : campaignPending) out << "  " << identifier << '\n';
    out << "Pending site notifications: " << sitePending.size() << '\n';
    for (const auto& identifier : sitePending) out << "  " << identifier << '\n';
    out << "Stored campaigns: " << count(counts.campaigns) << '\n'
        << "Stored sites: " << count(counts.sites) << '\n'
        << "Analytics events waiting: " << count(counts.analyticsEvents) << '\n'
        << "Sync diary:" << (diary.empty() ? " empty" : "") << '\n';
    for (const auto& entry : diary) out << "  " << entry << '\n';
    return nullptr;
}

core::ErrorPtr purgeModule(const std::string& directory, std::ostream& out) {
    auto opened = openDevice(directory);
    if (!opened) return opened.error();
    auto& device = *opened.value();

    int files = 0;
    const std::string database = databasePath(device);
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
        std::error_code ec;
        if (fs::remove(database + suffix, ec)) ++files;
    }
    out << (files ? "Removed the database " + database : "No database to remove") << '\n';

    int keys = 0;
    {
        platform::FileUserDefaults defaults(device.userDefaultsPath());
        for (const auto& [key, value] : defaults.dictionaryRepresentation()) {
            if (!isModuleKey(key)) continue;
            defaults.removeObject(key);
            ++keys;
        }
        if (!defaults.synchronize()) return fail("cannot write " + device.userDefaultsPath());
    }
    out << "Removed " << keys << " user-defaults keys" << '\n';

    std::vector<std::string> identifiers;
    for (const auto& request : device.pendingRequests())
        if (isCampaignRequest(request) || notify::Manager::isDrovelNotifyUserInfo(request.content.userInfo))
            identifiers.push_back(request.identifier);
    device.removePendingRequests(identifiers);
    if (!device.synchronize()) return fail("cannot write " + device.statePath());
    out << "Removed " << identifiers.size() << " pending notifications" << '\n';
    std::error_code ec;
    fs::remove(fs::path(directory) / kSessionFileName, ec);
    return nullptr;
}

}  // namespace drovel::simulator
