// Decoding of campaigns downloads: what fails (with the key path), what is accepted, round trips.

#include <gtest/gtest.h>

#include <string>

#include "../../bench/DownloadGenerator.h"
#include "core/JsonReader.h"
#include "drovel/notify/NotifyNotificationsResponse.h"

using namespace drovel::notify;

namespace {

const std::string goodContent =
    R"({"deep_link_url":"app://offer/7","notification":{"title":"Hi","body":"Body"},"metadata":{"k":"v"}})";
const std::string goodCampaign = R"({"id":7,"region_type":"beacon","beacon_uuid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
                                 R"("beacon_major":12,"start_day":"2024-03-01","end_day":"2024-03-31",)"
                                 R"("repeat_interval_days":1,"geofence_radius_meters":150,"content":)" +
                                 goodContent + R"(,"defer_on_pickup":true})";
const std::string goodSite =
    R"({"id":42,"partner_identifier":"A-42","distance_meters":120,"latitude":"52.1","longitude":"-0.5","beacon_minor":3})";
const std::string goodPair = R"({"campaign_id":7,"site_id":42,"content":)" + goodContent + "}";

std::string response(const std::string& data, const std::string& included) {
    return R"({"min_sync_interval_seconds":3600,"data":[)" + data + R"(],"included":)" + included + "}";
}
const std::string fullResponse = response(goodPair, R"({"campaigns":[)" + goodCampaign + R"(],"sites":[)" + goodSite + "]}");
std::string withCampaign(const std::string& campaign) {
    return response(goodPair, R"({"campaigns":[)" + goodCampaign + "," + campaign + R"(],"sites":[)" + goodSite + "]}");
}
std::string withSite(const std::string& site) { return response(goodPair, R"({"sites":[)" + site + "]}"); }
std::string withPair(const std::string& pair) { return response(goodPair + "," + pair, "{}"); }
// The good campaign with one member's text replaced ("key":value -> replacement; empty removes it).
std::string campaignWith(const std::string& member, const std::string& replacement) {
    std::string campaign = goodCampaign;
    auto at = campaign.find(member);
    EXPECT_NE(at, std::string::npos) << member;
    if (replacement.empty() && campaign[at + member.size()] == ',') campaign.erase(at, member.size() + 1);
    else campaign.replace(at, member.size(), replacement);
    return campaign;
}

struct FailureCase {
    const char* what;
    std::string document;
    std::string message;
};

}  // namespace

TEST(NotifyNotificationsResponseDecoding, FailsTheWholeDocumentNamingTheKeyPath) {
    const FailureCase cases[] = {
        {"missing interval", R"({"data":[],"included":{}})", "(root): missing required key 'min_sync_interval_seconds'"},
        {"missing data", R"({"min_sync_interval_seconds":1,"included":{}})", "(root): missing required key 'data'"},
        {"missing included", R"({"min_sync_interval_seconds":1,"data":[]})", "(root): missing required key 'included'"},
        {"null included", R"({"min_sync_interval_seconds":1,"data":[],"included":null})", "included: expected an object"},
        {"fractional interval", R"({"min_sync_interval_seconds":1.5,"data":[],"included":{}})",
         "min_sync_interval_seconds: expected an integer"},
        {"interval beyond 64 bits", R"({"min_sync_interval_seconds":9223372036854775808,"data":[],"included":{}})",
         "min_sync_interval_seconds: expected an integer (the number does not fit)"},
        {"pair id as text", withPair(R"({"campaign_id":"7","content":{}})"), "data[1].campaign_id: expected an integer"},
        {"pair without content", withPair(R"({"campaign_id":7,"site_id":1})"), "data[1]: missing required key 'content'"},
        {"title not a string", withPair(R"({"campaign_id":7,"content":{"notification":{"title":5}}})"),
         "data[1].content.notification.title: expected a string"},
        {"metadata value not a string", withPair(R"({"campaign_id":7,"content":{"metadata":{"a":"b","n":1}}})"),
         "data[1].content.metadata.n: expected a string"},
        {"campaigns not a list", response("", R"({"campaigns":{}})"), "included.campaigns: expected an array"},
        {"unknown region type", withCampaign(campaignWith(R"("region_type":"beacon")", R"("region_type":"beacon_site")")),
         "included.campaigns[1].region_type: unknown region type \"beacon_site\""},
        {"null region type", withCampaign(campaignWith(R"("region_type":"beacon")", R"("region_type":null)")),
         "included.campaigns[1].region_type: expected a string"},
        {"major too large", withCampaign(campaignWith(R"("beacon_major":12)", R"("beacon_major":70000)")),
         "included.campaigns[1].beacon_major: expected an integer from 0 to 65535"},
        {"major negative", withCampaign(campaignWith(R"("beacon_major":12)", R"("beacon_major":-1)")),
         "included.campaigns[1].beacon_major: expected an integer from 0 to 65535"},
        {"uuid too short", withCampaign(campaignWith("0C247A3E6E5F", "0C247A3E6E5")),
         "included.campaigns[1].beacon_uuid: expected a UUID in the form XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX"},
        {"uuid in braces",
         withCampaign(campaignWith(R"("E621E1F8-C36C-495A-93FC-0C247A3E6E5F")", R"("{E621E1F8-C36C-495A-93FC-0C247A3E6E5}")")),
         "included.campaigns[1].beacon_uuid: expected a UUID in the form XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX"},
        {"id beyond 64 bits", withCampaign(campaignWith(R"("id":7)", R"("id":-9223372036854775809)")),
         "included.campaigns[1].id: expected an integer (the number does not fit)"},
        {"missing start day", withCampaign(campaignWith(R"("start_day":"2024-03-01")", "")),
         "included.campaigns[1]: missing required key 'start_day'"},
        {"first missing key in declaration order",  // no defer_on_pickup, and "id":7, cut off the front
         withCampaign(campaignWith(R"("defer_on_pickup":true)", R"("x":0)").replace(1, 7, "")),
         "included.campaigns[1]: missing required key 'id'"},
        {"null content", withCampaign(campaignWith(R"("content":)" + goodContent, R"("content":null)")),
         "included.campaigns[1].content: expected an object"},
        {"defer as text", withCampaign(campaignWith(R"("defer_on_pickup":true)", R"("defer_on_pickup":"true")")),
         "included.campaigns[1].defer_on_pickup: expected a boolean"},
        {"latitude as number", withSite(R"({"id":1,"distance_meters":2,"latitude":52.1,"longitude":"4"})"),
         "included.sites[0].latitude: expected a string"},
        {"site without distance", withSite(R"({"id":1,"latitude":"52.1","longitude":"4"})"),
         "included.sites[0]: missing required key 'distance_meters'"},
        {"bad value in an unknown key", response("", R"({"extra":[1,{"a":tru}]})"), "included.extra[1].a: expected a boolean"},
        {"trailing content", response("", "{}") + " {}", "(root): unexpected content after the document"},
    };
    for (const auto& c : cases) {
        auto decoded = NotifyNotificationsResponse::fromJson(c.document);
        ASSERT_FALSE(decoded.ok()) << c.what;
        EXPECT_EQ(decoded.error()->description(), c.message) << c.what;
        EXPECT_NE(dynamic_cast<const drovel::core::JsonDecodeError*>(decoded.error().get()), nullptr) << c.what;
    }
    // Malformed and cut-off documents are in tests/core/TruncatedJsonTest.
}

TEST(NotifyNotificationsResponseDecoding, AcceptsOptionalKeysMissingOrNullAndSkipsUnknownOnes) {
    auto empty = NotifyNotificationsResponse::fromJson(response("", "{}"));
    ASSERT_TRUE(empty.ok()) << empty.error()->description();
    EXPECT_FALSE(empty.value().included.campaigns.has_value());
    EXPECT_FALSE(empty.value().included.sites.has_value());

    auto nulls = NotifyNotificationsResponse::fromJson(response(
        R"({"campaign_id":7,"site_id":null,"content":{"deep_link_url":null,"notification":{"title":null},"metadata":null},"x":{"y":[]}})",
        R"({"campaigns":[{"id":1,"region_type":"geofence","beacon_uuid":null,"beacon_major":null,"start_day":"a",)"
        R"("end_day":"b","repeat_interval_days":null,"geofence_radius_meters":null,"content":{},"defer_on_pickup":false}],)"
        R"("sites":null,"future":{"nested":[1,2.5,"x",null,true]}})"));
    ASSERT_TRUE(nulls.ok()) << nulls.error()->description();
    const NotifyCampaignContent none(std::nullopt, std::nullopt, std::nullopt);
    EXPECT_EQ(nulls.value().data.at(0),
              (NotifyNotifications{7, std::nullopt, {std::nullopt, NotifyCampaignNotification(std::nullopt, std::nullopt), std::nullopt}}));
    EXPECT_EQ(nulls.value().included.campaigns->at(0), NotifyCampaign(1, NotifyCampaignRegionType::geofence, std::nullopt,
                                                                      std::nullopt, "a", "b", std::nullopt, std::nullopt, none, false));
    EXPECT_FALSE(nulls.value().included.sites.has_value());

    // The edges of the major's range, and a lower-case UUID.
    for (const char* major : {"0", "65535"}) {
        auto campaign = NotifyCampaign::fromJson(campaignWith(R"("beacon_major":12)", std::string(R"("beacon_major":)") + major));
        ASSERT_TRUE(campaign.ok()) << major;
        EXPECT_EQ(*campaign.value().beaconMajor(), std::stoi(major));
    }
    auto lower = NotifyCampaign::fromJson(
        campaignWith("E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "e621e1f8-c36c-495a-93fc-0c247a3e6e5f"));
    ASSERT_TRUE(lower.ok());
    EXPECT_EQ(lower.value().beaconUUID()->uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
}

TEST(NotifyNotificationsResponseDecoding, ReadsEveryField) {
    auto decoded = NotifyNotificationsResponse::fromJson(fullResponse);
    ASSERT_TRUE(decoded.ok()) << decoded.error()->description();
    const auto& r = decoded.value();
    const NotifyCampaignContent content("app://offer/7", NotifyCampaignNotification("Hi", "Body"),
                                        NotifyCampaignContent::Metadata{{"k", "v"}});
    EXPECT_EQ(r.minSyncIntervalSeconds, 3600);
    EXPECT_EQ(r.data, (std::vector{NotifyNotifications{7, 42, content}}));
    EXPECT_EQ(r.included.campaigns,
              (std::vector{NotifyCampaign(7, NotifyCampaignRegionType::beacon, UUID::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"),
                                          12, "2024-03-01", "2024-03-31", 1, 150, content, true)}));
    EXPECT_EQ(r.included.sites, (std::vector{NotifySite(42, "A-42", 120, "52.1", "-0.5", 3)}));
}

TEST(NotifyNotificationsResponseDecoding, RoundTripsThroughItsOwnJson) {
    // A generated download (escapes, non-ASCII letters, beacon and geofence campaigns) and a
    // hand-written one with every optional key present.
    for (const std::string& text : {drovel::bench::generateDownload({.pairs = 300, .campaigns = 40, .sites = 60}), fullResponse}) {
        auto first = NotifyNotificationsResponse::fromJson(text);
        ASSERT_TRUE(first.ok()) << first.error()->description();
        std::string encoded = first.value().toJson();
        auto second = NotifyNotificationsResponse::fromJson(encoded);
        ASSERT_TRUE(second.ok()) << second.error()->description();
        EXPECT_EQ(second.value(), first.value());
        EXPECT_EQ(second.value().toJson(), encoded);
    }
    // Each record on its own, too.
    EXPECT_EQ(NotifyCampaign::fromJson(NotifyCampaign::fromJson(goodCampaign).value().toJson()).value(),
              NotifyCampaign::fromJson(goodCampaign).value());
    EXPECT_EQ(NotifySite::fromJson(goodSite).value().toJson(), goodSite);
    EXPECT_EQ(NotifyNotifications::fromJson(goodPair).value().toJson(), goodPair);
}
