#pragma once
// Readers of the module's records on the shared strict JSON reader. Each reads one value at the
// reader's current path and aborts the document (JsonDecodeFailure) on the first problem. They serve
// the records' fromJson and any code that meets a record inside a larger document or a column.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/JsonReader.h"
#include "drovel/core/DrovelDBManager.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyCampaign.h"
#include "drovel/notify/NotifyNotifications.h"
#include "drovel/notify/NotifySite.h"
#include "drovel/notify/NotifyTriggerEvent.h"

namespace drovel::notify::json {

using core::JsonReader;
using core::JsonValue;
using core::required;

NotifyCampaignContent readContent(JsonReader& reader, JsonValue value);
NotifyCampaign readCampaign(JsonReader& reader, JsonValue value);
NotifySite readSite(JsonReader& reader, JsonValue value);
NotifyNotifications readNotifications(JsonReader& reader, JsonValue value);
NotifyTriggerEvent readTriggerEvent(JsonReader& reader, JsonValue value);
NotifyAnalyticsEvent readAnalyticsEvent(JsonReader& reader, JsonValue value);

// An object whose members are all strings. A repeated key keeps its last value.
template <class Map>
Map readStringMap(JsonReader& reader, JsonValue value) {
    Map map;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        map.insert_or_assign(std::string(key), std::string(reader.string(member)));
    });
    return map;
}

// A value that may be null: read(value) when it is not.
template <class Read>
auto readOptional(JsonReader& reader, JsonValue value, Read&& read) -> std::optional<decltype(read(value))> {
    if (reader.isNull(value)) return std::nullopt;
    return read(value);
}

inline std::optional<std::string> readOptionalString(JsonReader& reader, JsonValue value) {
    return readOptional(reader, value, [&](JsonValue v) { return std::string(reader.string(v)); });
}

inline std::optional<std::int64_t> readOptionalInt(JsonReader& reader, JsonValue value) {
    return readOptional(reader, value, [&](JsonValue v) { return reader.int64(v); });
}

// Runs a reader on a whole document.
template <class T, class Read>
core::Result<T> decodeDocument(std::string_view text, Read read) {
    return core::decodeJson<T>(text, [&](JsonReader& reader, JsonValue root) { return read(reader, root); });
}

// A column holding a record's JSON text, read back with fromJson; a text that does not decode throws
// DatabaseError naming the column.
template <class T>
T decodeJsonColumn(const core::DatabaseRow& row, std::string_view column,
                   core::Result<T> (*fromJson)(std::string_view)) {
    auto decoded = fromJson(row.textView(column));
    if (!decoded) throw core::DatabaseError("column '" + std::string(column) + "': " + decoded.error()->description());
    return std::move(decoded).value();
}

// A UUID column in canonical text.
inline UUID uuidColumn(const core::DatabaseRow& row, std::string_view column) {
    auto uuid = UUID::fromString(row.textView(column));
    if (!uuid) throw core::DatabaseError("column '" + std::string(column) + "': expected a UUID");
    return *uuid;
}

}  // namespace drovel::notify::json
