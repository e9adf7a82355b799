#include "data/ModuleLogger.h"

namespace drovel::notify {

core::Logger& moduleLogger() {
    // Never destroyed: worker threads may still log during static destruction.
    static auto* logger = new core::Logger("DrovelNotify");
    return *logger;
}

}  // namespace drovel::notify
