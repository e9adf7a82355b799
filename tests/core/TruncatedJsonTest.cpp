// A document cut anywhere (a download that broke off, a file half written) gives the decoder's
// error and nothing else: every prefix of a valid document, through every decoder on the shared
// reader. Run under the sanitizers, this also catches a call into the parser after an error.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "../../bench/DownloadGenerator.h"
#include "drovel/core/AppConfig.h"
#include "drovel/core/Site.h"
#include "drovel/notify/LoadedCampaigns.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyNotificationsResponse.h"
#include "drovel/notify/NotifyTriggerEvent.h"
#include "drovel/platform/UserInfo.h"
#include "linux/FileUserDefaults.h"
#include "linux/UserDefaultsJson.h"

namespace {

using namespace drovel;

// A download as a backend writes it by hand: white space everywhere, every kind of value.
const std::string kSpacedDownload = R"( {
  "min_sync_interval_seconds" : 900 ,
  "data" : [ { "campaign_id" : 7 , "site_id" : 42 , "content" : { "deep_link_url" : "app://o/7" ,
               "notification" : { "title" : "Hi \"you\"" , "body" : "caf\u00e9" } , "metadata" : { "k" : "v" } } } ,
             { "campaign_id" : 8 , "site_id" : null , "content" : { } } ] ,
  "included" : {
    "campaigns" : [ { "id" : 7 , "region_type" : "beacon" , "beacon_uuid" : "E621E1F8-C36C-495A-93FC-0C247A3E6E5F" ,
                      "beacon_major" : 12 , "start_day" : "2024-03-01" , "end_day" : "9999-12-31" ,
                      "repeat_interval_days" : 1 , "geofence_radius_meters" : 150 , "content" : { } ,
                      "defer_on_pickup" : true , "unknown" : [ 1 , -2.5e3 , false , null , { "x" : [ ] } ] } ] ,
    "sites" : [ { "id" : 42 , "partner_identifier" : "A-42" , "distance_meters" : 120 , "latitude" : "52.1" ,
                  "longitude" : "-0.5" , "beacon_minor" : 3 } ]
  }
} )";

struct Decoder {
    const char* name;
    std::function<bool(std::string_view)> decodes;  // false: an error came back
    std::string document;
};

template <class Result>
bool succeeded(const Result& result) {
    // A failure must carry a message; an empty one would leave the user guessing.
    if (!result) {
        EXPECT_FALSE(result.error()->description().empty());
    }
    return static_cast<bool>(result);
}

std::vector<Decoder> decoders() {
    auto download = [](std::string_view text) { return succeeded(notify::NotifyNotificationsResponse::fromJson(text)); };
    return {
        {"generated download", download, bench::generateDownload({.pairs = 6, .campaigns = 3, .sites = 3})},
        {"spaced download", download, kSpacedDownload},
        {"trigger event", [](std::string_view text) { return succeeded(notify::NotifyTriggerEvent::fromJson(text)); },
         R"({"last_triggered_at":"2024-03-01T00:00:00.000Z","campaign_id":7,"site_id":42})"},
        {"analytics event", [](std::string_view text) { return succeeded(notify::NotifyAnalyticsEvent::fromJson(text)); },
         R"({"guid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","name":"notification_triggered",)"
         R"("occurred_at":"2024-03-01T00:00:00.000Z","campaign_id":7,"params":{"a":"b"}})"},
        {"loaded campaigns", [](std::string_view text) { return succeeded(notify::LoadedCampaigns::fromJson(text)); },
         R"({"store":{"7":[43,44],"9":[]}})"},
        {"app configuration", [](std::string_view text) { return succeeded(core::AppConfig::fromJson(text)); },
         R"({"data":{"notify":{"default_site_search_radius_meters":1000.0,"analytics_event_limit":20},)"
         R"("notify_max_sites":5,"other":{"nested":[1,{"x":null}]}}})"},
        {"user info", [](std::string_view text) { return succeeded(platform::userInfoFromJson(text)); },
         R"({"campaign_id":7,"list":[1,"two",{"three":3.5}],"flag":true})"},
        {"user defaults", [](std::string_view text) { return succeeded(platform::decodeUserDefaults(text)); },
         platform::encodeUserDefaults({{"text", std::string("x")},
                                       {"list", platform::DefaultsArray{std::int64_t{1}, 2.5, true}},
                                       {"nested", platform::DefaultsDictionary{{"data", platform::DefaultsBytes{1, 2}}}}})},
    };
}

}  // namespace

TEST(TruncatedJson, EveryPrefixOfAValidDocumentFailsCleanly) {
    for (const Decoder& decoder : decoders()) {
        SCOPED_TRACE(decoder.name);
        ASSERT_TRUE(decoder.decodes(decoder.document)) << "the whole document must decode";
        std::size_t decodedPrefixes = 0;
        for (std::size_t length = 0; length < decoder.document.size(); ++length) {
            std::string_view prefix(decoder.document.data(), length);
            // Only a prefix that ends inside trailing white space may still be the whole value.
            if (decoder.decodes(prefix)) {
                ++decodedPrefixes;
                EXPECT_EQ(prefix.find_last_not_of(" \n"), decoder.document.find_last_not_of(" \n")) << length;
            }
        }
        EXPECT_LE(decodedPrefixes, 1u);
    }
}
