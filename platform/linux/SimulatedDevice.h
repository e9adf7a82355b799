#pragma once
// A simulated phone: its clock, position, beacons, permissions, app state, connectivity, and the
// notification centre's pending and delivered requests, kept in a device folder.
//
// Device folder: "<dir>/Device.json" holds the state (SimulatedDeviceState.h describes the form),
// "<dir>/UserDefaults.json" the user defaults, "<dir>/ApplicationSupport" the app's files (the
// same layout as the Linux platform's data folder). The state file is rewritten atomically once the
// changes pause for flushDelay (at the latest 50 flushDelays after a change, so a process killed
// in a burst loses at most that much), at synchronize() and at destruction.
//
// Time is simulated: nothing moves the clock except advance(), advanceTo(), setNow(), a walk, and
// ranging (each ranging report moves the clock one second, as a phone reports about once a second).
//
// Triggers: a pending request with a circular region fires when the position moves from outside
// its circle to inside (great-circle distance); one with a beacon region fires when a beacon with
// its UUID (and major, and minor, where the region has them) comes into range. A request added
// while the device is already inside its region fires at the next entry, not at once. Regions fire
// only while location services are on and the app may use location (always or when in use), as
// region monitoring does on a phone. A fired request leaves the pending list for good (the module
// never asks for repeating triggers) and joins the delivered list; when notifications are not
// permitted at that moment it is consumed without being shown. A request without a trigger is
// delivered when added.
//
// Thread-safe. Observers are called on the thread that made the change, after the change, with no
// lock of the device held; they may call the device.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/platform/NotificationCenter.h"
#include "linux/SimulatedDeviceState.h"

namespace drovel::platform {

// Why the device refused to schedule a request.
class SimulatedDeviceError : public core::Error {
public:
    explicit SimulatedDeviceError(std::string text) : text_(std::move(text)) {}
    std::string description() const override { return text_; }

private:
    std::string text_;
};

// Something the device did that a scenario shows.
struct SimulatedDeviceEvent {
    enum class Kind {
        scheduled,  // a request was added (or replaced a pending one); request is set
        removed,    // pending requests were removed by the app; identifiers lists those that were pending
        delivered,  // a request fired and was shown; request is set
        openedURL,  // the app asked the system to open url
    };
    Kind kind;
    Date date;
    NotificationRequest request;
    std::vector<std::string> identifiers;
    std::string url;
};

struct SimulatedDeviceOptions {
    // The device folder; created when missing.
    std::string directory;
    // Receives the app's lifecycle broadcasts when the app state changes; may be empty.
    std::shared_ptr<NotificationCenter> notificationCenter;
    // The state of a device folder that has no state file yet; its clock is the time of creation
    // (to the second) unless `fresh` sets one.
    std::optional<SimulatedDeviceState> fresh;
    std::chrono::milliseconds flushDelay{10};
};

class SimulatedDevice {
public:
    using Observer = std::function<void(const SimulatedDeviceEvent& event)>;
    using ObserverId = std::uint64_t;

    // The name of the state file in the device folder.
    static constexpr std::string_view stateFileName = "Device.json";
    // The most notifications the delivered list keeps; older ones drop off, as on a phone.
    static constexpr std::size_t maxDelivered = 500;
    // A walk moves in steps of at most this many metres, so that every circle it crosses with a
    // radius from about this size up fires on the way.
    static constexpr double walkStepMeters = 10;

    // Opens the folder, reading its state file when there is one. Fails with a message naming the
    // file when the folder cannot be made or the state file cannot be read or is malformed.
    static core::Result<std::shared_ptr<SimulatedDevice>> open(SimulatedDeviceOptions options);
    // Writes pending changes.
    ~SimulatedDevice();
    SimulatedDevice(const SimulatedDevice&) = delete;
    SimulatedDevice& operator=(const SimulatedDevice&) = delete;

    const std::string& directory() const { return directory_; }
    std::string userDefaultsPath() const;
    std::string applicationSupportDirectory() const;
    std::string statePath() const;

    // ---- clock ----
    Date now() const;
    // Starts at an arbitrary point and moves with advance(), advanceTo() and walks only.
    std::chrono::steady_clock::time_point steadyNow() const;
    // Moves the clock forward (a negative duration does nothing).
    void advance(std::chrono::nanoseconds duration);
    // Moves the clock forward to date; an earlier date does nothing.
    void advanceTo(Date date);
    // Sets the wall-clock time, forward or back, as a user does in the settings; the steady time
    // does not move.
    void setNow(Date date);

    // ---- state ----
    // A copy of the whole state.
    SimulatedDeviceState state() const;
    // Applies the present settings, then looks at the regions again (a new position or new
    // beacons may fire requests). A time zone also becomes the process's (TZ), since the module
    // does its calendar arithmetic in the process's local time. A new app state posts the
    // lifecycle broadcasts (becoming active: UIApplicationDidBecomeActiveNotification; entering
    // the background: UIApplicationDidEnterBackgroundNotification) on the calling thread.
    void apply(const SimulatedDeviceSettings& settings);
    void setPosition(std::optional<LocationCoordinate> position);
    // Walks from the current position to `to` at the given speed, along the great circle, in steps
    // of at most walkStepMeters (and at most 100000 steps), moving the clock by each step's time
    // and firing the regions crossed on the way. Without a known position, or with a speed that
    // is not a positive number, the device moves there at once.
    void walk(LocationCoordinate to, double speedMetersPerSecond);
    void setBeacons(std::vector<Beacon> beacons);
    void setAppState(ApplicationState state);
    void setOnline(bool online);

    // Convenience reads of the state.
    bool online() const;
    ApplicationState appState() const;
    std::optional<LocationCoordinate> position() const;
    NotificationAuthorizationStatus notificationAuthorization() const;
    AuthorizationStatus locationAuthorization() const;
    bool locationServicesEnabled() const;
    bool rangingAvailable() const;
    int osVersion() const;
    // The beacons in range that match the constraint, nearest first, stamped with the current time.
    std::vector<Beacon> beaconsMatching(const BeaconIdentityConstraint& constraint) const;

    // ---- notification centre ----
    // Schedules the request (replacing a pending one with the same identifier). Fails when
    // notifications are not permitted (UserNotificationError notificationsNotAllowed) or when the
    // pending list is full (SimulatedDeviceError).
    core::ErrorPtr addRequest(NotificationRequest request);
    // Unknown identifiers are ignored.
    void removePendingRequests(const std::vector<std::string>& identifiers);
    std::vector<NotificationRequest> pendingRequests() const;
    std::vector<DeliveredNotification> deliveredNotifications() const;
    // The user taps the delivered notification with this identifier (empty: the latest one): it
    // leaves the notification list and the response for the app is returned; none when there is
    // no such notification.
    std::optional<NotificationResponse> tap(std::string_view identifier = {});
    // Empties the notification list.
    void removeAllDeliveredNotifications();

    // ---- application ----
    // Records that the app asked the system to open url.
    void openURL(std::string_view url);

    // ---- observers ----
    ObserverId addObserver(Observer observer);
    void removeObserver(ObserverId id);

    // Writes the state file now; false when writing failed (the failure is logged).
    bool synchronize();

private:
    SimulatedDevice(SimulatedDeviceOptions options, SimulatedDeviceState state);

    using Events = std::vector<SimulatedDeviceEvent>;
    // Looks at every pending request's region and fires the entered ones. mutex_ held.
    void evaluateRegions(Events& events);
    // Delivers a fired or trigger-less request. mutex_ held.
    void deliver(NotificationRequest request, Events& events);
    // Whether the device is within the request's region now. mutex_ held.
    bool inside(const NotificationRequest& request) const;
    // One field of the state, read under the lock.
    template <class T>
    T read(T SimulatedDeviceState::*member) const;
    // Marks the state changed for the writer. mutex_ held.
    void changed();
    // Calls the observers. No lock held.
    void publish(const Events& events);
    void writerLoop();
    bool flush();

    std::string directory_;
    std::shared_ptr<NotificationCenter> notificationCenter_;
    std::chrono::milliseconds flushDelay_;

    mutable std::mutex mutex_;
    SimulatedDeviceState state_;
    // The identifiers in state_.pending.
    std::unordered_set<std::string> pendingIdentifiers_;
    std::chrono::steady_clock::time_point steady_;
    std::uint64_t version_ = 0;
    bool stopping_ = false;
    bool writerIdle_ = false;
    std::condition_variable changedCondition_;

    std::mutex observersMutex_;
    std::map<ObserverId, std::shared_ptr<Observer>> observers_;
    // Whether anybody listens; spares building the events of a sync's thousands of adds otherwise.
    std::atomic<bool> observed_{false};
    ObserverId nextObserver_ = 1;

    std::mutex writeMutex_;
    std::uint64_t writtenVersion_ = 0;
    std::thread writer_;
};

}  // namespace drovel::platform
