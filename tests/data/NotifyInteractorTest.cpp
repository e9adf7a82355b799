// The interactor against a real database file, a fake backend service and a fake platform.

#include <gtest/gtest.h>

#include <future>

#include "data/NotifyDBManager.h"
#include "data/NotifyInteractor.h"
#include "drovel/core/Core.h"
#include "NotifyTestData.h"
#include "support/FakePlatform.h"
#include "support/Locked.h"
#include "support/ScopedTimeZone.h"

using namespace drovel::notify;
using namespace std::chrono;
using drovel::core::ErrorPtr;
using drovel::core::SimpleError;
using drovel::testing::campaignJson;
using drovel::testing::decodedResponse;
using drovel::testing::logLines;

namespace {

// Keeps every upload until the test answers it.
class FakeNotifyService : public NotifyServiceProtocol {
public:
    struct Upload {
        std::vector<NotifyAnalyticsEvent> events;
        UploadCompletion completion;
    };

    void fetchNotifications(double, double, double, NotificationsCompletion completion) const override {
        completion(drovel::core::makeError<SimpleError>("not scripted"));
    }
    void uploadAnalytics(UploadNotifyAnalyticsEndpoint::Body body, UploadCompletion completion) const override {
        std::lock_guard lock(mutex_);
        uploads_.push_back({body.data.events(), std::move(completion)});
    }
    std::vector<Upload> uploads() const { return drovel::testing::lockedCopy(mutex_, uploads_); }

private:
    mutable std::mutex mutex_;
    mutable std::vector<Upload> uploads_;
};

// Campaigns 1 and 2, sites 10 and 11, three pairs.
const std::string kFirstDownload = R"({"min_sync_interval_seconds": 900,
  "data": [{"campaign_id": 1, "site_id": 10, "content": {}}, {"campaign_id": 1, "site_id": 11, "content": {}},
           {"campaign_id": 2, "site_id": 11, "content": {"deep_link_url": "app://2"}}],
  "included": {"campaigns": [)" + campaignJson(1, "2026-03-01", "2026-03-31") + "," +
                                   campaignJson(2, "2026-03-01", "2026-03-31") + R"(],
    "sites": [{"id": 10, "distance_meters": 900, "latitude": "52.1", "longitude": "4.3"},
              {"id": 11, "distance_meters": 15, "latitude": "52.2", "longitude": "4.4"}]}})";

// Campaign 8 and site 12, one pair.
const std::string kSecondDownload = R"({"min_sync_interval_seconds": 60,
  "data": [{"campaign_id": 8, "site_id": 12, "content": {}}],
  "included": {"campaigns": [)" + campaignJson(8, "2026-03-01", "2026-03-31") + R"(],
    "sites": [{"id": 12, "distance_meters": 5, "latitude": "1", "longitude": "2"}]}})";

class NotifyInteractorTest : public ::testing::Test {
protected:
    std::unique_ptr<NotifyInteractor> makeInteractor() {
        return std::make_unique<NotifyInteractor>(service, fake.platform(), core, database);
    }
    drovel::core::DrovelDBManager& db() { return database->dbManager(); }
    std::vector<std::int64_t> triggerCampaigns() {
        std::vector<std::int64_t> ids;
        for (const auto& event : db().fetchAll<NotifyTriggerEvent>()) ids.push_back(event.campaignID());
        return ids;
    }
    void storeEvents(int count) {
        for (int i = 0; i < count; ++i) interactor->recordAnalyticsEvent(NotifyAnalyticsEventType::notificationTriggered, i, {});
    }

    drovel::testing::ScopedTimeZone zone{"UTC"};
    drovel::testing::FakePlatform fake;  // 2026-03-14T12:00:00Z
    std::shared_ptr<drovel::core::Core> core = std::make_shared<drovel::core::Core>(fake.userDefaults, fake.httpTransport);
    std::shared_ptr<FakeNotifyService> service = std::make_shared<FakeNotifyService>();
    std::shared_ptr<NotifyDBManager> database =
        std::make_shared<NotifyDBManager>(NotifyDBManager::databasePath(fake.directory.path()), true);
    drovel::testing::ScopedLogCapture log;
    std::unique_ptr<NotifyInteractor> interactor = makeInteractor();
};

}  // namespace

TEST_F(NotifyInteractorTest, ConstructionLoadsTheStoredDownloadUnlessTheFileIsNew) {
    fake.userDefaults->setDate("DrovelNotify.lastFetch", fake.clock->now());
    interactor->storeNotificationsResponse(decodedResponse(kFirstDownload));

    // The file is new: nothing is loaded from it, the stored values still are.
    auto fresh = std::make_shared<NotifyDBManager>(fake.directory.file("fresh.sqlite"), true);
    fresh->dbManager().save(NotifyNotifications{5, std::nullopt, NotifyCampaignContent({}, {}, {})});
    NotifyInteractor onFresh(service, fake.platform(), core, fresh);
    EXPECT_TRUE(onFresh.notifications().empty());
    EXPECT_EQ(onFresh.kMinSyncInterval(), 900);
    EXPECT_EQ(onFresh.lastFetch(), fake.clock->now());

    // The next launch: the file exists.
    auto reopened = std::make_shared<NotifyDBManager>(database->dbManager().path(), true);
    auto reloaded = std::make_unique<NotifyInteractor>(service, fake.platform(), core, reopened);
    EXPECT_EQ(reloaded->notifications(), interactor->notifications());
    EXPECT_EQ(reloaded->campaigns(), interactor->campaigns());
    ASSERT_EQ(reloaded->sites().size(), 2u);
    EXPECT_EQ(reloaded->sites()[0].id(), 11);  // nearest first
}

TEST_F(NotifyInteractorTest, StoringADownloadKeepsListsTheResponseLeavesOut) {
    interactor->storeNotificationsResponse(decodedResponse(kFirstDownload));
    EXPECT_EQ(interactor->kMinSyncInterval(), 900);
    // A reader on another thread keeps what it took, whole, while a download replaces the lists.
    const auto before = interactor->snapshot();
    const auto firstPairs = *before.notifications;

    interactor->storeNotificationsResponse(
        decodedResponse(R"({"min_sync_interval_seconds": 30, "data": [], "included": {"sites": null}})"));
    EXPECT_TRUE(interactor->notifications().empty());
    EXPECT_FALSE(firstPairs.empty());
    EXPECT_EQ(*before.notifications, firstPairs);
    EXPECT_EQ(interactor->snapshot().sites, before.sites);  // a list left out is the same list
    EXPECT_EQ(interactor->sites().size(), 2u);
    EXPECT_EQ(interactor->campaigns().size(), 2u);
    EXPECT_TRUE(db().fetchAll<NotifySite>().empty());
    EXPECT_TRUE(db().fetchAll<NotifyCampaign>().empty());

    interactor->storeNotificationsResponse(
        decodedResponse(R"({"min_sync_interval_seconds": 30, "data": [], "included": {"sites": [], "campaigns": []}})"));
    EXPECT_TRUE(interactor->sites().empty());
    EXPECT_TRUE(interactor->campaigns().empty());

    interactor->updateLastFetch(fake.clock->now());
    EXPECT_EQ(makeInteractor()->lastFetch(), fake.clock->now());
    EXPECT_TRUE(log->messages().empty());
}

TEST_F(NotifyInteractorTest, AFailureMidwayLeavesThePreviousDownloadInTheDatabase) {
    struct Case {
        const char* table;
        const char* message;
        const char* function;
        bool broadcast;
    };
    const Case cases[] = {
        {"notify_notification", "Failed to save Notify notifications with error: boom", "saveNotifications(_:)", true},
        {"notify_site", "Failed to save Notify sites with error: boom", "saveSites(_:)", false},
        {"notify_campaign", "Failed to save Notify campaigns with error: boom", "saveCampaigns(_:)", false},
    };
    std::vector<ErrorPtr> broadcasts;
    fake.notificationCenter->addObserver("notifyNotificationsError", [&](const drovel::platform::Notification& n) {
        broadcasts.push_back(std::any_cast<ErrorPtr>(n.object));
    });
    interactor->storeNotificationsResponse(decodedResponse(kFirstDownload));
    interactor->saveTriggerEvent(NotifyTriggerEvent(fake.clock->now(), 1, 10));
    const auto pairs = db().fetchAll<NotifyNotifications>();
    const auto sites = db().fetchAll<NotifySite>();
    const auto campaigns = db().fetchAll<NotifyCampaign>();

    for (const auto& c : cases) {
        SCOPED_TRACE(c.table);
        log->clear();
        broadcasts.clear();
        db().enableTriggersForTesting();
        db().execute(std::string("CREATE TRIGGER boom BEFORE INSERT ON ") + c.table +
                     " BEGIN SELECT RAISE(ABORT, 'boom'); END;");
        interactor->storeNotificationsResponse(decodedResponse(kSecondDownload));
        db().execute("DROP TRIGGER boom;");

        EXPECT_EQ(db().fetchAll<NotifyNotifications>(), pairs);
        EXPECT_EQ(db().fetchAll<NotifySite>(), sites);
        EXPECT_EQ(db().fetchAll<NotifyCampaign>(), campaigns);
        EXPECT_EQ(triggerCampaigns(), std::vector<std::int64_t>{1});
        // Memory holds the new download all the same.
        ASSERT_EQ(interactor->campaigns().size(), 1u);
        EXPECT_EQ(interactor->campaigns()[0].id(), 8);
        EXPECT_EQ(interactor->notifications().size(), 1u);

        EXPECT_EQ(logLines(log.sink()), std::vector<std::string>{std::string("[error] DrovelNotify NotifyInteractor.") +
                                                                 c.function + ": " + c.message});
        ASSERT_EQ(broadcasts.size(), c.broadcast ? 1u : 0u);
        if (c.broadcast) {
            EXPECT_EQ(broadcasts[0]->description(), "boom");
        }
        interactor = makeInteractor();
    }

    interactor->storeNotificationsResponse(decodedResponse(kSecondDownload));
    EXPECT_EQ(db().fetchAll<NotifyNotifications>().size(), 1u);
    EXPECT_TRUE(triggerCampaigns().empty());  // campaign 1 is gone
}

TEST_F(NotifyInteractorTest, ADownloadKeepsTheTriggerEventsOfActiveCampaignsOnly) {
    // Now is 2026-03-14T12:00:00Z, in UTC.
    const std::string download = drovel::testing::campaignsDownload(
        campaignJson(1, "2026-03-14", "2026-03-14") + "," +        // its only day
        campaignJson(2, "2026-03-01", "2026-03-13") + "," +        // ended yesterday
        campaignJson(3, "2026-03-15", "2026-03-31") + "," +        // starts tomorrow
        campaignJson(4, "2026-03-01", "2026-03-31", true) + "," +  // held back by pickups
        campaignJson(6, "2026-3-1x", "2026-03-31") + "," +         // no date interval
        campaignJson(11, "0001-01-01", "9999-12-31") + "," +       // far days: no start, no end
        campaignJson(12, "1600-01-01", "2300-01-01") + "," +       // today is inside
        campaignJson(13, "2300-01-01", "9999-12-31") + "," +       // starts far ahead
        campaignJson(14, "0001-01-01", "1600-01-01"));             // ended long ago
    struct Case {
        bool openOrder;
        std::vector<std::int64_t> kept;
    };
    for (const Case& c : {Case{false, {1, 4, 11, 12}}, Case{true, {1, 11, 12}}}) {
        SCOPED_TRACE(c.openOrder);
        core->orders().setOrders({drovel::core::Order{1, c.openOrder ? "open" : "completed", std::nullopt}});
        for (std::int64_t id : {1, 2, 2, 3, 4, 5, 6, 11, 12, 13, 14})
            interactor->saveTriggerEvent(NotifyTriggerEvent(fake.clock->now(), id, std::nullopt));
        interactor->storeNotificationsResponse(decodedResponse(download));
        std::vector<std::int64_t> kept = triggerCampaigns();
        std::sort(kept.begin(), kept.end());
        EXPECT_EQ(kept, c.kept);
        EXPECT_EQ(interactor->fetchTriggerEventsFor(1).size(), 1u);
        interactor->deleteAllTriggerEvents();
    }
}

TEST_F(NotifyInteractorTest, UploadsAllBatchesAtOnceAndDeletesOnlyConfirmedOnes) {
    EXPECT_FALSE(interactor->shouldUploadAnalyticsEvents());
    std::promise<ErrorPtr> nothing;
    interactor->uploadAnalyticsEventsInDB([&](ErrorPtr error) { nothing.set_value(error); });
    EXPECT_EQ(nothing.get_future().wait_for(seconds(5)), std::future_status::ready);
    EXPECT_TRUE(service->uploads().empty());

    storeEvents(1);
    EXPECT_TRUE(interactor->shouldUploadAnalyticsEvents());  // one event is enough, whatever the limit
    storeEvents(44);
    std::promise<ErrorPtr> done;
    auto finished = done.get_future();
    interactor->uploadAnalyticsEventsInDB([&](ErrorPtr error) { done.set_value(error); });

    // All three batches are out before any is answered.
    auto uploads = service->uploads();
    ASSERT_EQ(uploads.size(), 3u);
    EXPECT_EQ(uploads[0].events.size(), 20u);
    EXPECT_EQ(uploads[1].events.size(), 20u);
    EXPECT_EQ(uploads[2].events.size(), 5u);
    const auto stored = db().fetchAll<NotifyAnalyticsEvent>();
    EXPECT_EQ(std::vector<NotifyAnalyticsEvent>(stored.begin() + 20, stored.begin() + 40), uploads[1].events);

    uploads[2].completion(nullptr);
    EXPECT_EQ(db().fetchAll<NotifyAnalyticsEvent>().size(), 40u);
    uploads[1].completion(drovel::core::makeError<SimpleError>("server down"));
    EXPECT_EQ(finished.wait_for(milliseconds(50)), std::future_status::timeout);
    uploads[0].completion(nullptr);

    ASSERT_EQ(finished.wait_for(seconds(5)), std::future_status::ready);
    ErrorPtr error = finished.get();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->description(), "server down");
    EXPECT_EQ(db().fetchAll<NotifyAnalyticsEvent>(), uploads[1].events);
}

TEST_F(NotifyInteractorTest, EveryDatabaseFailureIsLoggedWithItsTextAndSwallowed) {
    storeEvents(2);
    // A confirmed batch whose events cannot be deleted keeps them.
    db().enableTriggersForTesting();
    db().execute("CREATE TRIGGER boom BEFORE DELETE ON notify_analytics_event BEGIN SELECT RAISE(ABORT, 'boom'); END;");
    std::promise<ErrorPtr> uploaded;
    interactor->uploadAnalyticsEventsInDB([&](ErrorPtr error) { uploaded.set_value(error); });
    for (const auto& upload : service->uploads()) upload.completion(nullptr);
    EXPECT_EQ(uploaded.get_future().get(), nullptr);
    EXPECT_EQ(log->count("Failed to delete all NotifyAnalyticsEvent with error: boom"), 2u);
    EXPECT_EQ(db().fetchAll<NotifyAnalyticsEvent>().size(), 2u);

    for (const char* table : {"notify_campaign", "notify_site", "notify_notification", "notify_trigger_event",
                              "notify_analytics_event"})
        db().execute(std::string("DROP TABLE ") + table + ";");
    struct Case {
        std::function<void()> operation;
        const char* function;
        const char* text;
    };
    const Case cases[] = {
        {[&] { interactor->loadNotificationsFromPersist(); }, "loadNotificationsFromPersist()",
         "Failed to load Notify notifications with error: "},
        {[&] { interactor->loadCampaignsFromPersist(); }, "loadCampaignsFromPersist()",
         "Failed to load Notify campaigns with error: "},
        {[&] { interactor->loadSitesFromPersist(); }, "loadSitesFromPersist()", "Failed to load Notify sites with error: "},
        {[&] { EXPECT_FALSE(interactor->deleteAllNotifications()); }, "deleteAllNotifications()",
         "Failed to delete all Notify notifications with error: "},
        {[&] { EXPECT_FALSE(interactor->deleteAllSites()); }, "deleteAllSites()",
         "Failed to delete all Notify sites with error: "},
        {[&] { EXPECT_FALSE(interactor->deleteAllCampaigns()); }, "deleteAllCampaigns()",
         "Failed to delete all Notify campaigns with error: "},
        {[&] { interactor->saveTriggerEvent(NotifyTriggerEvent(fake.clock->now(), 1, 2)); }, "saveTriggerEvent(_:)",
         "Failed to save Notify sites with error: "},
        {[&] { EXPECT_TRUE(interactor->fetchTriggerEventsFor(1).empty()); }, "fetchTriggerEventsFor(campaignID:)",
         "Failed to fetch Notify trigger event with error: "},
        {[&] { EXPECT_FALSE(interactor->deleteTriggerEventsForCampaignID(1)); }, "deleteTriggerEventsForCampaignID(_:)",
         "Failed to delete single Notify trigger event with error: "},
        {[&] { EXPECT_TRUE(interactor->fetchAllTriggerEvents().empty()); }, "fetchAllTriggerEvents()",
         "Failed to fetch all Notify trigger events with error: "},
        {[&] { interactor->deleteAllTriggerEvents(); }, "deleteAllTriggerEvents()",
         "Failed to delete all Notify trigger events with error: "},
        {[&] { storeEvents(1); }, "recordAnalyticsEvent(type:campaignID:params:)",
         "Failed to save NotifyAnalyticsEvent with error: "},
        {[&] { EXPECT_FALSE(interactor->shouldUploadAnalyticsEvents()); }, "shouldUploadAnalyticsEvents()",
         "Failed to fetch NotifyAnalyticsEvents with error: "},
        {[&] { interactor->uploadAnalyticsEventsInDB([](ErrorPtr error) { EXPECT_NE(error, nullptr); }); },
         "uploadAnalyticsEventsInDB(completion:)", "Failed to fetch NotifyAnalyticsEvents with error: "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        log->clear();
        c.operation();
        auto lines = logLines(log.sink());
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(lines[0].starts_with(std::string("[error] DrovelNotify NotifyInteractor.") + c.function + ": " + c.text + "no such table"))
            << lines[0];
    }
    EXPECT_TRUE(interactor->notifications().empty());
}
