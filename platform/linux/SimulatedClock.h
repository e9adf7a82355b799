#pragma once
// The simulated device's clock.

#include <memory>

#include "drovel/platform/Clock.h"
#include "linux/SimulatedDevice.h"

namespace drovel::platform {

class SimulatedClock final : public Clock {
public:
    explicit SimulatedClock(std::shared_ptr<SimulatedDevice> device) : device_(std::move(device)) {}
    Date now() const override { return device_->now(); }
    std::chrono::steady_clock::time_point steadyNow() const override { return device_->steadyNow(); }

private:
    std::shared_ptr<SimulatedDevice> device_;
};

}  // namespace drovel::platform
