// A whole sync on the Linux platform's real queues, clock, user defaults and libcurl transport,
// against a loopback backend, with a real database in a temporary folder. Only the device (its
// position and its notification centre) is simulated by the fakes.

#include <mutex>

#include "drovel/notify/NotifyCampaign.h"
#include "linux/LinuxPlatform.h"
#include "manager/ManagerHarness.h"
#include "support/LoopbackServer.h"
#include "support/TempDirectory.h"

namespace drovel::notify::test {
namespace {

// Answers the notifications request with one campaign and records each query's position and radius.
struct LoopbackBackend : drovel::testing::LoopbackServer {
    LoopbackBackend() {
        server().Get(std::string(kNotificationsPath), [this](const httplib::Request& request, httplib::Response& response) {
            {
                std::lock_guard lock(mutex);
                queries.push_back(request.get_param_value("latitude") + " " + request.get_param_value("longitude") + " " +
                                  request.get_param_value("radius"));
            }
            response.set_content(kOneCampaign, "application/json");
        });
    }
    std::vector<std::string> queried() {
        std::lock_guard lock(mutex);
        return queries;
    }
    std::mutex mutex;
    std::vector<std::string> queries;
};

TEST(ManagerEndToEndTest, ASyncStoresTheBackendsCampaigns) {
    moduleLogger().setLogLevel(core::LogLevel::verbose);
    drovel::testing::ScopedLogCapture logs;
    drovel::testing::TempDirectory directory;
    LoopbackBackend backend;

    auto made = platform::makeLinuxPlatform(directory.file("app"));
    ASSERT_TRUE(made) << made.error()->description();
    platform::Platform platform = made.value();
    auto locationProvider = std::make_shared<drovel::testing::FakeLocationProvider>(platform.mainQueue);
    locationProvider->setLocationAnswer(std::vector<platform::Location>{locationAt(platform.clock->now())});
    platform.locationProvider = locationProvider;
    platform.userNotificationCenter = std::make_shared<drovel::testing::FakeUserNotificationCenter>();

    auto core = std::make_shared<core::Core>(platform);
    core->configure({backend.baseURL(), "token"});
    auto database = std::make_shared<NotifyDBManager>(NotifyDBManager::databasePath(platform.applicationSupportDirectory), true);
    std::atomic<int> updates{0};
    platform.notificationCenter->addObserver(NotificationName::notifyCampaignsUpdated,
                                             [&](const platform::Notification&) { ++updates; });

    auto manager = Manager::make(platform, core, database);
    manager->configure(std::nullopt, nullptr);
    // Enabling runs setup, whose first sync asks the (simulated) device for its position.
    manager->configUpdated(notifyAppConfig(), std::nullopt);
    ASSERT_TRUE(platform.mainQueue->runUntil(
        [&] { return logs->contains("SyncDebug: Finished Sync initiated from performSyncIfNeeded.requestLocation()"); },
        kLimit));

    EXPECT_TRUE(logs->contains("SyncDebug: fetchNotifications() success."));
    EXPECT_EQ(backend.queried(), std::vector<std::string>{"52.2 4.4 500.0"});
    auto campaigns = database->dbManager().fetchAll<NotifyCampaign>();
    ASSERT_EQ(campaigns.size(), 1u);
    EXPECT_EQ(campaigns[0].id(), 7);
    ASSERT_TRUE(manager->lastSync());
    EXPECT_EQ(date(*platform.userDefaults, UserDefaultsKey::lastSync), manager->lastSync());
    EXPECT_EQ(updates.load(), 1);

    std::weak_ptr<Manager> last = manager;
    manager.reset();
    EXPECT_TRUE(platform.mainQueue->runUntil([&] { return last.expired(); }, kLimit));
}

}  // namespace
}  // namespace drovel::notify::test
