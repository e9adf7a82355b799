#pragma once
// The simulated device's network: whether it is online, and an HTTP transport that fails at once
// while the device is offline (the real transport carries the requests otherwise).

#include <memory>

#include "drovel/platform/ConnectivityProbe.h"
#include "drovel/platform/DispatchQueue.h"
#include "drovel/platform/HttpTransport.h"
#include "linux/SimulatedDevice.h"

namespace drovel::platform {

// Answers from the device's connectivity, on its own serial queue, whatever the time limit.
class SimulatedConnectivityProbe final : public ConnectivityProbe {
public:
    explicit SimulatedConnectivityProbe(std::shared_ptr<SimulatedDevice> device);
    void probe(std::chrono::milliseconds timeLimit, Completion completion) override;

private:
    std::shared_ptr<SimulatedDevice> device_;
    std::shared_ptr<DispatchQueue> queue_;
};

// While the device is offline every request fails with cannotConnect ("The Internet connection
// appears to be offline."), completed on the transport's own serial queue.
class SimulatedHttpTransport final : public HttpTransport {
public:
    SimulatedHttpTransport(std::shared_ptr<SimulatedDevice> device, std::shared_ptr<HttpTransport> transport);
    void send(HttpRequest request, Completion completion) override;
    void cancelAll() override { transport_->cancelAll(); }

private:
    std::shared_ptr<SimulatedDevice> device_;
    std::shared_ptr<HttpTransport> transport_;
    std::shared_ptr<DispatchQueue> queue_;
};

}  // namespace drovel::platform
