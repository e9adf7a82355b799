#include "support/FakeClock.h"
#include "support/Locked.h"

namespace drovel::testing {

FakeClock::FakeClock(platform::Date start) : now_(start) {}

platform::Date FakeClock::now() const { return lockedCopy(mutex_, now_); }

std::chrono::steady_clock::time_point FakeClock::steadyNow() const { return lockedCopy(mutex_, steady_); }

void FakeClock::set(platform::Date now) { lockedAssign(mutex_, now_, now); }

void FakeClock::advance(std::chrono::nanoseconds step) {
    std::lock_guard lock(mutex_);
    now_ += std::chrono::duration_cast<platform::Date::duration>(step);
    // Steady time never goes back.
    if (step.count() > 0) steady_ += step;
}

}  // namespace drovel::testing
