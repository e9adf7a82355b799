#pragma once
// The module's work in flight outside the main queue, so that a scenario step can wait for all of
// it to end before the next step: the jobs it hands to the global queue and the HTTP requests it
// sends (an analytics upload after a tap runs on the global queue, away from any sync).

#include <atomic>
#include <cstdint>
#include <memory>

#include "drovel/platform/DispatchQueue.h"
#include "drovel/platform/HttpTransport.h"

namespace drovel::simulator {

class ModuleActivity {
public:
    // A queue that runs the jobs on `queue` and counts them until each has returned.
    std::shared_ptr<platform::Queue> track(std::shared_ptr<platform::Queue> queue);
    // A transport that sends through `transport` and counts each request until its completion has
    // returned.
    std::shared_ptr<platform::HttpTransport> track(std::shared_ptr<platform::HttpTransport> transport);

    // No tracked job or request is in flight.
    bool idle() const { return counters_->inFlight.load() == 0; }
    // How many jobs and requests have started so far: unchanged across a wait means nothing new
    // was started meanwhile.
    std::uint64_t started() const { return counters_->started.load(); }

    struct Counters {
        std::atomic<std::int64_t> inFlight{0};
        std::atomic<std::uint64_t> started{0};
    };

private:
    // Shared with the wrappers, which may outlive the runner on the module's threads.
    std::shared_ptr<Counters> counters_ = std::make_shared<Counters>();
};

}  // namespace drovel::simulator
