#include "data/NotifyDateFormat.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace drovel::notify {

namespace {

// Reads a run of minDigits..maxDigits decimal digits at text[at], moving at past it.
bool readNumber(std::string_view text, std::size_t& at, std::size_t minDigits, std::size_t maxDigits, int& out) {
    out = 0;
    std::size_t start = at;
    while (at < text.size() && at - start < maxDigits && text[at] >= '0' && text[at] <= '9')
        out = out * 10 + (text[at++] - '0');
    return at - start >= minDigits;
}

}  // namespace

std::optional<CalendarDay> parseDay(std::string_view text) {
    // A "yyyy-MM-dd" date formatter reads numeric fields with fewer digits too ("2024-3-1"), but
    // nothing before or after the date, and only days that exist.
    CalendarDay day{};
    std::size_t at = 0;
    if (!readNumber(text, at, 1, 4, day.year) || at >= text.size() || text[at++] != '-') return std::nullopt;
    if (!readNumber(text, at, 1, 2, day.month) || at >= text.size() || text[at++] != '-') return std::nullopt;
    if (!readNumber(text, at, 1, 2, day.day) || at != text.size()) return std::nullopt;
    std::chrono::year_month_day ymd{std::chrono::year(day.year), std::chrono::month(static_cast<unsigned>(day.month)),
                                    std::chrono::day(static_cast<unsigned>(day.day))};
    if (!ymd.ok()) return std::nullopt;
    return day;
}

std::optional<Date> startOfDay(CalendarDay day) {
    std::tm fields{};
    fields.tm_year = day.year - 1900;
    fields.tm_mon = day.month - 1;
    fields.tm_mday = day.day;
    fields.tm_isdst = -1;
    // mktime re-reads TZ, and for a midnight that a clock change skips it lands just after the gap.
    errno = 0;
    std::time_t seconds = std::mktime(&fields);
    // -1 is also a real moment (in a zone whose offset has seconds), so only errno tells a failure.
    if (seconds == static_cast<std::time_t>(-1) && errno != 0) return std::nullopt;
    // Straight from seconds: the system clock's nanoseconds would overflow before 1678 and after 2262.
    return Date(std::chrono::seconds(seconds));
}

std::string iso8601FullLocalTZ(Date date) {
    using namespace std::chrono;
    auto wholeSeconds = floor<std::chrono::seconds>(date);
    int fraction = static_cast<int>(duration_cast<std::chrono::milliseconds>(date - wholeSeconds).count());
    std::time_t seconds = platform::timeT(wholeSeconds);
    // localtime_r alone need not notice a changed TZ.
    tzset();
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[48];
    int length = std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03d", local.tm_year + 1900,
                               local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, fraction);
    std::string out(text, static_cast<std::size_t>(length));
    long offsetMinutes = local.tm_gmtoff / 60;
    if (offsetMinutes == 0) {
        out += 'Z';
    } else {
        long magnitude = offsetMinutes < 0 ? -offsetMinutes : offsetMinutes;
        std::snprintf(text, sizeof text, "%c%02ld:%02ld", offsetMinutes < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
        out += text;
    }
    return out;
}

}  // namespace drovel::notify
