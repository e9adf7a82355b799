#pragma once
// A small streaming 64-bit hasher for template values. Copying a hasher copies its state, which
// is how order-independent combinations seed one hasher per element from an outer one.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace drovel::templating {

class Hasher {
public:
    Hasher() = default;
    explicit Hasher(std::uint64_t seed) : state_(seed) {}

    void combine(std::uint64_t word) {
        state_ = (state_ ^ word) * 0x9E3779B97F4A7C15ull;
        state_ ^= state_ >> 29;
    }

    void combineBytes(const void* data, std::size_t size) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        for (; size >= 8; bytes += 8, size -= 8) {
            std::uint64_t word;
            std::memcpy(&word, bytes, 8);
            combine(word);
        }
        std::uint64_t tail = 0;
        std::memcpy(&tail, bytes, size);
        combine(tail ^ (std::uint64_t(size) << 56));
    }

    // The hash of everything combined so far; the hasher may go on being used.
    std::uint64_t finalize() const {
        std::uint64_t h = state_;
        h ^= h >> 33;
        h *= 0xFF51AFD7ED558CCDull;
        h ^= h >> 33;
        h *= 0xC4CEB9FE1A85EC53ull;
        h ^= h >> 33;
        return h;
    }

private:
    std::uint64_t state_ = 0x243F6A8885A308D3ull;
};

}  // namespace drovel::templating
