#pragma once
// The engine's own log: tag, filter, parse and structural messages that never fail a rendering.
// The engine does not depend on the core library, so the host connects this log to its own.

#include <functional>
#include <string_view>

namespace drovel::templating {

using LogHandler = std::function<void(std::string_view message)>;

// Replaces the handler for every later message; an empty handler restores the default. The
// default writes each message as a line to standard error when the environment variable
// DROVEL_TEMPLATE_LOG is set, and drops it otherwise. Thread-safe; the handler may be called on
// any thread that renders and must not render templates itself.
void setLogHandler(LogHandler handler);

// Passes one message to the current handler.
void log(std::string_view message);

}  // namespace drovel::templating
