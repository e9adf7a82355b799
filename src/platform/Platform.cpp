#include "drovel/platform/Platform.h"

#include <mutex>
#include <optional>

#include "drovel/core/Error.h"

namespace drovel::platform {

namespace {

struct DefaultPlatformState {
    std::mutex mutex;
    std::optional<Platform> platform;
    bool used = false;
};

DefaultPlatformState& defaultState() {
    static auto* state = new DefaultPlatformState;  // never destroyed: seams may be used during exit
    return *state;
}

}  // namespace

Platform& defaultPlatform() {
    auto& state = defaultState();
    std::lock_guard lock(state.mutex);
    if (!state.platform) core::programmingError("defaultPlatform() used before installDefaultPlatform()");
    state.used = true;
    return *state.platform;
}

void installDefaultPlatform(Platform platform) {
    auto& state = defaultState();
    std::lock_guard lock(state.mutex);
    // Code may hold references into the installed value once it was handed out.
    if (state.used) core::programmingError("installDefaultPlatform() called after the default platform was used");
    state.platform = std::move(platform);
}

bool hasDefaultPlatform() {
    auto& state = defaultState();
    std::lock_guard lock(state.mutex);
    return state.platform.has_value();
}

}  // namespace drovel::platform
