#include "support/FakeUserDefaults.h"
#include "support/Locked.h"

namespace drovel::testing {

std::optional<platform::DefaultsValue> FakeUserDefaults::object(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

void FakeUserDefaults::set(std::string_view key, platform::DefaultsValue value) {
    std::lock_guard lock(mutex_);
    ++writes_;
    values_.insert_or_assign(std::string(key), std::move(value));
}

void FakeUserDefaults::removeObject(std::string_view key) {
    std::lock_guard lock(mutex_);
    ++writes_;
    if (auto it = values_.find(key); it != values_.end()) values_.erase(it);
}

platform::DefaultsDictionary FakeUserDefaults::dictionaryRepresentation() const { return lockedCopy(mutex_, values_); }

bool FakeUserDefaults::synchronize() { return true; }

std::size_t FakeUserDefaults::writeCount() const { return lockedCopy(mutex_, writes_); }

}  // namespace drovel::testing
