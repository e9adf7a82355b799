#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "template/Context.h"
#include "template/STRFTimeFormatter.h"
#include "support/ScopedTimeZone.h"

using drovel::templating::STRFTimeFormatter;

namespace {

constexpr double k20200102T030405Z = 1577934245;

using TimeZone = drovel::testing::ScopedTimeZone;

STRFTimeFormatter formatter(std::string format, bool utc) {
    STRFTimeFormatter f;
    f.formatString = std::move(format);
    f.useUniversalTimeLocale = utc;
    return f;
}

}  // namespace

TEST(STRFTimeFormatter, Defaults) {
    STRFTimeFormatter f;
    f.useUniversalTimeLocale = true;
    EXPECT_EQ(f.string(k20200102T030405Z), "2020-01-02T03:04:05+0000");
    EXPECT_EQ(f.string(drovel::platform::Date(std::chrono::milliseconds(1577934245999))), "2020-01-02T03:04:05+0000");
}

TEST(STRFTimeFormatter, LocalTimeFollowsTZ) {
    TimeZone zone("EST5");
    STRFTimeFormatter local;
    EXPECT_EQ(local.string(k20200102T030405Z), "2020-01-01T22:04:05-0500");
    TimeZone::set("IST-5:30");
    EXPECT_EQ(local.string(k20200102T030405Z), "2020-01-02T08:34:05+0530");
    TimeZone::set("America/New_York");
    EXPECT_EQ(formatter("%H:%M %Z", false).string(1593657000), "22:30 EDT");  // 2020-07-02T02:30Z
    EXPECT_EQ(formatter("%H:%M %Z", true).string(1593657000), "02:30 GMT");
}

TEST(STRFTimeFormatter, Results) {
    TimeZone zone("UTC0");
    struct Case {
        std::string format;
        double seconds;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"%S", k20200102T030405Z + 0.999, "05"},  // the fraction is dropped
        {"%Y-%m-%d %H:%M:%S", -0.5, "1970-01-01 00:00:00"},  // toward zero
        {"%Y-%m-%d %H:%M:%S", -1, "1969-12-31 23:59:59"}, {"%a %b %e %j %%", k20200102T030405Z, "Thu Jan  2 002 %"},
        {"", k20200102T030405Z, std::nullopt},                   // empty output
        {"%p", k20200102T030405Z, "AM"},
        {std::string(79, 'x'), 0, std::string(79, 'x')},         // the longest text
        {std::string(78, 'x') + "%m", 0, std::nullopt},           // 80 characters do not fit
        {"%Y é", 0, std::nullopt},                                // not ASCII
        {"%Y", 1e18, std::nullopt},                               // the year does not fit a tm
    };
    for (const auto& c : cases) {
        EXPECT_EQ(formatter(c.format, false).string(c.seconds), c.expected) << c.format;
        EXPECT_EQ(formatter(c.format, true).string(c.seconds), c.expected) << c.format;
    }
}

TEST(STRFTimeFormatter, TimesOutsideTheSixtyFourBitRangeThrowTemplateFatalError) {
    STRFTimeFormatter f;
    for (double seconds : {std::nan(""), double(INFINITY), -double(INFINITY), 0x1p63, -0x1p64})
        EXPECT_THROW(f.string(seconds), drovel::templating::TemplateFatalError) << seconds;
    EXPECT_NO_THROW(f.string(-0x1p63));  // the lowest 64-bit value is a time (too early for a tm)
}
