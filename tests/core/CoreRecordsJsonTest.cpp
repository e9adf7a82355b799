#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "drovel/core/AppConfig.h"
#include "drovel/core/Site.h"

using namespace drovel::core;

namespace {

struct DecodeCase {
    std::string json;
    std::string error;  // empty: decodes, and what it decodes to encodes back to an equal record
};

// Runs every case through T::fromJson; good documents must survive an encode/decode round trip.
template <class T, class Decode>
void checkDecoding(const std::vector<DecodeCase>& cases, Decode decode) {
    for (const auto& c : cases) {
        Result<T> result = decode(c.json);
        if (!c.error.empty()) {
            ASSERT_FALSE(result.ok()) << c.json;
            EXPECT_EQ(result.error()->description(), c.error) << c.json;
            continue;
        }
        ASSERT_TRUE(result.ok()) << c.json << ": " << result.error()->description();
        std::string encoded = result.value().toJson();
        Result<T> again = decode(encoded);
        ASSERT_TRUE(again.ok()) << encoded;
        EXPECT_EQ(again.value(), result.value()) << encoded;
    }
}

TEST(AppConfigJson, DecodesAndRoundTrips) {
    const std::string full =
        R"({"data":{"notify":{"default_site_search_radius_meters":1000.0,"analytics_event_limit":20},"notify_max_sites":5}})";
    auto config = AppConfig::fromJson(full);
    ASSERT_TRUE(config.ok());
    EXPECT_EQ(config.value(), (AppConfig{AppConfigData{NotifyConfig{1000.0, 20}, 5}}));
    EXPECT_EQ(config.value().toJson(), full);

    checkDecoding<AppConfig>(
        {
            {R"({})", ""},
            {R"({"data":null})", ""},
            {R"({"data":{"notify":null,"notify_max_sites":null,"other":{"nested":[1,{"x":null}]}}})", ""},
            {R"({"data":{"notify":{"default_site_search_radius_meters":500}}})", ""},
            {R"({"data":{"notify":{"analytics_event_limit":20}}})",
             "data.notify: missing required key 'default_site_search_radius_meters'"},
            {R"({"data":{"notify":{"default_site_search_radius_meters":"far"}}})",
             "data.notify.default_site_search_radius_meters: expected a number"},
            {R"({"data":{"notify":{"default_site_search_radius_meters":1,"analytics_event_limit":0}}})",
             "data.notify.analytics_event_limit: expected a positive integer"},
            {R"({"data":{"notify_max_sites":2.5}})", "data.notify_max_sites: expected an integer"},
            {R"({"data":[]})", "data: expected an object"},
            {R"({"data":{"unknown":[1,]}})", "data.unknown[1]: malformed value (The JSON document has an improper structure: missing or "
             "superfluous commas, braces, missing keys, etc.)"},
        },
        AppConfig::fromJson);
}

TEST(PushDataJson, DecodesAndRoundTrips) {
    auto push = PushData::fromJson(R"({"message_type":"background_sync","force_sync_notify_campaigns":true,"aps":{}})");
    ASSERT_TRUE(push.ok());
    EXPECT_EQ(push.value(), (PushData{"background_sync", true}));

    auto empty = PushData::fromJson(R"({"force_sync_notify_campaigns":null})");
    ASSERT_TRUE(empty.ok());
    EXPECT_EQ(empty.value(), PushData{});

    checkDecoding<PushData>(
        {
            {R"({"message_type":"something_new"})", ""},
            {R"({"message_type":null,"force_sync_notify_campaigns":false})", ""},
            {R"({"force_sync_notify_campaigns":"yes"})", "force_sync_notify_campaigns: expected a boolean"},
            {R"({"message_type":7})", "message_type: expected a string"},
        },
        PushData::fromJson);

    for (auto type : {RemoteNotificationMessageType::backgroundSync, RemoteNotificationMessageType::orderUpdate,
                      RemoteNotificationMessageType::marketing})
        EXPECT_EQ(remoteNotificationMessageTypeFromRawValue(rawValue(type)), type);
    EXPECT_FALSE(remoteNotificationMessageTypeFromRawValue("Background_Sync"));
}

TEST(SiteJson, DecodesAndRoundTrips) {
    const std::string full =
        R"({"id":42,"partner_identifier":"A-42","name":"Main St","geofence":{"latitude":52.1,"longitude":4.3,"radius_meters":150.0}})";
    auto site = Site::fromJson(full);
    ASSERT_TRUE(site.ok());
    EXPECT_EQ(site.value(), (Site{42, "A-42", "Main St", Geofence{52.1, 4.3, 150.0}}));
    EXPECT_EQ(site.value().toJson(), full);

    checkDecoding<Site>(
        {
            {R"({"id":1,"name":"","partner_identifier":null,"geofence":null,"extra":"x"})", ""},
            {R"({"name":"x"})", "(root): missing required key 'id'"},
            {R"({"id":1})", "(root): missing required key 'name'"},
            {R"({"id":1,"name":"x","geofence":{"latitude":1,"longitude":2}})",
             "geofence: missing required key 'radius_meters'"},
            {R"({"id":1,"name":"x","geofence":{"latitude":"1","longitude":2,"radius_meters":3}})",
             "geofence.latitude: expected a number"},
        },
        Site::fromJson);

    auto list = Site::listFromJson(R"({"data":[{"id":1,"name":"a"},{"id":2,"name":"b"}],"meta":{"page":1}})");
    ASSERT_TRUE(list.ok());
    ASSERT_EQ(list.value().size(), 2u);
    EXPECT_EQ(list.value()[1].name, "b");
    EXPECT_TRUE(Site::listFromJson(R"({"data":[]})").value().empty());
    for (auto [json, error] : {std::pair{R"({"data":[{"id":1,"name":"a"},{"id":"x","name":"b"}]})", "data[1].id: expected an integer"},
                               std::pair{R"({"sites":[]})", "(root): missing required key 'data'"},
                               std::pair{R"({"data":null})", "data: expected an array"}}) {
        auto failed = Site::listFromJson(json);
        ASSERT_FALSE(failed.ok()) << json;
        EXPECT_EQ(failed.error()->description(), error);
    }
}

TEST(GeofenceTest, CoordinateOnlyWithinRange) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        double latitude, longitude;
        bool valid;
    };
    const Case cases[] = {
        {52.1, 4.3, true},     {90, 180, true},       {-90, -180, true},      {0, 0, true},
        {90.0001, 0, false},   {-90.5, 0, false},     {0, 180.5, false},      {0, -181, false},
        {nan, 0, false},       {0, nan, false},       {INFINITY, 0, false},
    };
    for (const auto& c : cases) {
        auto coordinate = Geofence{c.latitude, c.longitude, 100}.locationCoordinate();
        ASSERT_EQ(coordinate.has_value(), c.valid) << c.latitude << "," << c.longitude;
        if (c.valid) {
            EXPECT_EQ(*coordinate, (LocationCoordinate{c.latitude, c.longitude}));
        }
    }
}

TEST(OrderJson, DecodesRoundTripsAndKnowsWhenOpen) {
    checkDecoding<Order>(
        {
            {R"({"id":7,"status":"open","site_id":42})", ""},
            {R"({"id":7,"status":"arrived","site_id":null})", ""},
            {R"({"id":7})", "(root): missing required key 'status'"},
            {R"({"id":7,"status":null})", "status: expected a string"},
        },
        Order::fromJson);

    auto orders = Order::listFromJson(R"({"data":[{"id":1,"status":"open"},{"id":2,"status":"completed","site_id":3}]})");
    ASSERT_TRUE(orders.ok());
    ASSERT_EQ(orders.value().size(), 2u);
    EXPECT_EQ(orders.value()[1], (Order{2, "completed", 3}));
    EXPECT_EQ(orders.value()[1].toJson(), R"({"id":2,"status":"completed","site_id":3})");

    for (auto [status, open] : {std::pair{"open", true}, std::pair{"arrived", true}, std::pair{"", true},
                                std::pair{"Completed", true}, std::pair{"completed", false}, std::pair{"cancelled", false}})
        EXPECT_EQ((Order{1, status, std::nullopt}.isOpen()), open) << status;
}

}  // namespace
