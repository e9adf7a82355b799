#include "core/JsonReader.h"

namespace drovel::core {

std::string JsonReader::path() const {
    if (path_.empty()) return "(root)";
    std::string out;
    for (const auto& segment : path_) {
        if (segment.isIndex) {
            out += "[" + std::to_string(segment.index) + "]";
        } else {
            if (!out.empty()) out += ".";
            out += segment.key;
        }
    }
    return out;
}

void JsonReader::fail(std::string_view message) const {
    throw JsonDecodeFailure(path() + ": " + std::string(message));
}

void JsonReader::missingKey(std::string_view key) const {
    fail("missing required key '" + std::string(key) + "'");
}

void JsonReader::failWith(simdjson::error_code error, std::string_view expectation) const {
    switch (error) {
        case simdjson::INCORRECT_TYPE:
        case simdjson::NUMBER_ERROR:
            fail(expectation);
        case simdjson::NUMBER_OUT_OF_RANGE:
            fail(std::string(expectation) + " (the number does not fit)");
        default:
            fail(std::string(expectation) + " (" + simdjson::error_message(error) + ")");
    }
}

std::string_view JsonReader::string(JsonValue value) { return check(value.get_string(), "expected a string"); }

namespace {

// Errors after which the value can still be looked at; any other error may have abandoned the document.
bool isTypeMismatch(simdjson::error_code error) {
    return error == simdjson::INCORRECT_TYPE || error == simdjson::NUMBER_ERROR || error == simdjson::NUMBER_OUT_OF_RANGE;
}

// simdjson reports an integer literal beyond 64 bits as a type mismatch; name it for what it is.
bool isIntegerText(JsonValue& value) {
    std::string_view token = value.raw_json_token();
    std::size_t start = !token.empty() && token.front() == '-' ? 1 : 0;
    std::size_t end = start;
    while (end < token.size() && token[end] >= '0' && token[end] <= '9') ++end;
    return end > start && token.find_first_not_of(" \t\r\n", end) == std::string_view::npos;
}

}  // namespace

std::int64_t JsonReader::int64(JsonValue value) {
    std::int64_t out = 0;
    if (auto error = value.get_int64().get(out)) {
        if (isTypeMismatch(error) && isIntegerText(value)) fail("expected an integer (the number does not fit)");
        failWith(error, "expected an integer");
    }
    return out;
}

std::uint64_t JsonReader::uint64(JsonValue value) {
    std::uint64_t out = 0;
    if (auto error = value.get_uint64().get(out)) {
        if (isTypeMismatch(error) && isIntegerText(value) && value.raw_json_token().front() != '-')
            fail("expected a non-negative integer (the number does not fit)");
        failWith(error, "expected a non-negative integer");
    }
    return out;
}

double JsonReader::number(JsonValue value) { return check(value.get_double(), "expected a number"); }

bool JsonReader::boolean(JsonValue value) { return check(value.get_bool(), "expected a boolean"); }

bool JsonReader::isNull(JsonValue value) {
    bool null = false;
    if (auto error = value.is_null().get(null)) failWith(error, "malformed value");
    return null;
}

std::string_view JsonReader::rawJson(JsonValue value) {
    // raw_json() walks containers to find their end; validate them too so that a truncated value
    // does not slip through.
    simdjson::ondemand::json_type type = check(value.type(), "malformed value");
    if (type == simdjson::ondemand::json_type::object) {
        simdjson::ondemand::object obj = check(value.get_object(), "expected an object");
        return check(obj.raw_json(), "malformed object");
    }
    if (type == simdjson::ondemand::json_type::array) {
        simdjson::ondemand::array arr = check(value.get_array(), "expected an array");
        return check(arr.raw_json(), "malformed array");
    }
    std::string_view token = value.raw_json_token();
    // The token runs up to the next structural character; drop the white space before it.
    while (!token.empty() && (token.back() == ' ' || token.back() == '\n' || token.back() == '\r' || token.back() == '\t'))
        token.remove_suffix(1);
    skip(value);
    return token;
}

void JsonReader::checkDepth() const {
    if (path_.size() > maxDepth) fail("nesting too deep");
}

std::size_t JsonReader::elementCount(JsonValue value) {
    std::size_t count = 0;
    // A failed count abandons the document, so it must end the decoding here.
    if (auto error = value.count_elements().get(count))
        failWith(error, error == simdjson::INCORRECT_TYPE ? "expected an array" : "malformed array");
    return count;
}

void JsonReader::skip(JsonValue value) {
    simdjson::ondemand::json_type type = check(value.type(), "malformed value");
    switch (type) {
        case simdjson::ondemand::json_type::object:
            object(value, [this](std::string_view, JsonValue member) { skip(member); });
            break;
        case simdjson::ondemand::json_type::array:
            array(value, [this](JsonValue element) { skip(element); });
            break;
        case simdjson::ondemand::json_type::string:
            string(value);
            break;
        case simdjson::ondemand::json_type::number:
            number(value);
            break;
        case simdjson::ondemand::json_type::boolean:
            boolean(value);
            break;
        case simdjson::ondemand::json_type::null:
            if (!isNull(value)) fail("malformed value");
            break;
    }
}

namespace detail {

simdjson::ondemand::parser& threadParser() {
    thread_local simdjson::ondemand::parser parser;
    return parser;
}

void checkTrailing(simdjson::ondemand::document& document, JsonReader& reader) {
    const char* location = nullptr;
    if (document.current_location().get(location) != simdjson::OUT_OF_BOUNDS)
        reader.fail("unexpected content after the document");
}

}  // namespace detail

}  // namespace drovel::core
