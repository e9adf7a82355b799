#pragma once
// Base64 with the standard alphabet, padded.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace drovel::platform {

std::string base64Encode(const std::vector<std::uint8_t>& bytes);
// Only whole, padded groups of the standard alphabet decode; anything else gives none.
std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text);

}  // namespace drovel::platform
