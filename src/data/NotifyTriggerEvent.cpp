#include "drovel/notify/NotifyTriggerEvent.h"

#include <chrono>
#include <cstdio>

#include "data/NotifyRecordJson.h"
#include "data/NotifyTables.h"
#include "data/RecordFields.h"
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

namespace {

// A date as iso8601Text writes it, in JSON and in its column.
struct ISO8601Date {
    using Value = Date;
    static void write(core::JsonWriter& writer, Value date) { writer.value(iso8601Text(date)); }
    static Value read(core::JsonReader& reader, core::JsonValue value) {
        auto date = dateFromISO8601Text(reader.string(value));
        if (!date) reader.fail("expected an ISO 8601 date-time");
        return *date;
    }
    static void bind(core::StatementBinder& binder, std::string_view key, Value date) {
        binder.bind(key, iso8601Text(date));
    }
    static Value column(const core::DatabaseRow& row, int index) {
        auto date = dateFromISO8601Text(row.textView(index));
        if (!date) fields::columnError(row, index, "expected an ISO 8601 date-time");
        return *date;
    }
};

// In the constructor's order.
constexpr std::tuple triggerEventFields{
    fields::Field<&NotifyTriggerEvent::lastTriggeredAt, ISO8601Date>{"last_triggered_at"},
    fields::Field<&NotifyTriggerEvent::campaignID, fields::Int64>{"campaign_id"},
    fields::Field<&NotifyTriggerEvent::siteID, fields::Int64>{"site_id"},
};

}  // namespace

void NotifyTriggerEvent::writeJson(core::JsonWriter& writer) const {
    fields::writeObject(writer, *this, triggerEventFields);
}

std::string NotifyTriggerEvent::toJson() const { return core::encodeJson(*this); }

core::Result<NotifyTriggerEvent> NotifyTriggerEvent::fromJson(std::string_view json) {
    return json::decodeDocument<NotifyTriggerEvent>(json, json::readTriggerEvent);
}

namespace json {

NotifyTriggerEvent readTriggerEvent(JsonReader& reader, JsonValue value) {
    return fields::read<NotifyTriggerEvent>(reader, value, triggerEventFields);
}

}  // namespace json

}  // namespace drovel::notify

namespace drovel::core {

void Table<notify::NotifyTriggerEvent>::bind(const notify::NotifyTriggerEvent& record, StatementBinder& binder) {
    notify::fields::bind(binder, record, notify::triggerEventFields);
}

notify::NotifyTriggerEvent Table<notify::NotifyTriggerEvent>::fromRow(const DatabaseRow& row) {
    return notify::fields::fromRow<notify::NotifyTriggerEvent>(row, notify::triggerEventFields);
}

}  // namespace drovel::core
