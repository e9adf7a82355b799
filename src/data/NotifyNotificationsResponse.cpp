#include "drovel/notify/NotifyNotificationsResponse.h"

#include <algorithm>

#include "data/NotifyRecordJson.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

namespace {

template <class Record>
void writeList(core::JsonWriter& writer, const std::vector<Record>& records) {
    writer.beginArray();
    for (const auto& record : records) record.writeJson(writer);
    writer.endArray();
}

template <class Record, class Read>
std::vector<Record> readList(json::JsonReader& reader, json::JsonValue value, Read read) {
    std::vector<Record> records;
    // Counting first is cheap (the structure is already indexed) and saves the copies of growing.
    // The reservation is capped: a hostile list of tiny elements must not reserve far more memory
    // than its text takes before its first element fails.
    constexpr std::size_t maxReserved = 1 << 16;
    records.reserve(std::min(reader.elementCount(value), maxReserved));
    reader.array(value, [&](json::JsonValue element) { records.push_back(read(reader, element)); });
    return records;
}

IncludedData readIncluded(json::JsonReader& reader, json::JsonValue value) {
    IncludedData included;
    reader.object(value, [&](std::string_view key, json::JsonValue member) {
        if (key == "campaigns") {
            included.campaigns = json::readOptional(reader, member, [&](json::JsonValue v) {
                return readList<NotifyCampaign>(reader, v, json::readCampaign);
            });
        } else if (key == "sites") {
            included.sites = json::readOptional(reader, member, [&](json::JsonValue v) {
                return readList<NotifySite>(reader, v, json::readSite);
            });
        } else {
            reader.skip(member);
        }
    });
    return included;
}

NotifyNotificationsResponse readResponse(json::JsonReader& reader, json::JsonValue value) {
    std::optional<std::int64_t> minSyncIntervalSeconds;
    std::optional<std::vector<NotifyNotifications>> data;
    std::optional<IncludedData> included;
    reader.object(value, [&](std::string_view key, json::JsonValue member) {
        if (key == "min_sync_interval_seconds") minSyncIntervalSeconds = reader.int64(member);
        else if (key == "data") data = readList<NotifyNotifications>(reader, member, json::readNotifications);
        else if (key == "included") included = readIncluded(reader, member);
        else reader.skip(member);
    });
    std::int64_t interval = json::required(reader, minSyncIntervalSeconds, "min_sync_interval_seconds");
    auto pairs = json::required(reader, data, "data");
    return NotifyNotificationsResponse{interval, std::move(pairs), json::required(reader, included, "included")};
}

}  // namespace

void IncludedData::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    if (campaigns) {
        writer.key("campaigns");
        writeList(writer, *campaigns);
    }
    if (sites) {
        writer.key("sites");
        writeList(writer, *sites);
    }
    writer.endObject();
}

void NotifyNotificationsResponse::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    writer.key("min_sync_interval_seconds").value(minSyncIntervalSeconds);
    writer.key("data");
    writeList(writer, data);
    writer.key("included");
    included.writeJson(writer);
    writer.endObject();
}

std::string NotifyNotificationsResponse::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyNotificationsResponse> NotifyNotificationsResponse::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyNotificationsResponse>(json, readResponse);
}

}  // namespace drovel::notify
