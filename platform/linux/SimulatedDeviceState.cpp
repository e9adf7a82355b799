#include "linux/SimulatedDeviceState.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <utility>

#include "core/JsonReader.h"

namespace drovel::platform {

namespace {

using core::JsonReader;
using core::JsonValue;
using core::JsonWriter;

template <class T, std::size_t N>
using NameTable = std::array<std::pair<T, std::string_view>, N>;

constexpr NameTable<NotificationAuthorizationStatus, 5> notificationNames{{
    {NotificationAuthorizationStatus::notDetermined, "not_determined"},
    {NotificationAuthorizationStatus::denied, "denied"},
    {NotificationAuthorizationStatus::authorized, "authorized"},
    {NotificationAuthorizationStatus::provisional, "provisional"},
    {NotificationAuthorizationStatus::ephemeral, "ephemeral"},
}};

constexpr NameTable<AuthorizationStatus, 5> locationNames{{
    {AuthorizationStatus::notDetermined, "not_determined"},
    {AuthorizationStatus::restricted, "restricted"},
    {AuthorizationStatus::denied, "denied"},
    {AuthorizationStatus::authorizedAlways, "always"},
    {AuthorizationStatus::authorizedWhenInUse, "when_in_use"},
}};

constexpr NameTable<ApplicationState, 3> applicationStateNames{{
    {ApplicationState::active, "active"},
    {ApplicationState::inactive, "inactive"},
    {ApplicationState::background, "background"},
}};

template <class T, std::size_t N>
std::string_view nameOf(const NameTable<T, N>& table, T value) {
    for (const auto& [entry, name] : table)
        if (entry == value) return name;
    return "unknown";
}

template <class T, std::size_t N>
T readName(JsonReader& reader, JsonValue value, const NameTable<T, N>& table) {
    std::string_view text = reader.string(value);
    for (const auto& [entry, name] : table)
        if (name == text) return entry;
    std::string expected;
    for (const auto& [entry, name] : table) expected += (expected.empty() ? "\"" : ", \"") + std::string(name) + "\"";
    reader.fail("expected one of " + expected);
}

double readRanged(JsonReader& reader, JsonValue value, double low, double high) {
    double number = reader.number(value);
    if (!(number >= low && number <= high))
        reader.fail("expected a number from " + core::doubleText(low) + " to " + core::doubleText(high));
    return number;
}

std::int64_t readInteger(JsonReader& reader, JsonValue value, std::int64_t low, std::int64_t high) {
    std::int64_t number = reader.int64(value);
    if (number < low || number > high)
        reader.fail("expected an integer from " + std::to_string(low) + " to " + std::to_string(high));
    return number;
}

std::uint16_t readUInt16(JsonReader& reader, JsonValue value) {
    return static_cast<std::uint16_t>(readInteger(reader, value, 0, 65535));
}

std::string readUUID(JsonReader& reader, JsonValue value) {
    auto uuid = canonicalUUID(reader.string(value));
    if (!uuid) reader.fail("expected a UUID");
    return *uuid;
}

Date readDate(JsonReader& reader, JsonValue value) {
    auto date = parseDeviceDate(reader.string(value));
    if (!date) reader.fail("expected a date such as \"2026-11-21T14:00:00.000Z\"");
    return *date;
}

LocationCoordinate readCoordinate(JsonReader& reader, JsonValue value) {
    std::vector<double> numbers;
    reader.array(value, [&](JsonValue element) {
        if (numbers.size() == 2) reader.fail("expected [latitude, longitude]");
        numbers.push_back(numbers.empty() ? readRanged(reader, element, -90, 90) : readRanged(reader, element, -180, 180));
    });
    if (numbers.size() != 2) reader.fail("expected [latitude, longitude]");
    return {numbers[0], numbers[1]};
}

Beacon readBeacon(JsonReader& reader, JsonValue value) {
    Beacon beacon;
    std::optional<std::string> uuid;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "uuid") uuid = readUUID(reader, field);
        else if (key == "major") beacon.major = readUInt16(reader, field);
        else if (key == "minor") beacon.minor = readUInt16(reader, field);
        else if (key == "accuracy") beacon.accuracy = readRanged(reader, field, 0, 1000);
        else reader.fail("unknown key");
    });
    beacon.uuid = core::required(reader, uuid, "uuid");
    return beacon;
}

// Whether the C library has the zone ("" stands for the process's own): a file of the time-zone
// database, where TZDIR says or in the usual place. An unknown name would silently mean UTC.
bool knownTimeZone(std::string_view zone) {
    if (zone.empty()) return true;
    const char* directory = std::getenv("TZDIR");
    std::filesystem::path file = std::filesystem::path(directory && *directory ? directory : "/usr/share/zoneinfo") / zone;
    std::error_code error;
    return std::filesystem::is_regular_file(file, error);
}

// Reads one settings key; false when the key is not a settings key.
bool readSetting(JsonReader& reader, std::string_view key, JsonValue value, SimulatedDeviceSettings& settings) {
    if (key == "time_zone") {
        std::string_view zone = reader.string(value);
        // An IANA name, as the C library finds it under /usr/share/zoneinfo.
        if (zone.size() > 64 || zone.find("..") != std::string_view::npos || !knownTimeZone(zone))
            reader.fail("expected a time-zone name such as \"America/New_York\"");
        settings.timeZone = std::string(zone);
    } else if (key == "position") {
        settings.position = reader.isNull(value) ? std::nullopt : std::optional(readCoordinate(reader, value));
    } else if (key == "notifications") {
        settings.notifications = readName(reader, value, notificationNames);
    } else if (key == "location") {
        settings.location = readName(reader, value, locationNames);
    } else if (key == "location_services") {
        settings.locationServices = reader.boolean(value);
    } else if (key == "ranging_available") {
        settings.rangingAvailable = reader.boolean(value);
    } else if (key == "os_version") {
        settings.osVersion = static_cast<int>(readInteger(reader, value, 1, kMaxOSVersion));
    } else if (key == "app_state") {
        settings.appState = readName(reader, value, applicationStateNames);
    } else if (key == "online") {
        settings.online = reader.boolean(value);
    } else if (key == "pending_limit") {
        settings.pendingLimit = static_cast<std::size_t>(readInteger(reader, value, 0, kMaxPendingLimit));
    } else if (key == "beacons") {
        std::vector<Beacon> beacons;
        if (!reader.isNull(value)) reader.array(value, [&](JsonValue element) { beacons.push_back(readBeacon(reader, element)); });
        settings.beacons = std::move(beacons);
    } else {
        return false;
    }
    return true;
}

// The user info is decoded after the walk (userInfoFromJson uses the thread's parser, which the
// walk still holds), so a request is read with its user info as text.
struct RawRequest {
    NotificationRequest request;
    std::string userInfoJson;
};

void readRegionFlags(JsonReader& reader, std::string_view key, JsonValue value, bool& entry, bool& exit) {
    if (key == "notify_on_entry") entry = reader.boolean(value);
    else if (key == "notify_on_exit") exit = reader.boolean(value);
    else reader.fail("unknown key");
}

CircularRegion readCircular(JsonReader& reader, JsonValue value) {
    CircularRegion region;
    std::optional<double> latitude, longitude, radius;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "identifier") region.identifier = std::string(reader.string(field));
        else if (key == "latitude") latitude = readRanged(reader, field, -90, 90);
        else if (key == "longitude") longitude = readRanged(reader, field, -180, 180);
        else if (key == "radius") radius = readRanged(reader, field, 0, 1e7);
        else readRegionFlags(reader, key, field, region.notifyOnEntry, region.notifyOnExit);
    });
    region.center = {core::required(reader, latitude, "latitude"), core::required(reader, longitude, "longitude")};
    region.radius = core::required(reader, radius, "radius");
    return region;
}

BeaconRegion readBeaconRegion(JsonReader& reader, JsonValue value) {
    BeaconRegion region;
    std::optional<std::string> uuid;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "identifier") region.identifier = std::string(reader.string(field));
        else if (key == "uuid") uuid = readUUID(reader, field);
        else if (key == "major") region.major = readUInt16(reader, field);
        else if (key == "minor") region.minor = readUInt16(reader, field);
        else readRegionFlags(reader, key, field, region.notifyOnEntry, region.notifyOnExit);
    });
    region.uuid = core::required(reader, uuid, "uuid");
    return region;
}

NotificationTrigger readTrigger(JsonReader& reader, JsonValue value) {
    NotificationTrigger trigger;
    bool hasRegion = false;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "repeats") {
            trigger.repeats = reader.boolean(field);
        } else if (key == "circular" || key == "beacon") {
            if (hasRegion) reader.fail("a trigger has one region");
            hasRegion = true;
            if (key == "circular") trigger.region = readCircular(reader, field);
            else trigger.region = readBeaconRegion(reader, field);
        } else {
            reader.fail("unknown key");
        }
    });
    if (!hasRegion) reader.missingKey("circular");
    return trigger;
}

RawRequest readRequest(JsonReader& reader, JsonValue value) {
    RawRequest raw;
    NotificationRequest& request = raw.request;
    std::optional<std::string> identifier;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "identifier") identifier = std::string(reader.string(field));
        else if (key == "title") request.content.title = std::string(reader.string(field));
        else if (key == "subtitle") request.content.subtitle = std::string(reader.string(field));
        else if (key == "body") request.content.body = std::string(reader.string(field));
        else if (key == "sound")
            request.content.sound = reader.string(field) == "default" ? NotificationSound::defaultSound : NotificationSound::none;
        else if (key == "user_info") {
            raw.userInfoJson = std::string(reader.rawJson(field));
        } else if (key == "trigger") {
            if (!reader.isNull(field)) request.trigger = readTrigger(reader, field);
        } else {
            reader.fail("unknown key");
        }
    });
    request.identifier = core::required(reader, identifier, "identifier");
    return raw;
}

struct RawState {
    SimulatedDeviceState state;
    std::vector<std::string> pendingUserInfo;
    std::vector<std::string> deliveredUserInfo;
};

template <class Record>
void readRequests(JsonReader& reader, JsonValue value, std::vector<Record>& records, std::vector<std::string>& userInfo,
                  std::string_view extraKey) {
    reader.array(value, [&](JsonValue element) {
        Record record{};
        bool hasRequest = false;
        reader.object(element, [&](std::string_view key, JsonValue field) {
            if (key == "request") {
                RawRequest raw = readRequest(reader, field);
                record.request = std::move(raw.request);
                userInfo.push_back(std::move(raw.userInfoJson));
                hasRequest = true;
            } else if (key == extraKey) {
                if constexpr (std::is_same_v<Record, PendingNotification>) record.inside = reader.boolean(field);
                else record.date = readDate(reader, field);
            } else {
                reader.fail("unknown key");
            }
        });
        if (!hasRequest) reader.missingKey("request");
        records.push_back(std::move(record));
    });
}

// Decodes the user-info texts kept by the walk into the records.
template <class Record>
core::ErrorPtr attachUserInfo(std::vector<Record>& records, const std::vector<std::string>& texts, std::string_view list) {
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (texts[i].empty()) continue;
        auto userInfo = userInfoFromJson(texts[i]);
        if (!userInfo)
            return core::makeError<core::JsonDecodeError>(std::string(list) + "[" + std::to_string(i) +
                                                          "].request.user_info: " + userInfo.error()->description());
        records[i].request.content.userInfo = std::move(userInfo).value();
    }
    return nullptr;
}

void writeRegionFlags(JsonWriter& writer, bool entry, bool exit) {
    writer.key("notify_on_entry").value(entry);
    writer.key("notify_on_exit").value(exit);
}

void writeTrigger(JsonWriter& writer, const NotificationTrigger& trigger) {
    writer.beginObject();
    writer.key("repeats").value(trigger.repeats);
    if (const auto* circle = std::get_if<CircularRegion>(&trigger.region)) {
        writer.key("circular").beginObject();
        writer.key("identifier").value(circle->identifier);
        writer.key("latitude").value(circle->center.latitude);
        writer.key("longitude").value(circle->center.longitude);
        writer.key("radius").value(circle->radius);
        writeRegionFlags(writer, circle->notifyOnEntry, circle->notifyOnExit);
    } else {
        const auto& beacon = std::get<BeaconRegion>(trigger.region);
        writer.key("beacon").beginObject();
        writer.key("identifier").value(beacon.identifier);
        writer.key("uuid").value(beacon.uuid);
        if (beacon.major) writer.key("major").value(unsigned{*beacon.major});
        if (beacon.minor) writer.key("minor").value(unsigned{*beacon.minor});
        writeRegionFlags(writer, beacon.notifyOnEntry, beacon.notifyOnExit);
    }
    writer.endObject();
    writer.endObject();
}

}  // namespace

std::string_view notificationAuthorizationName(NotificationAuthorizationStatus status) {
    return nameOf(notificationNames, status);
}
std::string_view locationAuthorizationName(AuthorizationStatus status) { return nameOf(locationNames, status); }
std::string_view applicationStateName(ApplicationState state) { return nameOf(applicationStateNames, state); }

std::string deviceDateText(Date date) {
    auto millis = std::chrono::floor<std::chrono::milliseconds>(date).time_since_epoch().count();
    long long seconds = millis / 1000, fraction = millis % 1000;
    if (fraction < 0) {
        fraction += 1000;
        --seconds;
    }
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm utc{};
    gmtime_r(&t, &utc);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03lldZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, fraction);
    return text;
}

std::optional<Date> parseDeviceDate(std::string_view text) {
    constexpr std::string_view layout = "dddd-dd-ddTdd:dd:dd";
    if (text.size() < layout.size() + 1 || text.size() > layout.size() + 11 || text.back() != 'Z') return std::nullopt;
    auto digit = [&](std::size_t i) { return text[i] >= '0' && text[i] <= '9'; };
    for (std::size_t i = 0; i < layout.size(); ++i)
        if (layout[i] == 'd' ? !digit(i) : text[i] != layout[i]) return std::nullopt;
    auto number = [&](std::size_t at, std::size_t length) {
        int value = 0;
        for (std::size_t i = at; i < at + length; ++i) value = value * 10 + (text[i] - '0');
        return value;
    };
    long long nanos = 0;
    std::string_view fraction = text.substr(layout.size(), text.size() - layout.size() - 1);
    if (!fraction.empty()) {
        if (fraction.size() < 2 || fraction[0] != '.') return std::nullopt;
        long long scale = 100'000'000;
        for (std::size_t i = 1; i < fraction.size(); ++i, scale /= 10) {
            if (fraction[i] < '0' || fraction[i] > '9') return std::nullopt;
            nanos += (fraction[i] - '0') * scale;
        }
    }
    std::tm utc{};
    utc.tm_year = number(0, 4) - 1900;
    utc.tm_mon = number(5, 2) - 1;
    utc.tm_mday = number(8, 2);
    utc.tm_hour = number(11, 2);
    utc.tm_min = number(14, 2);
    utc.tm_sec = number(17, 2);
    if (utc.tm_year < 0 || utc.tm_year > 2200 - 1900 || utc.tm_mon > 11 || utc.tm_mday < 1 || utc.tm_mday > 31 ||
        utc.tm_hour > 23 || utc.tm_min > 59 || utc.tm_sec > 60)
        return std::nullopt;
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::seconds(timegm(&utc)) +
                                                          std::chrono::nanoseconds(nanos)));
}

void SimulatedDeviceState::apply(const SimulatedDeviceSettings& settings) {
    if (settings.timeZone) timeZone = *settings.timeZone;
    if (settings.position) position = *settings.position;
    if (settings.notifications) notifications = *settings.notifications;
    if (settings.location) location = *settings.location;
    if (settings.locationServices) locationServices = *settings.locationServices;
    if (settings.rangingAvailable) rangingAvailable = *settings.rangingAvailable;
    if (settings.osVersion) osVersion = *settings.osVersion;
    if (settings.appState) appState = *settings.appState;
    if (settings.online) online = *settings.online;
    if (settings.pendingLimit) pendingLimit = *settings.pendingLimit;
    if (settings.beacons) beacons = *settings.beacons;
}

void writeNotificationRequestJson(JsonWriter& writer, const NotificationRequest& request) {
    writer.beginObject();
    writer.key("identifier").value(request.identifier);
    writer.key("title").value(request.content.title);
    if (!request.content.subtitle.empty()) writer.key("subtitle").value(request.content.subtitle);
    writer.key("body").value(request.content.body);
    writer.key("sound").value(request.content.sound == NotificationSound::defaultSound ? "default" : "none");
    writer.key("user_info").raw(userInfoToJson(request.content.userInfo));
    writer.key("trigger");
    if (request.trigger) writeTrigger(writer, *request.trigger);
    else writer.null();
    writer.endObject();
}

std::string encodeSimulatedDeviceState(const SimulatedDeviceState& state) {
    JsonWriter writer;
    writer.beginObject();
    writer.key("now").value(deviceDateText(state.now));
    writer.key("time_zone").value(state.timeZone);
    writer.key("position");
    if (state.position) writer.beginArray().value(state.position->latitude).value(state.position->longitude).endArray();
    else writer.null();
    writer.key("notifications").value(notificationAuthorizationName(state.notifications));
    writer.key("location").value(locationAuthorizationName(state.location));
    writer.key("location_services").value(state.locationServices);
    writer.key("ranging_available").value(state.rangingAvailable);
    writer.key("os_version").value(state.osVersion);
    writer.key("app_state").value(applicationStateName(state.appState));
    writer.key("online").value(state.online);
    writer.key("pending_limit").value(state.pendingLimit);
    writer.key("beacons").beginArray();
    for (const auto& beacon : state.beacons) {
        writer.beginObject();
        writer.key("uuid").value(beacon.uuid);
        writer.key("major").value(unsigned{beacon.major});
        writer.key("minor").value(unsigned{beacon.minor});
        writer.key("accuracy").value(beacon.accuracy);
        writer.endObject();
    }
    writer.endArray();
    writer.key("pending").beginArray();
    for (const auto& pending : state.pending) {
        writer.beginObject().key("request");
        writeNotificationRequestJson(writer, pending.request);
        writer.key("inside").value(pending.inside).endObject();
    }
    writer.endArray();
    writer.key("delivered").beginArray();
    for (const auto& delivered : state.delivered) {
        writer.beginObject().key("request");
        writeNotificationRequestJson(writer, delivered.request);
        writer.key("date").value(deviceDateText(delivered.date)).endObject();
    }
    writer.endArray();
    writer.endObject();
    return writer.take();
}

core::Result<SimulatedDeviceState> decodeSimulatedDeviceState(std::string_view json, SimulatedDeviceState fresh) {
    if (json.size() > kMaxDeviceFileBytes) return core::makeError<core::JsonDecodeError>("(root): document too large");
    auto raw = core::decodeJson<RawState>(json, [&fresh](JsonReader& reader, JsonValue root) {
        RawState raw{std::move(fresh), {}, {}};
        SimulatedDeviceSettings settings;
        reader.object(root, [&](std::string_view key, JsonValue value) {
            if (readSetting(reader, key, value, settings)) return;
            if (key == "now") raw.state.now = readDate(reader, value);
            else if (key == "pending") readRequests(reader, value, raw.state.pending, raw.pendingUserInfo, "inside");
            else if (key == "delivered") readRequests(reader, value, raw.state.delivered, raw.deliveredUserInfo, "date");
            else reader.fail("unknown key");
        });
        raw.state.apply(settings);
        return raw;
    });
    if (!raw) return raw.error();
    if (auto error = attachUserInfo(raw.value().state.pending, raw.value().pendingUserInfo, "pending")) return error;
    if (auto error = attachUserInfo(raw.value().state.delivered, raw.value().deliveredUserInfo, "delivered")) return error;
    return std::move(raw.value().state);
}

core::Result<SimulatedDeviceSettings> decodeSimulatedDeviceSettings(std::string_view json) {
    return core::decodeJson<SimulatedDeviceSettings>(json, [](JsonReader& reader, JsonValue root) {
        SimulatedDeviceSettings settings;
        reader.object(root, [&](std::string_view key, JsonValue value) {
            if (!readSetting(reader, key, value, settings)) reader.fail("unknown key");
        });
        return settings;
    });
}

}  // namespace drovel::platform
