// What the typed reads of the module's stored keys make of what is stored.

#include <gtest/gtest.h>

#include "Helpers/UserDefaultsKey.h"
#include "support/CapturingLogSink.h"
#include "support/FakeUserDefaults.h"

using namespace drovel::notify;
using drovel::platform::Date;
using drovel::platform::DefaultsBytes;
using drovel::platform::DefaultsDictionary;
using drovel::platform::Location;
using drovel::testing::FakeUserDefaults;

namespace {

DefaultsBytes bytes(std::string_view text) { return DefaultsBytes(text.begin(), text.end()); }

const Date kStamp = Date(std::chrono::seconds(1773489600));

}  // namespace

TEST(UserDefaultsKey, LastLocationReadsItsMap) {
    struct Case {
        const char* name;
        DefaultsDictionary stored;
        std::optional<Location> expected;
    };
    const Case cases[] = {
        {"full", {{"lat", 52.1}, {"lon", -0.5}, {"timestamp", kStamp}}, Location{{52.1, -0.5}, 0, 0, 0, kStamp}},
        {"integers", {{"lat", 52}, {"lon", 4}, {"timestamp", kStamp}}, Location{{52, 4}, 0, 0, 0, kStamp}},
        {"no timestamp", {{"lat", 1.5}, {"lon", 2.5}}, Location{{1.5, 2.5}, 0, 0, 0, kDistantPast}},
        {"timestamp as text", {{"lat", 1.5}, {"lon", 2.5}, {"timestamp", "now"}}, Location{{1.5, 2.5}, 0, 0, 0, kDistantPast}},
        {"no latitude", {{"lon", 2.5}, {"timestamp", kStamp}}, std::nullopt},
        {"longitude as text", {{"lat", 1.5}, {"lon", "2.5"}}, std::nullopt},
    };
    for (const auto& c : cases) {
        FakeUserDefaults defaults;
        defaults.setDictionary("DrovelNotify.lastLocation", c.stored);
        EXPECT_EQ(lastLocation(defaults), c.expected) << c.name;
    }

    FakeUserDefaults defaults;
    EXPECT_EQ(lastLocation(defaults), std::nullopt);
    setLastLocation(defaults, Location{{52.1, 4.3}, 12, 5, 6, kStamp});
    EXPECT_EQ(lastLocation(defaults), (Location{{52.1, 4.3}, 0, 0, 0, kStamp}));  // only position and time are kept
}

TEST(UserDefaultsKey, ValuesReadBackOrAreAbsent) {
    FakeUserDefaults defaults;
    EXPECT_EQ(date(defaults, UserDefaultsKey::lastFetch), std::nullopt);
    EXPECT_EQ(doubleValue(defaults, UserDefaultsKey::minSyncInterval), 0.0);
    EXPECT_EQ(loadedCampaigns(defaults), std::nullopt);
    EXPECT_EQ(customTemplateContent(defaults), std::nullopt);

    set(defaults, UserDefaultsKey::lastFetch, kStamp);
    EXPECT_EQ(defaults.date("DrovelNotify.lastFetch"), kStamp);
    LoadedCampaigns loaded;
    loaded.add(7, 42);
    loaded.add(7, 43);
    loaded.add(9, std::nullopt);  // a beacon campaign: no site
    setLoadedCampaigns(defaults, loaded);
    EXPECT_EQ(loadedCampaigns(defaults), loaded);
    const CustomTemplateContent content{{"first_name", "Zoë \"Z\""}, {"", ""}};
    setCustomTemplateContent(defaults, content);
    EXPECT_EQ(customTemplateContent(defaults), content);
    EXPECT_EQ(defaults.data("DrovelNotify.customTemplateContent"), bytes(R"({"":"","first_name":"Zoë \"Z\""})"));

    // What cannot be read counts as missing.
    defaults.setData("DrovelNotify.loadedCampaigns", bytes(R"({"store": {"x": [1]}})"));
    defaults.setString("DrovelNotify.minSyncInterval", "60");
    EXPECT_EQ(loadedCampaigns(defaults), std::nullopt);
    EXPECT_EQ(doubleValue(defaults, UserDefaultsKey::minSyncInterval), 0.0);
    using drovel::platform::DefaultsValue;
    for (const auto& stored : {DefaultsValue(bytes(R"({"a": 1})")), DefaultsValue(bytes(R"(["a"])")),
                               DefaultsValue(bytes("{\"a\":")), DefaultsValue(R"({"a":"b"})")}) {
        defaults.set("DrovelNotify.customTemplateContent", stored);
        EXPECT_EQ(customTemplateContent(defaults), std::nullopt);
    }
}

TEST(UserDefaultsKey, TemplateContentThatIsNotUTF8IsNotStored) {
    FakeUserDefaults defaults;
    setCustomTemplateContent(defaults, {{"name", "old"}});
    drovel::testing::ScopedLogCapture log;

    setCustomTemplateContent(defaults, {{"name", "bad \xC3("}});

    EXPECT_EQ(customTemplateContent(defaults), (CustomTemplateContent{{"name", "old"}}));
    auto records = log->records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].level, drovel::core::LogLevel::error);
    EXPECT_TRUE(records[0].message.starts_with("Encoding failed while saving custom template content: "));
    EXPECT_EQ(records[0].file, "Helpers/UserDefaultsKey");
    EXPECT_EQ(records[0].function, "set(customTemplateContent:)");
}
