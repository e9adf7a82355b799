#include "template/Log.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

namespace drovel::templating {

namespace {

std::mutex handlerMutex;
std::shared_ptr<const LogHandler> currentHandler;
std::shared_ptr<const ClockHandler> currentClock;

void defaultHandler(std::string_view message) {
    static const bool enabled = std::getenv("DROVEL_TEMPLATE_LOG") != nullptr;
    if (!enabled) return;
    std::string line(message);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

void setLogHandler(LogHandler handler) {
    auto replacement = handler ? std::make_shared<const LogHandler>(std::move(handler)) : nullptr;
    std::lock_guard lock(handlerMutex);
    currentHandler = std::move(replacement);
}

void log(std::string_view message) {
    std::shared_ptr<const LogHandler> handler;
    {
        std::lock_guard lock(handlerMutex);
        handler = currentHandler;
    }
    // Called outside the lock so that a handler may replace itself.
    if (handler) (*handler)(message);
    else defaultHandler(message);
}

void setClock(ClockHandler clock) {
    auto replacement = clock ? std::make_shared<const ClockHandler>(std::move(clock)) : nullptr;
    std::lock_guard lock(handlerMutex);
    currentClock = std::move(replacement);
}

std::chrono::system_clock::time_point currentDate() {
    std::shared_ptr<const ClockHandler> clock;
    {
        std::lock_guard lock(handlerMutex);
        clock = currentClock;
    }
    return clock ? (*clock)() : std::chrono::system_clock::now();
}

}  // namespace drovel::templating
