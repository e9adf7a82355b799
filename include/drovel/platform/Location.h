#pragma once
// Location values shared by the location service and the notification centre's region triggers.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/platform/Clock.h"

namespace drovel::platform {

// Decimal degrees.
struct LocationCoordinate {
    double latitude = 0;
    double longitude = 0;
    bool operator==(const LocationCoordinate&) const = default;
};

// Accuracies in metres, as location requests ask for them.
inline constexpr double kLocationAccuracyBest = -1.0;
inline constexpr double kLocationAccuracyHundredMeters = 100.0;
inline constexpr double kLocationAccuracyKilometer = 1000.0;
inline constexpr double kLocationAccuracyThreeKilometers = 3000.0;

// One position fix.
struct Location {
    LocationCoordinate coordinate;
    double altitude = 0;            // metres
    double horizontalAccuracy = 0;  // metres; negative: the coordinate is invalid
    double verticalAccuracy = 0;    // metres; negative: the altitude is invalid
    Date timestamp;
    bool operator==(const Location&) const = default;
};

// A geofence: a circle on the earth's surface. Regions notify on entry and on exit unless told not to.
struct CircularRegion {
    std::string identifier;
    LocationCoordinate center;
    double radius = 0;  // metres
    bool notifyOnEntry = true;
    bool notifyOnExit = true;
    bool operator==(const CircularRegion&) const = default;
};

// Beacons that share a proximity UUID, and optionally a major and a minor number.
// UUIDs are kept as text ("E2C56DB5-DFFB-48D2-B060-D0F5A71096E0"); compare them with sameUUID().
struct BeaconIdentityConstraint {
    std::string uuid;
    std::optional<std::uint16_t> major;
    std::optional<std::uint16_t> minor;  // only with a major
    bool operator==(const BeaconIdentityConstraint&) const = default;
};

// A region made of the beacons of one identity constraint.
struct BeaconRegion {
    std::string identifier;
    std::string uuid;
    std::optional<std::uint16_t> major;
    std::optional<std::uint16_t> minor;  // only with a major
    bool notifyOnEntry = true;
    bool notifyOnExit = true;

    BeaconIdentityConstraint beaconIdentityConstraint() const { return {uuid, major, minor}; }
    bool operator==(const BeaconRegion&) const = default;
};

enum class BeaconProximity { unknown = 0, immediate = 1, near = 2, far = 3 };

// One beacon seen while ranging.
struct Beacon {
    std::string uuid;
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    BeaconProximity proximity = BeaconProximity::unknown;
    double accuracy = -1;  // metres; negative when unknown
    int rssi = 0;          // dBm; 0 when unknown
    Date timestamp;
    bool operator==(const Beacon&) const = default;
};

// True when two UUID texts name the same UUID (letter case ignored). Texts that are not UUIDs
// (8-4-4-4-12 hexadecimal digits) match nothing.
bool sameUUID(std::string_view a, std::string_view b);
// The UUID in canonical upper-case form, or none when the text is not a UUID.
std::optional<std::string> canonicalUUID(std::string_view text);

// Whether the app may use location services. The raw values are the platform's.
enum class AuthorizationStatus {
    notDetermined = 0,
    restricted = 1,
    denied = 2,
    authorizedAlways = 3,
    authorizedWhenInUse = 4,
};

// "notDetermined", "restricted", ...
std::string_view authorizationStatusName(AuthorizationStatus status);

// An error of the location service. The codes are the platform's.
class LocationError : public core::Error {
public:
    enum class Code {
        locationUnknown = 0,
        denied = 1,
        network = 2,
        rangingUnavailable = 16,
        rangingFailure = 17,
    };

    explicit LocationError(Code code) : code_(code) {}
    Code code() const { return code_; }
    // "The operation couldn’t be completed. (kCLErrorDomain error 0.)"
    std::string description() const override;

private:
    Code code_;
};

// Great-circle distance in metres between two coordinates (mean earth radius 6371008.8 m).
double distanceBetween(LocationCoordinate a, LocationCoordinate b);

}  // namespace drovel::platform
