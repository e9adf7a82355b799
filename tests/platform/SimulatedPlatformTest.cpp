#include <gtest/gtest.h>

#include <future>
#include <mutex>

#include "drovel/platform/NotificationCenter.h"
#include "SimulatedDeviceTestSupport.h"
#include "linux/SimulatedPlatform.h"
#include "support/TempDirectory.h"

namespace drovel::platform {
namespace {

using namespace std::chrono_literals;
using namespace simulated;
using testing::TempDirectory;

class SimulatedPlatformTest : public ::testing::Test {
protected:
    void SetUp() override {
        SimulatedDeviceState fresh;
        fresh.now = kStart;
        fresh.position = LocationCoordinate{40.7128, -74.006};
        auto made = makeSimulatedPlatform({directory.file("device"), {}, nullptr, fresh});
        ASSERT_TRUE(made) << made.error()->description();
        simulated = std::move(made).value();
        device = simulated.device;
        log = std::make_shared<ReportLog>(device);
        simulated.platform.locationProvider->setDelegate(log);
    }
    bool pumpUntil(const std::function<bool()>& done) { return simulated.platform.mainQueue->runUntil(done, 10s); }

    TempDirectory directory;
    SimulatedPlatform simulated;
    std::shared_ptr<SimulatedDevice> device;
    std::shared_ptr<ReportLog> log;
};

TEST_F(SimulatedPlatformTest, EverySeamIsTheDevicesOwn) {
    const Platform& platform = simulated.platform;
    EXPECT_EQ(platform.clock->now(), kStart);
    EXPECT_EQ(platform.applicationSupportDirectory, directory.file("device/ApplicationSupport"));
    EXPECT_EQ(platform.systemMajorVersion, 17);
    EXPECT_TRUE(platform.userDefaults && platform.mainQueue && platform.globalQueue && platform.notificationCenter);

    std::vector<std::string> broadcasts;
    platform.notificationCenter->addObserver("", [&](const Notification& n) { broadcasts.push_back(n.name); });
    device->setAppState(ApplicationState::background);
    EXPECT_EQ(platform.application->applicationState(), ApplicationState::background);
    device->setAppState(ApplicationState::active);
    EXPECT_EQ(broadcasts, (std::vector<std::string>{"UIApplicationWillResignActiveNotification",
                                                    "UIApplicationDidEnterBackgroundNotification",
                                                    "UIApplicationWillEnterForegroundNotification",
                                                    "UIApplicationDidBecomeActiveNotification"}));

    std::vector<std::string> opened;
    device->addObserver([&](const SimulatedDeviceEvent& event) {
        if (event.kind == SimulatedDeviceEvent::Kind::openedURL) opened.push_back(event.url);
    });
    bool success = false;
    platform.application->open("shop://offers/7", {}, [&](bool ok) { success = ok; });
    EXPECT_TRUE(pumpUntil([&] { return success; }));
    EXPECT_EQ(opened, (std::vector<std::string>{"shop://offers/7"}));
}

TEST_F(SimulatedPlatformTest, TheNotificationCentreAnswersFromTheDevice) {
    // Adds and the pending list: CompletionsComeInCallOrderAcrossAMainQueueBurst.
    auto& center = *simulated.platform.userNotificationCenter;
    ASSERT_EQ(device->addRequest({"7", {}, NotificationTrigger{CircularRegion{"7", {40.0, -74.0}, 100, true, false}, false}}),
              nullptr);
    center.removePendingNotificationRequests({"7"});
    EXPECT_TRUE(device->pendingRequests().empty());

    device->apply(changing(&SimulatedDeviceSettings::notifications, NotificationAuthorizationStatus::notDetermined));
    std::promise<NotificationSettings> before;
    center.getNotificationSettings([&](NotificationSettings settings) { before.set_value(settings); });
    EXPECT_FALSE(before.get_future().get().permitsNotifications());
    std::promise<bool> granted;
    center.requestAuthorization({true, true, true, false}, [&](bool ok, core::ErrorPtr) { granted.set_value(ok); });
    EXPECT_TRUE(granted.get_future().get());
    EXPECT_EQ(device->notificationAuthorization(), NotificationAuthorizationStatus::authorized);
}

// A set-up adds thousands of requests from one main-queue job; their completions may be handed
// over in a batch, but never out of order with a later call from another thread, and never lost.
TEST_F(SimulatedPlatformTest, CompletionsComeInCallOrderAcrossAMainQueueBurst) {
    auto& center = *simulated.platform.userNotificationCenter;
    std::mutex mutex;
    std::vector<std::string> order;
    auto note = [&](std::string text) {
        std::lock_guard lock(mutex);
        order.push_back(std::move(text));
    };
    bool jobRan = false, answeredInJob = false;
    simulated.platform.mainQueue->async([&] {
        for (std::string id : {"a", "b"})
            center.add({id, {}, NotificationTrigger{CircularRegion{id, {40.0, -74.0}, 100, true, false}, false}},
                       [&, id](core::ErrorPtr error) { note("added " + id + (error ? " failed" : "")); });
        // More than one batch of adds, shown at once.
        for (int i = 0; i < 1200; ++i)
            center.add({std::to_string(i), {}, std::nullopt}, [&, i](core::ErrorPtr) { note(std::to_string(i)); });
        // A job may block for an answer other than an add's, as the manager does for the settings.
        auto settings = std::make_shared<std::promise<void>>();
        center.getNotificationSettings([&, settings](NotificationSettings) {
            note("settings");
            settings->set_value();
        });
        answeredInJob = settings->get_future().wait_for(60s) == std::future_status::ready;
        jobRan = true;
    });
    ASSERT_TRUE(pumpUntil([&] { return jobRan; }));
    center.getPendingNotificationRequests([&](auto requests) { note("pending " + std::to_string(requests.size())); });
    ASSERT_TRUE(pumpUntil([&] {
        std::lock_guard lock(mutex);
        return order.size() == 1204;
    }));
    EXPECT_TRUE(answeredInJob);
    std::vector<std::string> expected{"added a", "added b"};
    for (int i = 0; i < 1200; ++i) expected.push_back(std::to_string(i));
    expected.insert(expected.end(), {"settings", "pending 2"});
    EXPECT_EQ(order, expected);
}

TEST_F(SimulatedPlatformTest, PositionRequestsAnswerFromTheDevice) {
    auto& provider = *simulated.platform.locationProvider;
    provider.requestLocation();
    ASSERT_TRUE(pumpUntil([&] { return log->positions.size() == 1; }));
    ASSERT_EQ(log->positions[0].size(), 1u);
    EXPECT_EQ(log->positions[0][0].coordinate, (LocationCoordinate{40.7128, -74.006}));
    EXPECT_EQ(log->positions[0][0].timestamp, kStart);

    device->setPosition(std::nullopt);
    provider.requestLocation();
    ASSERT_TRUE(pumpUntil([&] { return log->failures.size() == 1; }));
    device->apply(changing(&SimulatedDeviceSettings::locationServices, false));
    EXPECT_FALSE(provider.locationServicesEnabled());
    provider.requestLocation();
    ASSERT_TRUE(pumpUntil([&] { return log->failures.size() == 2; }));
    EXPECT_EQ(log->failures, (std::vector<std::string>{
                                 "The operation couldn\u2019t be completed. (kCLErrorDomain error 0.)",
                                 "The operation couldn\u2019t be completed. (kCLErrorDomain error 1.)"}));
}

TEST_F(SimulatedPlatformTest, RangingReportsOncePerSimulatedSecondUntilStopped) {
    const Beacon near{kUUID, 3, 9, BeaconProximity::unknown, 0.8, 0, {}}, far{kUUID, 3, 10, BeaconProximity::unknown, 12, 0, {}},
        other{kUUID, 4, 9, BeaconProximity::unknown, 0.8, 0, {}};
    device->setBeacons({far, other, near});
    log->stopAfter = 3;
    auto& provider = *simulated.platform.locationProvider;
    provider.startRangingBeacons(BeaconIdentityConstraint{kUUID, 3, std::nullopt});
    ASSERT_TRUE(pumpUntil([&] { return simulated.locationProvider->activeRangingCount() == 0; }));
    simulated.platform.mainQueue->drain();

    ASSERT_EQ(log->ranges.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(log->ranges[i].at, kStart + std::chrono::seconds(i + 1));
    ASSERT_EQ(log->ranges[0].beacons.size(), 2u);
    EXPECT_EQ(log->ranges[0].beacons[0].minor, 9);  // nearest first
    EXPECT_EQ(log->ranges[0].beacons[0].proximity, BeaconProximity::near);
    EXPECT_EQ(log->ranges[0].beacons[1].proximity, BeaconProximity::far);
    EXPECT_EQ(log->ranges[0].beacons[0].timestamp, kStart + 1s);

    // The older form of ranging, by region.
    provider.startRangingBeacons(BeaconRegion{"DrovelNotify.Site", kUUID, std::nullopt, std::nullopt, true, true});
    ASSERT_TRUE(pumpUntil([&] { return log->ranges.size() == 4; }));
    EXPECT_EQ(log->ranges[3].beacons.size(), 3u);
}

TEST_F(SimulatedPlatformTest, RangingFailsWhenTheDeviceCannotRangeAndEndsWhenNobodyStopsIt) {
    device->apply(changing(&SimulatedDeviceSettings::rangingAvailable, false));
    auto& provider = *simulated.platform.locationProvider;
    provider.startRangingBeacons(BeaconIdentityConstraint{kUUID, std::nullopt, std::nullopt});
    ASSERT_TRUE(pumpUntil([&] { return log->failures.size() == 1; }));
    EXPECT_EQ(log->failures[0], "The operation couldn\u2019t be completed. (kCLErrorDomain error 16.)");

    device->apply(changing(&SimulatedDeviceSettings::rangingAvailable, true));
    provider.startRangingBeacons(BeaconIdentityConstraint{kUUID, std::nullopt, std::nullopt});
    ASSERT_TRUE(pumpUntil([&] { return log->failures.size() == 2; }));
    EXPECT_EQ(log->ranges.size(), std::size_t{SimulatedLocationProvider::kMaxRangingReports});
    EXPECT_EQ(log->failures[1], "The operation couldn\u2019t be completed. (kCLErrorDomain error 17.)");
    EXPECT_EQ(simulated.locationProvider->activeRangingCount(), 0u);
}

TEST_F(SimulatedPlatformTest, AnOfflineDeviceReachesNothing) {
    device->setOnline(false);
    std::promise<bool> reachable;
    simulated.platform.connectivityProbe->probe(100ms, [&](bool ok) { reachable.set_value(ok); });
    EXPECT_FALSE(reachable.get_future().get());

    std::promise<HttpResult> result;
    simulated.platform.httpTransport->send({HttpMethod::get, "http://127.0.0.1:9/x", {}, {}},
                                           [&](HttpResult r) { result.set_value(std::move(r)); });
    auto answer = result.get_future().get();
    ASSERT_TRUE(std::holds_alternative<TransportError>(answer));
    EXPECT_EQ(std::get<TransportError>(answer).kind, TransportErrorKind::cannotConnect);

    device->setOnline(true);
    std::promise<bool> back;
    simulated.platform.connectivityProbe->probe(100ms, [&](bool ok) { back.set_value(ok); });
    EXPECT_TRUE(back.get_future().get());
}

}  // namespace
}  // namespace drovel::platform
