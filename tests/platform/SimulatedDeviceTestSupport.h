#pragma once
// What the platform tests share.

#include <memory>
#include <string>
#include <vector>

#include "drovel/platform/LocationProvider.h"
#include "linux/SimulatedDevice.h"

namespace drovel::platform::simulated {

inline constexpr const char* kUUID = "E2C56DB5-DFFB-48D2-B060-D0F5A71096E0";
inline const Date kStart = Date(std::chrono::seconds(1795269600));  // 2026-11-21T14:00:00Z

// Settings that change one thing: changing(&SimulatedDeviceSettings::online, false).
template <class Value, class Given>
SimulatedDeviceSettings changing(std::optional<Value> SimulatedDeviceSettings::*setting, Given value) {
    SimulatedDeviceSettings settings;
    settings.*setting = Value(value);
    return settings;
}

// Keeps the reports of a location service, with the device time they arrived at (none without a
// device).
class ReportLog : public LocationProviderDelegate {
public:
    explicit ReportLog(std::shared_ptr<SimulatedDevice> device = nullptr) : device_(std::move(device)) {}

    void locationManager(LocationProvider&, const std::vector<Location>& locations) override {
        positions.push_back(locations);
    }
    void locationManager(LocationProvider&, core::ErrorPtr error) override { failures.push_back(error->description()); }
    void locationManager(LocationProvider& provider, const std::vector<Beacon>& beacons,
                         const BeaconIdentityConstraint& constraint) override {
        ranges.push_back({beacons, device_ ? device_->now() : Date{}});
        if (stopAfter && ranges.size() >= *stopAfter) provider.stopRangingBeacons(constraint);
    }
    void locationManager(LocationProvider&, const BeaconIdentityConstraint&, core::ErrorPtr error) override {
        failures.push_back(error->description());
    }
    void locationManager(LocationProvider& provider, const std::vector<Beacon>& beacons, const BeaconRegion& region) override {
        ranges.push_back({beacons, device_ ? device_->now() : Date{}});
        provider.stopRangingBeacons(region);
    }
    void locationManager(LocationProvider&, const BeaconRegion&, core::ErrorPtr error) override {
        failures.push_back(error->description());
    }

    struct Range {
        std::vector<Beacon> beacons;
        Date at;
    };
    std::vector<std::vector<Location>> positions;
    std::vector<Range> ranges;
    std::vector<std::string> failures;
    std::optional<std::size_t> stopAfter;

private:
    std::shared_ptr<SimulatedDevice> device_;
};

}  // namespace drovel::platform::simulated
