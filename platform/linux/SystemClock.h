#pragma once
// The machine's clocks.

#include "drovel/platform/Clock.h"

namespace drovel::platform {

class SystemClock final : public Clock {
public:
    Date now() const override { return toDate(std::chrono::system_clock::now()); }
    std::chrono::steady_clock::time_point steadyNow() const override { return std::chrono::steady_clock::now(); }
};

}  // namespace drovel::platform
