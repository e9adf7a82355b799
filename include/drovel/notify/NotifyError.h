#pragma once
// Every failure the Notify module reports to the host is a NotifyError carrying one NotifyErrorType.
// The raw values are part of the interface.

#include <optional>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"

namespace drovel::notify {

enum class NotifyErrorType : int {
    noLocationPermission = 0,
    notificationPermissionDenied = 1,
    reachedTheMaxNumberOfSites = 2,
    notifyModuleNotConfigured = 3,
    coreIsNotConfigured = 4,
    notifyModuleNotEnabled = 5,
    beaconRangingNotAvailable = 6,
    noBeaconInRange = 7,
    beaconRangingDisabledInBackground = 8,
    unableToSetUpNotification = 9,
};

inline constexpr int notifyErrorTypeCount = 10;

constexpr int rawValue(NotifyErrorType type) { return static_cast<int>(type); }
// 0 to 9 give a kind; anything else, negative numbers included, gives none.
std::optional<NotifyErrorType> notifyErrorTypeFromRawValue(long long raw);
// The case's identifier, e.g. "noBeaconInRange".
std::string_view string(NotifyErrorType type);
// The human-readable message, e.g. "No beacon was found in range of this device".
std::string_view description(NotifyErrorType type);

class NotifyError : public core::Error {
public:
    // There is no parameterless constructor: an error always has a kind.
    NotifyError() = delete;
    explicit NotifyError(NotifyErrorType type) : type_(type) {}

    NotifyErrorType type() const { return type_; }
    std::string description() const override;
    // The error has no localised text of its own, so the platform's generic text stands in.
    std::string localizedDescription() const override;

private:
    NotifyErrorType type_;
};

core::ErrorPtr makeNotifyError(NotifyErrorType type);

}  // namespace drovel::notify
