#pragma once
// The main queue: a run loop that the host drives. The CLI and the tests pump it; every public
// callback of the module is delivered on it.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "drovel/platform/DispatchQueue.h"

namespace drovel::platform {

// Jobs run on whichever thread pumps the queue (run, runUntil, drain), one at a time, in the order
// queued; that thread counts as the main thread while it pumps. Only one thread pumps at a time;
// a job may pump again (nested pumping). Any thread may queue jobs and call stop().
class MainQueue final : public Queue {
public:
    explicit MainQueue(std::string label = "com.apple.main-thread");
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    void async(Job job) override;
    // True while the calling thread pumps this queue.
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }

    // Runs jobs, waiting for new ones, until stop() is called.
    void run();
    // Makes the innermost run() return once its current job has finished; a stop() while nothing
    // runs makes the next run() return at once.
    void stop();
    // Runs jobs until predicate() holds or timeout has passed; true when predicate() held. The
    // predicate is checked first, after every job, and every few milliseconds while idle, so it may
    // watch state that other threads change.
    bool runUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout);
    // Runs the jobs queued at the moment of the call (not the ones they queue); returns how many.
    std::size_t drain();
    // The number of jobs waiting.
    std::size_t pendingCount() const;

protected:
    // Called from the pumping thread this would wait forever: a programming error.
    void runSync(Job job) override;

private:
    std::string label_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    bool stopRequested_ = false;
};

}  // namespace drovel::platform
