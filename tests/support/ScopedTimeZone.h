#pragma once
// Sets TZ for one scope and puts the previous value back.

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace drovel::testing {

class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) {
        if (const char* old = std::getenv("TZ")) previous_ = old;
        set(zone);
    }
    ~ScopedTimeZone() { set(previous_ ? previous_->c_str() : nullptr); }
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

    // Changes TZ again within the scope; nullptr unsets it.
    static void set(const char* zone) {
        if (zone) setenv("TZ", zone, 1);
        else unsetenv("TZ");
        tzset();
    }

private:
    std::optional<std::string> previous_;
};

}  // namespace drovel::testing
