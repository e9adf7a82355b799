#include "linux/NoDeviceLocationProvider.h"

namespace drovel::platform {

NoDeviceLocationProvider::NoDeviceLocationProvider(std::shared_ptr<MainQueue> mainQueue)
    : mainQueue_(std::move(mainQueue)) {}

void NoDeviceLocationProvider::report(std::function<void(LocationProvider&, LocationProviderDelegate&)> report) {
    mainQueue_->async([weakSelf = weak_from_this(), weakDelegate = delegate(), report = std::move(report)] {
        auto self = weakSelf.lock();
        auto delegate = weakDelegate.lock();
        if (self && delegate) report(*self, *delegate);
    });
}

void NoDeviceLocationProvider::requestLocation() {
    report([](LocationProvider& provider, LocationProviderDelegate& delegate) {
        delegate.locationManager(provider, core::makeError<LocationError>(LocationError::Code::locationUnknown));
    });
}

void NoDeviceLocationProvider::startRangingBeacons(const BeaconIdentityConstraint& satisfying) {
    report([satisfying](LocationProvider& provider, LocationProviderDelegate& delegate) {
        delegate.locationManager(provider, satisfying,
                                 core::makeError<LocationError>(LocationError::Code::rangingUnavailable));
    });
}

void NoDeviceLocationProvider::startRangingBeacons(const BeaconRegion& in) {
    report([in](LocationProvider& provider, LocationProviderDelegate& delegate) {
        delegate.locationManager(provider, in, core::makeError<LocationError>(LocationError::Code::rangingUnavailable));
    });
}

}  // namespace drovel::platform
