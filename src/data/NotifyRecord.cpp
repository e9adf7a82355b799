#include "drovel/notify/NotifyRecord.h"

#include <random>

#include "drovel/platform/Location.h"

namespace drovel::notify {

std::optional<UUID> UUID::fromString(std::string_view text) {
    const auto canonical = platform::canonicalUUID(text);  // upper-case digits, dashes in place
    if (!canonical) return std::nullopt;
    auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'A' + 10; };
    std::array<std::uint8_t, 16> bytes{};
    std::size_t byte = 0;
    for (std::size_t i = 0; i < canonical->size(); i += 2) {
        if ((*canonical)[i] == '-') ++i;
        bytes[byte++] = static_cast<std::uint8_t>(digit((*canonical)[i]) << 4 | digit((*canonical)[i + 1]));
    }
    return UUID(bytes);
}

UUID UUID::random() {
    // random_device draws from the system's entropy source, so guids of different processes and
    // threads do not collide.
    thread_local std::random_device device;
    std::array<std::uint8_t, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        std::uint32_t word = device();
        for (std::size_t k = 0; k < 4; ++k) bytes[i + k] = static_cast<std::uint8_t>(word >> (8 * k));
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return UUID(bytes);
}

std::string UUID::uuidString() const {
    static const char* hex = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
        text.push_back(hex[bytes_[i] >> 4]);
        text.push_back(hex[bytes_[i] & 15]);
    }
    return text;
}

}  // namespace drovel::notify
