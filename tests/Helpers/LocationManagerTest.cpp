// The location manager on a fake location provider: position requests, guarded and plain ranging
// on both system-version paths, and the log lines support staff search for.

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "Helpers/LocationManager.h"
#include "Helpers/UserDefaultsKey.h"
#include "data/ModuleLogger.h"
#include "drovel/notify/NotifyError.h"
#include "support/CapturingLogSink.h"
#include "support/FakePlatform.h"

using namespace drovel;
using namespace drovel::notify;
using namespace std::chrono;
using platform::ApplicationState;
using platform::Beacon;
using platform::Location;

namespace {

constexpr auto kLimit = seconds(20);
const std::string kUUID = "E2C56DB5-DFFB-48D2-B060-D0F5A71096E0";

Location at(double latitude, double longitude, platform::Date timestamp) {
    Location location;
    location.coordinate = {latitude, longitude};
    location.timestamp = timestamp;
    return location;
}

std::optional<NotifyErrorType> notifyErrorType(const core::ErrorPtr& error) {
    auto notifyError = std::dynamic_pointer_cast<const NotifyError>(error);
    return notifyError ? std::optional(notifyError->type()) : std::nullopt;
}

class LocationManagerTest : public ::testing::Test {
protected:
    LocationManagerTest() { moduleLogger().setLogLevel(core::LogLevel::verbose); }

    std::shared_ptr<LocationManager> make() { return std::make_shared<LocationManager>(fake.platform()); }
    bool pumpUntil(const std::function<bool()>& condition) { return fake.mainQueue->runUntil(condition, kLimit); }

    drovel::testing::FakePlatform fake;
    drovel::testing::ScopedLogCapture logs;
};

TEST_F(LocationManagerTest, APositionRequestIsAnsweredOnceWithTheLastReportedPosition) {
    auto manager = make();
    std::vector<LocationManager::LocationResult> answers;
    manager->requestLocation([&](LocationManager::LocationResult result) { answers.push_back(std::move(result)); });
    EXPECT_EQ(fake.locationProvider->calls(),
              (std::vector<std::string>{"setDelegate", "setAllowsBackgroundLocationUpdates(false)",
                                        "setDesiredAccuracy(1000)", "requestLocation()"}));

    const auto now = fake.clock->now();
    fake.locationProvider->reportLocations({at(1, 1, now), at(2, 2, now), at(3, 3, now)});
    fake.locationProvider->reportLocations({at(4, 4, now)});
    ASSERT_TRUE(pumpUntil([&] { return manager->lastLocation() && manager->lastLocation()->coordinate.latitude == 4; }));

    ASSERT_EQ(answers.size(), 1u);
    ASSERT_TRUE(answers[0].ok());
    EXPECT_EQ(answers[0].value().coordinate.latitude, 3);
    // The second report only updates the position and its stored copy.
    EXPECT_EQ(lastLocation(*fake.userDefaults)->coordinate.latitude, 4);
    EXPECT_TRUE(logs->contains("SyncDebug: locationManager didUpdateLocations success"));
    EXPECT_EQ(logs->count("SyncDebug: callLocationCallback()"), 2u);
}

// An empty report fails with locationUnknown; a platform failure is passed on unchanged. The next
// request clears the error.
TEST_F(LocationManagerTest, AFailedPositionRequestKeepsItsErrorUntilTheNextRequest) {
    using platform::LocationError;
    for (bool empty : {true, false}) {
        SCOPED_TRACE(empty);
        auto manager = make();
        std::optional<LocationManager::LocationResult> answer;
        manager->requestLocation([&](LocationManager::LocationResult result) { answer = std::move(result); });
        auto denied = core::makeError<LocationError>(LocationError::Code::denied);
        if (empty) fake.locationProvider->reportLocations({});
        else fake.locationProvider->reportLocationFailure(denied);
        ASSERT_TRUE(pumpUntil([&] { return answer.has_value(); }));
        ASSERT_FALSE(answer->ok());
        auto error = std::dynamic_pointer_cast<const LocationError>(answer->error());
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), empty ? LocationError::Code::locationUnknown : LocationError::Code::denied);
        EXPECT_EQ(manager->lastError(), answer->error());
        EXPECT_TRUE(empty || answer->error() == denied);
        EXPECT_TRUE(logs->contains(empty ? "SyncDebug: locationManager didUpdateLocations error .locationUnknown"
                                         : "SyncDebug: locationManager didFailWithError: " + denied->description()));
        manager->requestLocation([](auto) {});
        EXPECT_FALSE(manager->lastError());
    }
}

// Ranging on both system-version paths: the report at 4.9 s keeps ranging, the first empty one
// after 5 s answers "no beacon" with both lines; a found beacon answers at once.
TEST_F(LocationManagerTest, RangingExpiresAfterFiveSecondsOnBothSystemPaths) {
    for (int version : {17, 12}) {
        SCOPED_TRACE(version);
        drovel::testing::FakePlatform local;
        local.systemMajorVersion = version;
        logs->clear();
        auto manager = std::make_shared<LocationManager>(local.platform());
        auto& provider = *local.locationProvider;
        auto report = [&](std::vector<Beacon> beacons) {
            if (version >= 13) provider.reportRange(std::move(beacons), {kUUID, std::nullopt, std::nullopt});
            else provider.reportRangeBeacons(std::move(beacons), {"DrovelNotify.Site", kUUID, std::nullopt, std::nullopt, true, true});
        };
        const std::string started = version >= 13 ? "startRangingBeacons(satisfying: " + kUUID + ")"
                                                  : "startRangingBeacons(in: DrovelNotify.Site)";
        const std::string stopped = version >= 13 ? "stopRangingBeacons(satisfying: " + kUUID + ")"
                                                  : "stopRangingBeacons(in: DrovelNotify.Site)";

        std::vector<LocationManager::BeaconResult> answers;
        manager->rangeForSite(kUUID, [&](LocationManager::BeaconResult result) { answers.push_back(result); });
        EXPECT_EQ(provider.callCount(started), 1u);
        EXPECT_TRUE(logs->contains(version >= 13 ? "SyncDebug: >= iOS 13 - startRangingBeacons"
                                                 : "SyncDebug: < iOS 13 - startRangingBeacons"));

        local.clock->advance(milliseconds(4900));
        report({});
        ASSERT_TRUE(local.mainQueue->runUntil([&] { return logs->contains("rangingShouldExpire == false"); }, kLimit));
        EXPECT_TRUE(answers.empty());
        EXPECT_EQ(provider.callCount(stopped), 0u);
        EXPECT_FALSE(logs->contains("rangingShouldExpire == true"));

        local.clock->advance(milliseconds(200));
        report({});
        ASSERT_TRUE(local.mainQueue->runUntil([&] { return !answers.empty(); }, kLimit));
        EXPECT_EQ(notifyErrorType(answers[0].error()), NotifyErrorType::noBeaconInRange);
        EXPECT_EQ(provider.callCount(stopped), 1u);
        EXPECT_TRUE(logs->contains("SyncDebug: didRangeBeacons, rangingShouldExpire == true, stopping ranging beacons"));
        EXPECT_EQ(logs->count("SyncDebug: didRangeBeacons, rangingShouldExpire == false, doing nothing"), 2u);
        EXPECT_TRUE(manager->lastRangeResult() && !manager->lastRangeResult()->ok());

        // A found beacon answers with the first one, however old the ranging is.
        answers.clear();
        manager->rangeForSite(kUUID, [&](LocationManager::BeaconResult result) { answers.push_back(result); });
        local.clock->advance(seconds(30));
        Beacon first{kUUID, 1, 7, {}, -1, 0, {}};
        report({first, Beacon{kUUID, 1, 8, {}, -1, 0, {}}});
        ASSERT_TRUE(local.mainQueue->runUntil([&] { return !answers.empty(); }, kLimit));
        ASSERT_TRUE(answers[0].ok());
        EXPECT_EQ(answers[0].value().minor, 7);
        EXPECT_TRUE(logs->contains("SyncDebug: didRangeBeacons, beacon found"));
        EXPECT_FALSE(manager->lastRangeResultDate());
    }
}

TEST_F(LocationManagerTest, ARangingFailureStopsRangingAndPassesTheErrorOn) {
    auto manager = make();
    std::optional<LocationManager::BeaconResult> answer;
    manager->rangeForSite(kUUID, [&](LocationManager::BeaconResult result) { answer = result; });
    auto failure = core::makeError<platform::LocationError>(platform::LocationError::Code::rangingFailure);
    fake.locationProvider->reportRangingFailure({kUUID, std::nullopt, std::nullopt}, failure);
    ASSERT_TRUE(pumpUntil([&] { return answer.has_value(); }));
    EXPECT_EQ(answer->error(), failure);
    EXPECT_TRUE(fake.locationProvider->rangedConstraints().empty());
    EXPECT_TRUE(logs->contains("SyncDebug: iOS 13 locationManager rangingBeaconsDidFail"));
}

TEST_F(LocationManagerTest, WithoutRangingTheAnswerComesAtOnceAndNothingStarts) {
    auto manager = make();
    fake.locationProvider->setRangingAvailable(false);
    std::optional<LocationManager::BeaconResult> answer;
    manager->rangeForSite(kUUID, [&](LocationManager::BeaconResult result) { answer = result; });
    ASSERT_TRUE(answer);
    EXPECT_EQ(notifyErrorType(answer->error()), NotifyErrorType::beaconRangingNotAvailable);
    EXPECT_EQ(fake.locationProvider->calls(), std::vector<std::string>{"isRangingAvailable()"});
    EXPECT_TRUE(logs->contains("SyncDebug: CLLocationManager.isRangingAvailable() == false"));
}

// The guarded path reads the application state through the main queue, so it runs off the main
// queue while the test pumps.
TEST_F(LocationManagerTest, GuardedRangingNeedsAUUIDAndAnActiveApplication) {
    auto manager = make();
    auto guarded = [&](std::optional<std::string> uuid) {
        std::promise<LocationManager::BeaconResult> answer;
        std::thread caller([&] {
            manager->rangeForSiteIfNeeded(uuid, [&](LocationManager::BeaconResult result) { answer.set_value(result); });
        });
        auto future = answer.get_future();
        pumpUntil([&] { return future.wait_for(seconds(0)) == std::future_status::ready; });
        caller.join();
        return future.get();
    };

    EXPECT_EQ(notifyErrorType(guarded(std::nullopt).error()), NotifyErrorType::notifyModuleNotConfigured);
    EXPECT_TRUE(logs->contains("SyncDebug: rangeForSiteIfNeeded.notifyModuleNotConfigured"));

    for (auto state : {ApplicationState::background, ApplicationState::inactive}) {
        fake.application->setApplicationState(state);
        EXPECT_EQ(notifyErrorType(guarded(kUUID).error()), NotifyErrorType::beaconRangingDisabledInBackground);
    }
    EXPECT_EQ(logs->count("SyncDebug: Not ranging for beacons because app is in the background"), 2u);
    EXPECT_TRUE(fake.locationProvider->rangedConstraints().empty());

    // Active: ranging starts, and an earlier result is never reused because its date stays unset.
    fake.application->setApplicationState(ApplicationState::active);
    std::thread caller([&] { manager->rangeForSiteIfNeeded(kUUID, [](auto) {}); });
    EXPECT_TRUE(pumpUntil([&] { return fake.locationProvider->rangedConstraints().size() == 1; }));
    caller.join();
    EXPECT_FALSE(logs->contains("SyncDebug: lastRangeResultNotStale"));
}

}  // namespace
