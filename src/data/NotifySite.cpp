#include "drovel/notify/NotifySite.h"

#include <charconv>

#include "data/NotifyRecordJson.h"
#include "data/NotifyTables.h"
#include "data/RecordFields.h"
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

// In the constructor's order.
constexpr std::tuple siteFields{
    fields::Field<&NotifySite::id, fields::Int64>{"id"},
    fields::Field<&NotifySite::partnerIdentifier, fields::Text>{"partner_identifier"},
    fields::Field<&NotifySite::distanceMeters, fields::Int64>{"distance_meters"},
    fields::Field<&NotifySite::latitude, fields::Text>{"latitude"},
    fields::Field<&NotifySite::longitude, fields::Text>{"longitude"},
    fields::Field<&NotifySite::beaconMinor, fields::Int64>{"beacon_minor"},
};

}  // namespace

NotifySite::NotifySite(std::int64_t id, std::optional<std::string> partnerIdentifier, std::int64_t distanceMeters,
                       std::string latitude, std::string longitude, std::optional<std::int64_t> beaconMinor)
    : id_(id),
      partnerIdentifier_(std::move(partnerIdentifier)),
      distanceMeters_(distanceMeters),
      latitude_(std::move(latitude)),
      longitude_(std::move(longitude)),
      beaconMinor_(beaconMinor) {}

std::optional<platform::LocationCoordinate> NotifySite::locationCoordinate() const {
    return locationCoordinate_.get([this]() -> std::optional<platform::LocationCoordinate> {
        auto latitude = doubleFromText(latitude_);
        if (!latitude) return std::nullopt;
        auto longitude = doubleFromText(longitude_);
        if (!longitude) return std::nullopt;
        return platform::LocationCoordinate{*latitude, *longitude};
    });
}

void NotifySite::writeJsonMembers(core::JsonWriter& writer) const { fields::writeMembers(writer, *this, siteFields); }

void NotifySite::writeJson(core::JsonWriter& writer) const { fields::writeObject(writer, *this, siteFields); }

std::string NotifySite::toJson() const { return core::encodeJson(*this); }

core::Result<NotifySite> NotifySite::fromJson(std::string_view json) {
    return json::decodeDocument<NotifySite>(json, json::readSite);
}

namespace json {

NotifySite readSite(JsonReader& reader, JsonValue value) { return fields::read<NotifySite>(reader, value, siteFields); }

}  // namespace json

}  // namespace drovel::notify

namespace drovel::core {

void Table<notify::NotifySite>::bind(const notify::NotifySite& record, StatementBinder& binder) {
    notify::fields::bind(binder, record, notify::siteFields);
}

notify::NotifySite Table<notify::NotifySite>::fromRow(const DatabaseRow& row) {
    return notify::fields::fromRow<notify::NotifySite>(row, notify::siteFields);
}

}  // namespace drovel::core
