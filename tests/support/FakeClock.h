#pragma once
// A Clock that stands still until the test moves it. Thread-safe.

#include <mutex>

#include "drovel/platform/Clock.h"

namespace drovel::testing {

class FakeClock : public platform::Clock {
public:
    // 2026-03-14T12:00:00Z unless told otherwise.
    explicit FakeClock(platform::Date start = platform::Date(std::chrono::seconds(1773489600)));

    platform::Date now() const override;
    std::chrono::steady_clock::time_point steadyNow() const override;

    // Sets the wall-clock time; the steady time does not move (as when a device's clock is set).
    void set(platform::Date now);
    // Moves both times forward (a negative step moves the wall clock back only).
    void advance(std::chrono::nanoseconds step);

private:
    mutable std::mutex mutex_;
    platform::Date now_;
    std::chrono::steady_clock::time_point steady_{};
};

}  // namespace drovel::testing
