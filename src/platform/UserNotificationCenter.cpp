#include <cstdio>

#include "core/JsonReader.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/platform/UserInfo.h"
#include "drovel/platform/UserNotificationCenter.h"

namespace drovel::platform {

namespace {

constexpr int maxUserInfoDepth = 64;

void writeValue(core::JsonWriter& writer, const UserInfoValue& value);

void writeDictionary(core::JsonWriter& writer, const UserInfo& userInfo) {
    writer.beginObject();
    for (const auto& [key, value] : userInfo) {
        writer.key(key);
        writeValue(writer, value);
    }
    writer.endObject();
}

void writeValue(core::JsonWriter& writer, const UserInfoValue& value) {
    std::visit(
        [&](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, UserInfo>) {
                writeDictionary(writer, v);
            } else if constexpr (std::is_same_v<T, UserInfoArray>) {
                writer.beginArray();
                for (const auto& element : v) writeValue(writer, element);
                writer.endArray();
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                writer.value(static_cast<long long>(v));
            } else {
                writer.value(v);
            }
        },
        value.storage);
}

// Reads one value; false when it was null (which the caller drops).
bool readValue(core::JsonReader& reader, core::JsonValue value, int depth, UserInfoValue& out);

UserInfo readDictionary(core::JsonReader& reader, core::JsonValue value, int depth) {
    if (depth > maxUserInfoDepth) reader.fail("nested too deeply");
    UserInfo userInfo;
    reader.object(value, [&](std::string_view key, core::JsonValue member) {
        UserInfoValue element;
        if (readValue(reader, member, depth + 1, element)) userInfo.insert_or_assign(std::string(key), std::move(element));
    });
    return userInfo;
}

bool readValue(core::JsonReader& reader, core::JsonValue value, int depth, UserInfoValue& out) {
    using simdjson::ondemand::json_type;
    switch (reader.check(value.type(), "malformed value")) {
        case json_type::object:
            out = readDictionary(reader, value, depth);
            return true;
        case json_type::array: {
            if (depth > maxUserInfoDepth) reader.fail("nested too deeply");
            UserInfoArray array;
            reader.array(value, [&](core::JsonValue element) {
                UserInfoValue item;
                if (readValue(reader, element, depth + 1, item)) array.push_back(std::move(item));
            });
            out = std::move(array);
            return true;
        }
        case json_type::string:
            out = std::string(reader.string(value));
            return true;
        case json_type::boolean:
            out = reader.boolean(value);
            return true;
        case json_type::number: {
            simdjson::ondemand::number_type type{};
            if (!value.get_number_type().get(type) && type == simdjson::ondemand::number_type::signed_integer) {
                out = reader.int64(value);
            } else {
                out = reader.number(value);
            }
            return true;
        }
        case json_type::null:
            reader.isNull(value);
            return false;
    }
    reader.fail("malformed value");
}

void appendUserInfoText(std::string& out, const UserInfo& userInfo) { out += userInfoToJson(userInfo); }

std::string coordinateText(LocationCoordinate coordinate) {
    char text[64];
    std::snprintf(text, sizeof text, "<%+.8f,%+.8f>", coordinate.latitude, coordinate.longitude);
    return text;
}

std::string optionalNumber(const std::optional<std::uint16_t>& number) {
    return number ? std::to_string(*number) : "(null)";
}

std::string regionDescription(const std::variant<CircularRegion, BeaconRegion>& region) {
    if (const auto* circle = std::get_if<CircularRegion>(&region)) {
        char radius[32];
        std::snprintf(radius, sizeof radius, "%.2f", circle->radius);
        return "CircularRegion (identifier:'" + circle->identifier + "', center:" + coordinateText(circle->center) +
               ", radius:" + radius + "m)";
    }
    const auto& beacon = std::get<BeaconRegion>(region);
    return "BeaconRegion (identifier:'" + beacon.identifier + "', uuid:" + beacon.uuid +
           ", major:" + optionalNumber(beacon.major) + ", minor:" + optionalNumber(beacon.minor) + ")";
}

}  // namespace

std::string userInfoToJson(const UserInfo& userInfo) {
    core::JsonWriter writer;
    writeDictionary(writer, userInfo);
    return writer.take();
}

core::Result<UserInfo> userInfoFromJson(std::string_view json) {
    return core::decodeJson<UserInfo>(json, [](core::JsonReader& reader, core::JsonValue root) {
        return readDictionary(reader, root, 1);
    });
}

std::string NotificationRequest::description() const {
    std::string out = "<NotificationRequest: identifier: " + identifier + ", content: <title: " + content.title +
                      ", subtitle: " + content.subtitle + ", body: " + content.body + ", sound: " +
                      (content.sound == NotificationSound::defaultSound ? "default" : "none") + ", userInfo: ";
    appendUserInfoText(out, content.userInfo);
    out += ">, trigger: ";
    if (trigger) {
        out += "<LocationNotificationTrigger: region: " + regionDescription(trigger->region) +
               ", repeats: " + (trigger->repeats ? "YES" : "NO") + ">";
    } else {
        out += "(null)";
    }
    out += ">";
    return out;
}

}  // namespace drovel::platform
