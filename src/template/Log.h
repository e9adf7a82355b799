#pragma once
// The engine's own log: tag, filter, parse and structural messages that never fail a rendering.
// The engine does not depend on the core library, so the host connects this log to its own, and
// its clock likewise.

#include <chrono>
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

// The engine's clock: everything in the engine that reads the current date and time ("now" and
// "today" in dates) reads it here. Replaces the clock for every later reading; an empty clock
// restores the default, the system clock. Thread-safe, like the log handler; a simulator sets a
// fixed clock so that a template renders the same text on every run.
using ClockHandler = std::function<std::chrono::system_clock::time_point()>;
void setClock(ClockHandler clock);
std::chrono::system_clock::time_point currentDate();

}  // namespace drovel::templating
