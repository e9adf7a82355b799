#pragma once
// A small streaming JSON writer: RFC 8259 string escaping, shortest round-trip numbers.
// Commas and nesting are tracked, so callers only say what comes next.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace drovel::core {

// Appends s as a JSON string literal (quotes included). Invalid UTF-8 bytes become U+FFFD.
void appendJsonString(std::string& out, std::string_view s);
// The shortest decimal text that reads back to the same double; always has a fraction or an
// exponent ("40.0", "-74.5", "1e+21"), so it reads back as a non-integer. Non-finite gives "null".
std::string doubleText(double value);

class JsonWriter {
public:
    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    JsonWriter& key(std::string_view name);

    JsonWriter& value(std::string_view s);
    JsonWriter& value(const char* s) { return value(std::string_view(s)); }
    JsonWriter& value(const std::string& s) { return value(std::string_view(s)); }
    JsonWriter& value(bool b);
    JsonWriter& value(int v) { return signedValue(v); }
    JsonWriter& value(long v) { return signedValue(v); }
    JsonWriter& value(long long v) { return signedValue(v); }
    JsonWriter& value(unsigned v) { return unsignedValue(v); }
    JsonWriter& value(unsigned long v) { return unsignedValue(v); }
    JsonWriter& value(unsigned long long v) { return unsignedValue(v); }
    JsonWriter& value(double d);
    JsonWriter& null();
    // Inserts already-encoded JSON text as one value.
    JsonWriter& raw(std::string_view json);

    const std::string& str() const { return out_; }
    std::string take() { return std::move(out_); }

private:
    JsonWriter& signedValue(long long v);
    JsonWriter& unsignedValue(unsigned long long v);
    void beforeValue();
    std::string out_;
    // One entry per open container: true once it holds an element.
    std::vector<bool> hasElement_;
    bool afterKey_ = false;
};

// The JSON text of anything that writes itself with writeJson(JsonWriter&) const.
template <class T>
std::string encodeJson(const T& record) {
    JsonWriter writer;
    record.writeJson(writer);
    return writer.take();
}

}  // namespace drovel::core
