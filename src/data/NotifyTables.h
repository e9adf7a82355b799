#pragma once
// How the module's records are stored in its database: the SQL texts of each record's table, and
// its binding and row reading (driven by the record's field table, next to its JSON form). This is
// the records' private storage form; only the database code sees it.
//
// Each table has one column per JSON key. Values that are JSON documents of their own (a campaign's
// content, an event's params) are stored as their JSON text, and enumerations as the JSON text of
// their string, double quotes included. The create statements are historic: the migrations make
// the tables and nothing runs them.

#include <string_view>

#include "drovel/core/DrovelDBManager.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyCampaign.h"
#include "drovel/notify/NotifyNotifications.h"
#include "drovel/notify/NotifySite.h"
#include "drovel/notify/NotifyTriggerEvent.h"

namespace drovel::core {

template <>
struct Table<notify::NotifyCampaign> {
    // The layout from before region types.
    static constexpr std::string_view createStatement() {
        return "CREATE TABLE 'notify_campaign' (id INTEGER PRIMARY KEY NOT NULL, targeting_type INTEGER NOT NULL, "
               "interest_area_id INTEGER, start_day TEXT NOT NULL, end_day TEXT NOT NULL, repeatability TEXT NOT NULL, "
               "geofence_radius_meters INTEGER, content TEXT);";
    }
    // Absent values stay NULL. Note that the table gives a NULL repeat_interval_days its default 0
    // (INSERT OR REPLACE replaces a NULL in a NOT NULL column by the default).
    static constexpr std::string_view upsertStatement() {
        return "INSERT OR REPLACE INTO 'notify_campaign' VALUES (:id, :start_day, :end_day, :geofence_radius_meters, "
               ":content, :defer_on_pickup, :region_type, :beacon_uuid, :beacon_major, :repeat_interval_days);";
    }
    static constexpr std::string_view selectAllStatement() {
        return "SELECT id, start_day, end_day, geofence_radius_meters, content, defer_on_pickup, region_type, "
               "beacon_uuid, beacon_major, repeat_interval_days FROM 'notify_campaign';";
    }
    static constexpr std::string_view deleteAllStatement() { return "DELETE FROM 'notify_campaign';"; }
    static void bind(const notify::NotifyCampaign& record, StatementBinder& binder);
    static notify::NotifyCampaign fromRow(const DatabaseRow& row);
};

template <>
struct Table<notify::NotifySite> {
    // The layout from before per-pair notification rows.
    static constexpr std::string_view createStatement() {
        return "CREATE TABLE 'notify_site' (id INTEGER PRIMARY KEY NOT NULL, partner_identifier TEXT, "
               "distance_meters INTEGER NOT NULL, latitude TEXT NOT NULL, longitude TEXT NOT NULL, beacon_minor INTEGER, "
               "campaign_ids TEXT NOT NULL);";
    }
    static constexpr std::string_view upsertStatement() {
        return "INSERT OR REPLACE INTO 'notify_site' VALUES (:id, :partner_identifier, :distance_meters, :latitude, "
               ":longitude, :beacon_minor);";
    }
    // The nearest site first.
    static constexpr std::string_view selectAllStatement() {
        return "SELECT id, partner_identifier, distance_meters, latitude, longitude, beacon_minor FROM 'notify_site' "
               "ORDER BY distance_meters ASC;";
    }
    static constexpr std::string_view deleteAllStatement() { return "DELETE FROM 'notify_site';"; }
    static void bind(const notify::NotifySite& record, StatementBinder& binder);
    static notify::NotifySite fromRow(const DatabaseRow& row);
};

template <>
struct Table<notify::NotifyNotifications> {
    // The table's first layout, without content.
    static constexpr std::string_view createStatement() {
        return "CREATE TABLE 'notify_notification' (id INTEGER PRIMARY KEY AUTOINCREMENT NOT NULL, "
               "campaign_id INTEGER NOT NULL, site_id INTEGER);";
    }
    static constexpr std::string_view upsertStatement() {
        return "INSERT OR REPLACE INTO 'notify_notification' (campaign_id, site_id, content) VALUES (:campaign_id, "
               ":site_id, :content);";
    }
    static constexpr std::string_view selectAllStatement() {
        return "SELECT campaign_id, site_id, content FROM 'notify_notification';";
    }
    static constexpr std::string_view deleteAllStatement() { return "DELETE FROM 'notify_notification';"; }
    static void bind(const notify::NotifyNotifications& record, StatementBinder& binder);
    static notify::NotifyNotifications fromRow(const DatabaseRow& row);
};

template <>
struct Table<notify::NotifyTriggerEvent> {
    // The table has no key: every save adds a row.
    static constexpr std::string_view createStatement() {
        return "CREATE TABLE IF NOT EXISTS 'notify_trigger_event' (last_triggered_at TEXT NOT NULL, "
               "campaign_id INTEGER NOT NULL, site_id INTEGER);";
    }
    static constexpr std::string_view upsertStatement() {
        return "INSERT OR REPLACE INTO 'notify_trigger_event' VALUES (:last_triggered_at, :campaign_id, :site_id);";
    }
    static constexpr std::string_view selectAllStatement() {
        return "SELECT last_triggered_at, campaign_id, site_id FROM 'notify_trigger_event';";
    }
    static constexpr std::string_view deleteAllStatement() { return "DELETE FROM 'notify_trigger_event';"; }
    static void bind(const notify::NotifyTriggerEvent& record, StatementBinder& binder);
    static notify::NotifyTriggerEvent fromRow(const DatabaseRow& row);
};

template <>
struct Table<notify::NotifyAnalyticsEvent> {
    // The guid is plain canonical text (uploads delete by it).
    static constexpr std::string_view createStatement() {
        return "CREATE TABLE 'notify_analytics_event' (guid TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, "
               "occurred_at TEXT NOT NULL, campaign_id INTEGER NOT NULL, params TEXT NOT NULL);";
    }
    static constexpr std::string_view upsertStatement() {
        return "INSERT OR REPLACE INTO 'notify_analytics_event' VALUES (:guid, :name, :occurred_at, :campaign_id, "
               ":params);";
    }
    static constexpr std::string_view selectAllStatement() {
        return "SELECT guid, name, occurred_at, campaign_id, params FROM 'notify_analytics_event';";
    }
    static constexpr std::string_view deleteAllStatement() { return "DELETE FROM 'notify_analytics_event';"; }
    static void bind(const notify::NotifyAnalyticsEvent& record, StatementBinder& binder);
    static notify::NotifyAnalyticsEvent fromRow(const DatabaseRow& row);
};

}  // namespace drovel::core

