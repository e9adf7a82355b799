#include <algorithm>

#include "drovel/core/Error.h"
#include "drovel/platform/MainQueue.h"

namespace drovel::platform {

namespace {
// How often runUntil() looks at its predicate while no job arrives.
constexpr auto predicatePollInterval = std::chrono::milliseconds(5);
}

MainQueue::MainQueue(std::string label) : label_(std::move(label)) {}

void MainQueue::async(Job job) {
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    changed_.notify_all();
}

bool MainQueue::isCurrent() const { return currentIs(this); }

void MainQueue::run() {
    CurrentScope scope(this);
    for (;;) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return !jobs_.empty() || stopRequested_; });
            if (stopRequested_) {
                stopRequested_ = false;
                return;
            }
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        runGuarded(job, label_);
    }
}

void MainQueue::stop() {
    {
        std::lock_guard lock(mutex_);
        stopRequested_ = true;
    }
    changed_.notify_all();
}

bool MainQueue::runUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
    CurrentScope scope(this);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (predicate()) return true;
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return false;
        Job job;
        // A stop() meant for run() must not make this loop spin; only jobs wake it early.
        {
            std::unique_lock lock(mutex_);
            changed_.wait_until(lock, std::min(deadline, now + predicatePollInterval), [&] { return !jobs_.empty(); });
            if (jobs_.empty()) continue;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        runGuarded(job, label_);
    }
}

std::size_t MainQueue::drain() {
    CurrentScope scope(this);
    std::size_t limit;
    {
        std::lock_guard lock(mutex_);
        limit = jobs_.size();
    }
    std::size_t ran = 0;
    for (; ran < limit; ++ran) {
        Job job;
        {
            std::lock_guard lock(mutex_);
            if (jobs_.empty()) break;  // a nested pump ran some of them
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        runGuarded(job, label_);
    }
    return ran;
}

std::size_t MainQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return jobs_.size();
}

void MainQueue::runSync(Job job) {
    if (isCurrent()) core::programmingError("sync called on the main queue from the thread that pumps it");
    Queue::runSync(std::move(job));
}

}  // namespace drovel::platform
