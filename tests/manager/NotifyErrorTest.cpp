#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>

#include "drovel/notify/NotifyError.h"

using namespace drovel::notify;

namespace {

// Every kind reads back from its raw value, and has texts of its own that its error carries.
TEST(NotifyErrorType, EveryKindRoundTripsAndHasTextsOfItsOwn) {
    std::set<std::string_view> strings, descriptions;
    for (int raw = 0; raw < notifyErrorTypeCount; ++raw) {
        auto type = notifyErrorTypeFromRawValue(raw);
        ASSERT_TRUE(type.has_value()) << raw;
        EXPECT_EQ(rawValue(*type), raw);
        EXPECT_TRUE(strings.insert(string(*type)).second) << raw;
        EXPECT_TRUE(descriptions.insert(description(*type)).second) << raw;
        NotifyError error(*type);
        EXPECT_EQ(error.type(), *type);
        EXPECT_EQ(error.description(), description(*type));
    }
    EXPECT_FALSE(strings.contains("") || descriptions.contains(""));
    static_assert(!std::is_default_constructible_v<NotifyError>);
    // No localised text of its own: the generic platform text, not the description.
    drovel::core::ErrorPtr error = makeNotifyError(NotifyErrorType::unableToSetUpNotification);
    EXPECT_EQ(error->description(), "Failed to add notification request");
    EXPECT_NE(error->localizedDescription(), error->description());
}

TEST(NotifyErrorType, RawValuesOutsideTheKindsGiveNone) {
    for (long long raw : {-1LL, 10LL, 11LL, -2147483649LL, 4294967296LL})
        EXPECT_FALSE(notifyErrorTypeFromRawValue(raw).has_value()) << raw;
}

}  // namespace
