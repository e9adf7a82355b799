// The host's site notifications: the checks in order, replacement of the previous call's
// notifications, failed adds, and the region query of the core library.

#include "manager/ManagerHarness.h"

namespace drovel::notify::test {
namespace {


core::Site siteAt(std::int64_t id, std::optional<core::Geofence> geofence = core::Geofence{52.2, 4.4, 80}) {
    core::Site site;
    site.id = id;
    site.name = "Site " + std::to_string(id);
    site.geofence = geofence;
    return site;
}

const NotificationInfo kInfo("Welcome", "Your order is ready", std::nullopt);

TEST(ManagerSiteNotificationsTest, TheChecksComeInOrderAndAreRecorded) {
    struct Case {
        const char* name;
        bool configured;
        bool servicesEnabled;
        std::size_t sites;
        std::optional<NotifyErrorType> error;
    };
    const Case cases[] = {
        {"not configured", false, false, 9, NotifyErrorType::notifyModuleNotConfigured},
        {"location services off", true, false, 9, NotifyErrorType::noLocationPermission},
        {"six sites", true, true, 6, NotifyErrorType::reachedTheMaxNumberOfSites},
        {"five sites", true, true, 5, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Harness h;
        if (c.configured) h.manager().configure(std::nullopt, nullptr);
        h.fake.locationProvider->setLocationServicesEnabled(c.servicesEnabled);
        std::vector<core::Site> sites;
        for (std::size_t i = 0; i < c.sites; ++i) sites.push_back(siteAt(static_cast<std::int64_t>(i) + 1));
        Reports reports;
        h.manager().createForSites(sites, kInfo, reports.callback());
        ASSERT_TRUE(h.pumpUntil([&] { return reports.size() == 1; }));
        EXPECT_EQ(errorType(reports.errors[0]), c.error);
        EXPECT_EQ(h.logs->contains("SyncDebug: Logging SDK error events"), c.error.has_value());
        h.settleCentre();
        EXPECT_EQ(h.fake.userNotificationCenter->pending().size(), c.error ? 0u : c.sites);
    }
}

TEST(ManagerSiteNotificationsTest, ACallReplacesThePreviousSiteNotificationsOnly) {
    Harness h;
    h.manager().configure(std::nullopt, nullptr);
    h.fake.userNotificationCenter->setPending({pendingRequest("drovel.notify.v2 beacon_site 8", "drovel.notify.v2")});
    Reports reports;
    h.manager().createForSites({siteAt(1), siteAt(2)}, kInfo, reports.callback());
    ASSERT_TRUE(h.pumpUntil([&] { return reports.size() == 1; }));
    h.settleCentre();
    // A site without a geofence is skipped.
    h.manager().createForSites({siteAt(7), siteAt(8, std::nullopt)}, kInfo, reports.callback());
    ASSERT_TRUE(h.pumpUntil([&] { return reports.size() == 2; }));
    h.settleCentre();
    EXPECT_EQ(h.fake.userNotificationCenter->pendingIdentifiers(),
              (std::vector<std::string>{"drovel.notify.v2 beacon_site 8", "drovel.notify 7"}));
    EXPECT_EQ(reports.errors, (std::vector<core::ErrorPtr>{nullptr, nullptr}));

    // An empty list only removes.
    h.manager().createForSites({}, kInfo, reports.callback());
    ASSERT_TRUE(h.pumpUntil([&] { return reports.size() == 3; }));
    EXPECT_EQ(h.fake.userNotificationCenter->pendingIdentifiers(), std::vector<std::string>{"drovel.notify.v2 beacon_site 8"});
}

TEST(ManagerSiteNotificationsTest, AFailedAddRemovesEverySiteNotificationAndReportsAgain) {
    Harness h;
    h.manager().configure(std::nullopt, nullptr);
    auto error = std::make_shared<platform::UserNotificationError>(platform::UserNotificationError::Code::notificationsNotAllowed);
    h.fake.userNotificationCenter->failAdds("drovel.notify 2", error);
    Reports reports;
    h.manager().createForSites({siteAt(1), siteAt(2), siteAt(3)}, kInfo, reports.callback());
    ASSERT_TRUE(h.pumpUntil([&] { return reports.size() == 2; }));
    h.settleCentre();
    EXPECT_EQ(reports.errors[0], nullptr);
    EXPECT_EQ(reports.errors[1], error);
    EXPECT_TRUE(h.logs->contains("Notifications are not allowed for this application"));
    EXPECT_TRUE(h.fake.userNotificationCenter->pending().empty());
}

TEST(ManagerSiteNotificationsTest, ARegionQueryCreatesNotificationsForTheSitesFound) {
    struct Case {
        const char* name;
        int status;
        std::string body;
        std::size_t sitesReported;
        bool error;
        std::vector<std::string> pending;
    };
    const Case cases[] = {
        {"two sites", 200,
         R"({"data": [{"id": 4, "name": "A", "geofence": {"latitude": 52.2, "longitude": 4.4, "radius_meters": 90}},
                     {"id": 5, "name": "B"}]})",
         2, false, {"drovel.notify 4"}},
        {"the query fails", 500, "", 0, true, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Harness h;
        h.manager().configure(std::nullopt, nullptr);
        h.fake.httpTransport->respond(platform::HttpMethod::get, "/api/v1/sites", c.status, c.body);
        bool reported = false;
        std::optional<std::vector<core::Site>> sites;
        core::ErrorPtr error;
        h.manager().createForSitesInRegion(platform::CircularRegion{"area", {52.2, 4.4}, 1000}, kInfo,
                                           [&](std::optional<std::vector<core::Site>> found, core::ErrorPtr failure) {
                                               sites = std::move(found);
                                               error = failure;
                                               reported = true;
                                           });
        ASSERT_TRUE(h.pumpUntil([&] { return reported; }));
        h.settleCentre();
        EXPECT_EQ(sites ? sites->size() : 0u, c.sitesReported);
        EXPECT_EQ(error != nullptr, c.error);
        EXPECT_EQ(h.fake.userNotificationCenter->pendingIdentifiers(), c.pending);
        auto query = drovel::testing::urlQueryItems(h.fake.httpTransport->requests().back().url);
        EXPECT_NE(std::find(query.begin(), query.end(), std::pair<std::string, std::string>{"per", "5"}), query.end());
    }
}

}  // namespace
}  // namespace drovel::notify::test
