#include "drovel/notify/NotifyError.h"

#include <array>

namespace drovel::notify {

namespace {

struct ErrorTexts {
    std::string_view string;
    std::string_view description;
};

// Indexed by raw value. Most messages have no final full stop; keep them as they are.
constexpr std::array<ErrorTexts, notifyErrorTypeCount> texts{{
    {"noLocationPermission", "Location permission is missing"},
    {"notificationPermissionDenied", "Notification permission is missing"},
    {"reachedTheMaxNumberOfSites", "Site limit exceeded"},
    {"notifyModuleNotConfigured", "Module is not configured. You must call DrovelNotify.Manager.configure method."},
    {"coreIsNotConfigured", "Core is not configured. You must call Drovel.Core.configure method."},
    {"notifyModuleNotEnabled", "DrovelNotify has not been enabled for your app"},
    {"beaconRangingNotAvailable", "Beacon ranging is not available on this device"},
    {"noBeaconInRange", "No beacon was found in range of this device"},
    {"beaconRangingDisabledInBackground", "Beacon ranging disabled while app is in the background"},
    {"unableToSetUpNotification", "Failed to add notification request"},
}};

}  // namespace

std::optional<NotifyErrorType> notifyErrorTypeFromRawValue(long long raw) {
    if (raw < 0 || raw >= notifyErrorTypeCount) return std::nullopt;
    return static_cast<NotifyErrorType>(raw);
}

std::string_view string(NotifyErrorType type) { return texts[rawValue(type)].string; }

std::string_view description(NotifyErrorType type) { return texts[rawValue(type)].description; }

std::string NotifyError::description() const { return std::string(notify::description(type_)); }

std::string NotifyError::localizedDescription() const {
    // An error object that supplies no localised text is shown with the generic text the platform
    // makes from its domain and code; objects (as opposed to enumerations) always carry code 1.
    return "The operation couldn\u2019t be completed. (DrovelNotify.NotifyError error 1.)";
}

core::ErrorPtr makeNotifyError(NotifyErrorType type) { return std::make_shared<const NotifyError>(type); }

}  // namespace drovel::notify
