#pragma once
// Strict JSON decoding on simdjson's ondemand API, shared by every decoder of the SDK.
//
// A decoder is a function that reads the root value through a JsonReader. Any problem (malformed
// text, a missing or mistyped required key, a number that does not fit, trailing content) aborts
// the whole document with a message naming the key path, e.g.
//   "data[3].campaign_id: expected an integer". decode() turns that into an error; it never throws.

#include <simdjson.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"

namespace drovel::core {

using JsonValue = simdjson::ondemand::value;

class JsonDecodeError : public Error {
public:
    explicit JsonDecodeError(std::string message) : message_(std::move(message)) {}
    std::string description() const override { return message_; }

private:
    std::string message_;
};

// Thrown inside a decoder, caught by decode().
struct JsonDecodeFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class JsonReader {
public:
    // Reading a scalar; each throws JsonDecodeFailure naming the current path on a type mismatch.
    std::string_view string(JsonValue value);
    std::int64_t int64(JsonValue value);
    std::uint64_t uint64(JsonValue value);
    double number(JsonValue value);  // integers are accepted too
    bool boolean(JsonValue value);
    bool isNull(JsonValue value);
    // The value's JSON text exactly as written.
    std::string_view rawJson(JsonValue value);

    // Containers nest at most this deep (the root is at depth 0): every reader that recurses into
    // outside JSON is bounded by it, so a hostile document fails with "nesting too deep" instead of
    // exhausting the stack.
    static constexpr std::size_t maxDepth = 256;

    // Calls onField(key, value) for each member, with the path extended by the key.
    template <class F>
    void object(JsonValue value, F&& onField);
    // Calls onElement(value) for each element, with the path extended by the index.
    template <class F>
    void array(JsonValue value, F&& onElement);
    // The number of elements of an array, which is then walked from its start as usual (for
    // reserving room before array()).
    std::size_t elementCount(JsonValue value);
    // Walks and validates a value that the decoder does not use.
    void skip(JsonValue value);

    // Aborts the document with a message about the current path.
    [[noreturn]] void fail(std::string_view message) const;
    // "data[3].campaign_id", or "(root)" at the top.
    std::string path() const;
    // Checks a simdjson result; on error aborts with the given expectation ("expected an integer").
    template <class T>
    T check(simdjson::simdjson_result<T>&& result, std::string_view expectation) {
        T out{};
        if (auto error = std::move(result).get(out)) failWith(error, expectation);
        return out;
    }

    // For decoders that check required keys after the walk: "missing required key 'id'".
    [[noreturn]] void missingKey(std::string_view key) const;

private:
    struct Segment {
        std::string_view key;
        std::size_t index = 0;
        bool isIndex = false;
    };
    [[noreturn]] void failWith(simdjson::error_code error, std::string_view expectation) const;
    void checkDepth() const;
    std::vector<Segment> path_;
};

// Parses text and runs readRoot(reader, rootValue) -> T. Trailing content after the root value fails.
template <class T, class F>
Result<T> decodeJson(std::string_view text, F&& readRoot);

// The value of a required key after the object's walk; aborts naming the key when it was missing.
template <class T>
T required(JsonReader& reader, std::optional<T>& field, std::string_view key) {
    if (!field) reader.missingKey(key);
    return std::move(*field);
}

// ---- implementation ----

// Every simdjson result is checked before the next call: after some errors simdjson abandons the
// document, and calling into it again would use a parser that is gone.
template <class F>
void JsonReader::object(JsonValue value, F&& onField) {
    checkDepth();
    simdjson::ondemand::object obj = check(value.get_object(), "expected an object");
    for (auto fieldResult : obj) {
        simdjson::ondemand::field field = check(std::move(fieldResult), "malformed object");
        std::string_view key = check(field.unescaped_key(), "malformed key");
        path_.push_back({key, 0, false});
        onField(key, field.value());
        path_.pop_back();
    }
}

template <class F>
void JsonReader::array(JsonValue value, F&& onElement) {
    checkDepth();
    simdjson::ondemand::array arr = check(value.get_array(), "expected an array");
    std::size_t index = 0;
    for (auto elementResult : arr) {
        JsonValue element = check(std::move(elementResult), "malformed array");
        path_.push_back({{}, index, true});
        onElement(element);
        path_.pop_back();
        ++index;
    }
}

namespace detail {
// One parser per thread, reused: parsing is the hot path of a download.
simdjson::ondemand::parser& threadParser();
void checkTrailing(simdjson::ondemand::document& document, JsonReader& reader);
}  // namespace detail

template <class T, class F>
Result<T> decodeJson(std::string_view text, F&& readRoot) {
    try {
        simdjson::padded_string padded(text);
        auto& parser = detail::threadParser();
        JsonReader reader;
        simdjson::ondemand::document document = reader.check(parser.iterate(padded), "malformed JSON");
        JsonValue root = reader.check(document.get_value(), "expected an object or an array");
        T out = readRoot(reader, root);
        detail::checkTrailing(document, reader);
        return out;
    } catch (const JsonDecodeFailure& failure) {
        return makeError<JsonDecodeError>(failure.what());
    } catch (const std::bad_alloc&) {
        return makeError<JsonDecodeError>("(root): document too large");
    }
}

}  // namespace drovel::core
