#include <gtest/gtest.h>

#include <cmath>

#include "drovel/platform/Location.h"
#include "drovel/platform/UserInfo.h"
#include "drovel/platform/UserNotificationCenter.h"

namespace drovel::platform {
namespace {

TEST(UserInfoJsonTest, RoundTripsEveryKindKeepingIntegersApartFromDoubles) {
    UserInfo info{
        {"message_source", "drovel.notify.v2"},
        {"Drovel.Notify.CampaignID", std::int64_t{42}},
        {"ratio", 2.0},
        {"flag", true},
        {"Drovel.Notify.Metadata", UserInfo{{"k", "v \u00e9 \"q\""}}},
        {"list", UserInfoArray{1, "two", UserInfoArray{}, UserInfo{}}},
    };
    auto json = userInfoToJson(info);
    auto back = userInfoFromJson(json);
    ASSERT_TRUE(back) << back.error()->description();
    EXPECT_EQ(back.value(), info);
    EXPECT_TRUE(back.value().at("Drovel.Notify.CampaignID").is<std::int64_t>());
    EXPECT_TRUE(back.value().at("ratio").is<double>());
}

TEST(UserInfoJsonTest, ReadsForeignJsonAndRefusesWhatIsNotADictionary) {
    auto read = userInfoFromJson(R"({"big": 18446744073709551615, "n": null, "a": [null, 1.5e3]})");
    ASSERT_TRUE(read) << read.error()->description();
    EXPECT_EQ(read.value().at("big"), UserInfoValue(18446744073709551615.0));
    EXPECT_FALSE(read.value().contains("n"));  // nulls are dropped
    EXPECT_EQ(read.value().at("a"), UserInfoValue(UserInfoArray{1500.0}));

    // NaN cannot be written to JSON: it is dropped on the way back.
    auto nan = userInfoFromJson(userInfoToJson({{"x", std::nan("")}, {"y", 1}}));
    ASSERT_TRUE(nan);
    EXPECT_EQ(nan.value(), (UserInfo{{"y", 1}}));

    const std::string refused[] = {"[]", "\"s\"", "{", "{} x", std::string(100, '[') + std::string(100, ']'),
                                   "{\"a\":" + std::string(80, '[') + std::string(80, ']') + "}"};
    for (const auto& text : refused) {
        EXPECT_FALSE(userInfoFromJson(text)) << text.substr(0, 40);
    }
}

TEST(UUIDTest, CanonicalFormAndComparison) {
    EXPECT_EQ(canonicalUUID("e2c56db5-dffb-48d2-b060-d0f5a71096e0"), "E2C56DB5-DFFB-48D2-B060-D0F5A71096E0");
    for (const char* bad : {"", "e2c56db5dffb48d2b060d0f5a71096e0", "e2c56db5-dffb-48d2-b060-d0f5a71096e",
                            "g2c56db5-dffb-48d2-b060-d0f5a71096e0", "e2c56db5-dffb-48d2-b060_d0f5a71096e0",
                            " e2c56db5-dffb-48d2-b060-d0f5a71096e0"})
        EXPECT_FALSE(canonicalUUID(bad)) << bad;
    EXPECT_TRUE(sameUUID("E2C56DB5-DFFB-48D2-B060-D0F5A71096E0", "e2c56db5-dffb-48d2-b060-d0f5a71096e0"));
    EXPECT_FALSE(sameUUID("E2C56DB5-DFFB-48D2-B060-D0F5A71096E0", "E2C56DB5-DFFB-48D2-B060-D0F5A71096E1"));
    EXPECT_FALSE(sameUUID("not a uuid", "not a uuid"));
}

TEST(DistanceTest, GreatCircleDistances) {
    // One degree of latitude is about 111.2 km; a point to itself is 0.
    EXPECT_NEAR(distanceBetween({52.0, 4.0}, {53.0, 4.0}), 111195, 5);
    EXPECT_DOUBLE_EQ(distanceBetween({52.0, 4.0}, {52.0, 4.0}), 0);
    EXPECT_NEAR(distanceBetween({0, 179.9}, {0, -179.9}), 22239, 5);  // across the date line
}

TEST(NotificationRequestTest, DescriptionNamesTheRequestItsContentAndRegion) {
    NotificationRequest request{"drovel.notify 7",
                                {"Title", "", "Body", NotificationSound::defaultSound, {{"message_source", "drovel.notify"}}},
                                NotificationTrigger{CircularRegion{"drovel.notify 7", {52.5, 4.25}, 150, true, false}, false}};
    std::string text = request.description();
    for (const char* part : {"identifier: drovel.notify 7", "title: Title", "body: Body", "sound: default",
                             R"({"message_source":"drovel.notify"})", "identifier:'drovel.notify 7'",
                             "<+52.50000000,+4.25000000>", "radius:150.00m", "repeats: NO"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
}

}  // namespace
}  // namespace drovel::platform
