#pragma once
// Store sites and orders as the core library knows them.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/platform/Location.h"

namespace drovel::core {

class JsonWriter;

using platform::LocationCoordinate;

// JSON: {"latitude": 52.1, "longitude": 4.3, "radius_meters": 150.0}
struct Geofence {
    double latitude = 0;
    double longitude = 0;
    double radiusMeters = 0;

    // The centre, or none when latitude or longitude is out of range (or not a number).
    std::optional<LocationCoordinate> locationCoordinate() const;

    static Result<Geofence> fromJson(std::string_view json);
    void writeJson(JsonWriter& writer) const;
    bool operator==(const Geofence&) const = default;
};

// JSON: {"id": 42, "partner_identifier": "A-42" or absent, "name": "Main St",
//        "geofence": {...} or absent}
struct Site {
    std::int64_t id = 0;
    std::optional<std::string> partnerIdentifier;
    std::string name;
    std::optional<Geofence> geofence;

    static Result<Site> fromJson(std::string_view json);
    // {"data": [site, ...]}: the answer of the sites region query.
    static Result<std::vector<Site>> listFromJson(std::string_view json);
    void writeJson(JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const Site&) const = default;
};

// JSON: {"id": 7, "status": "open", "site_id": 42 or absent}
struct Order {
    std::int64_t id = 0;
    std::string status;  // "open", "arrived", "completed", "cancelled", ...
    std::optional<std::int64_t> siteId;

    // An order is open until it is completed or cancelled.
    bool isOpen() const;

    static Result<Order> fromJson(std::string_view json);
    // {"data": [order, ...]}
    static Result<std::vector<Order>> listFromJson(std::string_view json);
    void writeJson(JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const Order&) const = default;
};

}  // namespace drovel::core
