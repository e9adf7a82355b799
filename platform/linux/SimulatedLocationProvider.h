#pragma once
// The simulated device's location service: positions and beacon ranging answered from the
// device's state. Reports go to the delegate on the main queue, never inside the call.
//
// A position request answers with the device's position (accuracy 10 m, stamped with the device's
// time), locationUnknown when the position is unknown, or denied when location services are off or
// the app may not use location. Ranging reports the matching beacons in range, nearest first,
// about once a second of simulated time: each report moves the device's clock one second forward
// first. Ranging fails at once with rangingUnavailable when the device cannot range, or denied
// when the app may not use location. A ranging that nobody stops fails with rangingFailure after
// kMaxRangingReports reports, and one whose delegate is gone stops, so a simulation never keeps
// the clock running by itself.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <variant>

#include "drovel/platform/LocationProvider.h"
#include "linux/LocationProviderSettings.h"
#include "drovel/platform/MainQueue.h"
#include "linux/SimulatedDevice.h"

namespace drovel::platform {

// Owned through a shared_ptr (reports are dropped once the provider is gone).
class SimulatedLocationProvider final : public LocationProviderSettings,
                                        public std::enable_shared_from_this<SimulatedLocationProvider> {
public:
    static constexpr int kMaxRangingReports = 60;

    SimulatedLocationProvider(std::shared_ptr<SimulatedDevice> device, std::shared_ptr<MainQueue> mainQueue);

    bool isRangingAvailable() const override { return device_->rangingAvailable(); }
    bool locationServicesEnabled() const override { return device_->locationServicesEnabled(); }
    AuthorizationStatus authorizationStatus() const override { return device_->locationAuthorization(); }

    void requestLocation() override;
    void startRangingBeacons(const BeaconIdentityConstraint& satisfying) override;
    void startRangingBeacons(const BeaconRegion& in) override;
    void stopRangingBeacons(const BeaconIdentityConstraint& satisfying) override;
    void stopRangingBeacons(const BeaconRegion& in) override;

    // The rangings running now.
    std::size_t activeRangingCount() const;

private:
    using Target = std::variant<BeaconIdentityConstraint, BeaconRegion>;
    using Report = std::function<void(LocationProvider&, LocationProviderDelegate&)>;

    // Queues report on the main queue for the delegate of the moment; false when there is none.
    bool report(Report report);
    bool mayUseLocation() const;
    void startRanging(Target target);
    void stopRanging(const Target& target);
    // Sends report number `count` of the ranging `id`, then queues the next one.
    void rangingReport(std::uint64_t id, int count);

    std::shared_ptr<SimulatedDevice> device_;
    std::shared_ptr<MainQueue> mainQueue_;
    mutable std::mutex mutex_;
    std::map<std::uint64_t, Target> rangings_;
    std::uint64_t nextRanging_ = 1;
};

}  // namespace drovel::platform
