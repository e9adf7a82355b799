#include "simulator/Scenario.h"

#include <simdjson.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace drovel::simulator {

namespace {

using simdjson::dom::element;
using simdjson::dom::element_type;
using simdjson::dom::object;

constexpr std::array<std::pair<std::string_view, Step::Action>, 18> kActions{{
    {"launch", Step::Action::launch},
    {"move", Step::Action::move},
    {"walk", Step::Action::walk},
    {"beacon", Step::Action::beacon},
    {"tap", Step::Action::tap},
    {"app_state", Step::Action::appState},
    {"sync", Step::Action::sync},
    {"push", Step::Action::push},
    {"background_refresh", Step::Action::backgroundRefresh},
    {"fetch", Step::Action::fetch},
    {"orders", Step::Action::orders},
    {"custom_template_content", Step::Action::customTemplateContent},
    {"config", Step::Action::config},
    {"permissions", Step::Action::permissions},
    {"offline", Step::Action::offline},
    {"online", Step::Action::online},
    {"site_notifications", Step::Action::siteNotifications},
    {"clear", Step::Action::clear},
}};

core::ErrorPtr fail(std::string text) { return core::makeError<core::SimpleError>(std::move(text)); }

std::string minified(element value) { return simdjson::minify(value); }

core::Result<platform::SimulatedDeviceSettings> settingsFrom(const std::string& json) {
    return platform::decodeSimulatedDeviceSettings(json);
}

// {"k": "text", ...} with text values only.
core::ErrorPtr stringMap(element value, std::map<std::string, std::string, std::less<>>& out) {
    object fields;
    if (value.get(fields)) return fail("must be an object of texts");
    for (auto field : fields) {
        std::string_view text;
        if (field.value.get(text)) return fail(std::string(field.key) + " must be a text");
        out.emplace(std::string(field.key), std::string(text));
    }
    return nullptr;
}

core::ErrorPtr coordinate(element value, platform::LocationCoordinate& out) {
    auto settings = settingsFrom("{\"position\":" + minified(value) + "}");
    if (!settings || !settings.value().position || !*settings.value().position)
        return fail("must be a position [latitude, longitude]");
    out = **settings.value().position;
    return nullptr;
}

// Reads the argument of one action into step.
core::ErrorPtr readAction(Step& step, element argument) {
    using A = Step::Action;
    switch (step.action) {
        case A::launch:
        case A::backgroundRefresh:
        case A::fetch:
        case A::offline:
        case A::online:
        case A::clear:
            return nullptr;  // the argument, if any, is not used
        case A::move:
            return coordinate(argument, step.to);
        case A::walk: {
            element to;
            if (argument.at_key("to").get(to)) return fail("walk needs {\"to\": [latitude, longitude]}");
            if (auto error = coordinate(to, step.to)) return fail("to " + error->description());
            element speed;
            if (!argument.at_key("speed_mps").get(speed)) {
                double value = 0;
                if (speed.get(value) || !(value > 0) || value > 1000) return fail("speed_mps must be a positive number");
                step.speed = value;
            }
            return nullptr;
        }
        case A::beacon: {
            const std::string beacons = argument.is_null() ? "[]" : "[" + minified(argument) + "]";
            auto settings = settingsFrom("{\"beacons\":" + beacons + "}");
            if (!settings) return settings.error();
            if (!settings.value().beacons->empty()) step.beacon = settings.value().beacons->front();
            return nullptr;
        }
        case A::tap: {
            std::string_view text;
            if (argument.get(text)) return fail("tap needs a request identifier or \"latest\"");
            step.identifier = text == "latest" ? std::string() : std::string(text);
            return nullptr;
        }
        case A::appState: {
            auto settings = settingsFrom("{\"app_state\":" + minified(argument) + "}");
            if (!settings) return settings.error();
            step.settings = std::move(settings).value();
            return nullptr;
        }
        case A::permissions: {
            auto settings = settingsFrom(minified(argument));
            if (!settings) return settings.error();
            step.settings = std::move(settings).value();
            return nullptr;
        }
        case A::sync:
        case A::push: {
            if (argument.is_null()) return nullptr;
            element force;
            if (argument.type() != element_type::OBJECT) return fail("needs {\"force\": true|false}");
            if (!argument.at_key("force").get(force) && force.get(step.force)) return fail("force must be true or false");
            return nullptr;
        }
        case A::orders: {
            std::int64_t count = 0;
            if (argument.get(count) || count < 0 || count > 1000) return fail("orders needs a count from 0 to 1000");
            step.count = static_cast<int>(count);
            return nullptr;
        }
        case A::customTemplateContent:
            return stringMap(argument, step.content);
        case A::config: {
            auto config = core::AppConfigData::fromJson(minified(argument));
            if (!config) return config.error();
            step.config = std::move(config).value();
            return nullptr;
        }
        case A::siteNotifications: {
            // {"sites": [site, ...]} or {"region": {"latitude", "longitude", "radius"}}, "title", "content"
            std::string_view title, content;
            if (argument.at_key("title").get(title) || argument.at_key("content").get(content))
                return fail("needs a title and a content text");
            step.title = std::string(title);
            step.body = std::string(content);
            element sites, region;
            if (!argument.at_key("sites").get(sites)) {
                auto list = core::Site::listFromJson("{\"data\":" + minified(sites) + "}");
                if (!list) return fail("sites: " + list.error()->description());
                step.sites = std::move(list).value();
            } else if (!argument.at_key("region").get(region)) {
                double latitude = 0, longitude = 0, radius = 0;
                if (region.at_key("latitude").get(latitude) || region.at_key("longitude").get(longitude) ||
                    region.at_key("radius").get(radius) || !(radius > 0) || std::abs(latitude) > 90 ||
                    std::abs(longitude) > 180)
                    return fail("region needs latitude, longitude and a positive radius");
                step.region = platform::CircularRegion{"scenario", {latitude, longitude}, radius, true, false};
            } else {
                return fail("needs sites or a region");
            }
            return nullptr;
        }
    }
    return nullptr;
}

core::ErrorPtr readStep(element value, Step& step) {
    object fields;
    if (value.get(fields)) return fail("must be an object");
    std::optional<element> argument;
    for (auto field : fields) {
        if (field.key == "at") {
            std::string_view text;
            if (field.value.get(text)) return fail("at must be a text such as \"+10m\"");
            auto offset = parseOffset(text);
            if (!offset) return fail("bad offset \"" + std::string(text) + "\" (use +N followed by s, m, h or d)");
            step.at = *offset;
            continue;
        }
        auto known = std::find_if(kActions.begin(), kActions.end(), [&](const auto& entry) { return entry.first == field.key; });
        if (known == kActions.end()) return fail("unknown action \"" + std::string(field.key) + "\"");
        if (argument) return fail("more than one action");
        step.action = known->second;
        argument = field.value;
    }
    if (!argument) return fail("no action");
    if (auto error = readAction(step, *argument)) return fail(std::string(actionName(step.action)) + ": " + error->description());
    return nullptr;
}

}  // namespace

std::string_view actionName(Step::Action action) {
    for (const auto& [name, value] : kActions)
        if (value == action) return name;
    return "?";
}

std::optional<std::chrono::seconds> parseOffset(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.size() < 2) return std::nullopt;
    std::int64_t count = 0;
    const char* end = text.data() + text.size() - 1;
    auto [rest, errc] = std::from_chars(text.data(), end, count);
    if (errc != std::errc() || rest != end || count < 0) return std::nullopt;
    std::int64_t unit = 0;
    switch (text.back()) {
        case 's': unit = 1; break;
        case 'm': unit = 60; break;
        case 'h': unit = 3600; break;
        case 'd': unit = 86400; break;
        default: return std::nullopt;
    }
    // Offsets beyond a year are a mistake, and keep the arithmetic far from overflow.
    if (count > 366 * 86400 / unit) return std::nullopt;
    return std::chrono::seconds(count * unit);
}

core::Result<Scenario> parseScenario(std::string_view json, const std::string& baseDirectory) {
    if (json.size() > kMaxScenarioBytes) return fail("the scenario is larger than 16 MiB");
    simdjson::dom::parser parser(kMaxScenarioBytes);
    if (parser.allocate(json.size() + 1, kMaxScenarioDepth)) return fail("cannot allocate the scenario parser");
    element root;
    if (auto error = parser.parse(json.data(), json.size()).get(root))
        return fail(std::string("bad JSON: ") + simdjson::error_message(error));
    object fields;
    if (root.get(fields)) return fail("the scenario must be a JSON object");

    Scenario scenario;
    bool haveSteps = false;
    for (auto field : fields) {
        const std::string key(field.key);
        if (key == "start" || key == "time_zone") {
            std::string_view text;
            if (field.value.get(text)) return fail(key + " must be a text");
            (key == "start" ? scenario.start : scenario.timeZone) = std::string(text);
        } else if (key == "device") {
            auto settings = settingsFrom(minified(field.value));
            if (!settings) return fail("device: " + settings.error()->description());
            scenario.device = std::move(settings).value();
        } else if (key == "config") {
            auto config = core::AppConfigData::fromJson(minified(field.value));
            if (!config) return fail("config: " + config.error()->description());
            scenario.config = std::move(config).value();
        } else if (key == "custom_template_content") {
            if (auto error = stringMap(field.value, scenario.customTemplateContent))
                return fail(key + ": " + error->description());
        } else if (key == "catalogue") {
            std::string_view path;
            if (!field.value.get(path)) {
                std::filesystem::path file(path);
                if (file.is_relative()) file = std::filesystem::path(baseDirectory) / file;
                std::error_code ec;
                if (!std::filesystem::is_regular_file(file, ec)) return fail("catalogue: missing file " + file.string());
                scenario.cataloguePath = file.string();
            } else if (field.value.type() == element_type::OBJECT) {
                scenario.catalogueJson = minified(field.value);
            } else {
                return fail("catalogue must be a file name or a catalogue object");
            }
        } else if (key == "steps") {
            simdjson::dom::array steps;
            if (field.value.get(steps)) return fail("steps must be an array");
            haveSteps = true;
            std::size_t number = 0;
            for (auto value : steps) {
                ++number;
                if (number > kMaxScenarioSteps) return fail("more than 100000 steps");
                Step step;
                if (auto error = readStep(value, step)) return fail("step " + std::to_string(number) + ": " + error->description());
                scenario.steps.push_back(std::move(step));
            }
        } else {
            return fail("unknown key \"" + key + "\"");
        }
    }
    if (!haveSteps) return fail("steps: missing");
    if (scenario.cataloguePath.empty() && scenario.catalogueJson.empty()) return fail("catalogue: missing");
    if (scenario.device.timeZone && scenario.timeZone.empty()) scenario.timeZone = *scenario.device.timeZone;
    return scenario;
}

core::Result<Scenario> loadScenario(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return fail("cannot read " + path + ": " + std::strerror(errno));
    std::string text;
    text.resize(kMaxScenarioBytes + 1);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (text.size() > kMaxScenarioBytes) return fail(path + ": the scenario is larger than 16 MiB");
    auto scenario = parseScenario(text, std::filesystem::path(path).parent_path().string());
    if (!scenario) return fail(path + ": " + scenario.error()->description());
    return scenario;
}

}  // namespace drovel::simulator
