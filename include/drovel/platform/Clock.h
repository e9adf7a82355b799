#pragma once
// Time as the module sees it. The module never reads the system time directly: it asks the
// platform's Clock, so that tests and the simulator can set the time.

#include <chrono>
#include <ctime>

namespace drovel::platform {

// A point in wall-clock time (the platform's Date). Microseconds, not the system clock's
// nanoseconds: 64 bits of nanoseconds only reach the years 1678 to 2262, and dates from outside
// (a campaign's "9999-12-31" end, a stored date) run from the year 1 to 9999. Microseconds hold
// about 292,000 years either side of 1970, finer than any date the module reads or writes.
using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// A system_clock time (nanoseconds) as a Date, rounded down to the microsecond.
constexpr Date toDate(std::chrono::system_clock::time_point time) {
    return std::chrono::floor<Date::duration>(time);
}

// The date's whole seconds since 1970 (rounded down) for the C library's calendar functions. Unlike
// system_clock::to_time_t it does not pass through nanoseconds, so it holds every Date.
constexpr std::time_t timeT(Date date) {
    return static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count());
}

// Any thread may call a Clock; implementations are thread-safe. No callbacks.
class Clock {
public:
    virtual ~Clock() = default;
    // The current wall-clock time.
    virtual Date now() const = 0;
    // A monotonic time for measuring timeouts and durations; never jumps when now() is set.
    virtual std::chrono::steady_clock::time_point steadyNow() const = 0;
};

}  // namespace drovel::platform
