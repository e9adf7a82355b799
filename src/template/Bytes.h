#pragma once
// Byte-level helpers for the engine's short texts: names, keys and keywords are mostly a few
// bytes long, and for them a couple of word loads beat a call to memcmp.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace drovel::templating::bytes {

inline std::uint64_t loadWord(const char* at) {
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// Whether two texts of one length are equal: up to sixteen bytes in at most two overlapping
// loads from each end, longer ones by comparison.
inline bool same(const char* a, const char* b, std::size_t size) {
    if (size >= 8) {
        if (size > 16) return std::memcmp(a, b, size) == 0;
        return loadWord(a) == loadWord(b) && loadWord(a + size - 8) == loadWord(b + size - 8);
    }
    if (size >= 4) {
        std::uint32_t x, y, z, w;
        std::memcpy(&x, a, 4), std::memcpy(&y, b, 4), std::memcpy(&z, a + size - 4, 4), std::memcpy(&w, b + size - 4, 4);
        return x == y && z == w;
    }
    return size == 0 || (a[0] == b[0] && a[size / 2] == b[size / 2] && a[size - 1] == b[size - 1]);
}

}  // namespace drovel::templating::bytes
