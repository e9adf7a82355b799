#pragma once
// One-line accessors for fakes whose state one mutex guards.

#include <mutex>
#include <utility>

namespace drovel::testing {

// A copy of field, read under mutex.
template <class T>
T lockedCopy(std::mutex& mutex, const T& field) {
    std::lock_guard lock(mutex);
    return field;
}

// field = value, under mutex.
template <class T, class U>
void lockedAssign(std::mutex& mutex, T& field, U&& value) {
    std::lock_guard lock(mutex);
    field = std::forward<U>(value);
}

}  // namespace drovel::testing
