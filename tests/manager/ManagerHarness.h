#pragma once
// A manager on the fake platform, a real database in the platform's temporary folder and a
// configured core library, with helpers that pump the main queue until something holds.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>

#include "Helpers/UserDefaultsKey.h"
#include "data/ModuleLogger.h"
#include "data/NotifyDBManager.h"
#include "drovel/core/Core.h"
#include "drovel/notify/Manager.h"
#include "drovel/notify/NotificationNames.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyTriggerEvent.h"
#include "support/CapturingLogSink.h"
#include "support/FakePlatform.h"

namespace drovel::notify::test {

using namespace std::chrono_literals;

// Generous: a limit that only a hang reaches.
inline constexpr std::chrono::milliseconds kLimit = std::chrono::seconds(30);
inline constexpr std::string_view kNotificationsPath = "/api/v1/notify/notifications";
inline constexpr std::string_view kEventsPath = "/api/v1/notify/campaign_events";

// One campaign (7) at one site (10), running through 2026.
inline const std::string kOneCampaign = R"({"min_sync_interval_seconds": 0,
  "data": [{"campaign_id": 7, "site_id": 10, "content": {}}],
  "included": {"campaigns": [{"id": 7, "region_type": "geofence", "start_day": "2026-01-01",
                              "end_day": "2026-12-31", "repeat_interval_days": 1, "content": {},
                              "defer_on_pickup": false}],
               "sites": [{"id": 10, "distance_meters": 15, "latitude": "52.2", "longitude": "4.4"}]}})";
// A geofence campaign (7) at sites 10 and 11 with templated texts, a deep link and metadata; a
// beacon campaign (8) for any site; a beacon campaign (9) for the area of interest with major 3.
// Site 12 carries the beacon minor 5.
inline const std::string kCampaigns = R"({"min_sync_interval_seconds": 0,
  "data": [{"campaign_id": 7, "site_id": 10, "content": {"notification": {"title": "Hi {{ app.name }}", "body": "Near {{ 'site' | upcase }}"},
                                                       "deep_link_url": "shop://deal/{{ app.name }}", "metadata": {"tier": "{{ app.tier }}"}}},
           {"campaign_id": 7, "site_id": 11, "content": {"notification": {"title": "Hello", "body": "{{ app.missing }}"}}},
           {"campaign_id": 8, "content": {"notification": {"title": "Beacon"}, "metadata": {"kind": "b"}}},
           {"campaign_id": 9, "content": {}}],
  "included": {"campaigns": [
      {"id": 7, "region_type": "geofence", "geofence_radius_meters": 150, "start_day": "2026-01-01", "end_day": "2026-12-31",
       "repeat_interval_days": 1, "content": {"metadata": {"tier": "{{ app.tier }}"}}, "defer_on_pickup": false},
      {"id": 8, "region_type": "beacon", "beacon_uuid": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "start_day": "2026-01-01",
       "end_day": "2026-12-31", "content": {"metadata": {"kind": "b"}}, "defer_on_pickup": false},
      {"id": 9, "region_type": "beacon", "beacon_uuid": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "beacon_major": 3,
       "start_day": "2026-01-01", "end_day": "2026-12-31", "content": {}, "defer_on_pickup": false}],
    "sites": [{"id": 10, "distance_meters": 15, "latitude": "52.2", "longitude": "4.4"},
              {"id": 11, "distance_meters": 25, "latitude": "52.3", "longitude": "4.5"},
              {"id": 12, "distance_meters": 35, "latitude": "52.4", "longitude": "4.6", "beacon_minor": 5}]}})";
inline const std::string kNoCampaigns = R"({"min_sync_interval_seconds": 0, "data": [], "included": {"campaigns": []}})";

inline std::optional<NotifyErrorType> errorType(const core::ErrorPtr& error) {
    auto notifyError = std::dynamic_pointer_cast<const NotifyError>(error);
    return notifyError ? std::optional(notifyError->type()) : std::nullopt;
}

inline platform::Location locationAt(platform::Date timestamp) {
    platform::Location location;
    location.coordinate = {52.2, 4.4};
    location.timestamp = timestamp;
    return location;
}

inline core::AppConfig notifyAppConfig(std::optional<std::int64_t> maxSites = std::nullopt) {
    core::AppConfig config;
    config.data = core::AppConfigData{core::NotifyConfig{500, std::nullopt}, maxSites};
    return config;
}

inline platform::NotificationRequest pendingRequest(std::string identifier, platform::UserInfoValue source) {
    platform::NotificationRequest request;
    request.identifier = std::move(identifier);
    request.content.userInfo["message_source"] = std::move(source);
    return request;
}

// Collects the errors a callback reports, from any thread.
struct Reports {
    std::mutex mutex;
    std::vector<core::ErrorPtr> errors;
    std::vector<core::ErrorPtr> all() {
        std::lock_guard lock(mutex);
        return errors;
    }
    std::size_t size() { return all().size(); }
    Manager::Callback callback() {
        return [this](core::ErrorPtr error) {
            std::lock_guard lock(mutex);
            errors.push_back(error);
        };
    }
};

struct Harness {
    // coreConfigured: whether the core library knows its backend. The stored position is two hours
    // old, so syncs use it while app activation asks the (silent) location service for a new one.
    explicit Harness(bool coreConfigured = true) {
        moduleLogger().setLogLevel(core::LogLevel::verbose);
        core = std::make_shared<core::Core>(fake.platform());
        if (coreConfigured) core->configure({"http://backend.test", "token"});
        database = std::make_shared<NotifyDBManager>(NotifyDBManager::databasePath(fake.directory.path()), true);
        setLastLocation(*fake.userDefaults, locationAt(fake.clock->now() - 2h));
        fake.httpTransport->setHandler([this](const platform::HttpRequest& request) -> std::optional<platform::HttpResult> {
            if (request.url.find(kNotificationsPath) == std::string::npos) return std::nullopt;
            std::lock_guard lock(mutex);
            return platform::HttpResponse{notificationsStatus, {}, notificationsBody};
        });
        fake.notificationCenter->addObserver(NotificationName::notifyCampaignsUpdated,
                                             [this](const platform::Notification&) { ++campaignsUpdated; });
    }
    ~Harness() {
        // The refresh task's launch handler holds the manager; the system drops it when the app ends.
        fake.backgroundTaskScheduler->unregisterAll();
        // Callbacks still running on the platform's threads may hold the manager for a moment; it
        // must end before the seams it uses do.
        std::weak_ptr<Manager> last = made;
        made.reset();
        EXPECT_TRUE(fake.mainQueue->runUntil([&] { return last.expired(); }, kLimit));
    }

    // What the backend answers to the notifications request from now on.
    void answerNotifications(int status, std::string body) {
        std::lock_guard lock(mutex);
        notificationsStatus = status;
        notificationsBody = std::move(body);
    }

    Manager& manager() {
        if (!made) made = Manager::make(fake.platform(), core, database);
        return *made;
    }

    bool pumpUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = kLimit) {
        return fake.mainQueue->runUntil(condition, limit);
    }

    // Enables the module and waits for setup on the main queue.
    void enable(std::optional<core::PushData> push = std::nullopt) {
        manager().configUpdated(notifyAppConfig(), push);
        EXPECT_TRUE(pumpUntil([&] { return made->isNotifyConfigured(); }));
    }

    // Runs a sync to its callback; the error it reported.
    core::ErrorPtr syncAndWait(bool force) {
        bool done = false;
        core::ErrorPtr result;
        manager().sync(force, [&](core::ErrorPtr error) {
            result = error;
            done = true;
        });
        EXPECT_TRUE(pumpUntil([&] { return done; }));
        return result;
    }

    // The analytics events stored and not yet uploaded, of one kind.
    std::vector<NotifyAnalyticsEvent> analyticsEvents(NotifyAnalyticsEventType type) {
        std::vector<NotifyAnalyticsEvent> events;
        for (auto& event : database->dbManager().fetchAll<NotifyAnalyticsEvent>())
            if (event.name() == type) events.push_back(std::move(event));
        return events;
    }
    std::vector<NotifyTriggerEvent> triggerEvents() { return database->dbManager().fetchAll<NotifyTriggerEvent>(); }
    // Keeps analytics events in the database: every upload fails.
    void failUploads() { fake.httpTransport->respond(platform::HttpMethod::post, std::string(kEventsPath), 500, ""); }
    // Waits until every add and removal the centre was asked for has completed.
    void settleCentre() { fake.userNotificationCenter->waitForCallbacks(); }

    std::size_t notificationsRequests() const {
        std::size_t count = 0;
        for (const auto& request : fake.httpTransport->requests())
            if (request.url.find(kNotificationsPath) != std::string::npos) ++count;
        return count;
    }
    std::vector<std::string> diary() const {
        std::vector<std::string> entries;
        for (int i = 0; i < 11; ++i)
            if (auto entry = fake.userDefaults->string("NotifySDK.bgFetch" + std::to_string(i))) entries.push_back(*entry);
        return entries;
    }
    bool diaryHas(std::string_view text) const {
        for (const auto& entry : diary())
            if (entry.find(text) != std::string::npos) return true;
        return false;
    }

    // First, so that it hears everything the others log.
    drovel::testing::ScopedLogCapture logs;
    drovel::testing::FakePlatform fake;
    std::shared_ptr<core::Core> core;
    std::shared_ptr<NotifyDBManager> database;
    std::shared_ptr<Manager> made;
    std::atomic<int> campaignsUpdated{0};
    std::mutex mutex;
    int notificationsStatus = 200;
    std::string notificationsBody = kOneCampaign;
};

}  // namespace drovel::notify::test
