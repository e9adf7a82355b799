#include <gtest/gtest.h>

#include <fstream>

#include "backend/Catalogue.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/notify/NotifyNotificationsResponse.h"
#include "drovel/platform/Location.h"
#include "template/Render.h"
#include "support/TempDirectory.h"

namespace drovel::backend {
namespace {

using notify::NotifyNotificationsResponse;

constexpr core::LocationCoordinate kCentre{40.0, -74.0};

// A point `meters` north of the centre, as the text a catalogue carries.
std::string northText(double meters) { return core::doubleText(kCentre.latitude + meters / 111195.0); }

std::string campaign(int id, const char* regionType = "geofence") {
    return R"({"id": )" + std::to_string(id) + R"(, "region_type": ")" + regionType +
           R"(", "start_day": "2026-11-01", "end_day": "2026-12-31", "geofence_radius_meters": 100,
              "beacon_uuid": "6F2A8C1E-3B4D-4E5F-9A7B-1C2D3E4F5A6B", "content": {}, "defer_on_pickup": false})";
}

// Three sites 1 km, 100 m and 3 km north; campaign 1 at each site, campaign 2 without a site,
// campaign 3 only at the far site.
std::string smallCatalogue() {
    return R"({"min_sync_interval_seconds": 60,
      "campaigns": [)" + campaign(1) + "," + campaign(2, "beacon") + "," + campaign(3) + R"(],
      "sites": [{"id": 10, "latitude": ")" + northText(1000) + R"(", "longitude": -74.0, "beacon_minor": 4},
                {"id": 11, "partner_identifier": "P-11", "latitude": )" + northText(100) + R"(, "longitude": "-74.0"},
                {"id": 12, "latitude": ")" + northText(3000) + R"(", "longitude": "-74.0"}],
      "notifications": [{"campaign_id": 1, "site_id": 10, "content": {"notification": {"title": "ten"}}},
                        {"campaign_id": 1, "site_id": 11, "content": {}},
                        {"campaign_id": 2, "site_id": null, "content": {"deep_link_url": "shop://x"}},
                        {"campaign_id": 1, "site_id": 12, "content": {}},
                        {"campaign_id": 3, "site_id": 12, "content": {}}]})";
}

TEST(CatalogueTest, ADownloadHoldsTheSitesWithinTheRadiusNearestFirstAndWhatTheirPairsName) {
    auto catalogue = Catalogue::fromJson(smallCatalogue());
    ASSERT_TRUE(catalogue) << catalogue.error()->description();
    // The summary's counts show in the server's log lines (BackendServerTest, BackendCommandTest).
    auto answer = NotifyNotificationsResponse::fromJson(catalogue.value().notificationsResponse(kCentre, 1500));
    ASSERT_TRUE(answer) << answer.error()->description();
    const auto& response = answer.value();

    EXPECT_EQ(response.minSyncIntervalSeconds, 60);
    ASSERT_EQ(response.included.sites->size(), 2u);
    EXPECT_EQ((*response.included.sites)[0].id(), 11);
    EXPECT_EQ((*response.included.sites)[0].distanceMeters(), 100);
    EXPECT_EQ((*response.included.sites)[0].partnerIdentifier(), "P-11");
    EXPECT_EQ((*response.included.sites)[1].id(), 10);
    EXPECT_EQ((*response.included.sites)[1].distanceMeters(), 1000);
    EXPECT_EQ((*response.included.sites)[1].beaconMinor(), 4);
    ASSERT_EQ(response.data.size(), 3u);
    EXPECT_EQ(response.data[0].siteID, 10);
    EXPECT_EQ(response.data[0].content.notification()->title(), "ten");
    EXPECT_EQ(response.data[2].siteID, std::nullopt);
    ASSERT_EQ(response.included.campaigns->size(), 2u);
    EXPECT_EQ((*response.included.campaigns)[1].id(), 2);

    // Nothing within reach: only the pairs without a site.
    auto nothing = NotifyNotificationsResponse::fromJson(catalogue.value().notificationsResponse({0, 0}, 1000));
    ASSERT_TRUE(nothing);
    EXPECT_TRUE(nothing.value().included.sites->empty());
    EXPECT_EQ(nothing.value().data.size(), 1u);
}

TEST(CatalogueTest, TheSitesQueryPagesThroughTheSitesNearestFirst) {
    auto catalogue = Catalogue::fromJson(smallCatalogue());
    ASSERT_TRUE(catalogue);
    std::size_t count = 0;
    auto page = core::Site::listFromJson(catalogue.value().sitesResponse(kCentre, 5000, 2, 2, &count));
    ASSERT_TRUE(page) << page.error()->description();
    ASSERT_EQ(page.value().size(), 1u);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(page.value()[0].id, 12);
    EXPECT_EQ(page.value()[0].name, "Site 12");
    EXPECT_EQ(page.value()[0].geofence->radiusMeters, 100);
    auto first = core::Site::listFromJson(catalogue.value().sitesResponse(kCentre, 5000, 1, 2));
    EXPECT_EQ(first.value()[0].name, "P-11");
    EXPECT_TRUE(core::Site::listFromJson(catalogue.value().sitesResponse(kCentre, 5000, 9, 2)).value().empty());
}

TEST(CatalogueTest, ABadCatalogueIsRefusedNamingWhatIsWrong) {
    const std::string good = smallCatalogue();
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        text.replace(text.find(from), from.size(), to);
        return text;
    };
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"[]", "(root): expected an object"},
        {R"({"min_sync_interval_seconds": 1, "campaigns": [], "sites": []})", "missing required key 'notifications'"},
        {replaced(R"("region_type": "beacon")", R"("region_type": "beacon_site")"), "campaigns[1]: region_type"},
        {replaced(campaign(3), campaign(1)), "campaigns[2].id: campaign 1 appears twice"},
        {replaced(R"("id": 12,)", R"("id": 10,)"), "sites[2].id: site 10 appears twice"},
        {replaced(R"("longitude": "-74.0"})", R"("longitude": "-74,0"})"), "sites[1].longitude: expected a decimal number"},
        {replaced(R"("beacon_minor": 4)", R"("latitude": 91)"), "sites[0].latitude: expected degrees from -90.0 to 90.0"},
        {replaced(R"({"campaign_id": 3, "site_id": 12)", R"({"campaign_id": 4, "site_id": 12)"),
         "notifications[4].campaign_id: no campaign 4"},
        {replaced(R"({"campaign_id": 3, "site_id": 12)", R"({"campaign_id": 3, "site_id": 13)"),
         "notifications[4].site_id: no site 13"},
        {replaced(R"({"title": "ten"})", R"({"title": 10})"), "notifications[0].content: notification.title"},
        {replaced(R"("site_id": null, )", ""), "notifications[2]: missing required key 'site_id'"},
        {replaced(R"("min_sync_interval_seconds": 60)", R"("min_sync_interval_seconds": -1)"), "min_sync_interval_seconds"},
        {replaced(R"("beacon_minor": 4)", R"("colour": 4)"), "sites[0].colour: unknown key"},
    };
    for (const auto& [text, problem] : cases) {
        auto catalogue = Catalogue::fromJson(text);
        ASSERT_FALSE(catalogue) << problem;
        EXPECT_NE(catalogue.error()->description().find(problem), std::string::npos)
            << catalogue.error()->description() << "\nexpected: " << problem;
    }

    testing::TempDirectory directory;
    auto missing = Catalogue::load(directory.file("none.json"));
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error()->description().rfind(directory.file("none.json") + ": ", 0), 0u);
}

TEST(CatalogueTest, TheBundledCityCatalogueServesADownloadTheModuleDecodes) {
    auto catalogue = Catalogue::load(DROVEL_SOURCE_DIR "/examples/catalogue.json");
    ASSERT_TRUE(catalogue) << catalogue.error()->description();
    EXPECT_EQ(catalogue.value().sites().size(), 12u);
    const std::string answer = catalogue.value().notificationsResponse({44.4780, -73.2125}, 5000);
    auto decoded = NotifyNotificationsResponse::fromJson(answer);
    ASSERT_TRUE(decoded) << decoded.error()->description();
    // Essex Junction lies beyond 5 km of the centre; everything else is served.
    EXPECT_EQ(decoded.value().included.sites->size(), 11u);
    // Every text renders cleanly, whether the host gave its values or not.
    std::vector<std::string> texts;
    auto collect = [&](const notify::NotifyCampaignContent& content) {
        if (content.deepLinkURL()) texts.push_back(*content.deepLinkURL());
        if (content.notification() && content.notification()->title()) texts.push_back(*content.notification()->title());
        if (content.notification() && content.notification()->body()) texts.push_back(*content.notification()->body());
        if (content.metadata())
            for (const auto& [key, value] : *content.metadata()) texts.push_back(value);
    };
    for (const auto& pair : decoded.value().data) collect(pair.content);
    for (const auto& campaign : *decoded.value().included.campaigns) collect(campaign.content());
    const std::map<std::string, std::string> host = {{"first_name", "Ann"}, {"tier", "gold"}, {"loyalty_id", "m 42"}};
    for (const auto& app : {std::map<std::string, std::string>{}, host}) {
        for (const auto& text : texts) {
            auto rendering = templating::renderTemplate(text, templating::makeAppContext(app));
            EXPECT_TRUE(rendering.parseErrors.empty()) << text << ": " << rendering.parseErrors.front();
            EXPECT_FALSE(rendering.output.empty() || rendering.abandoned) << text;
        }
    }
}

}  // namespace
}  // namespace drovel::backend
