#include "linux/SimulatedApplication.h"

namespace drovel::platform {

SimulatedApplication::SimulatedApplication(std::shared_ptr<SimulatedDevice> device,
                                           std::shared_ptr<MainQueue> mainQueue,
                                           std::shared_ptr<NotificationCenter> notificationCenter)
    : device_(std::move(device)),
      mainQueue_(mainQueue),
      headless_(std::make_shared<HeadlessApplication>(std::move(mainQueue), std::move(notificationCenter))) {}

void SimulatedApplication::open(std::string_view url, const OpenURLOptions& options, OpenCompletion completionHandler) {
    device_->openURL(url);
    if (completionHandler) mainQueue_->async([completion = std::move(completionHandler)] { completion(true); });
}

}  // namespace drovel::platform
