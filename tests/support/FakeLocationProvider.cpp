#include "support/FakeLocationProvider.h"
#include "support/Locked.h"

#include <algorithm>

namespace drovel::testing {

using namespace platform;

namespace {

std::string numberText(double value) {
    std::string text = std::to_string(value);
    // "1000.000000" -> "1000"
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
}

}  // namespace

FakeLocationProvider::FakeLocationProvider(std::shared_ptr<MainQueue> mainQueue) : mainQueue_(std::move(mainQueue)) {}

void FakeLocationProvider::record(std::string call) const {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
}

void FakeLocationProvider::send(std::function<void(LocationProvider&, LocationProviderDelegate&)> report) {
    auto deliver = [self = shared_from_this(), report = std::move(report)] {
        if (auto delegate = self->delegate().lock()) report(*self, *delegate);
    };
    if (mainQueue_) {
        mainQueue_->async(std::move(deliver));
    } else {
        deliver();
    }
}

void FakeLocationProvider::setDelegate(std::weak_ptr<LocationProviderDelegate> delegate) {
    record("setDelegate");
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
}

std::weak_ptr<LocationProviderDelegate> FakeLocationProvider::delegate() const { return lockedCopy(mutex_, delegate_); }

void FakeLocationProvider::setAllowsBackgroundLocationUpdates(bool allows) {
    record(std::string("setAllowsBackgroundLocationUpdates(") + (allows ? "true" : "false") + ")");
    std::lock_guard lock(mutex_);
    allowsBackground_ = allows;
}

bool FakeLocationProvider::allowsBackgroundLocationUpdates() const { return lockedCopy(mutex_, allowsBackground_); }

void FakeLocationProvider::setDesiredAccuracy(double accuracy) {
    record("setDesiredAccuracy(" + numberText(accuracy) + ")");
    std::lock_guard lock(mutex_);
    desiredAccuracy_ = accuracy;
}

double FakeLocationProvider::desiredAccuracy() const { return lockedCopy(mutex_, desiredAccuracy_); }

bool FakeLocationProvider::isRangingAvailable() const {
    record("isRangingAvailable()");
    std::lock_guard lock(mutex_);
    return rangingAvailable_;
}

bool FakeLocationProvider::locationServicesEnabled() const { return lockedCopy(mutex_, servicesEnabled_); }

AuthorizationStatus FakeLocationProvider::authorizationStatus() const { return lockedCopy(mutex_, status_); }

void FakeLocationProvider::requestLocation() {
    record("requestLocation()");
    std::optional<LocationAnswer> answer;
    {
        std::lock_guard lock(mutex_);
        answer = locationAnswer_;
    }
    if (!answer) return;
    if (auto* locations = std::get_if<std::vector<Location>>(&*answer)) {
        reportLocations(*locations);
    } else {
        reportLocationFailure(std::get<core::ErrorPtr>(*answer));
    }
}

void FakeLocationProvider::startRangingBeacons(const BeaconIdentityConstraint& satisfying) {
    record("startRangingBeacons(satisfying: " + satisfying.uuid + ")");
    std::lock_guard lock(mutex_);
    rangedConstraints_.push_back(satisfying);
}

void FakeLocationProvider::startRangingBeacons(const BeaconRegion& in) { record("startRangingBeacons(in: " + in.identifier + ")"); }

void FakeLocationProvider::stopRangingBeacons(const BeaconIdentityConstraint& satisfying) {
    record("stopRangingBeacons(satisfying: " + satisfying.uuid + ")");
    std::lock_guard lock(mutex_);
    std::erase(rangedConstraints_, satisfying);
}

void FakeLocationProvider::stopRangingBeacons(const BeaconRegion& in) { record("stopRangingBeacons(in: " + in.identifier + ")"); }

void FakeLocationProvider::setRangingAvailable(bool available) { lockedAssign(mutex_, rangingAvailable_, available); }

void FakeLocationProvider::setLocationServicesEnabled(bool enabled) { lockedAssign(mutex_, servicesEnabled_, enabled); }

void FakeLocationProvider::setAuthorizationStatus(AuthorizationStatus status) { lockedAssign(mutex_, status_, status); }

void FakeLocationProvider::setLocationAnswer(std::optional<LocationAnswer> answer) { lockedAssign(mutex_, locationAnswer_, std::move(answer)); }

void FakeLocationProvider::reportLocations(std::vector<Location> locations) {
    send([locations = std::move(locations)](LocationProvider& provider, LocationProviderDelegate& delegate) {
        delegate.locationManager(provider, locations);
    });
}

void FakeLocationProvider::reportLocationFailure(core::ErrorPtr error) {
    send([error = std::move(error)](LocationProvider& provider, LocationProviderDelegate& delegate) {
        delegate.locationManager(provider, error);
    });
}

void FakeLocationProvider::reportRange(std::vector<Beacon> beacons, BeaconIdentityConstraint constraint) {
    send([beacons = std::move(beacons), constraint = std::move(constraint)](LocationProvider& provider,
                                                                            LocationProviderDelegate& delegate) {
        delegate.locationManager(provider, beacons, constraint);
    });
}

void FakeLocationProvider::reportRangingFailure(BeaconIdentityConstraint constraint, core::ErrorPtr error) {
    send([constraint = std::move(constraint), error = std::move(error)](LocationProvider& provider,
                                                                        LocationProviderDelegate& delegate) {
        delegate.locationManager(provider, constraint, error);
    });
}

void FakeLocationProvider::reportRangeBeacons(std::vector<Beacon> beacons, BeaconRegion region) {
    send([beacons = std::move(beacons), region = std::move(region)](LocationProvider& provider,
                                                                    LocationProviderDelegate& delegate) {
        delegate.locationManager(provider, beacons, region);
    });
}

std::vector<std::string> FakeLocationProvider::calls() const { return lockedCopy(mutex_, calls_); }

std::size_t FakeLocationProvider::callCount(std::string_view call) const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count(calls_.begin(), calls_.end(), call));
}

std::vector<BeaconIdentityConstraint> FakeLocationProvider::rangedConstraints() const { return lockedCopy(mutex_, rangedConstraints_); }

}  // namespace drovel::testing
