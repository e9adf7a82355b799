#include "linux/SimulatedNetwork.h"

namespace drovel::platform {

SimulatedConnectivityProbe::SimulatedConnectivityProbe(std::shared_ptr<SimulatedDevice> device)
    : device_(std::move(device)), queue_(std::make_shared<DispatchQueue>("SimulatedConnectivityProbe")) {}

void SimulatedConnectivityProbe::probe(std::chrono::milliseconds timeLimit, Completion completion) {
    bool reachable = device_->online();
    if (completion) queue_->async([completion = std::move(completion), reachable] { completion(reachable); });
}

SimulatedHttpTransport::SimulatedHttpTransport(std::shared_ptr<SimulatedDevice> device,
                                               std::shared_ptr<HttpTransport> transport)
    : device_(std::move(device)),
      transport_(std::move(transport)),
      queue_(std::make_shared<DispatchQueue>("SimulatedHttpTransport")) {}

void SimulatedHttpTransport::send(HttpRequest request, Completion completion) {
    if (device_->online()) return transport_->send(std::move(request), std::move(completion));
    queue_->async([completion = std::move(completion)] {
        completion(TransportError{TransportErrorKind::cannotConnect, "The Internet connection appears to be offline."});
    });
}

}  // namespace drovel::platform
