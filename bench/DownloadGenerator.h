#pragma once
// Makes a campaigns download (the answer to "/notify/notifications") of a chosen size, for the
// benchmarks and for manual checks. Deterministic: the same shape and seed give the same text on
// every machine (mt19937_64's sequence is fixed by the standard; no library distributions are used).
//
// The default shape is the download the performance targets name: 10,000 campaign/site pairs,
// 500 campaigns and 2,000 sites, about 3.5 MB. A fifth of the campaigns are beacon campaigns (their
// pairs have a null "site_id"); the texts hold template tags, escaped quotes and non-ASCII letters,
// as real campaign texts do.

#include <cstdint>
#include <random>
#include <string>

#include "drovel/core/JsonWriter.h"

namespace drovel::bench {

struct DownloadShape {
    std::int64_t pairs = 10000;
    std::int64_t campaigns = 500;
    std::int64_t sites = 2000;
    std::uint64_t seed = 20240301;
    // Every pair's title and body differ (they name the pair's number), so that nothing rendered
    // for one pair can be reused for another. Off: campaigns share a few dozen texts, as real ones do.
    bool distinctTexts = false;
};

inline std::string generateDownload(const DownloadShape& shape = {}) {
    std::mt19937_64 random(shape.seed);
    auto below = [&](std::int64_t bound) { return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(bound)); };
    auto isBeacon = [](std::int64_t campaign) { return campaign % 5 == 4; };
    auto campaignID = [](std::int64_t index) { return 1000 + index; };
    auto siteID = [](std::int64_t index) { return 50000 + index; };
    static const char* const cities[] = {"Amsterdam", "Zürich", "Malmö", "São Paulo", "Kraków", "Lyon", "Austin", "Osaka"};
    static const char* const offers[] = {"10% off", "a free coffee", "double points", "free delivery", "2 for 1"};

    std::int64_t textNumber = 0;
    auto writeContent = [&](core::JsonWriter& json, std::int64_t campaign, std::int64_t site) {
        const char* city = cities[below(8)];
        const char* offer = offers[below(5)];
        std::string siteText = site >= 0 ? std::to_string(siteID(site)) : "beacon";
        json.beginObject();
        json.key("deep_link_url")
            .value("https://shop.example.com/o/" + std::to_string(campaignID(campaign)) + "/" + siteText);
        json.key("notification").beginObject();
        std::string number = shape.distinctTexts ? " #" + std::to_string(++textNumber) : "";
        json.key("title").value(std::string("{{ app.first_name }}: \"") + offer + "\" in " + city + number);
        json.key("body").value(std::string("Pick up at our ") + city + " store" + number +
                               ".{% if app.gold %} Extra treat!{% endif %}");
        json.endObject();
        json.key("metadata").beginObject();
        json.key("campaign").value("spring-" + std::to_string(campaignID(campaign)));
        json.key("tier").value(below(2) ? "gold" : "silver");
        json.endObject();
        json.endObject();
    };

    core::JsonWriter json;
    json.beginObject();
    json.key("min_sync_interval_seconds").value(3600);
    json.key("data").beginArray();
    for (std::int64_t i = 0; i < shape.pairs; ++i) {
        std::int64_t campaign = below(shape.campaigns);
        json.beginObject();
        json.key("campaign_id").value(campaignID(campaign));
        std::int64_t site = -1;
        if (isBeacon(campaign)) {
            json.key("site_id").null();
        } else {
            site = below(shape.sites);
            json.key("site_id").value(siteID(site));
        }
        json.key("content");
        writeContent(json, campaign, site);
        json.endObject();
    }
    json.endArray();

    json.key("included").beginObject();
    json.key("campaigns").beginArray();
    for (std::int64_t c = 0; c < shape.campaigns; ++c) {
        bool beacon = isBeacon(c);
        int month = 1 + static_cast<int>(below(12));
        char startDay[16], endDay[16], uuid[40];
        std::snprintf(startDay, sizeof startDay, "2024-%02d-%02d", month, 1 + static_cast<int>(below(28)));
        std::snprintf(endDay, sizeof endDay, "2025-%02d-%02d", month, 1 + static_cast<int>(below(28)));
        json.beginObject();
        json.key("id").value(campaignID(c));
        json.key("region_type").value(beacon ? "beacon" : "geofence");
        if (beacon) {
            std::uint64_t high = random(), low = random();
            std::snprintf(uuid, sizeof uuid, "%08llX-%04llX-4%03llX-A%03llX-%012llX",
                          static_cast<unsigned long long>(high >> 32), static_cast<unsigned long long>(high >> 16 & 0xFFFF),
                          static_cast<unsigned long long>(high & 0xFFF), static_cast<unsigned long long>(low >> 52),
                          static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFULL));
            json.key("beacon_uuid").value(uuid);
            json.key("beacon_major").value(below(65536));
        }
        json.key("start_day").value(startDay);
        json.key("end_day").value(endDay);
        json.key("repeat_interval_days").value(below(8));
        if (!beacon) json.key("geofence_radius_meters").value(100 + below(400));
        json.key("content");
        writeContent(json, c, -1);
        json.key("defer_on_pickup").value(below(3) == 0);
        json.endObject();
    }
    json.endArray();

    json.key("sites").beginArray();
    for (std::int64_t s = 0; s < shape.sites; ++s) {
        json.beginObject();
        json.key("id").value(siteID(s));
        json.key("partner_identifier").value("STORE-" + std::to_string(siteID(s)));
        json.key("distance_meters").value(below(50000));
        json.key("latitude").value(core::doubleText(40.0 + static_cast<double>(below(2000000)) / 100000.0));
        json.key("longitude").value(core::doubleText(-74.0 + static_cast<double>(below(2000000)) / 100000.0));
        if (below(4) == 0) json.key("beacon_minor").value(below(65536));
        json.endObject();
    }
    json.endArray();
    json.endObject();
    json.endObject();
    return json.take();
}

}  // namespace drovel::bench
