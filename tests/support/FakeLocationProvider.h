#pragma once
// A LocationProvider for tests: the test decides what the location service reports and when, and
// inspects every call made to it.
//
// Reports go to the delegate through the main queue given at construction (the test pumps it), or,
// without one, run at once on the thread that sends them. Create it with std::make_shared.

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "drovel/platform/LocationProvider.h"
#include "drovel/platform/MainQueue.h"

namespace drovel::testing {

class FakeLocationProvider : public platform::LocationProvider,
                             public std::enable_shared_from_this<FakeLocationProvider> {
public:
    // An automatic answer to every requestLocation(): positions, or a failure.
    using LocationAnswer = std::variant<std::vector<platform::Location>, core::ErrorPtr>;

    explicit FakeLocationProvider(std::shared_ptr<platform::MainQueue> mainQueue = nullptr);

    void setDelegate(std::weak_ptr<platform::LocationProviderDelegate> delegate) override;
    std::weak_ptr<platform::LocationProviderDelegate> delegate() const override;
    void setAllowsBackgroundLocationUpdates(bool allows) override;
    bool allowsBackgroundLocationUpdates() const override;
    void setDesiredAccuracy(double accuracy) override;
    double desiredAccuracy() const override;
    bool isRangingAvailable() const override;
    bool locationServicesEnabled() const override;
    platform::AuthorizationStatus authorizationStatus() const override;
    void requestLocation() override;
    void startRangingBeacons(const platform::BeaconIdentityConstraint& satisfying) override;
    void startRangingBeacons(const platform::BeaconRegion& in) override;
    void stopRangingBeacons(const platform::BeaconIdentityConstraint& satisfying) override;
    void stopRangingBeacons(const platform::BeaconRegion& in) override;

    // ---- scripting (defaults: ranging available, services on, authorizedAlways) ----
    void setRangingAvailable(bool available);
    void setLocationServicesEnabled(bool enabled);
    void setAuthorizationStatus(platform::AuthorizationStatus status);
    // Answers every later requestLocation() with this report; none: requests wait for the test.
    void setLocationAnswer(std::optional<LocationAnswer> answer);

    // ---- reports, sent to the delegate ----
    void reportLocations(std::vector<platform::Location> locations);
    void reportLocationFailure(core::ErrorPtr error);
    void reportRange(std::vector<platform::Beacon> beacons, platform::BeaconIdentityConstraint constraint);
    void reportRangingFailure(platform::BeaconIdentityConstraint constraint, core::ErrorPtr error);
    void reportRangeBeacons(std::vector<platform::Beacon> beacons, platform::BeaconRegion region);

    // ---- inspection ----
    // Every call in order, as text: "requestLocation()", "setDesiredAccuracy(1000)",
    // "setAllowsBackgroundLocationUpdates(false)", "setDelegate", "isRangingAvailable()",
    // "startRangingBeacons(satisfying: <uuid>)", "stopRangingBeacons(in: <identifier>)", ...
    std::vector<std::string> calls() const;
    std::size_t callCount(std::string_view call) const;
    std::size_t requestLocationCount() const { return callCount("requestLocation()"); }
    // Constraints being ranged now (started and not stopped).
    std::vector<platform::BeaconIdentityConstraint> rangedConstraints() const;

private:
    void record(std::string call) const;
    void send(std::function<void(platform::LocationProvider&, platform::LocationProviderDelegate&)> report);

    std::shared_ptr<platform::MainQueue> mainQueue_;
    mutable std::mutex mutex_;
    mutable std::vector<std::string> calls_;
    std::weak_ptr<platform::LocationProviderDelegate> delegate_;
    bool allowsBackground_ = false;
    double desiredAccuracy_ = platform::kLocationAccuracyBest;
    bool rangingAvailable_ = true;
    bool servicesEnabled_ = true;
    platform::AuthorizationStatus status_ = platform::AuthorizationStatus::authorizedAlways;
    std::optional<LocationAnswer> locationAnswer_;
    std::vector<platform::BeaconIdentityConstraint> rangedConstraints_;
};

}  // namespace drovel::testing
