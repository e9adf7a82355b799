#pragma once
// Calendar days and local date texts, on the C library so that the process's TZ (also a TZ set
// later on) decides the time zone.

#include <optional>
#include <string>
#include <string_view>

#include "drovel/notify/NotifyRecord.h"

namespace drovel::notify {

struct CalendarDay {
    int year;
    int month;  // 1...12
    int day;    // 1...31
};

// Exactly "yyyy-MM-dd" naming a real day ("2024-02-30", "2024-3-1" and "2024-03-01x" give none).
std::optional<CalendarDay> parseDay(std::string_view text);

// The first moment of the day in the current time zone; none when the C library cannot represent it.
// Where midnight is skipped by a clock change, the day starts at the first moment after the gap.
std::optional<Date> startOfDay(CalendarDay day);

// The core library's iso8601FullLocalTZ form: "2024-03-01T13:00:00.123+01:00" in the current time
// zone, "Z" in place of a zero offset.
std::string iso8601FullLocalTZ(Date date);

}  // namespace drovel::notify
