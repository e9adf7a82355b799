#pragma once
// A store site near the position of a download.
//
// JSON:
//   {"id": 42, "partner_identifier": "A-42", "distance_meters": 120, "latitude": "52.1",
//    "longitude": "4.3", "beacon_minor": 7}
// "partner_identifier" and "beacon_minor" are optional (missing or null); the others are required.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"
#include "drovel/platform/Location.h"
#include "drovel/notify/NotifyRecord.h"

namespace drovel::notify {

class NotifySite {
public:
    NotifySite(std::int64_t id, std::optional<std::string> partnerIdentifier, std::int64_t distanceMeters,
               std::string latitude, std::string longitude, std::optional<std::int64_t> beaconMinor);

    std::int64_t id() const { return id_; }
    // The retailer's own identifier of the site.
    const std::optional<std::string>& partnerIdentifier() const { return partnerIdentifier_; }
    // From the position used in the request, metres.
    std::int64_t distanceMeters() const { return distanceMeters_; }
    // Decimal degrees, as text.
    const std::string& latitude() const { return latitude_; }
    const std::string& longitude() const { return longitude_; }
    std::optional<std::int64_t> beaconMinor() const { return beaconMinor_; }

    // Latitude and longitude read as numbers: each text must be a number from its first to its
    // last character, in the C locale ("52.1", "-0.5", "1e-3"; not " 52.1" or "52,1"), else the
    // coordinate is absent. The range is not checked.
    // Computed on the first call and kept; any thread.
    std::optional<platform::LocationCoordinate> locationCoordinate() const;

    static core::Result<NotifySite> fromJson(std::string_view json);
    void writeJson(core::JsonWriter& writer) const;
    // The members only, so that a caller can add keys of its own before closing the object.
    void writeJsonMembers(core::JsonWriter& writer) const;
    std::string toJson() const;
    // Compares the wire fields; the cached coordinate plays no part.
    bool operator==(const NotifySite&) const = default;

private:
    std::int64_t id_;
    std::optional<std::string> partnerIdentifier_;
    std::int64_t distanceMeters_;
    std::string latitude_;
    std::string longitude_;
    std::optional<std::int64_t> beaconMinor_;
    detail::Lazy<std::optional<platform::LocationCoordinate>> locationCoordinate_;
};

}  // namespace drovel::notify
