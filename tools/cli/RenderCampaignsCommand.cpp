// drovel-notify render-campaigns DOWNLOAD|- [--app JSON]: the notification requests that a phone
// would schedule for a campaigns download, for campaign authors previewing their texts. The
// download is decoded as the module decodes it and the requests are built as a set-up builds them
// from a fresh download (no campaign has fired yet), with --app as the custom template content.
//
// Success: exit 0 and one JSON object per request, one a line, in the set-up's order:
//   {"identifier": "drovel.notify.v2 geofence_approach 7 42",
//    "region": {"type": "circular", "identifier": ..., "latitude": 52.5, "longitude": -0.25,
//               "radius": 150.0, "notify_on_entry": true, "notify_on_exit": false}
//           | {"type": "beacon", "identifier": ..., "uuid": "E621E1F8-...", "major": 12 (or absent),
//              "notify_on_entry": true, "notify_on_exit": false},
//    "title": "...", "body": "...", "user_info": {...}}
// A download whose pairs give no request prints nothing.
// Failure: exit 1 for a download that cannot be read or decoded, exit 2 for a malformed --app;
// nothing on standard output, the message on standard error.

#include <iostream>
#include <variant>

#include "cli/Command.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyNotificationsResponse.h"
#include "manager/CampaignRequestBuilder.h"

namespace drovel::cli {

namespace {

struct Options {
    std::string path;
    std::string app;
};

void writeRegion(core::JsonWriter& json, const platform::CircularRegion& region) {
    json.beginObject()
        .key("type").value("circular")
        .key("identifier").value(region.identifier)
        .key("latitude").value(region.center.latitude)
        .key("longitude").value(region.center.longitude)
        .key("radius").value(region.radius)
        .key("notify_on_entry").value(region.notifyOnEntry)
        .key("notify_on_exit").value(region.notifyOnExit)
        .endObject();
}

void writeRegion(core::JsonWriter& json, const platform::BeaconRegion& region) {
    json.beginObject().key("type").value("beacon").key("identifier").value(region.identifier);
    json.key("uuid").value(region.uuid);
    if (region.major) json.key("major").value(static_cast<unsigned>(*region.major));
    json.key("notify_on_entry").value(region.notifyOnEntry).key("notify_on_exit").value(region.notifyOnExit);
    json.endObject();
}

std::string requestLine(const platform::NotificationRequest& request) {
    core::JsonWriter json;
    json.beginObject().key("identifier").value(request.identifier);
    json.key("region");
    if (request.trigger) std::visit([&](const auto& region) { writeRegion(json, region); }, request.trigger->region);
    else json.null();
    json.key("title").value(request.content.title);
    json.key("body").value(request.content.body);
    json.key("user_info").raw(platform::userInfoToJson(request.content.userInfo));
    json.endObject();
    return json.take();
}

int run(const Options& options) {
    notify::CustomTemplateContent app;
    if (!options.app.empty()) {
        // The same form as the stored custom template content: an object of strings.
        auto parsed = notify::paramsFromJson(options.app);
        if (!parsed) {
            std::cerr << "drovel-notify render-campaigns: --app: " << parsed.error()->description() << '\n';
            return 2;
        }
        app = std::move(parsed.value());
    }
    auto input = readInput(options.path);
    if (!input) return 1;
    const std::string& text = *input;
    auto response = notify::NotifyNotificationsResponse::fromJson(text);
    if (!response) {
        std::cerr << "cannot decode the download: " << response.error()->description() << '\n';
        return 1;
    }
    // What a set-up right after storing this download would do: the stored lists are the
    // download's (an absent list stores nothing), and no campaign has a trigger history, so the
    // time plays no part.
    const auto& included = response.value().included;
    static const std::vector<notify::NotifyCampaign> noCampaigns;
    static const std::vector<notify::NotifySite> noSites;
    auto requests = notify::campaignNotificationRequests(
        included.campaigns ? *included.campaigns : noCampaigns, included.sites ? *included.sites : noSites,
        response.value().data, [](std::int64_t) { return std::vector<notify::NotifyTriggerEvent>{}; },
        platform::Date{}, app);
    std::string out;
    for (const auto& request : requests) {
        out += requestLine(request);
        out += '\n';
    }
    std::cout << out << std::flush;
    return 0;
}

void setup(CLI::App& app, int& exitCode) {
    // The options must outlive the parse; the app lives until the process ends.
    static Options options;
    auto* command = app.add_subcommand(
        "render-campaigns", "Print, as JSON lines, the notification requests a phone would schedule for a campaigns download");
    command->add_option("--app", options.app,
                        "A JSON object of strings, given to the templates as \"app\" like the custom template content");
    command->add_option("DOWNLOAD", options.path, "The campaigns download (notifications response), or - for standard input")
        ->required();
    command->callback([&exitCode] { exitCode = run(options); });
}

const CommandRegistration registration(22, setup);

}  // namespace

}  // namespace drovel::cli
