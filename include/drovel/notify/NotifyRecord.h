#pragma once
// Pieces shared by the module's records: dates, UUIDs, the HasIntID interface, the cache behind
// the values that some records compute on first use, and the core classes their forms take.

#include <array>
#include <atomic>
#include <chrono>
#include <compare>
#include <concepts>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "drovel/platform/Clock.h"

// What the records' JSON forms take; declared here once for every record header.
namespace drovel::core {
class JsonWriter;
}  // namespace drovel::core

namespace drovel::notify {

using platform::Date;

// A span of time; both ends belong to it.
struct DateInterval {
    Date start;
    Date end;

    bool contains(Date date) const { return start <= date && date <= end; }
    bool operator==(const DateInterval&) const = default;
};

// A 128-bit universally unique identifier.
class UUID {
public:
    explicit UUID(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

    // The canonical 8-4-4-4-12 hexadecimal form, in either case; any other text gives none.
    static std::optional<UUID> fromString(std::string_view text);
    // A fresh random (version 4) UUID. Any thread.
    static UUID random();

    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }
    // The canonical form in upper case, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
    std::string uuidString() const;

    auto operator<=>(const UUID&) const = default;

private:
    std::array<std::uint8_t, 16> bytes_;
};

// Records identified by an integer id (campaigns and sites).
template <class T>
concept HasIntID = requires(const T& record) {
    { record.id() } -> std::same_as<std::int64_t>;
};

namespace detail {

// A value computed on first use and then kept, an absent result included. get() may be called from
// any number of threads at once: the first caller computes, the others wait for its result.
// A copy takes over the source's value when that was already computed. Assigning to a record while
// another thread reads it is a race, as for any object.
template <class T>
class Lazy {
public:
    Lazy() = default;
    Lazy(const Lazy& other) noexcept(std::is_nothrow_copy_constructible_v<T>) { copyFrom(other); }
    Lazy& operator=(const Lazy& other) noexcept(std::is_nothrow_copy_assignable_v<T>) {
        if (this != &other) {
            ready_.store(false, std::memory_order_relaxed);
            copyFrom(other);
        }
        return *this;
    }

    // A cache plays no part in comparing the records that hold one.
    bool operator==(const Lazy&) const { return true; }

    template <class Compute>
    const T& get(Compute&& compute) const {
        if (!ready_.load(std::memory_order_acquire)) {
            std::lock_guard lock(mutex_);
            if (!ready_.load(std::memory_order_relaxed)) {
                value_ = compute();
                ready_.store(true, std::memory_order_release);
            }
        }
        return value_;
    }

private:
    void copyFrom(const Lazy& other) {
        if (other.ready_.load(std::memory_order_acquire)) {
            value_ = other.value_;
            ready_.store(true, std::memory_order_release);
        }
    }

    mutable std::atomic<bool> ready_{false};
    mutable std::mutex mutex_;
    mutable T value_{};
};

}  // namespace detail

}  // namespace drovel::notify
