#pragma once
// The module's single adapter to the location service: one position for a campaign sync, and a
// few seconds of beacon ranging to find the site the device stands at. It is the delegate of the
// platform's LocationProvider (the provider holds it weakly), so it is always made with
// std::make_shared.
//
// Threads: the provider reports on the main queue. requestLocation and rangeForSite may be called
// from any thread; rangeForSiteIfNeeded reads the application state with a synchronous hop to the
// main queue, so it must be called off the main queue (from the manager's serial queue); called on
// the main queue it treats the state as unread and answers "disabled in background". Callers keep
// at most one position request and one ranging request outstanding. Callbacks run on the main queue
// (or at once, on the caller's thread, for the answers given without asking the provider).
//
// Every step is logged at verbose level under "Helpers/LocationManager", beginning "SyncDebug: ".

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/platform/LocationProvider.h"
#include "drovel/platform/Platform.h"

namespace drovel::notify {

class LocationManager : public platform::LocationProviderDelegate,
                        public std::enable_shared_from_this<LocationManager> {
public:
    using LocationResult = core::Result<platform::Location>;
    using BeaconResult = core::Result<platform::Beacon>;
    using LocationCallback = std::function<void(LocationResult)>;
    using BeaconCallback = std::function<void(BeaconResult)>;

    // How long a range result may be reused by rangeForSiteIfNeeded.
    static constexpr std::chrono::seconds kRangeResultStalenessInterval{600};
    // An empty ranging report later than this after the start ends the ranging with "no beacon".
    static constexpr std::chrono::seconds kRangingExpiry{5};
    // Identifier of the beacon region ranged on systems before version 13.
    static constexpr std::string_view kBeaconRegionIdentifier = "DrovelNotify.Site";

    // Uses the platform's location provider, user defaults, clock, main queue, application and
    // system version. Restores lastLocation from "DrovelNotify.lastLocation". Does not become the
    // provider's delegate yet: each request does that.
    explicit LocationManager(platform::Platform platform);

    std::optional<platform::Location> lastLocation() const;
    core::ErrorPtr lastError() const;
    std::optional<BeaconResult> lastRangeResult() const;
    // Never assigned (see rangeForSiteIfNeeded): stays absent for the life of the object.
    std::optional<platform::Date> lastRangeResultDate() const;

    // Asks for one position. Replaces (without calling) a request still pending. The callback runs
    // once, from the provider's first report.
    void requestLocation(LocationCallback callback);
    // Ranges for a beacon of uuid unless: no uuid (notifyModuleNotConfigured), a fresh earlier
    // result (reused as it is), or an application that is not active
    // (beaconRangingDisabledInBackground).
    void rangeForSiteIfNeeded(const std::optional<std::string>& uuid, BeaconCallback callback);
    // Ranges for the first beacon of uuid; answers beaconRangingNotAvailable at once when the device
    // cannot range, noBeaconInRange for the first empty report more than 5 s after the start.
    void rangeForSite(const std::string& uuid, BeaconCallback callback);

    // ---- LocationProviderDelegate ----
    void locationManager(platform::LocationProvider& manager,
                         const std::vector<platform::Location>& didUpdateLocations) override;
    void locationManager(platform::LocationProvider& manager, core::ErrorPtr didFailWithError) override;
    void locationManager(platform::LocationProvider& manager, const std::vector<platform::Beacon>& didRange,
                         const platform::BeaconIdentityConstraint& satisfying) override;
    void locationManager(platform::LocationProvider& manager, const platform::BeaconIdentityConstraint& didFailRangingFor,
                         core::ErrorPtr error) override;
    void locationManager(platform::LocationProvider& manager, const std::vector<platform::Beacon>& didRangeBeacons,
                         const platform::BeaconRegion& in) override;
    void locationManager(platform::LocationProvider& manager, const platform::BeaconRegion& rangingBeaconsDidFailFor,
                         core::ErrorPtr withError) override;
    void locationManagerDidChangeAuthorization(platform::LocationProvider& manager) override {}

private:
    // Delivers a position result to the pending request, if any, clearing it first.
    void callLocationCallback(LocationResult result);
    // Shared by both forms of ranging report; stop stops the ranging that was reported.
    void didRange(const std::vector<platform::Beacon>& beacons, const std::function<void()>& stop);
    void didFailRanging(core::ErrorPtr error, const std::function<void()>& stop);
    // Takes the pending ranging callback, records result as the last range result, and answers.
    void answerSite(BeaconResult result);

    platform::Platform platform_;
    mutable std::mutex mutex_;
    std::optional<platform::Location> lastLocation_;
    core::ErrorPtr lastError_;
    std::optional<BeaconResult> lastRangeResult_;
    std::optional<platform::Date> lastRangeResultDate_;
    std::shared_ptr<platform::LocationProvider> clMgr_;
    LocationCallback locationCallback_;
    BeaconCallback siteCallback_;
    std::optional<platform::Date> rangeStart_;
};

}  // namespace drovel::notify
