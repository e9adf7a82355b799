#include "linux/Base64.h"

namespace drovel::platform {

namespace {

constexpr char base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

}  // namespace

std::string base64Encode(const std::vector<std::uint8_t>& bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t chunk = std::uint32_t{bytes[i]} << 16;
        if (i + 1 < bytes.size()) chunk |= std::uint32_t{bytes[i + 1]} << 8;
        if (i + 2 < bytes.size()) chunk |= bytes[i + 2];
        out.push_back(base64Alphabet[(chunk >> 18) & 63]);
        out.push_back(base64Alphabet[(chunk >> 12) & 63]);
        out.push_back(i + 1 < bytes.size() ? base64Alphabet[(chunk >> 6) & 63] : '=');
        out.push_back(i + 2 < bytes.size() ? base64Alphabet[chunk & 63] : '=');
    }
    return out;
}

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
    std::vector<std::uint8_t> out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        std::uint32_t chunk = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            bool isPadding = i + j >= text.size() - padding;
            int digit = isPadding ? 0 : base64Digit(text[i + j]);
            if (digit < 0) return std::nullopt;
            chunk = chunk << 6 | static_cast<std::uint32_t>(digit);
        }
        out.push_back(static_cast<std::uint8_t>(chunk >> 16));
        out.push_back(static_cast<std::uint8_t>(chunk >> 8));
        out.push_back(static_cast<std::uint8_t>(chunk));
    }
    out.resize(out.size() - padding);
    return out;
}

}  // namespace drovel::platform
