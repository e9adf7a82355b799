// The sync diary and the status texts kept under "NotifySDK." keys.

#include <gtest/gtest.h>

#include "data/ModuleLogger.h"
#include "data/SyncHistory.h"
#include "NotifyTestData.h"
#include "drovel/core/Core.h"
#include "support/FakePlatform.h"
#include "support/ScopedTimeZone.h"

using namespace drovel::notify;
using namespace std::chrono;
using drovel::core::LogLevel;
using drovel::platform::DefaultsValue;

namespace {

class SyncHistoryTest : public ::testing::Test {
protected:
    SyncHistoryTest() {
        moduleLogger().setLogLevel(LogLevel::verbose);
    }
    ~SyncHistoryTest() override {
        moduleLogger().setLogLevel(savedLevel);
        SyncHistory::writeToDefaultsEnabled = true;
    }

    std::map<int, DefaultsValue> diary() const {
        std::map<int, DefaultsValue> out;
        for (int i = 0; i < 20; ++i)
            if (auto value = fake.userDefaults->object(SyncHistory::bgFetchKey(i))) out.emplace(i, *value);
        return out;
    }
    std::string stamp(const std::string& text) const { return SyncHistory::formattedDate(fake.clock->now()) + " " + text; }

    drovel::testing::ScopedTimeZone zone{"America/New_York"};
    LogLevel savedLevel = moduleLogger().logLevel();
    drovel::testing::FakePlatform fake;  // 2026-03-14T12:00:00Z
    drovel::platform::Platform platform = fake.platform();
    drovel::testing::ScopedLogCapture log;
};

}  // namespace

TEST_F(SyncHistoryTest, DiaryKeepsTenEntriesAndWritesAStaleEleventh) {
    struct Case {
        const char* name;
        std::map<int, DefaultsValue> before;
        int added;  // entries "e1", "e2", ...
        bool enabled;
        std::vector<std::string> after;  // by index; "+x" stands for the stamped entry "x"
    };
    std::map<int, DefaultsValue> eleven;
    std::vector<std::string> newThenTen{"+e1"}, twelve;
    for (int i = 0; i <= 10; ++i) eleven[i] = "old" + std::to_string(i);
    for (int i = 0; i < 10; ++i) newThenTen.push_back("old" + std::to_string(i));
    for (int i = 12; i >= 2; --i) twelve.push_back("+e" + std::to_string(i));
    const Case cases[] = {
        {"empty diary", {}, 1, true, {"+e1"}},
        {"twelve events", {}, 12, true, twelve},
        {"the eleventh key is never read", eleven, 1, true, newThenTen},
        // Keys past the rewritten list keep what they held.
        {"a number is dropped, a gap closes", {{0, "a"}, {1, "b"}, {3, 7}, {4, "d"}}, 1, true, {"+e1", "a", "b", "d", "d"}},
        {"switched off", {{0, "a"}, {3, 7}}, 2, false, {"a"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (int i = 0; i < 20; ++i) fake.userDefaults->removeObject(SyncHistory::bgFetchKey(i));
        for (const auto& [index, value] : c.before) fake.userDefaults->set(SyncHistory::bgFetchKey(index), value);
        SyncHistory::writeToDefaultsEnabled = c.enabled;
        const auto writes = fake.userDefaults->writeCount();

        for (int i = 1; i <= c.added; ++i) SyncHistory::addEvent(platform, "e" + std::to_string(i));

        std::map<int, DefaultsValue> expected = c.enabled ? std::map<int, DefaultsValue>{} : c.before;
        for (std::size_t i = 0; c.enabled && i < c.after.size(); ++i)
            expected[int(i)] = c.after[i].starts_with('+') ? stamp(c.after[i].substr(1)) : c.after[i];
        EXPECT_EQ(diary(), expected);
        if (!c.enabled) {
            EXPECT_EQ(fake.userDefaults->writeCount(), writes);
        }
    }
}

TEST_F(SyncHistoryTest, EventsHaveTheirTextsAndLogLines) {
    const auto failure = std::make_shared<const drovel::core::SimpleError>("offline");
    struct Case {
        std::function<void()> add;
        std::string entry, logSuffix;
        const char* function;
    };
    const Case cases[] = {
        {[&] { SyncHistory::addBGFetchAttemptEvent(platform); }, "bg try", " BG fetch", "addBGFetchAttemptEvent()"},
        {[&] { SyncHistory::addBGFetchCompleteEvent(platform, nullptr); }, "bg done", " BG fetch",
         "addBGFetchCompleteEvent(error:)"},
        {[&] { SyncHistory::addBGFetchCompleteEvent(platform, failure); }, "bg done, Error = offline", " BG fetch",
         "addBGFetchCompleteEvent(error:)"},
        {[&] { SyncHistory::addPushSyncAttemptEvent(platform); }, "push try", " Push fetch", "addPushSyncAttemptEvent()"},
        {[&] { SyncHistory::addPushSyncCompleteEvent(platform, failure); }, "push done, Error = offline", " Push fetch",
         "addPushSyncCompleteEvent(error:)"},
        {[&] { SyncHistory::addBGTaskExpiredEvent(platform); }, "backgroundTaskExpired", "", "addEvent(_:)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.entry);
        log->clear();
        c.add();
        EXPECT_EQ(fake.userDefaults->string(SyncHistory::bgFetchKey(0)), stamp(c.entry));
        EXPECT_EQ(drovel::testing::logLines(log.sink()),
                  std::vector<std::string>{"[verbose] DrovelNotify SyncHistory." + std::string(c.function) + ": " +
                                           stamp(c.entry) + c.logSuffix});
    }
}

TEST_F(SyncHistoryTest, DatesAreShortDateAndMediumTimeInTheLocalZone) {
    const sys_seconds noonUTC = sys_days(2026y / March / 14) + hours(12);
    EXPECT_EQ(SyncHistory::formattedDate(noonUTC), "3/14/26, 8:00:00 AM");
    EXPECT_EQ(SyncHistory::formattedDate(noonUTC + hours(4) + seconds(5)), "3/14/26, 12:00:05 PM");
    EXPECT_EQ(SyncHistory::formattedDate(noonUTC + hours(16) + minutes(9)), "3/15/26, 12:09:00 AM");
    EXPECT_EQ(SyncHistory::formattedDate(sys_days(2009y / December / 1) + hours(23)), "12/1/09, 6:00:00 PM");
    drovel::testing::ScopedTimeZone::set("Asia/Tokyo");
    EXPECT_EQ(SyncHistory::formattedDate(noonUTC), "3/14/26, 9:00:00 PM");

    SyncHistory::updateLastSync(*fake.userDefaults, noonUTC);
    EXPECT_EQ(fake.userDefaults->string(SyncHistory::lastSyncKey), "3/14/26, 9:00:00 PM");
}

TEST_F(SyncHistoryTest, StatusTexts) {
    auto bare = platform;
    bare.bundleInfo.clear();
    EXPECT_EQ(SyncHistory::appVersion(bare), "?.? Build ?");
    SyncHistory::updateAppVersion(platform);
    EXPECT_EQ(fake.userDefaults->string(SyncHistory::appVersionKey), "1.0 Build 1");

    fake.userDefaults->setString(drovel::core::Core::appInstanceIDKey, "e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    drovel::core::Core core(fake.userDefaults, fake.httpTransport);
    SyncHistory::updateAppInstanceID(*fake.userDefaults, core);
    EXPECT_EQ(fake.userDefaults->string(SyncHistory::appInstanceIDKey), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");

    SyncHistory::writeToDefaultsEnabled = false;
    const auto writes = fake.userDefaults->writeCount();
    SyncHistory::updateAppVersion(platform);
    SyncHistory::updateLastSync(*fake.userDefaults, fake.clock->now());
    EXPECT_EQ(fake.userDefaults->writeCount(), writes);
}
