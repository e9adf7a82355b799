#pragma once
// Queues that run jobs: a serial queue with its own worker thread, a concurrent pool, and groups
// that track outstanding work. The same on every platform, so these are concrete classes.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace drovel::platform {

using Job = std::function<void()>;

// Anything that runs jobs. A job must not throw: an exception that leaves a job is a programming
// error (it aborts the process, naming the queue).
class Queue {
public:
    virtual ~Queue() = default;

    // Queues the job and returns at once. Any thread may call.
    virtual void async(Job job) = 0;
    // True when the calling thread is running this queue's jobs.
    virtual bool isCurrent() const = 0;
    virtual const std::string& label() const = 0;

    // Runs f on the queue and waits for it; returns f's result. Calling it from the queue itself
    // would wait forever and is a programming error.
    template <class F>
    auto sync(F&& f) -> std::invoke_result_t<F&> {
        using R = std::invoke_result_t<F&>;
        if constexpr (std::is_void_v<R>) {
            runSync([&f] { f(); });
        } else {
            std::optional<R> result;
            runSync([&f, &result] { result.emplace(f()); });
            return std::move(*result);
        }
    }

protected:
    // Runs the job on the queue and returns once it has finished: queues it with async() and waits.
    // A serial queue overrides it to refuse a call from its own jobs, which would wait forever.
    virtual void runSync(Job job);
    // Runs one job; an exception leaving it aborts the process, naming the queue.
    static void runGuarded(Job& job, const std::string& label);
    // Marks the calling thread as running the jobs of the queue identified by key until destroyed;
    // scopes nest.
    class CurrentScope {
    public:
        explicit CurrentScope(const void* key);
        ~CurrentScope();
        CurrentScope(const CurrentScope&) = delete;
        CurrentScope& operator=(const CurrentScope&) = delete;

    private:
        const void* previous_;
    };
    // True when the innermost CurrentScope of the calling thread has this key.
    static bool currentIs(const void* key);
};

// A serial queue: one worker thread of its own runs the jobs one at a time, in the order queued.
// Destroying the queue runs the jobs already queued, then ends the worker; when the last owner
// lets go from inside one of the queue's own jobs, the worker ends on its own after that job.
class DispatchQueue final : public Queue {
public:
    explicit DispatchQueue(std::string label);
    ~DispatchQueue() override;
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    void async(Job job) override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }

protected:
    void runSync(Job job) override;

private:
    struct State;
    std::string label_;
    std::shared_ptr<State> state_;
    std::thread worker_;
};

// A concurrent queue: a pool of worker threads that grows (up to maxThreads) while every worker
// is busy, so jobs that block one another do not starve the pool. Jobs start in the order queued.
class ConcurrentQueue final : public Queue {
public:
    ConcurrentQueue(std::string label, std::size_t maxThreads);
    ~ConcurrentQueue() override;
    ConcurrentQueue(const ConcurrentQueue&) = delete;
    ConcurrentQueue& operator=(const ConcurrentQueue&) = delete;

    // The process's global queue (default quality of service); never destroyed.
    static std::shared_ptr<ConcurrentQueue> global();

    void async(Job job) override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }

private:
    struct State;
    std::string label_;
    std::shared_ptr<State> state_;
};

// Counts outstanding work. enter() before starting a piece of work, leave() when it is done; wait()
// blocks until the count is zero; notify() queues a job for that moment. Thread-safe.
class DispatchGroup {
public:
    DispatchGroup() = default;
    DispatchGroup(const DispatchGroup&) = delete;
    DispatchGroup& operator=(const DispatchGroup&) = delete;

    void enter();
    // More leaves than enters is a programming error.
    void leave();
    // Blocks until the group is empty (at once when it already is).
    void wait();
    // As wait(), for at most timeout; true when the group became empty in time.
    bool wait(std::chrono::milliseconds timeout);
    // Queues job on queue once the group is empty: at once when it is empty now, else after the
    // leave() that empties it. Each notify() queues its job exactly once.
    void notify(std::shared_ptr<Queue> queue, Job job);

private:
    std::mutex mutex_;
    std::condition_variable emptied_;
    long count_ = 0;
    std::vector<std::pair<std::shared_ptr<Queue>, Job>> notifications_;
};

}  // namespace drovel::platform
