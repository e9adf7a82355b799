#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "SimulatedDeviceTestSupport.h"
#include "support/ScopedTimeZone.h"
#include "support/TempDirectory.h"

namespace drovel::platform {
namespace {

using namespace std::chrono_literals;
using namespace simulated;
using testing::TempDirectory;

constexpr LocationCoordinate kStore{40.7128, -74.0060};

// A point `meters` north of the store.
LocationCoordinate north(double meters) { return {kStore.latitude + meters / 111195.0, kStore.longitude}; }

NotificationRequest geofenceRequest(const std::string& identifier, double radius = 100, bool onEntry = true) {
    return {identifier, {"Welcome", "", "", NotificationSound::none, {{"Drovel.Notify.CampaignID", std::int64_t{7}}}},
            NotificationTrigger{CircularRegion{identifier, kStore, radius, onEntry, false}, false}};
}

NotificationRequest beaconRequest(const std::string& identifier, std::optional<std::uint16_t> major) {
    return {identifier, {}, NotificationTrigger{BeaconRegion{identifier, kUUID, major, std::nullopt, true, false}, false}};
}

Beacon beacon(std::string uuid, std::uint16_t major, std::uint16_t minor, double accuracy = 1) {
    return {std::move(uuid), major, minor, BeaconProximity::unknown, accuracy, 0, {}};
}

std::vector<std::string> identifiers(const std::vector<DeliveredNotification>& delivered) {
    std::vector<std::string> out;
    for (const auto& notification : delivered) out.push_back(notification.request.identifier);
    return out;
}

class SimulatedDeviceTest : public ::testing::Test {
protected:
    std::shared_ptr<SimulatedDevice> open(std::optional<SimulatedDeviceState> fresh = std::nullopt) {
        if (!fresh) {
            fresh.emplace();
            fresh->now = kStart;
        }
        auto device = SimulatedDevice::open({directory.file("device"), nullptr, std::move(fresh), 1ms});
        EXPECT_TRUE(device) << device.error()->description();
        return device ? device.value() : nullptr;
    }

    TempDirectory directory;
};

TEST_F(SimulatedDeviceTest, CircularRegionsFireOnEntryOnly) {
    struct Case {
        const char* name;
        std::optional<LocationCoordinate> atAdd;
        std::vector<LocationCoordinate> moves;
        bool onEntry;
        SimulatedDeviceSettings settings;
        bool fires;
    };
    const auto servicesOff = changing(&SimulatedDeviceSettings::locationServices, false);
    const auto denied = changing(&SimulatedDeviceSettings::location, AuthorizationStatus::denied);
    const auto whenInUse = changing(&SimulatedDeviceSettings::location, AuthorizationStatus::authorizedWhenInUse);
    const std::vector<Case> cases = {
        {"outside then inside", north(500), {north(50)}, true, {}, true},
        {"unknown position then inside", std::nullopt, {north(50)}, true, {}, true},
        {"inside when added", north(50), {north(20)}, true, {}, false},
        {"inside when added, out and back", north(50), {north(500), north(20)}, true, {}, true},
        {"in, out and in again fires once", north(500), {north(10), north(500), north(10)}, true, {}, true},
        {"never inside", north(500), {north(150), north(101)}, true, {}, false},
        {"on the rim", north(500), {north(99.9)}, true, {}, true},
        {"exit only region", north(500), {north(50)}, false, {}, false},
        {"location services off", north(500), {north(50)}, true, servicesOff, false},
        {"location denied", north(500), {north(50)}, true, denied, false},
        {"when in use is enough", north(500), {north(50)}, true, whenInUse, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(directory.file("device"));
        auto device = open();
        device->apply(c.settings);
        device->setPosition(c.atAdd);
        ASSERT_EQ(device->addRequest(geofenceRequest("g", 100, c.onEntry)), nullptr);
        device->advance(90s);
        for (auto position : c.moves) device->setPosition(position);
        auto delivered = device->deliveredNotifications();
        ASSERT_EQ(delivered.size(), c.fires ? 1u : 0u);
        EXPECT_EQ(device->pendingRequests().size(), c.fires ? 0u : 1u);
        if (c.fires) {
            EXPECT_EQ(delivered[0].date, kStart + 90s);  // the device's time
            EXPECT_EQ(delivered[0].request, geofenceRequest("g", 100, c.onEntry));
        }
    }
}

TEST_F(SimulatedDeviceTest, BeaconRegionsFireWhenAMatchingBeaconComesIntoRange) {
    auto device = open();
    device->addRequest(beaconRequest("any", std::nullopt));
    device->addRequest(beaconRequest("major 5", 5));
    device->addRequest(beaconRequest("major 6", 6));

    device->setBeacons({beacon("11111111-2222-3333-4444-555555555555", 5, 1)});
    EXPECT_TRUE(device->deliveredNotifications().empty());
    // Letter case does not matter in a UUID.
    device->setBeacons({beacon("e2c56db5-dffb-48d2-b060-d0f5a71096e0", 5, 1)});
    EXPECT_EQ(identifiers(device->deliveredNotifications()), (std::vector<std::string>{"any", "major 5"}));
    EXPECT_EQ(device->pendingRequests().size(), 1u);

    // A request added while its beacon is in range waits for the next time it comes into range.
    device->setBeacons({beacon(kUUID, 6, 1)});
    device->addRequest(beaconRequest("late", std::nullopt));
    device->setBeacons({beacon(kUUID, 6, 2)});
    EXPECT_EQ(identifiers(device->deliveredNotifications()).size(), 3u);
    device->setBeacons({});
    device->setBeacons({beacon(kUUID, 9, 9)});
    EXPECT_EQ(identifiers(device->deliveredNotifications()).back(), "late");
}

TEST_F(SimulatedDeviceTest, RefusesAddsBeyondThePendingLimitAndWhenNotAllowed) {
    SimulatedDeviceState fresh;
    fresh.pendingLimit = 2;
    auto device = open(fresh);
    EXPECT_EQ(device->addRequest(geofenceRequest("a")), nullptr);
    EXPECT_EQ(device->addRequest(geofenceRequest("b")), nullptr);
    auto refused = device->addRequest(geofenceRequest("c"));
    ASSERT_NE(refused, nullptr);
    EXPECT_EQ(refused->description(),
              "The device already holds 2 pending notification requests, the most it allows");
    // Replacing a pending request does not need room.
    EXPECT_EQ(device->addRequest(geofenceRequest("a", 300)), nullptr);
    EXPECT_EQ(device->pendingRequests().size(), 2u);
    EXPECT_EQ(std::get<CircularRegion>(device->pendingRequests()[0].trigger->region).radius, 300);

    device->removePendingRequests({"b", "unknown"});
    device->apply(changing(&SimulatedDeviceSettings::notifications, NotificationAuthorizationStatus::denied));
    auto notAllowed = device->addRequest(geofenceRequest("d"));
    ASSERT_NE(notAllowed, nullptr);
    EXPECT_EQ(notAllowed->description(), "Notifications are not allowed for this application");
}

TEST_F(SimulatedDeviceTest, AWalkFiresTheRegionsOnItsWayAndTakesItsTime) {
    auto device = open();
    device->setPosition(north(-1000));
    NotificationRequest passed = geofenceRequest("passed", 30);
    NotificationRequest beyond = geofenceRequest("beyond", 30);
    std::get<CircularRegion>(beyond.trigger->region).center = north(2000);
    device->addRequest(passed);
    device->addRequest(beyond);

    device->walk(north(1000), 2.0);  // 2 km at 2 m/s
    EXPECT_EQ(identifiers(device->deliveredNotifications()), (std::vector<std::string>{"passed"}));
    auto elapsed = std::chrono::duration<double>(device->now() - kStart).count();
    EXPECT_NEAR(elapsed, 1000.0, 0.5);
    // The store is half way, so the notification came at about 500 s.
    auto at = std::chrono::duration<double>(device->deliveredNotifications()[0].date - kStart).count();
    EXPECT_NEAR(at, 500 - 30 / 2.0, 6);
    EXPECT_NEAR(distanceBetween(*device->position(), north(1000)), 0, 0.01);
}

TEST_F(SimulatedDeviceTest, TapTakesTheNotificationOffTheList) {
    auto device = open();
    device->addRequest({"first", {}, std::nullopt});
    device->advance(5s);
    device->addRequest({"second", {}, std::nullopt});
    EXPECT_FALSE(device->tap("unknown"));
    auto latest = device->tap();
    ASSERT_TRUE(latest);
    EXPECT_EQ(latest->request.identifier, "second");
    EXPECT_EQ(latest->date, kStart + 5s);
    EXPECT_EQ(latest->actionIdentifier, kNotificationDefaultActionIdentifier);
    EXPECT_EQ(device->tap("first")->request.identifier, "first");
    EXPECT_FALSE(device->tap());
}

TEST_F(SimulatedDeviceTest, TheClockMovesOnlyWhenTold) {
    auto device = open();
    auto steady = device->steadyNow();
    device->advance(-5s);
    device->advanceTo(kStart - 1h);
    EXPECT_EQ(device->now(), kStart);
    device->advanceTo(kStart + 1h);
    EXPECT_EQ(device->steadyNow() - steady, 1h);
    device->setNow(kStart);
    EXPECT_EQ(device->now(), kStart);
    EXPECT_EQ(device->steadyNow() - steady, 1h);
}

TEST_F(SimulatedDeviceTest, TheStateSurvivesReopeningTheFolder) {
    // The device's time zone becomes the process's; put the old one back afterwards.
    testing::ScopedTimeZone zone("America/New_York");
    {
        auto device = open();
        SimulatedDeviceSettings settings;
        settings.timeZone = "America/New_York";
        settings.appState = ApplicationState::background;
        settings.osVersion = 12;
        settings.online = false;
        settings.beacons = std::vector<Beacon>{beacon(kUUID, 1, 2, 0.3)};
        device->apply(settings);
        device->setPosition(north(50));
        auto request = geofenceRequest("inside");
        request.content.userInfo["nested"] = UserInfo{{"list", UserInfoArray{1, "two", 3.5}}};
        device->addRequest(request);
        device->addRequest(beaconRequest("b", 3));
        device->addRequest({"shown", {}, std::nullopt});
        device->advance(2s);
    }
    auto device = open();
    SimulatedDeviceState state = device->state();
    EXPECT_EQ(state.now, kStart + 2s);
    EXPECT_EQ(state.timeZone, "America/New_York");
    EXPECT_STREQ(std::getenv("TZ"), "America/New_York");
    EXPECT_EQ(state.appState, ApplicationState::background);
    EXPECT_EQ(state.osVersion, 12);
    EXPECT_FALSE(state.online);
    ASSERT_EQ(state.beacons.size(), 1u);
    EXPECT_EQ(state.beacons[0].accuracy, 0.3);
    ASSERT_EQ(state.pending.size(), 2u);
    EXPECT_TRUE(state.pending[0].inside);
    auto nested = userInfoGet<UserInfo>(state.pending[0].request.content.userInfo, "nested");
    ASSERT_NE(nested, nullptr);
    EXPECT_EQ(nested->at("list"), (UserInfoValue(UserInfoArray{1, "two", 3.5})));
    EXPECT_EQ(*userInfoGet<std::int64_t>(state.pending[0].request.content.userInfo, "Drovel.Notify.CampaignID"), 7);
    EXPECT_EQ(state.pending[1].request, beaconRequest("b", 3));
    ASSERT_EQ(state.delivered.size(), 1u);
    EXPECT_EQ(state.delivered[0].date, kStart);
    // Still inside: the remembered state keeps the request from firing.
    device->setPosition(north(40));
    EXPECT_EQ(device->deliveredNotifications().size(), 1u);
}

TEST_F(SimulatedDeviceTest, AMalformedStateFileIsRefusedWithItsProblem) {
    auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    const std::string deep = "{\"a\": " + nested(100) + "}", deeper = nested(100000);
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{", "(root): malformed"},
        {R"({"position": [91, 0]})", "position[0]: expected a number from -90.0 to 90.0"},
        {R"({"position": [1]})", "expected [latitude, longitude]"},
        {R"({"notifications": "maybe"})", "notifications: expected one of \"not_determined\""},
        {R"({"os_version": 1e300})", "os_version"},
        {R"({"pending_limit": -1})", "pending_limit: expected an integer from 0 to 1000000"},
        {R"({"colour": "red"})", "colour: unknown key"},
        {R"({"time_zone": "Mars/Olympus_Mons"})", "time_zone: expected a time-zone name"},
        {R"({"time_zone": "../../etc/passwd"})", "time_zone: expected a time-zone name"},
        {R"({"now": "yesterday"})", "now: expected a date"},
        {R"({"beacons": [{"uuid": "nope"}]})", "beacons[0].uuid: expected a UUID"},
        {R"({"pending": [{"inside": true}]})", "pending[0]: missing required key 'request'"},
        {R"({"pending": [{"request": {"identifier": "x", "trigger": {"circular": {"latitude": 1, "longitude": 2}}}}]})",
         "radius"},
        {R"({"pending": [{"request": {"identifier": "x", "user_info": )" + deep + "}}]}",
         "pending[0].request.user_info: a"},
    };
    for (const auto& [text, problem] : cases) {
        SCOPED_TRACE(text.substr(0, 80));
        std::filesystem::create_directories(directory.file("device"));
        std::ofstream(directory.file("device/Device.json"), std::ios::trunc) << text;
        auto device = SimulatedDevice::open({directory.file("device"), nullptr, std::nullopt, 1ms});
        ASSERT_FALSE(device);
        EXPECT_NE(device.error()->description().find(directory.file("device/Device.json")), std::string::npos);
        EXPECT_NE(device.error()->description().find(problem), std::string::npos) << device.error()->description();
    }
}

TEST_F(SimulatedDeviceTest, SettingsDecodeFromAScenarioDeviceObject) {
    auto settings = decodeSimulatedDeviceSettings(
        R"({"position": [40.7, -74.0], "notifications": "provisional", "location": "when_in_use",
            "location_services": false, "ranging_available": false, "os_version": 12, "app_state": "inactive",
            "pending_limit": 20})");
    ASSERT_TRUE(settings) << settings.error()->description();
    SimulatedDeviceState state;
    state.apply(settings.value());
    EXPECT_EQ(state.position, (LocationCoordinate{40.7, -74.0}));
    EXPECT_EQ(state.notifications, NotificationAuthorizationStatus::provisional);
    EXPECT_EQ(state.location, AuthorizationStatus::authorizedWhenInUse);
    EXPECT_FALSE(state.locationServices);
    EXPECT_FALSE(state.rangingAvailable);
    EXPECT_EQ(state.osVersion, 12);
    EXPECT_EQ(state.appState, ApplicationState::inactive);
    EXPECT_EQ(state.pendingLimit, 20u);
    EXPECT_FALSE(decodeSimulatedDeviceSettings(R"({"pending": []})"));
}

TEST(SimulatedDeviceDateTest, DatesRoundTripToTheMillisecond) {
    EXPECT_EQ(deviceDateText(kStart + 1500ms), "2026-11-21T14:00:01.500Z");
    EXPECT_EQ(parseDeviceDate("2026-11-21T14:00:01.500Z"), kStart + 1500ms);
    EXPECT_EQ(parseDeviceDate("2026-11-21T14:00:00Z"), kStart);
    EXPECT_EQ(deviceDateText(Date(-1ms)), "1969-12-31T23:59:59.999Z");
    for (const char* bad : {"2026-11-21 14:00:00Z", "2026-13-21T14:00:00Z", "2026-11-21T14:00:00", "2026-11-21T14:00:00.Z"})
        EXPECT_FALSE(parseDeviceDate(bad)) << bad;
}

}  // namespace
}  // namespace drovel::platform
