#pragma once
// Time as the module sees it. The module never reads the system time directly: it asks the
// platform's Clock, so that tests and the simulator can set the time.

#include <chrono>

namespace drovel::platform {

// A point in wall-clock time (the platform's Date).
using Date = std::chrono::system_clock::time_point;

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
