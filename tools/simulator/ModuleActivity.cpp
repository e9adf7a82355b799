#include "simulator/ModuleActivity.h"

namespace drovel::simulator {

namespace {

using Counters = ModuleActivity::Counters;

// Counts one piece of work from its start until the object is gone.
class InFlight {
public:
    explicit InFlight(std::shared_ptr<Counters> counters) : counters_(std::move(counters)) {
        ++counters_->started;
        ++counters_->inFlight;
    }
    ~InFlight() { --counters_->inFlight; }
    InFlight(const InFlight&) = delete;
    InFlight& operator=(const InFlight&) = delete;

private:
    std::shared_ptr<Counters> counters_;
};

class TrackedQueue final : public platform::Queue {
public:
    TrackedQueue(std::shared_ptr<platform::Queue> queue, std::shared_ptr<Counters> counters)
        : queue_(std::move(queue)), counters_(std::move(counters)) {}
    void async(platform::Job job) override {
        auto mark = std::make_shared<InFlight>(counters_);
        queue_->async([job = std::move(job), mark]() mutable {
            job();
            // The job's captures go before the work counts as done: they may hold the module.
            job = nullptr;
            mark.reset();
        });
    }
    bool isCurrent() const override { return queue_->isCurrent(); }
    const std::string& label() const override { return queue_->label(); }

private:
    std::shared_ptr<platform::Queue> queue_;
    std::shared_ptr<Counters> counters_;
};

class TrackedTransport final : public platform::HttpTransport {
public:
    TrackedTransport(std::shared_ptr<platform::HttpTransport> transport, std::shared_ptr<Counters> counters)
        : transport_(std::move(transport)), counters_(std::move(counters)) {}
    void send(platform::HttpRequest request, Completion completion) override {
        auto mark = std::make_shared<InFlight>(counters_);
        transport_->send(std::move(request), [completion = std::move(completion), mark](platform::HttpResult result) mutable {
            completion(std::move(result));
            completion = nullptr;
            mark.reset();
        });
    }
    void cancelAll() override { transport_->cancelAll(); }

private:
    std::shared_ptr<platform::HttpTransport> transport_;
    std::shared_ptr<Counters> counters_;
};

}  // namespace

std::shared_ptr<platform::Queue> ModuleActivity::track(std::shared_ptr<platform::Queue> queue) {
    return std::make_shared<TrackedQueue>(std::move(queue), counters_);
}

std::shared_ptr<platform::HttpTransport> ModuleActivity::track(std::shared_ptr<platform::HttpTransport> transport) {
    return std::make_shared<TrackedTransport>(std::move(transport), counters_);
}

}  // namespace drovel::simulator
