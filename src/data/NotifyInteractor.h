#pragma once
// The module's store of campaign data and its bridge to the database and the backend: the current
// campaigns, sites and campaign/site pairs in memory, mirrored in the Notify database; when campaigns
// were last downloaded and the least interval the backend allows between downloads (in the user
// defaults); trigger events and analytics events, and the batch upload of the latter.
//
// Threads: every operation runs on the caller's thread; the caller (the manager's serial queue)
// serialises them. The campaign data in memory is the exception: a download replaces it while taps,
// detections and set-ups on other threads read it, so they take a snapshot(), which stays whole and
// unchanged however long they hold it. Only the batch uploads go on beyond the call: their per-batch
// deletes run on the HTTP transport's threads and the final completion on the global queue. A
// delete made while a download is being stored becomes part of that transaction; if the download
// is rolled back the event is sent again later (sent twice rather than lost).
//
// Errors: database failures are logged at error level as "<text> with error: " + description, under
// the source file "NotifyInteractor" and the operation's name, and swallowed; only the upload's
// completion carries an error out.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "data/NotifyService.h"
#include "drovel/core/Error.h"
#include "drovel/core/Logger.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyCampaign.h"
#include "drovel/notify/NotifyNotifications.h"
#include "drovel/notify/NotifyNotificationsResponse.h"
#include "drovel/notify/NotifySite.h"
#include "drovel/notify/NotifyTriggerEvent.h"
#include "drovel/platform/Platform.h"

namespace drovel::core {
class Core;
class DatabaseError;
class DrovelDBManager;
}  // namespace drovel::core

namespace drovel::notify {

class NotifyDBManager;

class NotifyInteractor {
public:
    using UploadCompletion = std::function<void(core::ErrorPtr)>;

    // Uses the platform's user defaults, clock and default notification centre, the core library's
    // app instance id and orders, and the database, which the interactor and every upload it started
    // keep alive as long as they need it. Unless the database file was new, loads the pairs, then the campaigns, then the
    // sites from it; then reads kMinSyncInterval (0 when missing) and lastFetch from the defaults.
    NotifyInteractor(std::shared_ptr<const NotifyServiceProtocol> service, platform::Platform platform,
                     std::shared_ptr<core::Core> core, std::shared_ptr<NotifyDBManager> database);
    NotifyInteractor(const NotifyInteractor&) = delete;
    NotifyInteractor& operator=(const NotifyInteractor&) = delete;

    // Largest number of events in one upload batch; must be at least 1 when an upload starts (a
    // smaller value is a programming error). The manager replaces it with the app configuration's
    // value when there is one; any thread may set it.
    std::atomic<std::int64_t> kAnalyticsEventLimit{20};

    // The campaign data in memory at one moment. A download replaces a list as a whole, so a
    // snapshot's lists are never changed under its holder.
    struct Snapshot {
        std::shared_ptr<const std::vector<NotifyCampaign>> campaigns;
        // Nearest first when loaded from the database.
        std::shared_ptr<const std::vector<NotifySite>> sites;
        std::shared_ptr<const std::vector<NotifyNotifications>> notifications;
    };
    Snapshot snapshot() const;

    const NotifyServiceProtocol& service() const { return *service_; }
    // The current lists, for the thread that stores downloads (the serial queue): another thread
    // takes a snapshot() instead, since the next download may free these.
    const std::vector<NotifyCampaign>& campaigns() const { return *data_.campaigns; }
    const std::vector<NotifySite>& sites() const { return *data_.sites; }
    const std::vector<NotifyNotifications>& notifications() const { return *data_.notifications; }
    // When campaigns were last downloaded.
    std::optional<platform::Date> lastFetch() const { return lastFetch_; }
    // Least seconds between two downloads, from the last response.
    double kMinSyncInterval() const { return kMinSyncInterval_; }

    // Each replaces its list with all rows of its table; on failure the list stays as it was.
    void loadNotificationsFromPersist();
    void loadCampaignsFromPersist();
    void loadSitesFromPersist();

    // Sets lastFetch and stores it under "DrovelNotify.lastFetch".
    void updateLastFetch(platform::Date date);

    // Keeps a fresh download, in memory and in the database:
    // - kMinSyncInterval (also stored under "DrovelNotify.minSyncInterval");
    // - notifications = the response's pairs; sites and campaigns = the response's lists when it
    //   includes them, else they keep their previous contents (although their tables are emptied);
    // - the database's pairs, sites and campaigns are replaced by the response's, and the trigger
    //   events of campaigns that are no longer active are deleted.
    // The database part is one transaction: after any failure nothing of it is kept and the
    // previous download stays as it was; the memory part happens either way. A failure to save the
    // pairs (or to begin or commit the transaction) also posts "notifyNotificationsError" on the
    // default notification centre with the error as its object.
    void storeNotificationsResponse(NotifyNotificationsResponse response);

    // Database only; the lists in memory are not touched. False after a failure (logged).
    bool deleteAllNotifications();
    bool deleteAllSites();
    bool deleteAllCampaigns();

    // Adds a row (the table has no key, so saving the same event twice gives two rows).
    void saveTriggerEvent(const NotifyTriggerEvent& event);
    // Empty after a failure (logged).
    std::vector<NotifyTriggerEvent> fetchTriggerEventsFor(std::int64_t campaignID);
    bool deleteTriggerEventsForCampaignID(std::int64_t campaignID);
    std::vector<NotifyTriggerEvent> fetchAllTriggerEvents();
    void deleteAllTriggerEvents();

    // Saves a new event of that kind, dated now.
    void recordAnalyticsEvent(NotifyAnalyticsEventType type, std::optional<std::int64_t> campaignID,
                              NotifyAnalyticsEvent::Params params);
    // The name the manager's parts use for recordAnalyticsEvent.
    void logAnalyticsEvent(NotifyAnalyticsEventType type, std::optional<std::int64_t> campaignID,
                           NotifyAnalyticsEvent::Params params) {
        recordAnalyticsEvent(type, campaignID, std::move(params));
    }
    // True when at least one analytics event is stored; false after a read failure (logged).
    bool shouldUploadAnalyticsEvents();
    // Sends every stored event, in batches of kAnalyticsEventLimit, all batches at once. The events
    // of a batch are deleted once the backend confirmed it; a failed batch's events stay for the next
    // time. completion runs once, after the last batch answered, with the error of a failed batch
    // (the last to fail) or none; with a read failure or nothing to send it runs before this returns.
    // It runs on the platform's global queue otherwise: callers must not assume the main thread.
    void uploadAnalyticsEventsInDB(UploadCompletion completion);

private:
    core::DrovelDBManager& db();
    // Runs body; a DatabaseError is logged as text + its description at source and returned as an
    // error (none on success).
    template <class Body>
    core::ErrorPtr guarded(core::LogSource source, std::string_view text, Body&& body);
    static core::ErrorPtr logFailure(core::LogSource source, std::string_view text, const core::DatabaseError& error);

    core::ErrorPtr saveNotifications(const std::vector<NotifyNotifications>& notifications);
    core::ErrorPtr saveSites(const std::vector<NotifySite>& sites);
    core::ErrorPtr saveCampaigns(const std::vector<NotifyCampaign>& campaigns);
    // Deletes the trigger events of every campaign that is not active now; false after a failed delete.
    bool deleteTriggerEventsOfInactiveCampaigns(const std::vector<NotifyCampaign>& campaigns);
    // Replaces the lists that are given; the others stay.
    void publish(Snapshot data);
    // Whether the campaign runs now and, while the user has an open order, is not held back by it.
    bool isActive(const NotifyCampaign& campaign, platform::Date now, bool hasOpenOrders) const;

    std::shared_ptr<const NotifyServiceProtocol> service_;
    platform::Platform platform_;
    std::shared_ptr<core::Core> core_;
    std::shared_ptr<NotifyDBManager> database_;

    mutable std::mutex dataMutex_;  // guards replacing data_'s pointers, not the lists
    Snapshot data_{std::make_shared<const std::vector<NotifyCampaign>>(), std::make_shared<const std::vector<NotifySite>>(),
                   std::make_shared<const std::vector<NotifyNotifications>>()};
    std::optional<platform::Date> lastFetch_;
    double kMinSyncInterval_ = 0;
};

}  // namespace drovel::notify
