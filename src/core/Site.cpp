#include "drovel/core/Site.h"

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::core {

namespace {

Geofence readGeofence(JsonReader& reader, JsonValue value) {
    std::optional<double> latitude, longitude, radiusMeters;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "latitude") latitude = reader.number(field);
        else if (key == "longitude") longitude = reader.number(field);
        else if (key == "radius_meters") radiusMeters = reader.number(field);
        else reader.skip(field);
    });
    // Braced initialisers run in order, so the first missing key is the one named.
    return Geofence{required(reader, latitude, "latitude"), required(reader, longitude, "longitude"),
                    required(reader, radiusMeters, "radius_meters")};
}

Site readSite(JsonReader& reader, JsonValue value) {
    std::optional<std::int64_t> id;
    std::optional<std::string> name;
    Site site;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "id") id = reader.int64(field);
        else if (key == "name") name = std::string(reader.string(field));
        else if (key == "partner_identifier") {
            if (!reader.isNull(field)) site.partnerIdentifier = std::string(reader.string(field));
        } else if (key == "geofence") {
            if (!reader.isNull(field)) site.geofence = readGeofence(reader, field);
        } else {
            reader.skip(field);
        }
    });
    site.id = required(reader, id, "id");
    site.name = required(reader, name, "name");
    return site;
}

Order readOrder(JsonReader& reader, JsonValue value) {
    std::optional<std::int64_t> id;
    std::optional<std::string> status;
    Order order;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "id") id = reader.int64(field);
        else if (key == "status") status = std::string(reader.string(field));
        else if (key == "site_id") {
            if (!reader.isNull(field)) order.siteId = reader.int64(field);
        } else {
            reader.skip(field);
        }
    });
    order.id = required(reader, id, "id");
    order.status = required(reader, status, "status");
    return order;
}

// {"data": [element, ...]}
template <class T>
std::vector<T> readDataList(JsonReader& reader, JsonValue value, T (*readElement)(JsonReader&, JsonValue)) {
    std::optional<std::vector<T>> list;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key != "data") return reader.skip(field);
        list.emplace();
        reader.array(field, [&](JsonValue element) { list->push_back(readElement(reader, element)); });
    });
    return required(reader, list, "data");
}

}  // namespace

// ---- Geofence ----

std::optional<LocationCoordinate> Geofence::locationCoordinate() const {
    // Written so that NaN fails every comparison and gives no coordinate.
    if (!(latitude >= -90.0 && latitude <= 90.0) || !(longitude >= -180.0 && longitude <= 180.0)) return std::nullopt;
    return LocationCoordinate{latitude, longitude};
}

Result<Geofence> Geofence::fromJson(std::string_view json) { return decodeJson<Geofence>(json, readGeofence); }

void Geofence::writeJson(JsonWriter& writer) const {
    writer.beginObject();
    writer.key("latitude").value(latitude);
    writer.key("longitude").value(longitude);
    writer.key("radius_meters").value(radiusMeters);
    writer.endObject();
}

// ---- Site ----

Result<Site> Site::fromJson(std::string_view json) { return decodeJson<Site>(json, readSite); }

Result<std::vector<Site>> Site::listFromJson(std::string_view json) {
    return decodeJson<std::vector<Site>>(
        json, [](JsonReader& reader, JsonValue root) { return readDataList<Site>(reader, root, readSite); });
}

void Site::writeJson(JsonWriter& writer) const {
    writer.beginObject();
    writer.key("id").value(id);
    if (partnerIdentifier) writer.key("partner_identifier").value(*partnerIdentifier);
    writer.key("name").value(name);
    if (geofence) {
        writer.key("geofence");
        geofence->writeJson(writer);
    }
    writer.endObject();
}

std::string Site::toJson() const { return encodeJson(*this); }

// ---- Order ----

bool Order::isOpen() const { return status != "completed" && status != "cancelled"; }

Result<Order> Order::fromJson(std::string_view json) { return decodeJson<Order>(json, readOrder); }

Result<std::vector<Order>> Order::listFromJson(std::string_view json) {
    return decodeJson<std::vector<Order>>(
        json, [](JsonReader& reader, JsonValue root) { return readDataList<Order>(reader, root, readOrder); });
}

void Order::writeJson(JsonWriter& writer) const {
    writer.beginObject();
    writer.key("id").value(id);
    writer.key("status").value(status);
    if (siteId) writer.key("site_id").value(*siteId);
    writer.endObject();
}

std::string Order::toJson() const { return encodeJson(*this); }

}  // namespace drovel::core
