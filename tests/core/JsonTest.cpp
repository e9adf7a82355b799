#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"

using namespace drovel::core;

namespace {

TEST(JsonWriter, EscapesStrings) {
    struct Case {
        std::string input;
        std::string json;
    };
    const Case cases[] = {
        {"plain", R"("plain")"},
        {"say \"hi\" \\ /", R"("say \"hi\" \\ /")"},
        {"\n\r\t\b\f", R"("\n\r\t\b\f")"},
        {std::string("\x00\x01\x1f\x7f", 4), "\"\\u0000\\u0001\\u001f\x7f\""},
        {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "\"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80\""},
        // Invalid UTF-8 becomes U+FFFD per bad byte: a stray byte, a cut sequence, an overlong form,
        // an encoded surrogate and a code point above U+10FFFF.
        {"a\xFFz", "\"a\xEF\xBF\xBDz\""},
        {"\xE2\x82", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},
        {"\xC0\xAF", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},
        {"\xED\xA0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
        {"\xF4\x90\x80\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
    };
    for (const auto& c : cases) {
        std::string out = "prefix:";
        appendJsonString(out, c.input);
        EXPECT_EQ(out, "prefix:" + c.json) << c.input;
    }
}

TEST(JsonWriter, DoubleTextReadsBackAsADouble) {
    struct Case {
        double value;
        const char* text;
    };
    const Case cases[] = {
        {40.0, "40.0"},
        {52.123456, "52.123456"},
        {-74.5, "-74.5"},
        {0.1, "0.1"},
        {-0.0, "-0.0"},
        {1e21, "1e+21"},
        {1e-7, "1e-07"},
        {5e-324, "5e-324"},
        {std::numeric_limits<double>::quiet_NaN(), "null"},
        {std::numeric_limits<double>::infinity(), "null"},
    };
    for (const auto& c : cases) EXPECT_EQ(doubleText(c.value), c.text) << c.value;
}

TEST(JsonWriter, TracksCommasAndNesting) {
    JsonWriter writer;
    writer.beginObject()
        .key("a").value(1)
        .key("b").beginArray().value(-2LL).value("x").null().value(true).value(2.5).beginObject().endObject().endArray()
        .key("c").raw(R"({"pre":"made"})")
        .key("d").value(std::uint64_t{18446744073709551615ULL})
        .endObject();
    EXPECT_EQ(writer.str(), R"({"a":1,"b":[-2,"x",null,true,2.5,{}],"c":{"pre":"made"},"d":18446744073709551615})");
}

// Decodes {"items": [{"id": int}, ...]} strictly, skipping other keys.
Result<std::vector<std::int64_t>> decodeIds(std::string_view json) {
    return decodeJson<std::vector<std::int64_t>>(json, [](JsonReader& reader, JsonValue root) {
        std::vector<std::int64_t> ids;
        reader.object(root, [&](std::string_view key, JsonValue items) {
            if (key != "items") return reader.skip(items);
            reader.array(items, [&](JsonValue item) {
                bool found = false;
                reader.object(item, [&](std::string_view itemKey, JsonValue value) {
                    if (itemKey != "id") return reader.skip(value);
                    ids.push_back(reader.int64(value));
                    found = true;
                });
                if (!found) reader.missingKey("id");
            });
        });
        return ids;
    });
}

// The reader's key paths in its error texts are compared through the records' decoders
// (CoreRecordsJsonTest, and NotifyDecodeTest in tests/data).
TEST(JsonReader, RejectsMalformedAndTrailingContentWithoutCrashing) {
    // The same decoder takes a good document, skipping nested values it has no key for.
    auto good = decodeIds(R"({"items":[{"id":1},{"id":2,"x":{"y":[1,"\u00e9",null,true]}}]} )");
    ASSERT_TRUE(good.ok()) << good.error()->description();
    EXPECT_EQ(good.value(), (std::vector<std::int64_t>{1, 2}));
    std::string deep = R"({"skipped":)" + std::string(100000, '[') + std::string(100000, ']') + "}";
    std::string deepObjects = R"({"skipped":)";
    for (int i = 0; i < 5000; ++i) deepObjects += R"({"a":)";
    deepObjects += "1" + std::string(5000, '}') + "}";
    const std::string cases[] = {
        R"({"items":[]} {"items":[]})",
        R"({"items":[]}])",
        R"({"items":[]} x)",
        R"({"items":[{"id":1})",
        R"({"skipped":[1,2,]})",
        R"({"skipped":tru})",
        R"({"skipped":"unterminated})",
        R"({"skipped":"bad \x escape"})",
        "",
        "   ",
        "42",
        "[]",
        deep,
        deepObjects,
    };
    for (const auto& json : cases) {
        auto result = decodeIds(json);
        ASSERT_FALSE(result.ok()) << json.substr(0, 40);
        EXPECT_FALSE(result.error()->description().empty());
    }
    EXPECT_EQ(decodeIds(deep).error()->description().find("nesting too deep") != std::string::npos, true)
        << decodeIds(deep).error()->description();
}

}  // namespace
