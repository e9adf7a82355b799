#pragma once
// A ConnectivityProbe for tests: answers as scripted, on its own serial queue (never inside the
// call, as a real probe), or keeps the probes waiting until the test answers them.

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "drovel/platform/ConnectivityProbe.h"
#include "drovel/platform/DispatchQueue.h"

namespace drovel::testing {

class FakeConnectivityProbe : public platform::ConnectivityProbe {
public:
    FakeConnectivityProbe();

    void probe(std::chrono::milliseconds timeLimit, Completion completion) override;

    // ---- scripting (default: every probe answers reachable) ----
    // The answer later probes get at once; none: they wait for answer().
    void setAnswer(std::optional<bool> reachable);
    // Answers every waiting probe.
    void answer(bool reachable);

    // ---- inspection ----
    // The time limit of every probe, in call order.
    std::vector<std::chrono::milliseconds> timeLimits() const;

private:
    std::shared_ptr<platform::DispatchQueue> queue_;
    mutable std::mutex mutex_;
    std::optional<bool> answer_ = true;
    std::vector<std::chrono::milliseconds> timeLimits_;
    std::vector<Completion> waiting_;
};

}  // namespace drovel::testing
