#include <gtest/gtest.h>

#include <type_traits>

#include "drovel/notify/NotificationNames.h"
#include "drovel/notify/NotifyError.h"

using namespace drovel::notify;

namespace {

struct ErrorRow {
    int raw;
    const char* string;
    const char* description;
};

const ErrorRow errorTable[] = {
    {0, "noLocationPermission", "Location permission is missing"},
    {1, "notificationPermissionDenied", "Notification permission is missing"},
    {2, "reachedTheMaxNumberOfSites", "Site limit exceeded"},
    {3, "notifyModuleNotConfigured", "Module is not configured. You must call DrovelNotify.Manager.configure method."},
    {4, "coreIsNotConfigured", "Core is not configured. You must call Drovel.Core.configure method."},
    {5, "notifyModuleNotEnabled", "DrovelNotify has not been enabled for your app"},
    {6, "beaconRangingNotAvailable", "Beacon ranging is not available on this device"},
    {7, "noBeaconInRange", "No beacon was found in range of this device"},
    {8, "beaconRangingDisabledInBackground", "Beacon ranging disabled while app is in the background"},
    {9, "unableToSetUpNotification", "Failed to add notification request"},
};

TEST(NotifyErrorType, EveryKindHasItsRawValueAndTexts) {
    ASSERT_EQ(std::size(errorTable), static_cast<std::size_t>(notifyErrorTypeCount));
    for (const auto& row : errorTable) {
        auto type = notifyErrorTypeFromRawValue(row.raw);
        ASSERT_TRUE(type.has_value()) << row.raw;
        EXPECT_EQ(rawValue(*type), row.raw);
        EXPECT_EQ(string(*type), row.string);
        EXPECT_EQ(description(*type), row.description);
        NotifyError error(*type);
        EXPECT_EQ(error.type(), *type);
        EXPECT_EQ(error.description(), row.description);
    }
}

TEST(NotifyErrorType, RawValuesOutsideTheTableGiveNoKind) {
    for (long long raw : {-1LL, 10LL, 11LL, -2147483649LL, 4294967296LL})
        EXPECT_FALSE(notifyErrorTypeFromRawValue(raw).has_value()) << raw;
}

TEST(NotifyError, IsAnErrorWithoutParameterlessConstructor) {
    static_assert(!std::is_default_constructible_v<NotifyError>);
    drovel::core::ErrorPtr error = makeNotifyError(NotifyErrorType::unableToSetUpNotification);
    EXPECT_EQ(error->description(), "Failed to add notification request");
    // No localised text of its own: the generic platform text, not the description.
    EXPECT_NE(error->localizedDescription(), error->description());
}

TEST(NotificationName, TextsEqualTheirNames) {
    EXPECT_EQ(NotificationName::notifyCampaignsUpdated, "notifyCampaignsUpdated");
    EXPECT_EQ(NotificationName::notifyCampaignsError, "notifyCampaignsError");
    EXPECT_EQ(NotificationName::notifySitesError, "notifySitesError");
    EXPECT_EQ(NotificationName::notifyNotificationsError, "notifyNotificationsError");
}

}  // namespace
