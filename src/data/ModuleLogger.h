#pragma once
// The Notify module's logger, named "DrovelNotify", shared by every part of the module.

#include "drovel/core/Logger.h"

namespace drovel::notify {

// Process-wide; made on first use and never destroyed, so that code running while the process
// exits can still log. Any thread.
core::Logger& moduleLogger();

}  // namespace drovel::notify
