#include <cmath>

#include "drovel/platform/Location.h"

namespace drovel::platform {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::optional<std::string> canonicalUUID(std::string_view text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    if (text.size() != 36) return std::nullopt;
    std::string out(36, '-');
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool dashPosition = i == 8 || i == 13 || i == 18 || i == 23;
        if (dashPosition) {
            if (text[i] != '-') return std::nullopt;
            continue;
        }
        int digit = hexDigit(text[i]);
        if (digit < 0) return std::nullopt;
        out[i] = digits[digit];
    }
    return out;
}

bool sameUUID(std::string_view a, std::string_view b) {
    auto canonicalA = canonicalUUID(a);
    return canonicalA && canonicalA == canonicalUUID(b);
}

std::string_view authorizationStatusName(AuthorizationStatus status) {
    switch (status) {
        case AuthorizationStatus::notDetermined: return "notDetermined";
        case AuthorizationStatus::restricted: return "restricted";
        case AuthorizationStatus::denied: return "denied";
        case AuthorizationStatus::authorizedAlways: return "authorizedAlways";
        case AuthorizationStatus::authorizedWhenInUse: return "authorizedWhenInUse";
    }
    return "unknown";
}

std::string LocationError::description() const {
    return "The operation couldn\u2019t be completed. (kCLErrorDomain error " +
           std::to_string(static_cast<int>(code_)) + ".)";
}

double distanceBetween(LocationCoordinate a, LocationCoordinate b) {
    // Haversine on a sphere: well within a metre of the ellipsoid at geofence distances.
    constexpr double earthRadius = 6371008.8;
    constexpr double toRadians = M_PI / 180.0;
    double lat1 = a.latitude * toRadians, lat2 = b.latitude * toRadians;
    double dLat = lat2 - lat1, dLon = (b.longitude - a.longitude) * toRadians;
    double h = std::sin(dLat / 2) * std::sin(dLat / 2) +
               std::cos(lat1) * std::cos(lat2) * std::sin(dLon / 2) * std::sin(dLon / 2);
    return 2 * earthRadius * std::asin(std::sqrt(std::min(1.0, h)));
}

}  // namespace drovel::platform
