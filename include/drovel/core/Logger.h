#pragma once
// The SDK's logger. Each line carries its level, the logger's name, the source file, the function
// and the line. Lines below the logger's level are dropped; the rest go to the process-wide sink
// (standard error by default) and, when writeEnabled is on, are appended to the logger's log file.
// Thread-safe: any thread may log and change the settings.

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace drovel::core {

enum class LogLevel { verbose = 0, debug = 1, info = 2, warning = 3, error = 4 };

std::string_view logLevelName(LogLevel level);  // "verbose", "debug", ...

// Where a line was written: the source file as the SDK names it ("NotifyInteractor",
// "Helpers/LocationManager"), the function as the SDK names it ("saveTriggerEvent(_:)") and the line.
struct LogSource {
    std::string_view file;
    std::string_view function;
    int line = 0;
};

struct LogRecord {
    LogLevel level = LogLevel::info;
    std::string loggerName;
    std::string file;
    std::string function;
    int line = 0;
    std::string message;
    std::chrono::system_clock::time_point time;
};

// "2026-11-21T10:00:00.123Z [error] DrovelNotify NotifyInteractor.saveTriggerEvent(_:):42 text"
std::string formatLogLine(const LogRecord& record);

// Receives every line that passes a logger's level. Called on the logging thread; must be thread-safe.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(const LogRecord& record) = 0;
};

class Logger {
public:
    explicit Logger(std::string name);
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    const std::string& name() const { return name_; }

    LogLevel logLevel() const { return level_.load(std::memory_order_relaxed); }
    void setLogLevel(LogLevel level) { level_.store(level, std::memory_order_relaxed); }
    bool writeEnabled() const { return writeEnabled_.load(std::memory_order_relaxed); }
    void setWriteEnabled(bool enabled) { writeEnabled_.store(enabled, std::memory_order_relaxed); }
    bool isEnabled(LogLevel level) const { return level >= logLevel(); }

    // The file lines are appended to when writeEnabled is on: "<logDirectory()>/<name>.log".
    std::string logFilePath() const;

    void log(LogLevel level, std::string_view message, LogSource source) const;
    void verbose(std::string_view message, LogSource source) const { log(LogLevel::verbose, message, source); }
    void debug(std::string_view message, LogSource source) const { log(LogLevel::debug, message, source); }
    void info(std::string_view message, LogSource source) const { log(LogLevel::info, message, source); }
    void warning(std::string_view message, LogSource source) const { log(LogLevel::warning, message, source); }
    void error(std::string_view message, LogSource source) const { log(LogLevel::error, message, source); }

    // The sink every logger writes to; returns the one it replaces. nullptr restores standard error.
    static std::shared_ptr<LogSink> setSink(std::shared_ptr<LogSink> sink);
    // The level a new logger starts with (default: info; DROVEL_LOG_LEVEL overrides it at start-up).
    static void setDefaultLogLevel(LogLevel level);
    static LogLevel defaultLogLevel();
    // Folder of the log files: DROVEL_LOG_DIR, else $XDG_STATE_HOME/drovel, else ~/.local/state/drovel.
    static void setLogDirectory(std::string directory);
    static std::string logDirectory();

private:
    std::string name_;
    std::atomic<LogLevel> level_;
    std::atomic<bool> writeEnabled_{false};
};

}  // namespace drovel::core

// A LogSource for the current line: DROVEL_SOURCE("NotifyInteractor", "saveTriggerEvent(_:)").
#define DROVEL_SOURCE(file, function) (::drovel::core::LogSource{(file), (function), __LINE__})
