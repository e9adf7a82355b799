#pragma once
// The location service of a host without positioning hardware. It says so rather than inventing a
// position: location services are off, authorisation is notDetermined, ranging is unavailable,
// a position request fails with locationUnknown and a ranging request with rangingUnavailable.
// (The simulated device answers from a simulated position instead.) Reports go to the delegate
// on the main queue.

#include <memory>
#include <mutex>

#include "drovel/platform/LocationProvider.h"
#include "linux/LocationProviderSettings.h"
#include "drovel/platform/MainQueue.h"

namespace drovel::platform {

// Owned through a shared_ptr (reports are dropped once the provider is gone).
class NoDeviceLocationProvider final : public LocationProviderSettings,
                                       public std::enable_shared_from_this<NoDeviceLocationProvider> {
public:
    explicit NoDeviceLocationProvider(std::shared_ptr<MainQueue> mainQueue);

    bool isRangingAvailable() const override { return false; }
    bool locationServicesEnabled() const override { return false; }
    AuthorizationStatus authorizationStatus() const override { return AuthorizationStatus::notDetermined; }

    void requestLocation() override;
    void startRangingBeacons(const BeaconIdentityConstraint& satisfying) override;
    void startRangingBeacons(const BeaconRegion& in) override;
    void stopRangingBeacons(const BeaconIdentityConstraint& satisfying) override {}
    void stopRangingBeacons(const BeaconRegion& in) override {}

private:
    // Queues report(delegate) on the main queue for the delegate of the moment, if it still exists.
    void report(std::function<void(LocationProvider&, LocationProviderDelegate&)> report);

    std::shared_ptr<MainQueue> mainQueue_;
};

}  // namespace drovel::platform
