#pragma once
// Whether the device can reach the internet: a name look-up of a well-known public host with a
// time limit of its own, so that an offline device never stalls the work that asks.

#include <chrono>
#include <functional>

namespace drovel::platform {

// Any thread may call probe. The completion runs exactly once, on any thread (never inside the call
// itself), with true when the name resolved within the time limit and false otherwise (no answer,
// a failed look-up, or the limit reached first).
class ConnectivityProbe {
public:
    using Completion = std::function<void(bool reachable)>;

    virtual ~ConnectivityProbe() = default;
    virtual void probe(std::chrono::milliseconds timeLimit, Completion completion) = 0;
};

}  // namespace drovel::platform
