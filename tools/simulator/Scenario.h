#pragma once
// A scenario: a simulated device, a catalogue, and timed steps that the runner plays.
//
//   {"start": "2026-11-21T09:00:00", "time_zone": "America/New_York",
//    "device": {...device settings...}, "config": {...app configuration data...},
//    "custom_template_content": {"first_name": "Ann"},
//    "catalogue": "relative/path.json" or an inline catalogue,
//    "steps": [{"at": "+10m", "<action>": <argument>}, ...]}
//
// A scenario file is outside input: it is read whole (size and nesting bounded) and checked
// before anything runs; a mistake is reported with the step number and what is wrong.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/AppConfig.h"
#include "drovel/core/Error.h"
#include "drovel/core/Site.h"
#include "linux/SimulatedDeviceState.h"

namespace drovel::simulator {

inline constexpr std::size_t kMaxScenarioBytes = 16u << 20;
inline constexpr std::size_t kMaxScenarioDepth = 32;
inline constexpr std::size_t kMaxScenarioSteps = 100'000;

struct Step {
    enum class Action {
        launch, move, walk, beacon, tap, appState, sync, push, backgroundRefresh, fetch, orders,
        customTemplateContent, config, permissions, offline, online, siteNotifications, clear,
    };
    std::chrono::seconds at{0};  // after the previous step
    Action action = Action::launch;
    platform::LocationCoordinate to{};  // move, walk
    double speed = 1.4;                 // walk, metres per second
    std::optional<platform::Beacon> beacon;  // beacon; none: no beacon in range
    std::string identifier;  // tap: empty for the latest
    bool force = false;      // sync, push
    int count = 0;           // orders
    std::map<std::string, std::string, std::less<>> content;  // custom_template_content
    core::AppConfigData config;                             // config
    platform::SimulatedDeviceSettings settings;             // permissions, app_state
    // site_notifications: the sites (core library form) or the region, and the texts.
    std::vector<core::Site> sites;
    std::optional<platform::CircularRegion> region;
    std::string title;
    std::string body;
};

std::string_view actionName(Step::Action action);

struct Scenario {
    // The local start time, as written, and the time zone it is in (empty: the process's).
    std::string start;
    std::string timeZone;
    platform::SimulatedDeviceSettings device;
    core::AppConfigData config;
    std::map<std::string, std::string, std::less<>> customTemplateContent;
    // Exactly one is set: the catalogue file (resolved against the scenario's folder) or its text.
    std::string cataloguePath;
    std::string catalogueJson;
    std::vector<Step> steps;
};

// "+10m", "90s", "+1h", "2d"; none when malformed or beyond a year.
std::optional<std::chrono::seconds> parseOffset(std::string_view text);

// baseDirectory resolves a relative catalogue path. Fails with "step N: <what>" or "<key>: <what>".
core::Result<Scenario> parseScenario(std::string_view json, const std::string& baseDirectory);
core::Result<Scenario> loadScenario(const std::string& path);

}  // namespace drovel::simulator
