#pragma once
// The location service: one-shot positions, beacon ranging, and the authorisation probes.

#include <memory>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/platform/Location.h"

namespace drovel::platform {

class LocationProvider;

// Receives the location service's reports, always on the main queue. Each overload is one report;
// the parameter names are the reports' names.
class LocationProviderDelegate {
public:
    virtual ~LocationProviderDelegate() = default;

    // New positions, oldest first (may be empty).
    virtual void locationManager(LocationProvider& manager, const std::vector<Location>& didUpdateLocations) = 0;
    // A position request failed.
    virtual void locationManager(LocationProvider& manager, core::ErrorPtr didFailWithError) = 0;
    // A ranging report for a constraint: the beacons in range, nearest first (may be empty).
    virtual void locationManager(LocationProvider& manager, const std::vector<Beacon>& didRange,
                                 const BeaconIdentityConstraint& satisfying) = 0;
    // Ranging for a constraint failed.
    virtual void locationManager(LocationProvider& manager, const BeaconIdentityConstraint& didFailRangingFor,
                                 core::ErrorPtr error) = 0;
    // A ranging report for a region (the older form of ranging).
    virtual void locationManager(LocationProvider& manager, const std::vector<Beacon>& didRangeBeacons,
                                 const BeaconRegion& in) = 0;
    // Ranging for a region failed (the older form of ranging).
    virtual void locationManager(LocationProvider& manager, const BeaconRegion& rangingBeaconsDidFailFor,
                                 core::ErrorPtr withError) = 0;
    // The app's authorisation changed.
    virtual void locationManagerDidChangeAuthorization(LocationProvider& manager) {}
};

// Any thread may call every operation. Reports go to the delegate on the main queue, never inside
// the call that caused them. The provider holds its delegate weakly.
class LocationProvider {
public:
    virtual ~LocationProvider() = default;

    virtual void setDelegate(std::weak_ptr<LocationProviderDelegate> delegate) = 0;
    virtual std::weak_ptr<LocationProviderDelegate> delegate() const = 0;
    virtual void setAllowsBackgroundLocationUpdates(bool allows) = 0;
    virtual bool allowsBackgroundLocationUpdates() const = 0;
    // Metres (kLocationAccuracyKilometer, ...).
    virtual void setDesiredAccuracy(double accuracy) = 0;
    virtual double desiredAccuracy() const = 0;

    // Whether the device can range beacons at all.
    virtual bool isRangingAvailable() const = 0;
    // Whether location services are on for the device.
    virtual bool locationServicesEnabled() const = 0;
    // The app's location authorisation.
    virtual AuthorizationStatus authorizationStatus() const = 0;

    // Asks for one position; the delegate gets exactly one report: new positions or a failure.
    virtual void requestLocation() = 0;
    // Ranges until stopped; the delegate gets a report about once a second, or one failure.
    virtual void startRangingBeacons(const BeaconIdentityConstraint& satisfying) = 0;
    virtual void startRangingBeacons(const BeaconRegion& in) = 0;
    virtual void stopRangingBeacons(const BeaconIdentityConstraint& satisfying) = 0;
    virtual void stopRangingBeacons(const BeaconRegion& in) = 0;
};

}  // namespace drovel::platform
