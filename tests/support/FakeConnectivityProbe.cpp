#include "support/FakeConnectivityProbe.h"
#include "support/Locked.h"

namespace drovel::testing {

FakeConnectivityProbe::FakeConnectivityProbe()
    : queue_(std::make_shared<platform::DispatchQueue>("FakeConnectivityProbe")) {}

void FakeConnectivityProbe::probe(std::chrono::milliseconds timeLimit, Completion completion) {
    std::lock_guard lock(mutex_);
    timeLimits_.push_back(timeLimit);
    if (!answer_) {
        waiting_.push_back(std::move(completion));
        return;
    }
    queue_->async([completion = std::move(completion), reachable = *answer_] { completion(reachable); });
}

void FakeConnectivityProbe::setAnswer(std::optional<bool> reachable) { lockedAssign(mutex_, answer_, reachable); }

void FakeConnectivityProbe::answer(bool reachable) {
    std::vector<Completion> waiting;
    {
        std::lock_guard lock(mutex_);
        waiting.swap(waiting_);
    }
    for (auto& completion : waiting)
        queue_->async([completion = std::move(completion), reachable] { completion(reachable); });
}

std::vector<std::chrono::milliseconds> FakeConnectivityProbe::timeLimits() const { return lockedCopy(mutex_, timeLimits_); }

}  // namespace drovel::testing
