#include "linux/SimulatedLocationProvider.h"

namespace drovel::platform {

namespace {

BeaconIdentityConstraint constraintOf(const std::variant<BeaconIdentityConstraint, BeaconRegion>& target) {
    if (const auto* constraint = std::get_if<BeaconIdentityConstraint>(&target)) return *constraint;
    return std::get<BeaconRegion>(target).beaconIdentityConstraint();
}

core::ErrorPtr locationError(LocationError::Code code) { return core::makeError<LocationError>(code); }

void reportRangingFailure(LocationProvider& provider, LocationProviderDelegate& delegate,
                          const std::variant<BeaconIdentityConstraint, BeaconRegion>& target, LocationError::Code code) {
    if (const auto* constraint = std::get_if<BeaconIdentityConstraint>(&target))
        delegate.locationManager(provider, *constraint, locationError(code));
    else
        delegate.locationManager(provider, std::get<BeaconRegion>(target), locationError(code));
}

}  // namespace

SimulatedLocationProvider::SimulatedLocationProvider(std::shared_ptr<SimulatedDevice> device,
                                                     std::shared_ptr<MainQueue> mainQueue)
    : device_(std::move(device)), mainQueue_(std::move(mainQueue)) {}

std::size_t SimulatedLocationProvider::activeRangingCount() const {
    std::lock_guard lock(mutex_);
    return rangings_.size();
}

bool SimulatedLocationProvider::mayUseLocation() const {
    auto status = device_->locationAuthorization();
    return device_->locationServicesEnabled() &&
           (status == AuthorizationStatus::authorizedAlways || status == AuthorizationStatus::authorizedWhenInUse);
}

bool SimulatedLocationProvider::report(Report report) {
    auto weakDelegate = delegate();
    if (weakDelegate.expired()) return false;
    mainQueue_->async([weakSelf = weak_from_this(), weakDelegate, report = std::move(report)] {
        auto self = weakSelf.lock();
        auto delegate = weakDelegate.lock();
        if (self && delegate) report(*self, *delegate);
    });
    return true;
}

void SimulatedLocationProvider::requestLocation() {
    // Read when the report is made, as a phone answers with the position of that moment.
    auto device = device_;
    bool allowed = mayUseLocation();
    report([device, allowed](LocationProvider& provider, LocationProviderDelegate& delegate) {
        auto position = device->position();
        if (!allowed) return delegate.locationManager(provider, locationError(LocationError::Code::denied));
        if (!position) return delegate.locationManager(provider, locationError(LocationError::Code::locationUnknown));
        Location location;
        location.coordinate = *position;
        location.horizontalAccuracy = 10;
        location.verticalAccuracy = -1;
        location.timestamp = device->now();
        delegate.locationManager(provider, std::vector<Location>{location});
    });
}

void SimulatedLocationProvider::startRangingBeacons(const BeaconIdentityConstraint& satisfying) {
    startRanging(satisfying);
}

void SimulatedLocationProvider::startRangingBeacons(const BeaconRegion& in) { startRanging(in); }

void SimulatedLocationProvider::stopRangingBeacons(const BeaconIdentityConstraint& satisfying) {
    stopRanging(satisfying);
}

void SimulatedLocationProvider::stopRangingBeacons(const BeaconRegion& in) { stopRanging(in); }

void SimulatedLocationProvider::startRanging(Target target) {
    std::optional<LocationError::Code> failure;
    if (!device_->rangingAvailable()) failure = LocationError::Code::rangingUnavailable;
    else if (!mayUseLocation()) failure = LocationError::Code::denied;
    if (failure) {
        report([target, code = *failure](LocationProvider& provider, LocationProviderDelegate& delegate) {
            reportRangingFailure(provider, delegate, target, code);
        });
        return;
    }
    std::uint64_t id;
    {
        std::lock_guard lock(mutex_);
        // Starting a ranging that runs already leaves it running once.
        for (const auto& [running, runningTarget] : rangings_)
            if (runningTarget == target) return;
        id = nextRanging_++;
        rangings_.emplace(id, std::move(target));
    }
    mainQueue_->async([weakSelf = weak_from_this(), id] {
        if (auto self = weakSelf.lock()) self->rangingReport(id, 1);
    });
}

void SimulatedLocationProvider::stopRanging(const Target& target) {
    std::lock_guard lock(mutex_);
    std::erase_if(rangings_, [&](const auto& entry) { return entry.second == target; });
}

void SimulatedLocationProvider::rangingReport(std::uint64_t id, int count) {
    Target target;
    std::shared_ptr<LocationProviderDelegate> delegate;
    {
        std::lock_guard lock(mutex_);
        auto it = rangings_.find(id);
        if (it == rangings_.end()) return;
        target = it->second;
        delegate = this->delegate().lock();
        if (!delegate || count > kMaxRangingReports) rangings_.erase(it);
    }
    if (!delegate) return;
    if (count > kMaxRangingReports) return reportRangingFailure(*this, *delegate, target, LocationError::Code::rangingFailure);
    device_->advance(std::chrono::seconds(1));
    std::vector<Beacon> beacons = device_->beaconsMatching(constraintOf(target));
    if (const auto* constraint = std::get_if<BeaconIdentityConstraint>(&target))
        delegate->locationManager(*this, beacons, *constraint);
    else
        delegate->locationManager(*this, beacons, std::get<BeaconRegion>(target));
    mainQueue_->async([weakSelf = weak_from_this(), id, count] {
        if (auto self = weakSelf.lock()) self->rangingReport(id, count + 1);
    });
}

}  // namespace drovel::platform
