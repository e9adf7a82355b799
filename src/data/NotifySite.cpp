#include "drovel/notify/NotifySite.h"

#include <charconv>

#include "data/NotifyRecordJson.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

namespace {

// The whole text as a number in the C locale: an optional sign, digits with "." as the separator,
// an optional exponent ("inf" and "nan" too). Leading blanks or anything after the number fail.
std::optional<double> doubleFromText(std::string_view text) {
    // from_chars takes no "+", which the platform's number parsing accepts.
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') return std::nullopt;
    }
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

}  // namespace

NotifySite::NotifySite(std::int64_t id, std::optional<std::string> partnerIdentifier, std::int64_t distanceMeters,
                       std::string latitude, std::string longitude, std::optional<std::int64_t> beaconMinor)
    : id_(id),
      partnerIdentifier_(std::move(partnerIdentifier)),
      distanceMeters_(distanceMeters),
      latitude_(std::move(latitude)),
      longitude_(std::move(longitude)),
      beaconMinor_(beaconMinor) {}

std::optional<core::LocationCoordinate> NotifySite::locationCoordinate() const {
    return locationCoordinate_.get([this]() -> std::optional<core::LocationCoordinate> {
        auto latitude = doubleFromText(latitude_);
        if (!latitude) return std::nullopt;
        auto longitude = doubleFromText(longitude_);
        if (!longitude) return std::nullopt;
        return core::LocationCoordinate{*latitude, *longitude};
    });
}

bool NotifySite::operator==(const NotifySite& other) const {
    return id_ == other.id_ && partnerIdentifier_ == other.partnerIdentifier_ &&
           distanceMeters_ == other.distanceMeters_ && latitude_ == other.latitude_ &&
           longitude_ == other.longitude_ && beaconMinor_ == other.beaconMinor_;
}

void NotifySite::writeJsonMembers(core::JsonWriter& writer) const {
    writer.key("id").value(id_);
    if (partnerIdentifier_) writer.key("partner_identifier").value(*partnerIdentifier_);
    writer.key("distance_meters").value(distanceMeters_);
    writer.key("latitude").value(latitude_);
    writer.key("longitude").value(longitude_);
    if (beaconMinor_) writer.key("beacon_minor").value(*beaconMinor_);
}

void NotifySite::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    writeJsonMembers(writer);
    writer.endObject();
}

std::string NotifySite::toJson() const { return core::encodeJson(*this); }

core::Result<NotifySite> NotifySite::fromJson(std::string_view json) {
    return json::decodeDocument<NotifySite>(json, json::readSite);
}

std::string_view NotifySite::createStatement() {
    // The layout from before per-pair notification rows; the migrations make the table and never run this.
    return "CREATE TABLE 'notify_site' (id INTEGER PRIMARY KEY NOT NULL, partner_identifier TEXT, "
           "distance_meters INTEGER NOT NULL, latitude TEXT NOT NULL, longitude TEXT NOT NULL, beacon_minor INTEGER, "
           "campaign_ids TEXT NOT NULL);";
}

std::string_view NotifySite::upsertStatement() {
    return "INSERT OR REPLACE INTO 'notify_site' VALUES (:id, :partner_identifier, :distance_meters, :latitude, "
           ":longitude, :beacon_minor);";
}

std::string_view NotifySite::selectAllStatement() {
    return "SELECT id, partner_identifier, distance_meters, latitude, longitude, beacon_minor FROM 'notify_site' "
           "ORDER BY distance_meters ASC;";
}

std::string_view NotifySite::deleteAllStatement() { return "DELETE FROM 'notify_site';"; }

void NotifySite::bind(core::StatementBinder& binder) const {
    binder.bind("id", id_);
    binder.bind("partner_identifier", partnerIdentifier_);
    binder.bind("distance_meters", distanceMeters_);
    binder.bind("latitude", latitude_);
    binder.bind("longitude", longitude_);
    binder.bind("beacon_minor", beaconMinor_);
}

NotifySite NotifySite::fromRow(const core::DatabaseRow& row) {
    auto id = row.get<std::int64_t>("id");
    auto partnerIdentifier = row.get<std::optional<std::string>>("partner_identifier");
    auto distanceMeters = row.get<std::int64_t>("distance_meters");
    auto latitude = row.text("latitude");
    auto longitude = row.text("longitude");
    auto beaconMinor = row.get<std::optional<std::int64_t>>("beacon_minor");
    return NotifySite(id, std::move(partnerIdentifier), distanceMeters, std::move(latitude), std::move(longitude),
                      beaconMinor);
}

namespace json {

NotifySite readSite(JsonReader& reader, JsonValue value) {
    std::optional<std::int64_t> id, distanceMeters, beaconMinor;
    std::optional<std::string> partnerIdentifier, latitude, longitude;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        if (key == "id") id = reader.int64(member);
        else if (key == "partner_identifier") partnerIdentifier = readOptionalString(reader, member);
        else if (key == "distance_meters") distanceMeters = reader.int64(member);
        else if (key == "latitude") latitude = std::string(reader.string(member));
        else if (key == "longitude") longitude = std::string(reader.string(member));
        else if (key == "beacon_minor") beaconMinor = readOptionalInt(reader, member);
        else reader.skip(member);
    });
    std::int64_t idValue = required(reader, id, "id");
    std::int64_t distanceValue = required(reader, distanceMeters, "distance_meters");
    std::string latitudeValue = required(reader, latitude, "latitude");
    std::string longitudeValue = required(reader, longitude, "longitude");
    return NotifySite(idValue, std::move(partnerIdentifier), distanceValue, std::move(latitudeValue),
                      std::move(longitudeValue), beaconMinor);
}

}  // namespace json

}  // namespace drovel::notify
