#include "linux/SimulatedDevice.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unordered_set>

#include "drovel/core/Logger.h"

namespace drovel::platform {

namespace {

namespace fs = std::filesystem;

const core::Logger& logger() {
    static core::Logger logger("SimulatedDevice");
    return logger;
}

// Replaces the file with text through a temporary file and a rename, so that a crash leaves the
// old or the new file, never a mix. Returns the failure's text, or empty.
std::string replaceFile(const std::string& path, std::string_view text) {
    const std::string temporary = path + ".tmp";
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return "creating " + temporary + ": " + std::strerror(errno);
    std::string_view rest = text;
    while (!rest.empty()) {
        ssize_t written = ::write(fd, rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) break;
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    bool ok = rest.empty() && ::fsync(fd) == 0;
    int error = errno;
    ok = ::close(fd) == 0 && ok;
    if (ok && ::rename(temporary.c_str(), path.c_str()) == 0) return {};
    if (ok) error = errno;
    ::unlink(temporary.c_str());
    return "writing " + path + ": " + std::strerror(error);
}

core::Result<std::string> readSmallFile(const std::string& path) {
    std::error_code error;
    auto size = fs::file_size(path, error);
    if (error) return core::makeError<core::SimpleError>("cannot read " + path + ": " + error.message());
    if (size > kMaxDeviceFileBytes)
        return core::makeError<core::SimpleError>(path + " is too large (" + std::to_string(size) + " bytes)");
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in.good() && !in.eof()) return core::makeError<core::SimpleError>("cannot read " + path);
    return std::move(text).str();
}

bool mayMonitorRegions(const SimulatedDeviceState& state) {
    return state.locationServices && (state.location == AuthorizationStatus::authorizedAlways ||
                                      state.location == AuthorizationStatus::authorizedWhenInUse);
}

bool permitsNotifications(NotificationAuthorizationStatus status) {
    return NotificationSettings{status}.permitsNotifications();
}

bool beaconMatches(const Beacon& beacon, const std::string& uuid, std::optional<std::uint16_t> major,
                   std::optional<std::uint16_t> minor) {
    return sameUUID(beacon.uuid, uuid) && (!major || *major == beacon.major) && (!minor || *minor == beacon.minor);
}

// The lifecycle broadcasts of a move between two states, in the order a phone posts them.
std::vector<std::string_view> lifecycleBroadcasts(ApplicationState from, ApplicationState to) {
    using S = ApplicationState;
    namespace N = ApplicationNotification;
    std::vector<std::string_view> names;
    if (from == to) return names;
    if (from == S::active) names.push_back(N::willResignActive);
    if (from == S::background) names.push_back(N::willEnterForeground);
    if (to == S::active) names.push_back(N::didBecomeActive);
    if (to == S::background) names.push_back(N::didEnterBackground);
    return names;
}

// Unit vector of a coordinate, and back, for walking along the great circle.
struct Vector3 {
    double x, y, z;
};

Vector3 toVector(LocationCoordinate c) {
    double lat = c.latitude * M_PI / 180, lon = c.longitude * M_PI / 180;
    return {std::cos(lat) * std::cos(lon), std::cos(lat) * std::sin(lon), std::sin(lat)};
}

LocationCoordinate toCoordinate(Vector3 v) {
    return {std::atan2(v.z, std::hypot(v.x, v.y)) * 180 / M_PI, std::atan2(v.y, v.x) * 180 / M_PI};
}

// The point at fraction t of the way from a to b along the great circle.
LocationCoordinate interpolate(LocationCoordinate a, LocationCoordinate b, double t) {
    Vector3 va = toVector(a), vb = toVector(b);
    double dot = std::clamp(va.x * vb.x + va.y * vb.y + va.z * vb.z, -1.0, 1.0);
    double angle = std::acos(dot);
    if (angle < 1e-12) return b;
    double wa = std::sin((1 - t) * angle) / std::sin(angle), wb = std::sin(t * angle) / std::sin(angle);
    return toCoordinate({wa * va.x + wb * vb.x, wa * va.y + wb * vb.y, wa * va.z + wb * vb.z});
}

void applyProcessTimeZone(const std::string& zone) {
    if (zone.empty()) return;
    ::setenv("TZ", zone.c_str(), 1);
    ::tzset();
}

}  // namespace

core::Result<std::shared_ptr<SimulatedDevice>> SimulatedDevice::open(SimulatedDeviceOptions options) {
    if (options.directory.empty()) core::programmingError("SimulatedDevice::open needs a device folder");
    std::error_code error;
    fs::create_directories(fs::path(options.directory) / "ApplicationSupport", error);
    if (error)
        return core::makeError<core::SimpleError>("cannot create the device folder " + options.directory + ": " +
                                                  error.message());

    SimulatedDeviceState fresh;
    if (options.fresh) fresh = std::move(*options.fresh);
    else fresh.now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());

    const std::string path = (fs::path(options.directory) / stateFileName).string();
    SimulatedDeviceState state = fresh;
    if (fs::exists(path, error)) {
        auto text = readSmallFile(path);
        if (!text) return text.error();
        auto decoded = decodeSimulatedDeviceState(text.value(), std::move(fresh));
        if (!decoded) return core::makeError<core::SimpleError>(path + ": " + decoded.error()->description());
        state = std::move(decoded).value();
    }
    applyProcessTimeZone(state.timeZone);
    return std::shared_ptr<SimulatedDevice>(new SimulatedDevice(std::move(options), std::move(state)));
}

SimulatedDevice::SimulatedDevice(SimulatedDeviceOptions options, SimulatedDeviceState state)
    : directory_(std::move(options.directory)),
      notificationCenter_(std::move(options.notificationCenter)),
      flushDelay_(options.flushDelay),
      state_(std::move(state)) {
    for (const auto& pending : state_.pending) pendingIdentifiers_.insert(pending.request.identifier);
    // A new state file at once, so that the folder always shows the device it holds.
    version_ = 1;
    flush();
    writer_ = std::thread([this] { writerLoop(); });
}

SimulatedDevice::~SimulatedDevice() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changedCondition_.notify_all();
    writer_.join();
    flush();
}

std::string SimulatedDevice::userDefaultsPath() const { return (fs::path(directory_) / "UserDefaults.json").string(); }
std::string SimulatedDevice::applicationSupportDirectory() const {
    return (fs::path(directory_) / "ApplicationSupport").string();
}
std::string SimulatedDevice::statePath() const { return (fs::path(directory_) / stateFileName).string(); }

// ---- clock ----

std::chrono::steady_clock::time_point SimulatedDevice::steadyNow() const {
    std::lock_guard lock(mutex_);
    return steady_;
}

void SimulatedDevice::advance(std::chrono::nanoseconds duration) {
    if (duration <= std::chrono::nanoseconds::zero()) return;
    std::lock_guard lock(mutex_);
    state_.now += std::chrono::duration_cast<Date::duration>(duration);
    steady_ += std::chrono::duration_cast<std::chrono::steady_clock::duration>(duration);
    changed();
}

void SimulatedDevice::advanceTo(Date date) {
    std::lock_guard lock(mutex_);
    if (date <= state_.now) return;
    steady_ += std::chrono::duration_cast<std::chrono::steady_clock::duration>(date - state_.now);
    state_.now = date;
    changed();
}

void SimulatedDevice::setNow(Date date) {
    std::lock_guard lock(mutex_);
    state_.now = date;
    changed();
}

// ---- state ----

SimulatedDeviceState SimulatedDevice::state() const {
    std::lock_guard lock(mutex_);
    return state_;
}

void SimulatedDevice::apply(const SimulatedDeviceSettings& settings) {
    Events events;
    ApplicationState before, after;
    {
        std::lock_guard lock(mutex_);
        before = state_.appState;
        state_.apply(settings);
        after = state_.appState;
        if (settings.timeZone) applyProcessTimeZone(state_.timeZone);
        evaluateRegions(events);
        changed();
    }
    publish(events);
    if (notificationCenter_)
        for (auto name : lifecycleBroadcasts(before, after)) notificationCenter_->post(name);
}

void SimulatedDevice::setPosition(std::optional<LocationCoordinate> position) {
    SimulatedDeviceSettings settings;
    settings.position = position;
    apply(settings);
}

void SimulatedDevice::setBeacons(std::vector<Beacon> beacons) {
    SimulatedDeviceSettings settings;
    settings.beacons = std::move(beacons);
    apply(settings);
}

void SimulatedDevice::setAppState(ApplicationState appState) {
    SimulatedDeviceSettings settings;
    settings.appState = appState;
    apply(settings);
}

void SimulatedDevice::setOnline(bool online) {
    SimulatedDeviceSettings settings;
    settings.online = online;
    apply(settings);
}

void SimulatedDevice::walk(LocationCoordinate to, double speedMetersPerSecond) {
    std::optional<LocationCoordinate> from = position();
    if (!from || !(speedMetersPerSecond > 0) || !std::isfinite(speedMetersPerSecond)) return setPosition(to);
    const double distance = distanceBetween(*from, to);
    const double steps = std::clamp(std::ceil(distance / walkStepMeters), 1.0, 100000.0);
    const auto stepTime = std::chrono::duration<double>(distance / steps / speedMetersPerSecond);
    for (double step = 1; step <= steps; ++step) {
        Events events;
        {
            std::lock_guard lock(mutex_);
            auto duration = std::chrono::duration_cast<std::chrono::nanoseconds>(stepTime);
            state_.now += std::chrono::duration_cast<Date::duration>(duration);
            steady_ += std::chrono::duration_cast<std::chrono::steady_clock::duration>(duration);
            state_.position = step == steps ? to : interpolate(*from, to, step / steps);
            evaluateRegions(events);
            changed();
        }
        publish(events);
    }
}

template <class T>
T SimulatedDevice::read(T SimulatedDeviceState::*member) const {
    std::lock_guard lock(mutex_);
    return state_.*member;
}

bool SimulatedDevice::online() const { return read(&SimulatedDeviceState::online); }
ApplicationState SimulatedDevice::appState() const { return read(&SimulatedDeviceState::appState); }
std::optional<LocationCoordinate> SimulatedDevice::position() const { return read(&SimulatedDeviceState::position); }
NotificationAuthorizationStatus SimulatedDevice::notificationAuthorization() const {
    return read(&SimulatedDeviceState::notifications);
}
AuthorizationStatus SimulatedDevice::locationAuthorization() const { return read(&SimulatedDeviceState::location); }
bool SimulatedDevice::locationServicesEnabled() const { return read(&SimulatedDeviceState::locationServices); }
bool SimulatedDevice::rangingAvailable() const { return read(&SimulatedDeviceState::rangingAvailable); }
int SimulatedDevice::osVersion() const { return read(&SimulatedDeviceState::osVersion); }
std::vector<DeliveredNotification> SimulatedDevice::deliveredNotifications() const {
    return read(&SimulatedDeviceState::delivered);
}
Date SimulatedDevice::now() const { return read(&SimulatedDeviceState::now); }

std::vector<Beacon> SimulatedDevice::beaconsMatching(const BeaconIdentityConstraint& constraint) const {
    std::lock_guard lock(mutex_);
    std::vector<Beacon> found;
    for (Beacon beacon : state_.beacons) {
        if (!beaconMatches(beacon, constraint.uuid, constraint.major, constraint.minor)) continue;
        beacon.timestamp = state_.now;
        // A phone estimates the proximity and the signal from the distance (accuracy).
        if (beacon.accuracy < 0) {
            beacon.proximity = BeaconProximity::unknown;
        } else {
            beacon.proximity = beacon.accuracy < 0.5 ? BeaconProximity::immediate
                               : beacon.accuracy < 4 ? BeaconProximity::near
                                                     : BeaconProximity::far;
            beacon.rssi = -59 - static_cast<int>(std::lround(20 * std::log10(std::max(beacon.accuracy, 0.1))));
        }
        found.push_back(std::move(beacon));
    }
    // Nearest first; an unknown distance (negative) last.
    auto distance = [](const Beacon& b) { return b.accuracy < 0 ? INFINITY : b.accuracy; };
    std::stable_sort(found.begin(), found.end(),
                     [&](const Beacon& a, const Beacon& b) { return distance(a) < distance(b); });
    return found;
}

// ---- notification centre ----

bool SimulatedDevice::inside(const NotificationRequest& request) const {
    if (!request.trigger) return false;
    if (const auto* circle = std::get_if<CircularRegion>(&request.trigger->region))
        return state_.position && distanceBetween(circle->center, *state_.position) <= circle->radius;
    const auto& region = std::get<BeaconRegion>(request.trigger->region);
    return std::any_of(state_.beacons.begin(), state_.beacons.end(), [&](const Beacon& beacon) {
        return beaconMatches(beacon, region.uuid, region.major, region.minor);
    });
}

void SimulatedDevice::evaluateRegions(Events& events) {
    const bool monitoring = mayMonitorRegions(state_);
    std::vector<NotificationRequest> fired;
    std::erase_if(state_.pending, [&](PendingNotification& pending) {
        const bool wasInside = pending.inside;
        pending.inside = inside(pending.request);
        if (!monitoring || wasInside == pending.inside) return false;
        bool entry = true, exit = false;
        if (const auto* circle = std::get_if<CircularRegion>(&pending.request.trigger->region)) {
            entry = circle->notifyOnEntry;
            exit = circle->notifyOnExit;
        } else {
            const auto& beacon = std::get<BeaconRegion>(pending.request.trigger->region);
            entry = beacon.notifyOnEntry;
            exit = beacon.notifyOnExit;
        }
        if (!(pending.inside ? entry : exit)) return false;
        pendingIdentifiers_.erase(pending.request.identifier);
        fired.push_back(std::move(pending.request));
        return true;
    });
    for (auto& request : fired) deliver(std::move(request), events);
}

void SimulatedDevice::deliver(NotificationRequest request, Events& events) {
    if (!permitsNotifications(state_.notifications)) return;
    events.push_back({SimulatedDeviceEvent::Kind::delivered, state_.now, request, {}, {}});
    state_.delivered.push_back({std::move(request), state_.now});
    if (state_.delivered.size() > maxDelivered)
        state_.delivered.erase(state_.delivered.begin(),
                               state_.delivered.begin() + static_cast<std::ptrdiff_t>(state_.delivered.size() - maxDelivered));
}

core::ErrorPtr SimulatedDevice::addRequest(NotificationRequest request) {
    Events events;
    {
        std::lock_guard lock(mutex_);
        if (!permitsNotifications(state_.notifications))
            return core::makeError<UserNotificationError>(UserNotificationError::Code::notificationsNotAllowed);
        // The index spares a scan of a long pending list for every add of a new identifier.
        auto same = state_.pending.end();
        if (pendingIdentifiers_.count(request.identifier))
            same = std::find_if(state_.pending.begin(), state_.pending.end(),
                                [&](const auto& pending) { return pending.request.identifier == request.identifier; });
        if (same == state_.pending.end() && state_.pending.size() >= state_.pendingLimit)
            return core::makeError<SimulatedDeviceError>("The device already holds " +
                                                         std::to_string(state_.pendingLimit) +
                                                         " pending notification requests, the most it allows");
        if (observed_) events.push_back({SimulatedDeviceEvent::Kind::scheduled, state_.now, request, {}, {}});
        if (!request.trigger) {
            if (same != state_.pending.end()) {
                pendingIdentifiers_.erase(same->request.identifier);
                state_.pending.erase(same);
            }
            deliver(std::move(request), events);
        } else {
            // Inside already: only the next entry fires it.
            PendingNotification pending{std::move(request), false};
            pending.inside = inside(pending.request);
            pendingIdentifiers_.insert(pending.request.identifier);
            if (same != state_.pending.end()) *same = std::move(pending);
            else state_.pending.push_back(std::move(pending));
        }
        changed();
    }
    publish(events);
    return nullptr;
}

void SimulatedDevice::removePendingRequests(const std::vector<std::string>& identifiers) {
    Events events;
    {
        std::lock_guard lock(mutex_);
        std::vector<std::string> removed;
        const std::unordered_set<std::string_view> wanted(identifiers.begin(), identifiers.end());
        std::erase_if(state_.pending, [&](const PendingNotification& pending) {
            if (!wanted.count(pending.request.identifier)) return false;
            removed.push_back(pending.request.identifier);
            pendingIdentifiers_.erase(pending.request.identifier);
            return true;
        });
        if (removed.empty()) return;
        events.push_back({SimulatedDeviceEvent::Kind::removed, state_.now, {}, std::move(removed), {}});
        changed();
    }
    publish(events);
}

std::vector<NotificationRequest> SimulatedDevice::pendingRequests() const {
    std::lock_guard lock(mutex_);
    std::vector<NotificationRequest> requests;
    requests.reserve(state_.pending.size());
    for (const auto& pending : state_.pending) requests.push_back(pending.request);
    return requests;
}

std::optional<NotificationResponse> SimulatedDevice::tap(std::string_view identifier) {
    std::lock_guard lock(mutex_);
    auto& delivered = state_.delivered;
    auto it = identifier.empty() ? (delivered.empty() ? delivered.end() : std::prev(delivered.end()))
                                 : std::find_if(delivered.begin(), delivered.end(), [&](const auto& notification) {
                                       return notification.request.identifier == identifier;
                                   });
    if (it == delivered.end()) return std::nullopt;
    NotificationResponse response;
    response.request = std::move(it->request);
    response.date = it->date;
    delivered.erase(it);
    changed();
    return response;
}

void SimulatedDevice::removeAllDeliveredNotifications() {
    std::lock_guard lock(mutex_);
    state_.delivered.clear();
    changed();
}

void SimulatedDevice::openURL(std::string_view url) {
    SimulatedDeviceEvent event{SimulatedDeviceEvent::Kind::openedURL, now(), {}, {}, std::string(url)};
    publish({event});
}

// ---- observers ----

SimulatedDevice::ObserverId SimulatedDevice::addObserver(Observer observer) {
    std::lock_guard lock(observersMutex_);
    ObserverId id = nextObserver_++;
    observers_.emplace(id, std::make_shared<Observer>(std::move(observer)));
    observed_ = true;
    return id;
}

void SimulatedDevice::removeObserver(ObserverId id) {
    std::lock_guard lock(observersMutex_);
    observers_.erase(id);
    observed_ = !observers_.empty();
}

void SimulatedDevice::publish(const Events& events) {
    if (events.empty()) return;
    std::vector<std::shared_ptr<Observer>> observers;
    {
        std::lock_guard lock(observersMutex_);
        for (const auto& [id, observer] : observers_) observers.push_back(observer);
    }
    for (const auto& event : events)
        for (const auto& observer : observers) (*observer)(event);
}

// ---- persistence ----

void SimulatedDevice::changed() {
    ++version_;
    // Only an idle writer needs waking; a writer waiting for a pause looks at the version itself.
    if (writerIdle_) changedCondition_.notify_one();
}

void SimulatedDevice::writerLoop() {
    std::unique_lock lock(mutex_);
    // A failed write is tried again at the next change, not in a loop.
    std::uint64_t attempted = writtenVersion_;
    while (!stopping_) {
        writerIdle_ = true;
        changedCondition_.wait(lock, [&] { return stopping_ || version_ != attempted; });
        writerIdle_ = false;
        if (stopping_) break;
        // Let a burst of changes (a walk, a sync's adds) end before writing them all at once: wait
        // for a pause of flushDelay, but not longer than 50 such delays in all.
        const auto deadline = std::chrono::steady_clock::now() + 50 * flushDelay_;
        for (std::uint64_t seen = version_; std::chrono::steady_clock::now() < deadline; seen = version_) {
            changedCondition_.wait_for(lock, flushDelay_, [this] { return stopping_; });
            if (stopping_ || version_ == seen) break;
        }
        attempted = version_;
        lock.unlock();
        flush();
        lock.lock();
    }
}

bool SimulatedDevice::flush() {
    std::lock_guard writeLock(writeMutex_);
    std::optional<SimulatedDeviceState> snapshot;
    std::uint64_t version;
    {
        std::lock_guard lock(mutex_);
        version = version_;
        if (version == writtenVersion_) return true;
        // A copy costs the device's users less waiting than encoding under the lock.
        snapshot = state_;
    }
    const std::string text = encodeSimulatedDeviceState(*snapshot);
    snapshot.reset();
    std::string failure = replaceFile(statePath(), text);
    if (!failure.empty()) {
        logger().error("Failed to write the device state: " + failure, DROVEL_SOURCE("SimulatedDevice", "flush()"));
        return false;
    }
    std::lock_guard lock(mutex_);
    writtenVersion_ = version;
    return true;
}

bool SimulatedDevice::synchronize() { return flush(); }

}  // namespace drovel::platform
