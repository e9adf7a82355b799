#include "drovel/core/JsonWriter.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace drovel::core {

namespace {

// Length of the valid UTF-8 sequence at s[i], or 0 when the bytes there are not one.
std::size_t utf8SequenceLength(std::string_view s, std::size_t i) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char c = byte(i);
    std::size_t n;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) n = 2;
    else if (c == 0xE0) { n = 3; lo = 0xA0; }
    else if (c == 0xED) { n = 3; hi = 0x9F; }
    else if (c >= 0xE1 && c <= 0xEF) n = 3;
    else if (c == 0xF0) { n = 4; lo = 0x90; }
    else if (c >= 0xF1 && c <= 0xF3) n = 4;
    else if (c == 0xF4) { n = 4; hi = 0x8F; }
    else return 0;
    if (i + n > s.size()) return 0;
    if (byte(i + 1) < lo || byte(i + 1) > hi) return 0;
    for (std::size_t k = 2; k < n; ++k)
        if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return 0;
    return n;
}

}  // namespace

void appendJsonString(std::string& out, std::string_view s) {
    static const char* hex = "0123456789abcdef";
    out.push_back('"');
    std::size_t i = 0;
    while (i < s.size()) {
        // Copy the run of bytes that need no escaping in one go.
        std::size_t start = i;
        while (i < s.size()) {
            unsigned char c = static_cast<unsigned char>(s[i]);
            if (c < 0x20 || c == '"' || c == '\\' || c >= 0x80) break;
            ++i;
        }
        out.append(s.data() + start, i - start);
        if (i == s.size()) break;
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c >= 0x80) {
            std::size_t n = utf8SequenceLength(s, i);
            if (n == 0) {
                out.append("\xEF\xBF\xBD");
                ++i;
            } else {
                out.append(s.data() + i, n);
                i += n;
            }
            continue;
        }
        switch (c) {
            case '"': out.append("\\\""); break;
            case '\\': out.append("\\\\"); break;
            case '\n': out.append("\\n"); break;
            case '\r': out.append("\\r"); break;
            case '\t': out.append("\\t"); break;
            case '\b': out.append("\\b"); break;
            case '\f': out.append("\\f"); break;
            default:
                out.append("\\u00");
                out.push_back(hex[c >> 4]);
                out.push_back(hex[c & 15]);
        }
        ++i;
    }
    out.push_back('"');
}

std::string doubleText(double value) {
    if (!std::isfinite(value)) return "null";
    char buffer[64];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    std::string text(buffer, end);
    if (text.find_first_of(".eEn") == std::string::npos) text += ".0";
    return text;
}

void JsonWriter::beforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (!hasElement_.empty()) {
        if (hasElement_.back()) out_.push_back(',');
        hasElement_.back() = true;
    }
}

JsonWriter& JsonWriter::beginObject() {
    beforeValue();
    out_.push_back('{');
    hasElement_.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::endObject() {
    out_.push_back('}');
    hasElement_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::beginArray() {
    beforeValue();
    out_.push_back('[');
    hasElement_.push_back(false);
    return *this;
}

JsonWriter& JsonWriter::endArray() {
    out_.push_back(']');
    hasElement_.pop_back();
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    beforeValue();
    appendJsonString(out_, name);
    out_.push_back(':');
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::value(std::string_view s) {
    beforeValue();
    appendJsonString(out_, s);
    return *this;
}

JsonWriter& JsonWriter::value(bool b) {
    beforeValue();
    out_.append(b ? "true" : "false");
    return *this;
}

JsonWriter& JsonWriter::signedValue(long long v) {
    beforeValue();
    char buffer[24];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, v);
    out_.append(buffer, end);
    return *this;
}

JsonWriter& JsonWriter::unsignedValue(unsigned long long v) {
    beforeValue();
    char buffer[24];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, v);
    out_.append(buffer, end);
    return *this;
}

JsonWriter& JsonWriter::value(double d) {
    beforeValue();
    out_.append(doubleText(d));
    return *this;
}

JsonWriter& JsonWriter::null() {
    beforeValue();
    out_.append("null");
    return *this;
}

JsonWriter& JsonWriter::raw(std::string_view json) {
    beforeValue();
    out_.append(json);
    return *this;
}

}  // namespace drovel::core
