#include "drovel/notify/NotifyTriggerEvent.h"

#include <chrono>
#include <cstdio>

#include "data/NotifyRecordJson.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

namespace {

// Reads count digits at text[position...], advancing position.
bool readNumber(std::string_view text, std::size_t& position, std::size_t count, int& out) {
    if (position + count > text.size()) return false;
    out = 0;
    for (std::size_t i = 0; i < count; ++i) {
        char c = text[position + i];
        if (c < '0' || c > '9') return false;
        out = out * 10 + (c - '0');
    }
    position += count;
    return true;
}

bool expect(std::string_view text, std::size_t& position, char c) {
    if (position >= text.size() || text[position] != c) return false;
    ++position;
    return true;
}

}  // namespace

std::string iso8601Text(Date date) {
    using namespace std::chrono;
    auto dayStart = floor<days>(date);
    year_month_day ymd{dayStart};
    hh_mm_ss<nanoseconds> time{duration_cast<nanoseconds>(date - dayStart)};
    auto nanos = time.subseconds().count();
    // As few fraction digits as read back exactly, but at least milliseconds.
    int digits = nanos % 1000000 == 0 ? 3 : nanos % 1000 == 0 ? 6 : 9;
    long long fraction = digits == 3 ? nanos / 1000000 : digits == 6 ? nanos / 1000 : nanos;
    char text[64];
    int length = std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02lld:%02lld:%02lld.%0*lldZ",
                               static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                               static_cast<unsigned>(ymd.day()), static_cast<long long>(time.hours().count()),
                               static_cast<long long>(time.minutes().count()),
                               static_cast<long long>(time.seconds().count()), digits, fraction);
    return std::string(text, static_cast<std::size_t>(length));
}

std::optional<Date> dateFromISO8601Text(std::string_view text) {
    using namespace std::chrono;
    std::size_t at = 0;
    int year, month, day, hour, minute, second;
    if (!readNumber(text, at, 4, year) || !expect(text, at, '-') || !readNumber(text, at, 2, month) ||
        !expect(text, at, '-') || !readNumber(text, at, 2, day) || !expect(text, at, 'T') ||
        !readNumber(text, at, 2, hour) || !expect(text, at, ':') || !readNumber(text, at, 2, minute) ||
        !expect(text, at, ':') || !readNumber(text, at, 2, second))
        return std::nullopt;
    year_month_day ymd{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                       std::chrono::day(static_cast<unsigned>(day))};
    if (!ymd.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    long long nanos = 0;
    if (at < text.size() && text[at] == '.') {
        ++at;
        int digits = 0;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            if (++digits > 9) return std::nullopt;
            nanos = nanos * 10 + (text[at++] - '0');
        }
        if (digits == 0) return std::nullopt;
        for (int i = digits; i < 9; ++i) nanos *= 10;
    }
    int offsetMinutes = 0;
    if (expect(text, at, 'Z')) {
        // UTC
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        int sign = text[at++] == '-' ? -1 : 1;
        int offsetHours, offsetRest;
        if (!readNumber(text, at, 2, offsetHours)) return std::nullopt;
        expect(text, at, ':');
        if (!readNumber(text, at, 2, offsetRest) || offsetHours > 23 || offsetRest > 59) return std::nullopt;
        offsetMinutes = sign * (offsetHours * 60 + offsetRest);
    } else {
        return std::nullopt;
    }
    if (at != text.size()) return std::nullopt;
    auto local = sys_days(ymd) + hours(hour) + minutes(minute) + seconds(second) - minutes(offsetMinutes);
    return time_point_cast<Date::duration>(local) + duration_cast<Date::duration>(nanoseconds(nanos));
}

void NotifyTriggerEvent::writeJson(core::JsonWriter& writer) const {
    writer.beginObject();
    writer.key("last_triggered_at").value(iso8601Text(lastTriggeredAt_));
    writer.key("campaign_id").value(campaignID_);
    if (siteID_) writer.key("site_id").value(*siteID_);
    writer.endObject();
}

std::string NotifyTriggerEvent::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyTriggerEvent> NotifyTriggerEvent::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyTriggerEvent>(json, json::readTriggerEvent);
}

std::string_view NotifyTriggerEvent::createStatement() {
    return "CREATE TABLE IF NOT EXISTS 'notify_trigger_event' (last_triggered_at TEXT NOT NULL, "
           "campaign_id INTEGER NOT NULL, site_id INTEGER);";
}

std::string_view NotifyTriggerEvent::upsertStatement() {
    return "INSERT OR REPLACE INTO 'notify_trigger_event' VALUES (:last_triggered_at, :campaign_id, :site_id);";
}

std::string_view NotifyTriggerEvent::selectAllStatement() {
    return "SELECT last_triggered_at, campaign_id, site_id FROM 'notify_trigger_event';";
}

std::string_view NotifyTriggerEvent::deleteAllStatement() { return "DELETE FROM 'notify_trigger_event';"; }

void NotifyTriggerEvent::bind(core::StatementBinder& binder) const {
    binder.bind("last_triggered_at", iso8601Text(lastTriggeredAt_));
    binder.bind("campaign_id", campaignID_);
    binder.bind("site_id", siteID_);
}

NotifyTriggerEvent NotifyTriggerEvent::fromRow(const core::DatabaseRow& row) {
    auto lastTriggeredAt = dateFromISO8601Text(row.textView("last_triggered_at"));
    if (!lastTriggeredAt) throw core::DatabaseError("column 'last_triggered_at': expected an ISO 8601 date-time");
    return NotifyTriggerEvent(*lastTriggeredAt, row.get<std::int64_t>("campaign_id"),
                              row.get<std::optional<std::int64_t>>("site_id"));
}

namespace json {

NotifyTriggerEvent readTriggerEvent(JsonReader& reader, JsonValue value) {
    std::optional<Date> lastTriggeredAt;
    std::optional<std::int64_t> campaignID, siteID;
    reader.object(value, [&](std::string_view key, JsonValue member) {
        if (key == "last_triggered_at") {
            lastTriggeredAt = dateFromISO8601Text(reader.string(member));
            if (!lastTriggeredAt) reader.fail("expected an ISO 8601 date-time");
        } else if (key == "campaign_id") {
            campaignID = reader.int64(member);
        } else if (key == "site_id") {
            siteID = readOptionalInt(reader, member);
        } else {
            reader.skip(member);
        }
    });
    Date date = required(reader, lastTriggeredAt, "last_triggered_at");
    return NotifyTriggerEvent(date, required(reader, campaignID, "campaign_id"), siteID);
}

}  // namespace json

}  // namespace drovel::notify
