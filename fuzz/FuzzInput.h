#pragma once
// Shared by the fuzz targets: the input as text, and a selector byte for targets with several entry
// points.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace drovel::fuzz {

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

}  // namespace drovel::fuzz
