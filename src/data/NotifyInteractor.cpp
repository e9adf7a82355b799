#include "data/NotifyInteractor.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <unordered_set>

#include "Helpers/UserDefaultsKey.h"
#include "data/ModuleLogger.h"
#include "data/NotifyDBManager.h"
#include "drovel/core/Core.h"
#include "drovel/core/DatabaseError.h"
#include "drovel/core/DrovelDBManager.h"
#include "drovel/notify/NotificationNames.h"

namespace drovel::notify {

namespace {

constexpr std::string_view kFile = "NotifyInteractor";
constexpr std::string_view kUploadOperation = "uploadAnalyticsEventsInDB(completion:)";
constexpr std::string_view kSaveNotificationsText = "Failed to save Notify notifications with error: ";
constexpr std::string_view kFetchAnalyticsText = "Failed to fetch NotifyAnalyticsEvents with error: ";

// The analytics delete-all statement narrowed to one event: every ";" becomes ` WHERE guid="<guid>";`.
std::string deleteAnalyticsEventStatement(const UUID& guid) {
    return filteredStatement(core::Table<NotifyAnalyticsEvent>::deleteAllStatement(), "guid", guid.uuidString());
}

}  // namespace

NotifyInteractor::NotifyInteractor(std::shared_ptr<const NotifyServiceProtocol> service, platform::Platform platform,
                                   std::shared_ptr<core::Core> core, std::shared_ptr<NotifyDBManager> database)
    : service_(std::move(service)), platform_(std::move(platform)), core_(std::move(core)), database_(std::move(database)) {
    if (!database_) core::programmingError("NotifyInteractor needs a database");
    if (!database_->needsInit()) {
        loadNotificationsFromPersist();
        loadCampaignsFromPersist();
        loadSitesFromPersist();
    }
    kMinSyncInterval_ = doubleValue(*platform_.userDefaults, UserDefaultsKey::minSyncInterval);
    lastFetch_ = date(*platform_.userDefaults, UserDefaultsKey::lastFetch);
}

core::DrovelDBManager& NotifyInteractor::db() { return database_->dbManager(); }

core::ErrorPtr NotifyInteractor::logFailure(core::LogSource source, std::string_view text,
                                            const core::DatabaseError& error) {
    moduleLogger().error(std::string(text) + error.description(), source);
    return error.toError();
}

template <class Body>
core::ErrorPtr NotifyInteractor::guarded(core::LogSource source, std::string_view text, Body&& body) {
    try {
        body();
        return nullptr;
    } catch (const core::DatabaseError& error) {
        return logFailure(source, text, error);
    }
}

// ---- campaign data in memory ----

NotifyInteractor::Snapshot NotifyInteractor::snapshot() const {
    std::lock_guard lock(dataMutex_);
    return data_;
}

void NotifyInteractor::publish(Snapshot data) {
    std::lock_guard lock(dataMutex_);
    if (data.campaigns) data_.campaigns = std::move(data.campaigns);
    if (data.sites) data_.sites = std::move(data.sites);
    if (data.notifications) data_.notifications = std::move(data.notifications);
}

// ---- loading ----

void NotifyInteractor::loadNotificationsFromPersist() {
    guarded(DROVEL_SOURCE(kFile, "loadNotificationsFromPersist()"), "Failed to load Notify notifications with error: ",
            [&] {
                Snapshot loaded;
                loaded.notifications = std::make_shared<const std::vector<NotifyNotifications>>(db().fetchAll<NotifyNotifications>());
                publish(std::move(loaded));
            });
}

void NotifyInteractor::loadCampaignsFromPersist() {
    guarded(DROVEL_SOURCE(kFile, "loadCampaignsFromPersist()"), "Failed to load Notify campaigns with error: ",
            [&] {
                Snapshot loaded;
                loaded.campaigns = std::make_shared<const std::vector<NotifyCampaign>>(db().fetchAll<NotifyCampaign>());
                publish(std::move(loaded));
            });
}

void NotifyInteractor::loadSitesFromPersist() {
    guarded(DROVEL_SOURCE(kFile, "loadSitesFromPersist()"), "Failed to load Notify sites with error: ",
            [&] {
                Snapshot loaded;
                loaded.sites = std::make_shared<const std::vector<NotifySite>>(db().fetchAll<NotifySite>());
                publish(std::move(loaded));
            });
}

// ---- downloads ----

void NotifyInteractor::updateLastFetch(platform::Date date) {
    lastFetch_ = date;
    set(*platform_.userDefaults, UserDefaultsKey::lastFetch, date);
}

void NotifyInteractor::storeNotificationsResponse(NotifyNotificationsResponse response) {
    kMinSyncInterval_ = static_cast<double>(response.minSyncIntervalSeconds);
    set(*platform_.userDefaults, UserDefaultsKey::minSyncInterval, kMinSyncInterval_);

    // The database keeps either the whole download or the previous one. The lists in memory change
    // as they always did, whatever the database does.
    std::optional<core::Transaction> transaction;
    core::ErrorPtr notificationsError = guarded(DROVEL_SOURCE(kFile, "storeNotificationsResponse(_:)"),
                                                kSaveNotificationsText, [&] { transaction.emplace(db()); });
    // After the first failure nothing more is written: SQLite may already have ended the transaction
    // (a full disk, say), and a later statement would then stand on its own.
    bool writing = transaction.has_value();
    writing = writing && deleteAllNotifications();
    writing = writing && deleteAllSites();
    writing = writing && deleteAllCampaigns();

    Snapshot downloaded;
    downloaded.notifications = std::make_shared<const std::vector<NotifyNotifications>>(std::move(response.data));
    if (writing) {
        notificationsError = saveNotifications(*downloaded.notifications);
        writing = !notificationsError;
    }
    // A list the response leaves out keeps its previous contents in memory, although its table was
    // emptied above.
    if (response.included.sites) {
        downloaded.sites = std::make_shared<const std::vector<NotifySite>>(std::move(*response.included.sites));
        writing = writing && !saveSites(*downloaded.sites);
    }
    if (response.included.campaigns) {
        downloaded.campaigns = std::make_shared<const std::vector<NotifyCampaign>>(std::move(*response.included.campaigns));
        writing = writing && !saveCampaigns(*downloaded.campaigns);
    }
    writing = writing && deleteTriggerEventsOfInactiveCampaigns(downloaded.campaigns ? *downloaded.campaigns : campaigns());
    if (writing) {
        notificationsError = guarded(DROVEL_SOURCE(kFile, "storeNotificationsResponse(_:)"), kSaveNotificationsText,
                                     [&] { transaction->commit(); });
    }
    transaction.reset();  // rolls back unless committed
    publish(std::move(downloaded));

    if (notificationsError)
        platform_.notificationCenter->post(NotificationName::notifyNotificationsError, notificationsError);
}

core::ErrorPtr NotifyInteractor::saveNotifications(const std::vector<NotifyNotifications>& notifications) {
    return guarded(DROVEL_SOURCE(kFile, "saveNotifications(_:)"), kSaveNotificationsText,
                   [&] { db().save(notifications); });
}

core::ErrorPtr NotifyInteractor::saveSites(const std::vector<NotifySite>& sites) {
    return guarded(DROVEL_SOURCE(kFile, "saveSites(_:)"), "Failed to save Notify sites with error: ",
                   [&] { db().save(sites); });
}

core::ErrorPtr NotifyInteractor::saveCampaigns(const std::vector<NotifyCampaign>& campaigns) {
    return guarded(DROVEL_SOURCE(kFile, "saveCampaigns(_:)"), "Failed to save Notify campaigns with error: ",
                   [&] { db().save(campaigns); });
}

bool NotifyInteractor::isActive(const NotifyCampaign& campaign, platform::Date now, bool hasOpenOrders) const {
    const auto& interval = campaign.dateInterval();
    if (!interval || !interval->contains(now)) return false;
    return !(hasOpenOrders && campaign.deferOnPickup());
}

bool NotifyInteractor::deleteTriggerEventsOfInactiveCampaigns(const std::vector<NotifyCampaign>& campaigns) {
    const platform::Date now = platform_.clock->now();
    const bool hasOpenOrders = core_->orders().hasOpenOrders();
    std::unordered_set<std::int64_t> active;
    for (const auto& campaign : campaigns)
        if (isActive(campaign, now, hasOpenOrders)) active.insert(campaign.id());

    // Trigger events of running campaigns stay, so their repeat bookkeeping survives the download.
    std::vector<std::int64_t> stale;
    std::set<std::int64_t> seen;
    for (const auto& event : fetchAllTriggerEvents()) {
        std::int64_t id = event.campaignID();
        if (!active.contains(id) && seen.insert(id).second) stale.push_back(id);
    }
    return std::all_of(stale.begin(), stale.end(), [this](std::int64_t id) { return deleteTriggerEventsForCampaignID(id); });
}

bool NotifyInteractor::deleteAllNotifications() {
    return !guarded(DROVEL_SOURCE(kFile, "deleteAllNotifications()"),
                    "Failed to delete all Notify notifications with error: ",
                    [&] { db().deleteAll<NotifyNotifications>(); });
}

bool NotifyInteractor::deleteAllSites() {
    return !guarded(DROVEL_SOURCE(kFile, "deleteAllSites()"), "Failed to delete all Notify sites with error: ",
                    [&] { db().deleteAll<NotifySite>(); });
}

bool NotifyInteractor::deleteAllCampaigns() {
    return !guarded(DROVEL_SOURCE(kFile, "deleteAllCampaigns()"), "Failed to delete all Notify campaigns with error: ",
                    [&] { db().deleteAll<NotifyCampaign>(); });
}

// ---- trigger events ----

void NotifyInteractor::saveTriggerEvent(const NotifyTriggerEvent& event) {
    // The failure text is the sites' one; it has always read so.
    guarded(DROVEL_SOURCE(kFile, "saveTriggerEvent(_:)"), "Failed to save Notify sites with error: ",
            [&] { db().save(event); });
}

std::vector<NotifyTriggerEvent> NotifyInteractor::fetchTriggerEventsFor(std::int64_t campaignID) {
    std::vector<NotifyTriggerEvent> events;
    guarded(DROVEL_SOURCE(kFile, "fetchTriggerEventsFor(campaignID:)"),
            "Failed to fetch Notify trigger event with error: ", [&] {
                events = db().fetch<NotifyTriggerEvent>(
                    filteredStatement(core::Table<NotifyTriggerEvent>::selectAllStatement(), campaignID));
            });
    return events;
}

bool NotifyInteractor::deleteTriggerEventsForCampaignID(std::int64_t campaignID) {
    return !guarded(DROVEL_SOURCE(kFile, "deleteTriggerEventsForCampaignID(_:)"),
                    "Failed to delete single Notify trigger event with error: ",
                    [&] { db().execute(filteredStatement(core::Table<NotifyTriggerEvent>::deleteAllStatement(), campaignID)); });
}

std::vector<NotifyTriggerEvent> NotifyInteractor::fetchAllTriggerEvents() {
    std::vector<NotifyTriggerEvent> events;
    guarded(DROVEL_SOURCE(kFile, "fetchAllTriggerEvents()"), "Failed to fetch all Notify trigger events with error: ",
            [&] { events = db().fetchAll<NotifyTriggerEvent>(); });
    return events;
}

void NotifyInteractor::deleteAllTriggerEvents() {
    guarded(DROVEL_SOURCE(kFile, "deleteAllTriggerEvents()"), "Failed to delete all Notify trigger events with error: ",
            [&] { db().deleteAll<NotifyTriggerEvent>(); });
}

// ---- analytics ----

void NotifyInteractor::recordAnalyticsEvent(NotifyAnalyticsEventType type, std::optional<std::int64_t> campaignID,
                                            NotifyAnalyticsEvent::Params params) {
    NotifyAnalyticsEvent event(type, platform_.clock->now(), campaignID, std::move(params));
    guarded(DROVEL_SOURCE(kFile, "recordAnalyticsEvent(type:campaignID:params:)"),
            "Failed to save NotifyAnalyticsEvent with error: ", [&] { db().save(event); });
}

bool NotifyInteractor::shouldUploadAnalyticsEvents() {
    bool stored = false;
    guarded(DROVEL_SOURCE(kFile, "shouldUploadAnalyticsEvents()"), kFetchAnalyticsText,
            [&] { stored = !db().fetchAll<NotifyAnalyticsEvent>().empty(); });
    return stored;
}

void NotifyInteractor::uploadAnalyticsEventsInDB(UploadCompletion completion) {
    std::vector<NotifyAnalyticsEvent> events;
    if (auto error = guarded(DROVEL_SOURCE(kFile, kUploadOperation), kFetchAnalyticsText,
                             [&] { events = db().fetchAll<NotifyAnalyticsEvent>(); }))
        return completion(error);
    if (events.empty()) return completion(nullptr);

    // The app configuration's decoding already refuses limits below 1, so only calling code can
    // set one.
    const std::int64_t limitValue = kAnalyticsEventLimit.load();
    if (limitValue < 1) core::programmingError("kAnalyticsEventLimit must be at least 1");
    const auto limit = static_cast<std::size_t>(limitValue);
    const auto appInstanceID = UUID::fromString(core_->appInstanceID());
    if (!appInstanceID) core::programmingError("Core::appInstanceID() is not a UUID");

    // Shared by the batches' callbacks, which run concurrently on the transport's threads.
    struct Upload {
        std::mutex mutex;
        core::ErrorPtr error;  // the last batch failure
        platform::DispatchGroup group;
    };
    auto upload = std::make_shared<Upload>();
    // A late answer may arrive after the interactor is gone: each batch keeps the database alive.
    std::shared_ptr<NotifyDBManager> database = database_;

    for (std::size_t start = 0; start < events.size(); start += limit) {
        auto first = events.begin() + static_cast<std::ptrdiff_t>(start);
        auto last = events.begin() + static_cast<std::ptrdiff_t>(std::min(events.size(), start + limit));
        std::vector<UUID> guids;
        for (auto event = first; event != last; ++event) guids.push_back(event->guid());
        std::vector<NotifyAnalyticsEvent> batch(std::make_move_iterator(first), std::make_move_iterator(last));

        upload->group.enter();
        service_->uploadAnalytics(
            UploadNotifyAnalyticsEndpoint::Body{NotifyAnalyticsBody(*appInstanceID, std::move(batch))},
            [upload, database, guids = std::move(guids)](core::ErrorPtr error) {
                if (error) {
                    // The batch's events stay stored and go out again next time.
                    std::lock_guard lock(upload->mutex);
                    upload->error = std::move(error);
                } else {
                    for (const auto& guid : guids) {
                        try {
                            database->dbManager().execute(deleteAnalyticsEventStatement(guid));
                        } catch (const core::DatabaseError& failure) {
                            // "all" although one event is meant; the text has always read so.
                            logFailure(DROVEL_SOURCE(kFile, kUploadOperation),
                                       "Failed to delete all NotifyAnalyticsEvent with error: ", failure);
                        }
                    }
                }
                upload->group.leave();
            });
    }
    upload->group.notify(platform_.globalQueue, [upload, completion = std::move(completion)] {
        core::ErrorPtr error;
        {
            std::lock_guard lock(upload->mutex);
            error = upload->error;
        }
        completion(error);
    });
}

}  // namespace drovel::notify
