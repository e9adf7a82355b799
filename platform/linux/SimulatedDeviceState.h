#pragma once
// The simulated device's operating-system state, and its JSON form (the file "Device.json" in the
// device folder).
//
// File form (every key optional; a missing key keeps the fresh device's value):
//   {"now": "2026-11-21T14:00:00.000Z", "time_zone": "America/New_York",
//    "position": [40.7128, -74.006] or null,
//    "notifications": "authorized" | "denied" | "provisional" | "ephemeral" | "not_determined",
//    "location": "always" | "when_in_use" | "denied" | "restricted" | "not_determined",
//    "location_services": true, "ranging_available": true, "os_version": 17,
//    "app_state": "active" | "inactive" | "background", "online": true, "pending_limit": 64,
//    "beacons": [{"uuid": "E2C56DB5-...", "major": 1, "minor": 2, "accuracy": 1.5}],
//    "pending": [{"request": <request>, "inside": false}],
//    "delivered": [{"request": <request>, "date": "2026-11-21T14:05:00.000Z"}]}
// A request: {"identifier": "...", "title": "...", "subtitle": "...", "body": "...",
//   "sound": "default" | "none", "user_info": {...},
//   "trigger": null | {"repeats": false, "circular": {"identifier", "latitude", "longitude", "radius",
//                                                      "notify_on_entry", "notify_on_exit"}}
//                   | {"repeats": false, "beacon": {"identifier", "uuid", "major", "minor",
//                                                    "notify_on_entry", "notify_on_exit"}}}
// The file is outside input: reading it checks types and ranges and fails with a message naming
// the key path; nesting and size are bounded.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/platform/Application.h"
#include "drovel/platform/Location.h"
#include "drovel/platform/UserNotificationCenter.h"

namespace drovel::platform {

// A request waiting for its trigger. inside: whether the device was within the trigger's region
// when it was last looked at, so that only a move from outside to inside counts as an entry.
struct PendingNotification {
    NotificationRequest request;
    bool inside = false;
    bool operator==(const PendingNotification&) const = default;
};

// A notification in the phone's notification list.
struct DeliveredNotification {
    NotificationRequest request;
    Date date;
    bool operator==(const DeliveredNotification&) const = default;
};

// The settings a scenario or a step may change; each present field replaces the device's value.
// The JSON keys are those of the file form above.
struct SimulatedDeviceSettings {
    std::optional<std::string> timeZone;
    // Present and empty: the position becomes unknown.
    std::optional<std::optional<LocationCoordinate>> position;
    std::optional<NotificationAuthorizationStatus> notifications;
    std::optional<AuthorizationStatus> location;
    std::optional<bool> locationServices;
    std::optional<bool> rangingAvailable;
    std::optional<int> osVersion;
    std::optional<ApplicationState> appState;
    std::optional<bool> online;
    std::optional<std::size_t> pendingLimit;
    std::optional<std::vector<Beacon>> beacons;
};

struct SimulatedDeviceState {
    // The simulated wall-clock time.
    Date now;
    // An IANA name ("America/New_York"); empty: the process's own.
    std::string timeZone;
    std::optional<LocationCoordinate> position;
    // A fresh device has granted everything, so a scenario starts where the interesting part is.
    NotificationAuthorizationStatus notifications = NotificationAuthorizationStatus::authorized;
    AuthorizationStatus location = AuthorizationStatus::authorizedAlways;
    bool locationServices = true;
    bool rangingAvailable = true;
    int osVersion = 17;
    ApplicationState appState = ApplicationState::active;
    bool online = true;
    std::size_t pendingLimit = 64;
    // The beacons in range, nearest first.
    std::vector<Beacon> beacons;
    // In the order they were added.
    std::vector<PendingNotification> pending;
    // Oldest first.
    std::vector<DeliveredNotification> delivered;

    void apply(const SimulatedDeviceSettings& settings);
};

// Limits on what a device file may hold.
inline constexpr std::size_t kMaxDeviceFileBytes = 64u << 20;
inline constexpr int kMaxOSVersion = 99;
inline constexpr std::size_t kMaxPendingLimit = 1'000'000;

std::string encodeSimulatedDeviceState(const SimulatedDeviceState& state);
// Missing keys keep the values of `fresh`.
core::Result<SimulatedDeviceState> decodeSimulatedDeviceState(std::string_view json, SimulatedDeviceState fresh);
// The settings keys only ("now", "pending" and "delivered" are refused), e.g. a scenario's device.
core::Result<SimulatedDeviceSettings> decodeSimulatedDeviceSettings(std::string_view json);

// The request in the file form above.
void writeNotificationRequestJson(core::JsonWriter& writer, const NotificationRequest& request);

// "2026-11-21T14:00:00.000Z" (UTC, milliseconds), and back (the fraction may have 0 to 9 digits).
std::string deviceDateText(Date date);
std::optional<Date> parseDeviceDate(std::string_view text);

// The file form's names of the statuses and states ("authorized", "when_in_use", "background").
std::string_view notificationAuthorizationName(NotificationAuthorizationStatus status);
std::string_view locationAuthorizationName(AuthorizationStatus status);
std::string_view applicationStateName(ApplicationState state);

}  // namespace drovel::platform
