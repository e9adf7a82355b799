#pragma once
// Readers of the module's records on the shared strict JSON reader. Each reads one value at the
// reader's current path and aborts the document (JsonDecodeFailure) on the first problem. They serve
// the records' fromJson and any code that meets a record inside a larger document.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"
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

// A value that may be null: read(value) when it is not.
template <class Read>
auto readOptional(JsonReader& reader, JsonValue value, Read&& read) -> std::optional<decltype(read(value))> {
    if (reader.isNull(value)) return std::nullopt;
    return read(value);
}

// Runs a reader on a whole document.
template <class T, class Read>
core::Result<T> decodeDocument(std::string_view text, Read read) {
    return core::decodeJson<T>(text, [&](JsonReader& reader, JsonValue root) { return read(reader, root); });
}

// A campaign's content as a field of a record (see RecordFields.h): an object in JSON, its text in
// the database.
struct ContentJson {
    using Value = NotifyCampaignContent;
    static void write(core::JsonWriter& writer, const Value& content) { content.writeJson(writer); }
    static Value read(JsonReader& reader, JsonValue value) { return readContent(reader, value); }
};

}  // namespace drovel::notify::json
