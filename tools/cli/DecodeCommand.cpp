// drovel-notify decode [--full] FILE|-: decodes a campaigns download exactly as the module does, for
// backend developers checking a payload.
//
// Success: exit 0 and one JSON object on standard output,
//   {"min_sync_interval_seconds": n, "data": <count>, "campaigns": <count or null>, "sites": <count or null>}
// or, with --full, the three as arrays of the records written back with their wire keys, each
// campaign with "date_interval": {"start": <epoch seconds>, "end": <epoch seconds>} or null and each
// site with "location_coordinate": [lat, lon] or null (both in the process's time zone and locale rules).
// Failure: exit 1, nothing on standard output, the message on standard error.

#include <chrono>
#include <iostream>

#include "cli/Command.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/notify/NotifyNotificationsResponse.h"

namespace drovel::cli {

namespace {

using notify::NotifyNotificationsResponse;

struct Options {
    bool full = false;
    std::string path;
};

std::int64_t epochSeconds(notify::Date date) {
    return std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
}

void writeCounts(core::JsonWriter& json, const NotifyNotificationsResponse& response) {
    json.key("data").value(response.data.size());
    json.key("campaigns");
    if (response.included.campaigns) json.value(response.included.campaigns->size());
    else json.null();
    json.key("sites");
    if (response.included.sites) json.value(response.included.sites->size());
    else json.null();
}

void writeRecords(core::JsonWriter& json, const NotifyNotificationsResponse& response) {
    json.key("data").beginArray();
    for (const auto& pair : response.data) pair.writeJson(json);
    json.endArray();

    json.key("campaigns");
    if (!response.included.campaigns) {
        json.null();
    } else {
        json.beginArray();
        for (const auto& campaign : *response.included.campaigns) {
            json.beginObject();
            campaign.writeJsonMembers(json);
            json.key("date_interval");
            if (auto interval = campaign.dateInterval()) {
                json.beginObject()
                    .key("start").value(epochSeconds(interval->start))
                    .key("end").value(epochSeconds(interval->end))
                    .endObject();
            } else {
                json.null();
            }
            json.endObject();
        }
        json.endArray();
    }

    json.key("sites");
    if (!response.included.sites) {
        json.null();
    } else {
        json.beginArray();
        for (const auto& site : *response.included.sites) {
            json.beginObject();
            site.writeJsonMembers(json);
            json.key("location_coordinate");
            if (auto coordinate = site.locationCoordinate()) {
                json.beginArray().value(coordinate->latitude).value(coordinate->longitude).endArray();
            } else {
                json.null();
            }
            json.endObject();
        }
        json.endArray();
    }
}

int run(const Options& options) {
    auto input = readInput(options.path);
    if (!input) return 1;
    const std::string& text = *input;
    auto response = NotifyNotificationsResponse::fromJson(text);
    if (!response) {
        std::cerr << response.error()->description() << '\n';
        return 1;
    }
    core::JsonWriter json;
    json.beginObject();
    json.key("min_sync_interval_seconds").value(response.value().minSyncIntervalSeconds);
    if (options.full) writeRecords(json, response.value());
    else writeCounts(json, response.value());
    json.endObject();
    std::cout << json.str() << '\n' << std::flush;
    return 0;
}

void setup(CLI::App& app, int& exitCode) {
    // The options must outlive the parse; the app lives until the process ends.
    static Options options;
    auto* command = app.add_subcommand("decode", "Decode a campaigns download (notifications response) as the module does");
    command->add_flag("--full", options.full, "Print the decoded records instead of their counts");
    command->add_option("FILE", options.path, "The response body, or - for standard input")->required();
    command->callback([&exitCode] { exitCode = run(options); });
}

const CommandRegistration registration(20, setup);

}  // namespace

}  // namespace drovel::cli
