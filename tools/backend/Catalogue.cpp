#include "backend/Catalogue.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/notify/NotifyCampaign.h"
#include "drovel/platform/Location.h"

namespace drovel::backend {

namespace {

using core::JsonReader;
using core::JsonValue;

core::ErrorPtr catalogueError(std::string message) { return core::makeError<core::JsonDecodeError>(std::move(message)); }

// A coordinate as a number or as a decimal text; keeps the text the wire form carries.
std::string readDegrees(JsonReader& reader, JsonValue value, double limit, double& degrees) {
    std::string text;
    if (reader.check(value.type(), "malformed value") == simdjson::ondemand::json_type::string) {
        text = std::string(reader.string(value));
        auto parsed = parseDecimal(text);
        if (!parsed) reader.fail("expected a decimal number");
        degrees = *parsed;
    } else {
        degrees = reader.number(value);
        text = core::doubleText(degrees);
    }
    if (!(std::abs(degrees) <= limit)) reader.fail("expected degrees from -" + core::doubleText(limit) + " to " + core::doubleText(limit));
    return text;
}

CatalogueSite readSite(JsonReader& reader, JsonValue value) {
    CatalogueSite site;
    std::optional<std::int64_t> id;
    std::optional<std::string> latitude, longitude, name;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "id") id = reader.int64(field);
        else if (key == "partner_identifier") {
            if (!reader.isNull(field)) site.partnerIdentifier = std::string(reader.string(field));
        } else if (key == "name") name = std::string(reader.string(field));
        else if (key == "latitude") latitude = readDegrees(reader, field, 90, site.coordinate.latitude);
        else if (key == "longitude") longitude = readDegrees(reader, field, 180, site.coordinate.longitude);
        else if (key == "beacon_minor") {
            if (!reader.isNull(field)) site.beaconMinor = reader.int64(field);
        } else if (key == "radius_meters") {
            site.radiusMeters = reader.number(field);
            if (!(site.radiusMeters > 0 && site.radiusMeters <= 1e6)) reader.fail("expected a radius from 0 to 1000000 metres");
        } else reader.fail("unknown key");
    });
    site.id = core::required(reader, id, "id");
    site.latitude = core::required(reader, latitude, "latitude");
    site.longitude = core::required(reader, longitude, "longitude");
    site.name = name ? *name : site.partnerIdentifier ? *site.partnerIdentifier : "Site " + std::to_string(site.id);
    return site;
}

CatalogueNotification readNotification(JsonReader& reader, JsonValue value) {
    CatalogueNotification pair;
    std::optional<std::int64_t> campaignID;
    std::optional<std::string> content;
    bool hasSite = false;
    reader.object(value, [&](std::string_view key, JsonValue field) {
        if (key == "campaign_id") campaignID = reader.int64(field);
        else if (key == "site_id") {
            hasSite = true;
            if (!reader.isNull(field)) pair.siteID = reader.int64(field);
        } else if (key == "content") content = std::string(reader.rawJson(field));
        else reader.fail("unknown key");
    });
    pair.campaignID = core::required(reader, campaignID, "campaign_id");
    pair.contentJson = core::required(reader, content, "content");
    // Say it explicitly: a pair without a site is rare, and a forgotten key would be a silent mistake.
    if (!hasSite) reader.missingKey("site_id");
    return pair;
}

// What the walk collects; the campaigns and contents are checked afterwards with the module's own
// decoders (which use the thread's parser, still busy during the walk).
struct RawCatalogue {
    std::int64_t minSyncIntervalSeconds = 0;
    std::vector<std::string> campaigns;
    std::vector<CatalogueSite> sites;
    std::vector<CatalogueNotification> notifications;
};

RawCatalogue readCatalogue(JsonReader& reader, JsonValue root) {
    RawCatalogue raw;
    std::optional<std::int64_t> interval;
    bool campaigns = false, sites = false, notifications = false;
    reader.object(root, [&](std::string_view key, JsonValue field) {
        if (key == "min_sync_interval_seconds") {
            interval = reader.int64(field);
            if (*interval < 0) reader.fail("expected a number of seconds, 0 or more");
        } else if (key == "campaigns") {
            campaigns = true;
            reader.array(field, [&](JsonValue element) { raw.campaigns.emplace_back(reader.rawJson(element)); });
        } else if (key == "sites") {
            sites = true;
            reader.array(field, [&](JsonValue element) { raw.sites.push_back(readSite(reader, element)); });
        } else if (key == "notifications") {
            notifications = true;
            reader.array(field, [&](JsonValue element) { raw.notifications.push_back(readNotification(reader, element)); });
        } else {
            reader.fail("unknown key");
        }
    });
    raw.minSyncIntervalSeconds = core::required(reader, interval, "min_sync_interval_seconds");
    if (!campaigns) reader.missingKey("campaigns");
    if (!sites) reader.missingKey("sites");
    if (!notifications) reader.missingKey("notifications");
    return raw;
}

void writeSite(core::JsonWriter& json, const CatalogueSite& site, double distance) {
    json.beginObject();
    json.key("id").value(static_cast<long long>(site.id));
    if (site.partnerIdentifier) json.key("partner_identifier").value(*site.partnerIdentifier);
    json.key("distance_meters").value(static_cast<long long>(std::llround(distance)));
    json.key("latitude").value(site.latitude);
    json.key("longitude").value(site.longitude);
    if (site.beaconMinor) json.key("beacon_minor").value(static_cast<long long>(*site.beaconMinor));
    json.endObject();
}

}  // namespace

std::optional<double> parseDecimal(std::string_view text) {
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::general);
    if (error != std::errc() || end != text.data() + text.size() || text.empty() || text[0] == '+') return std::nullopt;
    return value;
}

core::Result<Catalogue> Catalogue::fromJson(std::string_view json) {
    if (json.size() > maxFileBytes) return catalogueError("(root): the catalogue is too large");
    auto raw = core::decodeJson<RawCatalogue>(json, readCatalogue);
    if (!raw) return raw.error();

    Catalogue catalogue;
    catalogue.minSyncIntervalSeconds_ = raw.value().minSyncIntervalSeconds;
    std::unordered_set<std::int64_t> campaignIDs, siteIDs;
    for (std::size_t i = 0; i < raw.value().campaigns.size(); ++i) {
        std::string& text = raw.value().campaigns[i];
        auto campaign = notify::NotifyCampaign::fromJson(text);
        const std::string where = "campaigns[" + std::to_string(i) + "]";
        if (!campaign) return catalogueError(where + ": " + campaign.error()->description());
        if (!campaignIDs.insert(campaign.value().id()).second)
            return catalogueError(where + ".id: campaign " + std::to_string(campaign.value().id()) + " appears twice");
        catalogue.campaigns_.push_back({campaign.value().id(), std::move(text)});
    }
    for (std::size_t i = 0; i < raw.value().sites.size(); ++i) {
        auto& site = raw.value().sites[i];
        if (!siteIDs.insert(site.id).second)
            return catalogueError("sites[" + std::to_string(i) + "].id: site " + std::to_string(site.id) + " appears twice");
        catalogue.sites_.push_back(std::move(site));
    }
    for (std::size_t i = 0; i < raw.value().notifications.size(); ++i) {
        auto& pair = raw.value().notifications[i];
        const std::string where = "notifications[" + std::to_string(i) + "]";
        if (!campaignIDs.count(pair.campaignID))
            return catalogueError(where + ".campaign_id: no campaign " + std::to_string(pair.campaignID));
        if (pair.siteID && !siteIDs.count(*pair.siteID))
            return catalogueError(where + ".site_id: no site " + std::to_string(*pair.siteID));
        auto content = notify::NotifyCampaignContent::fromJson(pair.contentJson);
        if (!content) return catalogueError(where + ".content: " + content.error()->description());
        catalogue.notifications_.push_back(std::move(pair));
    }
    return catalogue;
}

core::Result<Catalogue> Catalogue::load(const std::string& path) {
    std::error_code error;
    auto size = std::filesystem::file_size(path, error);
    if (error) return catalogueError(path + ": " + error.message());
    if (size > maxFileBytes) return catalogueError(path + ": the catalogue is too large (" + std::to_string(size) + " bytes)");
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in.good() && !in.eof()) return catalogueError(path + ": cannot be read");
    auto catalogue = fromJson(text.str());
    if (!catalogue) return catalogueError(path + ": " + catalogue.error()->description());
    return catalogue;
}

std::vector<std::pair<const CatalogueSite*, double>> Catalogue::sitesWithin(core::LocationCoordinate centre,
                                                                            double radius) const {
    std::vector<std::pair<const CatalogueSite*, double>> found;
    for (const auto& site : sites_) {
        double distance = platform::distanceBetween(centre, site.coordinate);
        if (distance <= radius) found.emplace_back(&site, distance);
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
        return a.second != b.second ? a.second < b.second : a.first->id < b.first->id;
    });
    return found;
}

std::string Catalogue::notificationsResponse(core::LocationCoordinate centre, double radius,
                                             DownloadSummary* summary) const {
    auto sites = sitesWithin(centre, radius);
    std::unordered_set<std::int64_t> siteIDs, campaignIDs;
    for (const auto& [site, distance] : sites) siteIDs.insert(site->id);
    std::vector<const CatalogueNotification*> pairs;
    std::size_t bytes = 256;
    for (const auto& pair : notifications_) {
        if (pair.siteID && !siteIDs.count(*pair.siteID)) continue;
        pairs.push_back(&pair);
        campaignIDs.insert(pair.campaignID);
        bytes += pair.contentJson.size() + 64;
    }
    std::vector<std::string_view> campaigns;
    for (const auto& campaign : campaigns_) {
        if (!campaignIDs.count(campaign.id)) continue;
        campaigns.push_back(campaign.json);
        bytes += campaign.json.size() + 1;
    }
    core::JsonWriter sitesJson;
    sitesJson.beginArray();
    for (const auto& [site, distance] : sites) writeSite(sitesJson, *site, distance);
    sitesJson.endArray();
    bytes += sitesJson.str().size();

    // Megabytes for a large catalogue: written into room reserved once, the stored texts copied
    // as they are.
    std::string out;
    out.reserve(bytes);
    auto number = [&out](std::int64_t value) {
        char buffer[24];
        out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
    };
    out += R"({"min_sync_interval_seconds":)";
    number(minSyncIntervalSeconds_);
    out += R"(,"data":[)";
    for (const CatalogueNotification* pair : pairs) {
        if (pair != pairs.front()) out += ',';
        out += R"({"campaign_id":)";
        number(pair->campaignID);
        out += R"(,"site_id":)";
        if (pair->siteID) number(*pair->siteID);
        else out += "null";
        out += R"(,"content":)";
        out += pair->contentJson;
        out += '}';
    }
    out += R"(],"included":{"campaigns":[)";
    for (std::size_t i = 0; i < campaigns.size(); ++i) {
        if (i) out += ',';
        out += campaigns[i];
    }
    out += R"(],"sites":)";
    out += sitesJson.str();
    out += "}}";
    if (summary) *summary = {sites.size(), pairs.size(), campaigns.size()};
    return out;
}

std::string Catalogue::sitesResponse(core::LocationCoordinate centre, double radius, std::size_t page,
                                     std::size_t per, std::size_t* count) const {
    auto sites = sitesWithin(centre, radius);
    core::JsonWriter json;
    json.beginObject().key("data").beginArray();
    const std::size_t first = page == 0 ? sites.size() : std::min(sites.size(), (page - 1) * per);
    std::size_t i = first;
    for (; i < sites.size() && i < first + per; ++i) {
        const CatalogueSite& site = *sites[i].first;
        json.beginObject();
        json.key("id").value(static_cast<long long>(site.id));
        if (site.partnerIdentifier) json.key("partner_identifier").value(*site.partnerIdentifier);
        json.key("name").value(site.name);
        json.key("geofence").beginObject();
        json.key("latitude").value(site.coordinate.latitude);
        json.key("longitude").value(site.coordinate.longitude);
        json.key("radius_meters").value(site.radiusMeters);
        json.endObject();
        json.endObject();
    }
    json.endArray().endObject();
    if (count) *count = i - first;
    return json.take();
}

}  // namespace drovel::backend
