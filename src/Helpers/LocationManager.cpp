#include "Helpers/LocationManager.h"

#include "Helpers/UserDefaultsKey.h"
#include "data/ModuleLogger.h"
#include "drovel/notify/NotifyError.h"

namespace drovel::notify {

namespace {

constexpr std::string_view kFile = "Helpers/LocationManager";

void log(std::string_view message, core::LogSource source) { moduleLogger().verbose(message, source); }

}  // namespace

LocationManager::LocationManager(platform::Platform platform)
    : platform_(std::move(platform)), clMgr_(platform_.locationProvider) {
    if (!clMgr_) core::programmingError("LocationManager needs a location provider");
    lastLocation_ = notify::lastLocation(*platform_.userDefaults);
}

std::optional<platform::Location> LocationManager::lastLocation() const {
    std::lock_guard lock(mutex_);
    return lastLocation_;
}

core::ErrorPtr LocationManager::lastError() const {
    std::lock_guard lock(mutex_);
    return lastError_;
}

std::optional<LocationManager::BeaconResult> LocationManager::lastRangeResult() const {
    std::lock_guard lock(mutex_);
    return lastRangeResult_;
}

std::optional<platform::Date> LocationManager::lastRangeResultDate() const {
    std::lock_guard lock(mutex_);
    return lastRangeResultDate_;
}

// ---- position ----

void LocationManager::requestLocation(LocationCallback callback) {
    log("SyncDebug: requestLocation()", DROVEL_SOURCE(kFile, "requestLocation(callback:)"));
    {
        std::lock_guard lock(mutex_);
        lastError_ = nullptr;
        locationCallback_ = std::move(callback);
    }
    clMgr_->setDelegate(weak_from_this());
    clMgr_->setAllowsBackgroundLocationUpdates(false);
    clMgr_->setDesiredAccuracy(platform::kLocationAccuracyKilometer);
    clMgr_->requestLocation();
}

void LocationManager::locationManager(platform::LocationProvider&, const std::vector<platform::Location>& locations) {
    constexpr std::string_view function = "locationManager(_:didUpdateLocations:)";
    if (locations.empty()) {
        log("SyncDebug: locationManager didUpdateLocations error .locationUnknown", DROVEL_SOURCE(kFile, function));
        auto error = core::makeError<platform::LocationError>(platform::LocationError::Code::locationUnknown);
        {
            std::lock_guard lock(mutex_);
            lastError_ = error;
        }
        callLocationCallback(error);
        return;
    }
    const platform::Location& location = locations.back();
    log("SyncDebug: locationManager didUpdateLocations success", DROVEL_SOURCE(kFile, function));
    {
        std::lock_guard lock(mutex_);
        lastLocation_ = location;
    }
    setLastLocation(*platform_.userDefaults, location);
    callLocationCallback(location);
}

void LocationManager::locationManager(platform::LocationProvider&, core::ErrorPtr error) {
    log("SyncDebug: locationManager didFailWithError: " + (error ? error->description() : std::string("nil")),
        DROVEL_SOURCE(kFile, "locationManager(_:didFailWithError:)"));
    {
        std::lock_guard lock(mutex_);
        lastError_ = error;
    }
    callLocationCallback(error);
}

void LocationManager::callLocationCallback(LocationResult result) {
    log("SyncDebug: callLocationCallback()", DROVEL_SOURCE(kFile, "callLocationCallback(_:)"));
    LocationCallback callback;
    {
        std::lock_guard lock(mutex_);
        callback = std::exchange(locationCallback_, nullptr);
    }
    if (callback) callback(std::move(result));
}

// ---- ranging ----

void LocationManager::rangeForSiteIfNeeded(const std::optional<std::string>& uuid, BeaconCallback callback) {
    constexpr std::string_view function = "rangeForSiteIfNeeded(_:callback:)";
    if (!uuid) {
        log("SyncDebug: rangeForSiteIfNeeded.notifyModuleNotConfigured", DROVEL_SOURCE(kFile, function));
        callback(makeNotifyError(NotifyErrorType::notifyModuleNotConfigured));
        return;
    }
    std::optional<BeaconResult> reusable;
    {
        // lastRangeResultDate is never assigned, so this reuse never happens; the test is kept as
        // it stands so that a later change that stamps the date gets the intended 600 s reuse.
        std::lock_guard lock(mutex_);
        if (lastRangeResult_ && lastRangeResultDate_ &&
            *lastRangeResultDate_ + kRangeResultStalenessInterval > platform_.clock->now())
            reusable = lastRangeResult_;
    }
    if (reusable) {
        log("SyncDebug: lastRangeResultNotStale", DROVEL_SOURCE(kFile, function));
        callback(std::move(*reusable));
        return;
    }
    // A hop from the main queue to itself would wait forever: there the state counts as unread.
    std::optional<platform::ApplicationState> state;
    if (!platform_.mainQueue->isCurrent())
        state = platform_.mainQueue->sync([this] { return platform_.application->applicationState(); });
    if (state == platform::ApplicationState::active) {
        rangeForSite(*uuid, std::move(callback));
        return;
    }
    log("SyncDebug: Not ranging for beacons because app is in the background", DROVEL_SOURCE(kFile, function));
    callback(makeNotifyError(NotifyErrorType::beaconRangingDisabledInBackground));
}

void LocationManager::rangeForSite(const std::string& uuid, BeaconCallback callback) {
    constexpr std::string_view function = "rangeForSite(_:callback:)";
    log("SyncDebug: rangeForSite()", DROVEL_SOURCE(kFile, function));
    if (!clMgr_->isRangingAvailable()) {
        log("SyncDebug: CLLocationManager.isRangingAvailable() == false", DROVEL_SOURCE(kFile, function));
        callback(makeNotifyError(NotifyErrorType::beaconRangingNotAvailable));
        return;
    }
    clMgr_->setDelegate(weak_from_this());
    {
        std::lock_guard lock(mutex_);
        siteCallback_ = std::move(callback);
        rangeStart_ = platform_.clock->now();
    }
    if (platform_.systemMajorVersion >= 13) {
        log("SyncDebug: >= iOS 13 - startRangingBeacons", DROVEL_SOURCE(kFile, function));
        clMgr_->startRangingBeacons(platform::BeaconIdentityConstraint{uuid, std::nullopt, std::nullopt});
    } else {
        log("SyncDebug: < iOS 13 - startRangingBeacons", DROVEL_SOURCE(kFile, function));
        platform::BeaconRegion region;
        region.identifier = std::string(kBeaconRegionIdentifier);
        region.uuid = uuid;
        clMgr_->startRangingBeacons(region);
    }
}

void LocationManager::locationManager(platform::LocationProvider&, const std::vector<platform::Beacon>& beacons,
                                      const platform::BeaconIdentityConstraint& constraint) {
    log("SyncDebug: iOS 13 locationManager didRangeBeacons",
        DROVEL_SOURCE(kFile, "locationManager(_:didRange:satisfying:)"));
    didRange(beacons, [&] { clMgr_->stopRangingBeacons(constraint); });
}

void LocationManager::locationManager(platform::LocationProvider&, const std::vector<platform::Beacon>& beacons,
                                      const platform::BeaconRegion& region) {
    log("SyncDebug: iOS 11 locationManager didRangeBeacons",
        DROVEL_SOURCE(kFile, "locationManager(_:didRangeBeacons:in:)"));
    didRange(beacons, [&] { clMgr_->stopRangingBeacons(region); });
}

void LocationManager::didRange(const std::vector<platform::Beacon>& beacons, const std::function<void()>& stop) {
    constexpr std::string_view function = "locationManager(_:didRange:satisfying:)";
    if (!beacons.empty()) {
        log("SyncDebug: didRangeBeacons, beacon found", DROVEL_SOURCE(kFile, function));
        stop();
        answerSite(beacons.front());
        return;
    }
    log("SyncDebug: didRangeBeacons, no beacons found", DROVEL_SOURCE(kFile, function));
    bool rangingShouldExpire;
    {
        std::lock_guard lock(mutex_);
        rangingShouldExpire = rangeStart_ && *rangeStart_ + kRangingExpiry < platform_.clock->now();
    }
    if (rangingShouldExpire) {
        log("SyncDebug: didRangeBeacons, rangingShouldExpire == true, stopping ranging beacons",
            DROVEL_SOURCE(kFile, function));
        stop();
        answerSite(makeNotifyError(NotifyErrorType::noBeaconInRange));
    }
    // Written after every empty report, also right after the ranging was stopped; support staff
    // read the pair of lines that way.
    log("SyncDebug: didRangeBeacons, rangingShouldExpire == false, doing nothing", DROVEL_SOURCE(kFile, function));
}

void LocationManager::locationManager(platform::LocationProvider&, const platform::BeaconIdentityConstraint& constraint,
                                      core::ErrorPtr error) {
    log("SyncDebug: iOS 13 locationManager rangingBeaconsDidFail",
        DROVEL_SOURCE(kFile, "locationManager(_:didFailRangingFor:error:)"));
    didFailRanging(std::move(error), [&] { clMgr_->stopRangingBeacons(constraint); });
}

void LocationManager::locationManager(platform::LocationProvider&, const platform::BeaconRegion& region,
                                      core::ErrorPtr error) {
    log("SyncDebug: iOS 11 locationManager rangingBeaconsDidFail",
        DROVEL_SOURCE(kFile, "locationManager(_:rangingBeaconsDidFailFor:withError:)"));
    didFailRanging(std::move(error), [&] { clMgr_->stopRangingBeacons(region); });
}

void LocationManager::didFailRanging(core::ErrorPtr error, const std::function<void()>& stop) {
    stop();
    answerSite(std::move(error));
}

void LocationManager::answerSite(BeaconResult result) {
    BeaconCallback callback;
    {
        std::lock_guard lock(mutex_);
        if (!siteCallback_) return;
        callback = std::exchange(siteCallback_, nullptr);
        // Only an answered request leaves a result behind; rangeStart is deliberately kept.
        lastRangeResult_ = result;
    }
    callback(std::move(result));
}

}  // namespace drovel::notify
