// Campaign and site notification requests: builders, rendered content, the trigger-history rule,
// the set-up's choice of requests and the site-notification checks.

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <map>
#include <type_traits>

#include "manager/CampaignRequestBuilder.h"
#include "template/Render.h"

using namespace drovel;
using namespace drovel::notify;
using namespace std::chrono;
using platform::BeaconRegion;
using platform::CircularRegion;
using platform::UserInfo;

namespace {

const std::string kUUID = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";

NotifyCampaignContent content(std::optional<std::string> title = std::nullopt, std::optional<std::string> body = std::nullopt,
                              std::optional<std::string> deepLink = std::nullopt,
                              std::optional<NotifyCampaignContent::Metadata> metadata = std::nullopt) {
    std::optional<NotifyCampaignNotification> notification;
    if (title || body) notification.emplace(std::move(title), std::move(body));
    return NotifyCampaignContent(std::move(deepLink), std::move(notification), std::move(metadata));
}

NotifyCampaign geofence(std::int64_t id, std::optional<std::int64_t> radius = 150,
                        std::optional<std::int64_t> repeatIntervalDays = std::nullopt) {
    return NotifyCampaign(id, NotifyCampaignRegionType::geofence, std::nullopt, std::nullopt, "2024-03-01", "2024-03-31",
                          repeatIntervalDays, radius, content(), false);
}

NotifyCampaign beacon(std::int64_t id, bool hasUUID = true, std::optional<std::uint16_t> major = std::nullopt) {
    return NotifyCampaign(id, NotifyCampaignRegionType::beacon,
                          hasUUID ? UUID::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f") : std::nullopt, major,
                          "2024-03-01", "2024-03-31", std::nullopt, std::nullopt, content(), false);
}

NotifySite site(std::int64_t id, std::string latitude = "52.5", std::string longitude = "-0.25") {
    return NotifySite(id, std::nullopt, 10, std::move(latitude), std::move(longitude), std::nullopt);
}

using Region = std::variant<CircularRegion, BeaconRegion>;

CircularRegion circle(std::string identifier, double latitude, double longitude, double radius) {
    return CircularRegion{std::move(identifier), {latitude, longitude}, radius, true, false};
}

BeaconRegion beaconRegion(std::string identifier, std::optional<std::uint16_t> major) {
    return BeaconRegion{std::move(identifier), kUUID, major, std::nullopt, true, false};
}

platform::Date at(long long seconds) { return platform::Date(std::chrono::seconds(seconds)); }

NotifyTriggerEvent fired(platform::Date when) { return NotifyTriggerEvent(when, 1, std::nullopt); }

}  // namespace

TEST(CampaignRequests, BuildersGiveTheirIdentifierAndRegionOrNothing) {
    constexpr std::int64_t kMinID = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t kMaxID = std::numeric_limits<std::int64_t>::max();
    CampaignTextRenderer renderer({});
    auto geofenceRequest = [&](const NotifyCampaign& c, const NotifySite& s) {
        return geofenceApproachRequest(c, s, content(), renderer);
    };
    auto at52 = [](std::string identifier) { return Region(circle(std::move(identifier), 52.5, -0.25, 150)); };
    struct Case {
        const char* label;
        std::optional<platform::NotificationRequest> request;
        std::optional<Region> expected;  // the request's identifier is its region's
    };
    const Case cases[] = {
        {"geofence", geofenceRequest(geofence(7), site(42)), at52("drovel.notify.v2 geofence_approach 7 42")},
        {"comma in latitude", geofenceRequest(geofence(7), site(42, "52,5")), std::nullopt},
        {"blank before longitude", geofenceRequest(geofence(7), site(42, "52.5", " 1")), std::nullopt},
        {"no radius", geofenceRequest(geofence(7, std::nullopt), site(42)), std::nullopt},
        {"beacon campaign at a site", geofenceRequest(beacon(7), site(42)), std::nullopt},
        {"beacon site", beaconSiteRequest(beacon(9), content(), renderer),
         beaconRegion("drovel.notify.v2 beacon_site 9", std::nullopt)},
        {"area of interest", beaconAreaOfInterestRequest(beacon(9), 65535, content(), renderer),
         beaconRegion("drovel.notify.v2 beacon_area_of_interest 9", 65535)},
        {"beacon without UUID", beaconSiteRequest(beacon(9, false), content(), renderer), std::nullopt},
        {"area without UUID", beaconAreaOfInterestRequest(beacon(9, false), 1, content(), renderer), std::nullopt},
        {"geofence campaign as beacon", beaconSiteRequest(geofence(9), content(), renderer), std::nullopt},
        {"geofence campaign as area", beaconAreaOfInterestRequest(geofence(9), 1, content(), renderer), std::nullopt},
        // The longest ids there are, written in full.
        {"extreme ids", geofenceRequest(geofence(kMinID), site(kMaxID)),
         at52("drovel.notify.v2 geofence_approach -9223372036854775808 9223372036854775807")},
        {"extreme area id", beaconAreaOfInterestRequest(beacon(kMinID), 0, content(), renderer),
         beaconRegion("drovel.notify.v2 beacon_area_of_interest -9223372036854775808", 0)},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(c.request.has_value(), c.expected.has_value()) << c.label;
        if (!c.request) continue;
        EXPECT_EQ(c.request->identifier, std::visit([](const auto& region) { return region.identifier; }, *c.expected))
            << c.label;
        ASSERT_TRUE(c.request->trigger) << c.label;
        EXPECT_EQ(c.request->trigger->region, *c.expected) << c.label;
        EXPECT_FALSE(c.request->trigger->repeats) << c.label;
    }
}

TEST(CampaignRequests, ContentCarriesRenderedTextsAndTheUserInfoKeys) {
    CampaignTextRenderer renderer(CustomTemplateContent{{"name", "Ann"}});
    auto sourceAnd = [](UserInfo extra) {
        extra.emplace("message_source", "drovel.notify.v2");
        extra.emplace("Drovel.Notify.CampaignID", 7);
        extra.emplace("Drovel.Notify.SiteID", 42);
        return extra;
    };
    struct Case {
        const char* label;
        NotifyCampaignContent content;
        std::string title, body;
        UserInfo userInfo;
    };
    const Case cases[] = {
        {"no notification", content(), "", "", sourceAnd({})},
        {"title only", content("Hi {{ app.name }}"), "Hi Ann", "", sourceAnd({})},
        {"body only", content(std::nullopt, "{{ app.name | upcase }}"), "", "ANN", sourceAnd({})},
        {"empty output shown as written", content("{{ app.missing }}", "{% if false %}x{% endif %}"),
         "{{ app.missing }}", "{% if false %}x{% endif %}", sourceAnd({})},
        {"abandoned shown as written", content("{% for i in (5..1) %}x{% endfor %}"),
         "{% for i in (5..1) %}x{% endfor %}", "", sourceAnd({})},
        {"deep link and metadata", content(std::nullopt, std::nullopt, "https://x.example/{{ app.name }}",
                                           NotifyCampaignContent::Metadata{{"{{ key }}", "{{ app.name }}!"}, {"plain", ""}}),
         "", "",
         sourceAnd({{"Drovel.Notify.DeepLinkURL", "https://x.example/Ann"},
                    {"Drovel.Notify.Metadata", UserInfo{{"{{ key }}", "Ann!"}, {"plain", ""}}}})},
        // One context per content: what the title assigns, the body reads.
        {"assignment shared by one content", content("{% assign n = app.name %}Hi", "{{ n }}!"), "Hi", "Ann!", sourceAnd({})},
        {"but not by the next", content("{{ n }}!", "{% increment c %}{% increment c %}"), "!", "01", sourceAnd({})},
    };
    for (const auto& c : cases) {
        auto request = geofenceApproachRequest(geofence(7), site(42), c.content, renderer);
        ASSERT_TRUE(request) << c.label;
        EXPECT_EQ(request->content.title, c.title) << c.label;
        EXPECT_EQ(request->content.body, c.body) << c.label;
        EXPECT_EQ(request->content.sound, platform::NotificationSound::defaultSound) << c.label;
        EXPECT_EQ(request->content.userInfo, c.userInfo) << c.label;
    }
    auto beaconRequest = beaconSiteRequest(beacon(9), content(), renderer);
    ASSERT_TRUE(beaconRequest);
    EXPECT_EQ(beaconRequest->content.userInfo,
              (UserInfo{{"message_source", "drovel.notify.v2"}, {"Drovel.Notify.CampaignID", 9}}));
}

TEST(CampaignTextRenderer, GivesWhatTheEngineGivesWhateverWasRenderedBefore) {
    // Remembered and plain texts must not change any result: render every sequence twice, in
    // both orders, and compare each text with a rendering in its own context.
    CustomTemplateContent app{{"name", "Ann"}};
    const std::vector<std::vector<std::string>> contents = {
        {"{{ n }}!", "{{ app.name }}", "plain }} {% text", "{ {x}", ""},
        {"{% assign n = 'set' %}", "{{ n }}!", "{{ app.name }}"},
        {"{% cycle 'a', 'b' %}", "{% cycle 'a', 'b' %}", "{{ n }}!"},
        {"{% capture n %}c{% endcapture %}{{ n }}", "{{ n }}!"},
    };
    CampaignTextRenderer renderer(app);
    for (int pass = 0; pass < 2; ++pass) {
        for (std::size_t i = 0; i < contents.size(); ++i) {
            const auto& texts = contents[pass == 0 ? i : contents.size() - 1 - i];
            auto expectedContext = makeRenderingContext(app);
            auto rendering = renderer.beginContent();
            for (const auto& text : texts)
                EXPECT_EQ(rendering.render(text), templating::render(text, expectedContext)) << text;
        }
    }
    // "{{ app.name }}" and "{{ n }}!" in a fresh context went through the engine once each.
    CampaignTextRenderer counting(app);
    for (int i = 0; i < 3; ++i) {
        counting.render("{{ app.name }}");
        counting.render("plain");
    }
    EXPECT_EQ(counting.engineRenderings(), 1u);
}

TEST(CampaignRequests, TriggerHistoryHoldsBackForWholeDaysOrForever) {
    const long long hour = 3600, now = 1'000'000'000;
    constexpr auto huge = std::numeric_limits<std::int64_t>::max();
    struct Case {
        std::optional<std::int64_t> repeatIntervalDays;
        std::vector<long long> hoursAgo;
        bool heldBack;
    };
    const Case cases[] = {
        {2, {}, false},
        {std::nullopt, {}, false},
        {std::nullopt, {24 * 365}, true},
        {0, {24 * 365}, true},
        {-1, {24 * 365}, true},
        {2, {47}, true},
        {2, {48}, false},
        {2, {49}, false},
        {2, {100, 1, 60}, true},  // the latest counts, wherever it is in the list
        {1, {-5}, true},          // an event after now (the clock went back)
        {huge, {24 * 365 * 100}, true},
    };
    for (const auto& c : cases) {
        std::vector<NotifyTriggerEvent> events;
        for (long long ago : c.hoursAgo) events.push_back(fired(at(now - ago * hour)));
        auto campaign = geofence(1, 150, c.repeatIntervalDays);
        EXPECT_EQ(isHeldBackByTriggerHistory(campaign, events, at(now)), c.heldBack)
            << c.repeatIntervalDays.value_or(-99) << " days, " << c.hoursAgo.size() << " events";
    }
    // A microsecond before the interval ends it still holds.
    auto campaign = geofence(1, 150, 1);
    EXPECT_TRUE(isHeldBackByTriggerHistory(campaign, {fired(at(now))}, at(now + 24 * hour) - microseconds(1)));
    EXPECT_FALSE(isHeldBackByTriggerHistory(campaign, {fired(at(now))}, at(now + 24 * hour)));
}

TEST(CampaignRequests, SetUpBuildsOneRequestPerUsablePairInOrder) {
    std::vector<NotifyCampaign> campaigns;
    campaigns.push_back(geofence(1));
    campaigns.push_back(beacon(2));
    campaigns.push_back(beacon(3, true, 12));
    campaigns.push_back(geofence(4, 150, 3));   // fired an hour ago: held back
    campaigns.push_back(beacon(5, false));      // no UUID
    campaigns.push_back(geofence(6, std::nullopt));
    campaigns.push_back(geofence(1, 999));      // a second record of campaign 1 is never found
    std::vector<NotifySite> sites{site(42), site(43, "x"), site(44, "1", "2")};
    std::vector<NotifyNotifications> pairs = {
        {1, 42, content("A {{ app.name }}")},
        {2, std::nullopt, content("B")},
        {3, std::nullopt, content("C")},
        {1, 99, content()},            // site not stored
        {8, 42, content()},            // campaign not stored
        {2, 42, content()},            // beacon campaign with a site
        {1, std::nullopt, content()},  // geofence campaign without a site
        {4, 42, content()},
        {5, std::nullopt, content()},
        {6, 42, content()},
        {1, 43, content()},            // unparseable coordinate
        {1, 44, content("D {{ app.name }}")},
    };
    std::map<std::int64_t, int> fetches;
    auto fetch = [&](std::int64_t campaignID) {
        ++fetches[campaignID];
        std::vector<NotifyTriggerEvent> events;
        if (campaignID == 4) events.push_back(fired(at(1000) - hours(1)));
        return events;
    };
    auto requests = campaignNotificationRequests(campaigns, sites, pairs, fetch, at(1000), {{"name", "Ann"}});

    std::vector<std::pair<std::string, std::string>> got;
    for (const auto& request : requests) got.emplace_back(request.identifier, request.content.title);
    EXPECT_EQ(got, (std::vector<std::pair<std::string, std::string>>{
                       {"drovel.notify.v2 geofence_approach 1 42", "A Ann"},
                       {"drovel.notify.v2 beacon_site 2", "B"},
                       {"drovel.notify.v2 beacon_area_of_interest 3", "C"},
                       {"drovel.notify.v2 geofence_approach 1 44", "D Ann"},
                   }));
    EXPECT_EQ(std::get<CircularRegion>(requests[3].trigger->region), circle(requests[3].identifier, 1, 2, 150));
    // Each campaign's history is read once; campaigns whose pairs fail earlier checks are not read.
    EXPECT_EQ(fetches, (std::map<std::int64_t, int>{{1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}, {6, 1}}));

    EXPECT_TRUE(campaignNotificationRequests({}, sites, pairs, fetch, at(1000), {}).empty());
}

TEST(CampaignRequests, KeyOfAnAddedRequest) {
    struct Case {
        UserInfo userInfo;
        std::optional<std::pair<std::int64_t, std::optional<std::int64_t>>> expected;
    };
    const Case cases[] = {
        {{{"Drovel.Notify.CampaignID", 7}, {"Drovel.Notify.SiteID", 42}}, std::pair{7, std::optional<std::int64_t>(42)}},
        {{{"Drovel.Notify.CampaignID", 7}}, std::pair{7, std::optional<std::int64_t>()}},
        {{{"Drovel.Notify.CampaignID", 7}, {"Drovel.Notify.SiteID", "42"}}, std::pair{7, std::optional<std::int64_t>()}},
        {{{"Drovel.Notify.CampaignID", "7"}}, std::nullopt},
        {{{"Drovel.Notify.CampaignID", 7.0}}, std::nullopt},
        {{}, std::nullopt},
    };
    for (const auto& c : cases) {
        auto key = campaignRequestKey(c.userInfo);
        ASSERT_EQ(key.has_value(), c.expected.has_value()) << platform::userInfoToJson(c.userInfo);
        if (!key) continue;
        EXPECT_EQ(key->campaignID, c.expected->first);
        EXPECT_EQ(key->siteID, c.expected->second);
    }
}

TEST(SiteNotifications, RequestPerSiteWithGeofence) {
    auto withGeofence = [](std::int64_t id, double latitude) {
        return core::Site{id, std::nullopt, "Main St", core::Geofence{latitude, 4.5, 80.5}};
    };
    struct Case {
        const char* label;
        core::Site site;
        std::optional<UserInfo> data;
        std::optional<UserInfo> expectedUserInfo;  // none: no request
    };
    const Case cases[] = {
        {"no data", withGeofence(7, 52.5), std::nullopt, UserInfo{{"message_source", "drovel.notify"}}},
        {"source replaced", withGeofence(7, 52.5), UserInfo{{"message_source", "x"}, {"k", 1}},
         UserInfo{{"message_source", "drovel.notify"}, {"k", 1}}},
        {"no geofence", core::Site{7, std::nullopt, "Main St", std::nullopt}, std::nullopt, std::nullopt},
        {"latitude out of range", withGeofence(7, 91), std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        auto request = siteNotificationRequest(c.site, NotificationInfo("Welcome", "Your order is ready", c.data));
        ASSERT_EQ(request.has_value(), c.expectedUserInfo.has_value()) << c.label;
        if (!request) continue;
        EXPECT_EQ(request->identifier, "drovel.notify 7") << c.label;
        EXPECT_EQ(request->content.title, "Welcome");
        EXPECT_EQ(request->content.body, "Your order is ready");
        EXPECT_EQ(request->content.sound, platform::NotificationSound::defaultSound);
        EXPECT_EQ(request->content.userInfo, *c.expectedUserInfo) << c.label;
        ASSERT_TRUE(request->trigger);
        EXPECT_FALSE(request->trigger->repeats);
        EXPECT_EQ(request->trigger->region, Region(circle("drovel.notify 7", 52.5, 4.5, 80.5)));
    }
    static_assert(!std::is_default_constructible_v<NotificationInfo>);
}

TEST(SiteNotifications, ChecksInOrder) {
    using platform::AuthorizationStatus;
    using Type = NotifyErrorType;
    struct Case {
        bool configured, servicesOn;
        AuthorizationStatus status;
        std::optional<std::size_t> count;
        std::int64_t maxSites;
        std::optional<Type> expected;
    };
    const Case cases[] = {
        {false, false, AuthorizationStatus::denied, 6, 5, Type::notifyModuleNotConfigured},
        {true, false, AuthorizationStatus::authorizedAlways, 6, 5, Type::noLocationPermission},
        {true, true, AuthorizationStatus::notDetermined, 6, 5, Type::noLocationPermission},
        {true, true, AuthorizationStatus::restricted, 1, 5, Type::noLocationPermission},
        {true, true, AuthorizationStatus::authorizedWhenInUse, 6, 5, Type::reachedTheMaxNumberOfSites},
        {true, true, AuthorizationStatus::authorizedAlways, 5, 5, std::nullopt},
        {true, true, AuthorizationStatus::authorizedAlways, 0, 5, std::nullopt},
        {true, true, AuthorizationStatus::authorizedAlways, std::nullopt, 5, std::nullopt},
        {true, true, AuthorizationStatus::authorizedAlways, 0, -1, Type::reachedTheMaxNumberOfSites},
    };
    for (const auto& c : cases)
        EXPECT_EQ(siteNotificationsCheck(c.configured, c.servicesOn, c.status, c.count, c.maxSites), c.expected)
            << c.configured << c.servicesOn << static_cast<int>(c.status) << " " << c.count.value_or(99);
}
