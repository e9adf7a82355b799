#include <exception>

#include "drovel/core/Error.h"
#include "drovel/platform/DispatchQueue.h"

namespace drovel::platform {

namespace {
thread_local const void* currentQueueKey = nullptr;
}

// ---- Queue ----

Queue::CurrentScope::CurrentScope(const void* key) : previous_(currentQueueKey) { currentQueueKey = key; }

Queue::CurrentScope::~CurrentScope() { currentQueueKey = previous_; }

bool Queue::currentIs(const void* key) { return currentQueueKey == key; }

void Queue::runGuarded(Job& job, const std::string& label) {
    try {
        job();
    } catch (const std::exception& exception) {
        core::programmingError("uncaught exception in a job of queue " + label + ": " + exception.what());
    } catch (...) {
        core::programmingError("uncaught exception in a job of queue " + label);
    }
}

void Queue::runSync(Job job) {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    async([&] {
        runGuarded(job, label());
        std::lock_guard lock(mutex);
        done = true;
        finished.notify_one();
    });
    std::unique_lock lock(mutex);
    finished.wait(lock, [&] { return done; });
}

// ---- DispatchQueue ----

struct DispatchQueue::State {
    std::string label;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Job> jobs;
    bool stopping = false;
};

DispatchQueue::DispatchQueue(std::string label) : label_(std::move(label)), state_(std::make_shared<State>()) {
    state_->label = label_;
    // The worker shares the state, not the queue: it may outlive the queue (see the destructor).
    worker_ = std::thread([state = state_] {
        CurrentScope scope(state.get());
        std::unique_lock lock(state->mutex);
        for (;;) {
            state->changed.wait(lock, [&] { return state->stopping || !state->jobs.empty(); });
            if (state->jobs.empty()) return;  // stopping, and every queued job has run
            Job job = std::move(state->jobs.front());
            state->jobs.pop_front();
            lock.unlock();
            runGuarded(job, state->label);
            job = nullptr;  // release what the job captured before taking the lock again
            lock.lock();
        }
    });
}

DispatchQueue::~DispatchQueue() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
    }
    state_->changed.notify_all();
    // The last owner may let go inside one of the queue's own jobs; the worker cannot join itself,
    // so it finishes the remaining jobs on its own.
    if (worker_.get_id() == std::this_thread::get_id()) {
        worker_.detach();
    } else {
        worker_.join();
    }
}

void DispatchQueue::async(Job job) {
    {
        std::lock_guard lock(state_->mutex);
        state_->jobs.push_back(std::move(job));
    }
    state_->changed.notify_one();
}

bool DispatchQueue::isCurrent() const { return currentIs(state_.get()); }

void DispatchQueue::runSync(Job job) {
    if (isCurrent()) core::programmingError("sync called from a job of the queue it waits for: " + label_);
    Queue::runSync(std::move(job));
}

// ---- ConcurrentQueue ----

struct ConcurrentQueue::State {
    std::string label;
    std::size_t maxThreads = 1;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Job> jobs;
    std::vector<std::thread> threads;
    std::size_t idle = 0;
    bool stopping = false;

    // Runs jobs until stopping and empty. Called on each worker.
    void work() {
        CurrentScope scope(this);
        std::unique_lock lock(mutex);
        for (;;) {
            ++idle;
            changed.wait(lock, [&] { return stopping || !jobs.empty(); });
            --idle;
            if (jobs.empty()) return;
            Job job = std::move(jobs.front());
            jobs.pop_front();
            lock.unlock();
            runGuarded(job, label);
            job = nullptr;
            lock.lock();
        }
    }
};

ConcurrentQueue::ConcurrentQueue(std::string label, std::size_t maxThreads)
    : label_(std::move(label)), state_(std::make_shared<State>()) {
    state_->label = label_;
    state_->maxThreads = std::max<std::size_t>(1, maxThreads);
}

ConcurrentQueue::~ConcurrentQueue() {
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
        threads = std::move(state_->threads);
    }
    state_->changed.notify_all();
    for (auto& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

std::shared_ptr<ConcurrentQueue> ConcurrentQueue::global() {
    // Never destroyed: jobs may still run while the process exits.
    static auto* queue = new std::shared_ptr<ConcurrentQueue>(
        std::make_shared<ConcurrentQueue>("com.apple.root.default-qos", 64));
    return *queue;
}

void ConcurrentQueue::async(Job job) {
    {
        std::lock_guard lock(state_->mutex);
        state_->jobs.push_back(std::move(job));
        // Grow only when every worker is busy: a blocked job must not hold up the ones behind it.
        if (state_->idle < state_->jobs.size() && state_->threads.size() < state_->maxThreads) {
            // The worker shares the state so that it may outlive the queue.
            state_->threads.emplace_back([state = state_] { state->work(); });
        }
    }
    state_->changed.notify_one();
}

bool ConcurrentQueue::isCurrent() const { return currentIs(state_.get()); }

// ---- DispatchGroup ----

void DispatchGroup::enter() {
    std::lock_guard lock(mutex_);
    ++count_;
}

void DispatchGroup::leave() {
    std::vector<std::pair<std::shared_ptr<Queue>, Job>> ready;
    {
        std::lock_guard lock(mutex_);
        if (count_ == 0) core::programmingError("DispatchGroup::leave() called more often than enter()");
        if (--count_ > 0) return;
        ready.swap(notifications_);
        // Notified under the lock: a waiter may destroy the group as soon as wait() returns.
        emptied_.notify_all();
    }
    for (auto& [queue, job] : ready) queue->async(std::move(job));
}

void DispatchGroup::wait() {
    std::unique_lock lock(mutex_);
    emptied_.wait(lock, [&] { return count_ == 0; });
}

bool DispatchGroup::wait(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return emptied_.wait_for(lock, timeout, [&] { return count_ == 0; });
}

void DispatchGroup::notify(std::shared_ptr<Queue> queue, Job job) {
    {
        std::lock_guard lock(mutex_);
        if (count_ > 0) {
            notifications_.emplace_back(std::move(queue), std::move(job));
            return;
        }
    }
    queue->async(std::move(job));
}

}  // namespace drovel::platform
