// Campaign notifications: setting them up, detecting which ones fired, and the user's taps.
//
// These steps are empty for now: each runs to completion and reports the way the sync expects, so
// the sync, app activation, order and template updates already call them where they belong. The
// set-up, the detection and the responses fill them in.

#include "drovel/notify/Manager.h"
#include "manager/ManagerLog.h"

namespace drovel::notify {

// Runs on the serial queue during a sync and returns when the detection is done.
// To be filled in: compare the loaded campaigns with the pending requests, range for beacon
// campaigns, and log the triggered ones.
void Manager::detectTriggeredCampaigns() {}

// Runs on the serial queue during a sync (for a tap that arrived while the app was not active).
// To be filled in: record the click analytics event for the tapped notification's user-info.
void Manager::recordClickEvent(const platform::UserInfo& userInfo) {}

// Called after a successful fetch, on app-configuration order reports and on template updates.
// To be filled in: replace the pending campaign notifications with freshly rendered ones and keep
// loadedCampaigns. Reports no error until then.
void Manager::setUpCampaigns(Callback callback) {
    if (callback) callback(nullptr);
}

// To be filled in: record the click, open the deep link, return the campaign's metadata. Until
// then no response is the module's.
std::optional<std::map<std::string, std::string>> Manager::handle(const platform::NotificationResponse& response) {
    return std::nullopt;
}

}  // namespace drovel::notify
