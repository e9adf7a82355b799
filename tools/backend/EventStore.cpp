#include "backend/EventStore.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/platform/Location.h"

namespace drovel::backend {

namespace {

using core::JsonReader;
using core::JsonValue;

std::string readUUID(JsonReader& reader, JsonValue value) {
    auto uuid = platform::canonicalUUID(reader.string(value));
    if (!uuid) reader.fail("expected a UUID");
    return *uuid;
}

// An event object; the app instance id is the batch's (or, in the events file, the line's own).
ReceivedEvent readEvent(JsonReader& reader, JsonValue value) {
    ReceivedEvent event;
    std::optional<std::string> guid, name, occurredAt;
    bool hasParams = false;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "guid") guid = readUUID(reader, field);
        else if (key == "name") name = std::string(reader.string(field));
        else if (key == "occurred_at") occurredAt = std::string(reader.string(field));
        else if (key == "campaign_id") {
            if (!reader.isNull(field)) event.campaignID = reader.int64(field);
        } else if (key == "params") {
            hasParams = true;
            reader.object(field, [&](std::string_view param, JsonValue text) {
                event.params[std::string(param)] = std::string(reader.string(text));
            });
        } else if (key == "app_instance_id") {
            event.appInstanceID = readUUID(reader, field);
        } else {
            reader.skip(field);
        }
    });
    event.guid = core::required(reader, guid, "guid");
    event.name = core::required(reader, name, "name");
    event.occurredAt = core::required(reader, occurredAt, "occurred_at");
    if (!hasParams) reader.missingKey("params");
    return event;
}

std::vector<ReceivedEvent> readBody(JsonReader& reader, JsonValue root) {
    std::optional<std::vector<ReceivedEvent>> events;
    std::optional<std::string> appInstanceID;
    bool hasData = false;
    reader.object(root, [&](std::string_view key, JsonValue data) {
        if (key != "data") return reader.skip(data);
        hasData = true;
        reader.object(data, [&](std::string_view field, JsonValue value) {
            if (field == "app_instance_id") appInstanceID = readUUID(reader, value);
            else if (field == "events") {
                events.emplace();
                reader.array(value, [&](JsonValue element) { events->push_back(readEvent(reader, element)); });
            } else reader.skip(value);
        });
        if (!appInstanceID) reader.missingKey("app_instance_id");
        if (!events) reader.missingKey("events");
    });
    if (!hasData) reader.missingKey("data");
    for (auto& event : *events) event.appInstanceID = *appInstanceID;
    return std::move(*events);
}

}  // namespace

std::string ReceivedEvent::json() const {
    core::JsonWriter json;
    json.beginObject();
    json.key("guid").value(guid);
    json.key("name").value(name);
    json.key("occurred_at").value(occurredAt);
    json.key("campaign_id");
    if (campaignID) json.value(static_cast<long long>(*campaignID));
    else json.null();
    json.key("params").beginObject();
    for (const auto& [key, value] : params) json.key(key).value(value);
    json.endObject();
    json.key("app_instance_id").value(appInstanceID);
    json.endObject();
    return json.take();
}

core::Result<std::vector<ReceivedEvent>> parseUploadBody(std::string_view body) {
    return core::decodeJson<std::vector<ReceivedEvent>>(body, readBody);
}

core::Result<std::unique_ptr<EventStore>> EventStore::open(std::optional<std::string> path) {
    std::unique_ptr<EventStore> store(new EventStore);
    if (!path) return store;
    {
        std::ifstream in(*path);
        std::string line;
        while (std::getline(in, line)) {
            if (line.empty()) continue;
            auto event = core::decodeJson<ReceivedEvent>(line, readEvent);
            if (!event || !store->guids_.insert(event.value().guid).second) {
                store->skippedLines_ += event ? 0 : 1;
                continue;
            }
            store->events_.push_back(std::move(event).value());
        }
    }
    store->file_ = std::fopen(path->c_str(), "a");
    if (!store->file_)
        return core::makeError<core::SimpleError>("cannot open the events file " + *path + ": " + std::strerror(errno));
    return store;
}

EventStore::~EventStore() {
    if (file_) std::fclose(file_);
}

core::Result<std::vector<ReceivedEvent>> EventStore::add(std::vector<ReceivedEvent> events) {
    std::lock_guard lock(mutex_);
    std::vector<ReceivedEvent> added;
    std::set<std::string, std::less<>> batch;
    std::string lines;
    for (auto& event : events) {
        if (guids_.count(event.guid) || !batch.insert(event.guid).second) continue;
        lines += event.json() + "\n";
        added.push_back(std::move(event));
    }
    if (file_ && !lines.empty()) {
        bool ok = std::fwrite(lines.data(), 1, lines.size(), file_) == lines.size() && std::fflush(file_) == 0 &&
                  ::fsync(::fileno(file_)) == 0;
        if (!ok) return core::makeError<core::SimpleError>(std::string("cannot write the events file: ") + std::strerror(errno));
    }
    for (const auto& event : added) {
        guids_.insert(event.guid);
        events_.push_back(event);
    }
    return added;
}

std::vector<ReceivedEvent> EventStore::events() const {
    std::lock_guard lock(mutex_);
    return events_;
}

}  // namespace drovel::backend
