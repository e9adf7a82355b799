#include "linux/UserDefaultsJson.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"
#include "linux/Base64.h"

namespace drovel::platform {

namespace {

constexpr int maxNestingDepth = 64;

// ---- dates: "2026-11-21T10:00:00.123456789Z" (UTC, nine fraction digits) ----

// The text holds four-digit years. A date beyond them (a host's "distant future") is kept as the
// nearest date the text can hold, so that the file always reads back.
constexpr Date earliestDateText{std::chrono::sys_days{std::chrono::year{0} / 1 / 1}};
constexpr Date latestDateText{std::chrono::sys_days{std::chrono::year{9999} / 12 / 31} + std::chrono::days{1} -
                              Date::duration{1}};

std::string dateText(Date date) {
    date = std::clamp(date, earliestDateText, latestDateText);
    std::time_t t = timeT(date);
    // Microseconds past the whole second (never negative: timeT rounds down).
    long long fraction = (date - std::chrono::floor<std::chrono::seconds>(date)).count();
    std::tm utc{};
    gmtime_r(&t, &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06lld000Z", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, fraction);
    return text;
}

std::optional<Date> parseDate(std::string_view text) {
    // Fixed layout: digits where digits belong, separators where they belong.
    constexpr std::string_view layout = "dddd-dd-ddTdd:dd:dd.dddddddddZ";
    if (text.size() != layout.size()) return std::nullopt;
    for (std::size_t i = 0; i < layout.size(); ++i) {
        bool digit = text[i] >= '0' && text[i] <= '9';
        if (layout[i] == 'd' ? !digit : text[i] != layout[i]) return std::nullopt;
    }
    auto number = [&](std::size_t at, std::size_t length) {
        long long value = 0;
        for (std::size_t i = at; i < at + length; ++i) value = value * 10 + (text[i] - '0');
        return value;
    };
    std::tm utc{};
    utc.tm_year = static_cast<int>(number(0, 4)) - 1900;
    utc.tm_mon = static_cast<int>(number(5, 2)) - 1;
    utc.tm_mday = static_cast<int>(number(8, 2));
    utc.tm_hour = static_cast<int>(number(11, 2));
    utc.tm_min = static_cast<int>(number(14, 2));
    utc.tm_sec = static_cast<int>(number(17, 2));
    if (utc.tm_mon > 11 || utc.tm_mday < 1 || utc.tm_mday > 31 || utc.tm_hour > 23 || utc.tm_min > 59 ||
        utc.tm_sec > 60)
        return std::nullopt;
    // Four-digit years are far inside what a Date holds; nanoseconds beyond the microsecond are dropped.
    long long seconds = timegm(&utc);
    return Date(std::chrono::seconds(seconds)) + std::chrono::microseconds(number(20, 6));
}

// ---- encoding ----

void writeTagged(core::JsonWriter& writer, const DefaultsValue& value);

void writeDictionary(core::JsonWriter& writer, const DefaultsDictionary& values) {
    writer.beginObject();
    for (const auto& [key, value] : values) {
        writer.key(key);
        writeTagged(writer, value);
    }
    writer.endObject();
}

void writeTagged(core::JsonWriter& writer, const DefaultsValue& value) {
    writer.beginObject();
    std::visit(
        [&](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::string>) {
                writer.key("string").value(v);
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                writer.key("integer").value(static_cast<long long>(v));
            } else if constexpr (std::is_same_v<T, double>) {
                writer.key("double");
                if (std::isnan(v)) {
                    writer.value("nan");
                } else if (std::isinf(v)) {
                    writer.value(v > 0 ? "inf" : "-inf");
                } else {
                    writer.value(v);
                }
            } else if constexpr (std::is_same_v<T, bool>) {
                writer.key("bool").value(v);
            } else if constexpr (std::is_same_v<T, Date>) {
                writer.key("date").value(dateText(v));
            } else if constexpr (std::is_same_v<T, DefaultsBytes>) {
                writer.key("data").value(base64Encode(v));
            } else if constexpr (std::is_same_v<T, DefaultsDictionary>) {
                writer.key("dictionary");
                writeDictionary(writer, v);
            } else {
                writer.key("array").beginArray();
                for (const auto& element : v) writeTagged(writer, element);
                writer.endArray();
            }
        },
        value.storage);
    writer.endObject();
}

// ---- decoding ----

DefaultsValue readTagged(core::JsonReader& reader, core::JsonValue value, int depth);

DefaultsDictionary readDictionary(core::JsonReader& reader, core::JsonValue value, int depth) {
    if (depth > maxNestingDepth) reader.fail("nested too deeply");
    DefaultsDictionary values;
    reader.object(value, [&](std::string_view key, core::JsonValue member) {
        values.insert_or_assign(std::string(key), readTagged(reader, member, depth + 1));
    });
    return values;
}

DefaultsValue readDouble(core::JsonReader& reader, core::JsonValue value) {
    if (reader.check(value.type(), "malformed value") == simdjson::ondemand::json_type::string) {
        std::string_view text = reader.string(value);
        if (text == "nan") return DefaultsValue(std::nan(""));
        if (text == "inf") return DefaultsValue(HUGE_VAL);
        if (text == "-inf") return DefaultsValue(-HUGE_VAL);
        reader.fail("expected a number, \"nan\", \"inf\" or \"-inf\"");
    }
    return DefaultsValue(reader.number(value));
}

DefaultsValue readTagged(core::JsonReader& reader, core::JsonValue value, int depth) {
    if (depth > maxNestingDepth) reader.fail("nested too deeply");
    std::optional<DefaultsValue> result;
    reader.object(value, [&](std::string_view kind, core::JsonValue inner) {
        if (result) reader.fail("a value has exactly one kind");
        if (kind == "string") {
            result.emplace(std::string(reader.string(inner)));
        } else if (kind == "integer") {
            result.emplace(reader.int64(inner));
        } else if (kind == "double") {
            result = readDouble(reader, inner);
        } else if (kind == "bool") {
            result.emplace(reader.boolean(inner));
        } else if (kind == "date") {
            auto date = parseDate(reader.string(inner));
            if (!date) reader.fail("expected a date like \"2026-11-21T10:00:00.000000000Z\"");
            result.emplace(*date);
        } else if (kind == "data") {
            auto bytes = base64Decode(reader.string(inner));
            if (!bytes) reader.fail("expected base64 text");
            result.emplace(std::move(*bytes));
        } else if (kind == "dictionary") {
            result.emplace(readDictionary(reader, inner, depth + 1));
        } else if (kind == "array") {
            DefaultsArray array;
            reader.array(inner, [&](core::JsonValue element) { array.push_back(readTagged(reader, element, depth + 1)); });
            result.emplace(std::move(array));
        } else {
            reader.fail("unknown kind of value '" + std::string(kind) + "'");
        }
    });
    if (!result) reader.fail("a value needs a kind");
    return std::move(*result);
}

}  // namespace

std::string encodeUserDefaults(const DefaultsDictionary& values) {
    core::JsonWriter writer;
    writeDictionary(writer, values);
    return writer.take();
}

core::Result<DefaultsDictionary> decodeUserDefaults(std::string_view json) {
    return core::decodeJson<DefaultsDictionary>(
        json, [](core::JsonReader& reader, core::JsonValue root) { return readDictionary(reader, root, 1); });
}

}  // namespace drovel::platform
