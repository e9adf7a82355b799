#pragma once
// User defaults in memory. Thread-safe.

#include <mutex>

#include "drovel/platform/UserDefaults.h"

namespace drovel::testing {

class FakeUserDefaults : public platform::UserDefaults {
public:
    std::optional<platform::DefaultsValue> object(std::string_view key) const override;
    void set(std::string_view key, platform::DefaultsValue value) override;
    void removeObject(std::string_view key) override;
    platform::DefaultsDictionary dictionaryRepresentation() const override;
    bool synchronize() override;

    // How many set() and removeObject() calls there were.
    std::size_t writeCount() const;

private:
    mutable std::mutex mutex_;
    platform::DefaultsDictionary values_;
    std::size_t writes_ = 0;
};

}  // namespace drovel::testing
