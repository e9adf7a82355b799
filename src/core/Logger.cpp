#include "drovel/core/Logger.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>

namespace drovel::core {

namespace {

LogLevel levelFromEnvironment() {
    const char* text = std::getenv("DROVEL_LOG_LEVEL");
    if (!text) return LogLevel::info;
    std::string_view name(text);
    for (int i = 0; i <= static_cast<int>(LogLevel::error); ++i)
        if (logLevelName(static_cast<LogLevel>(i)) == name) return static_cast<LogLevel>(i);
    return LogLevel::info;
}

class StandardErrorSink : public LogSink {
public:
    void write(const LogRecord& record) override {
        std::string line = formatLogLine(record);
        line.push_back('\n');
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
};

struct LoggingState {
    std::mutex mutex;
    std::shared_ptr<LogSink> sink = std::make_shared<StandardErrorSink>();
    std::atomic<LogLevel> defaultLevel{levelFromEnvironment()};
    std::string directory;
    std::mutex fileMutex;
};

LoggingState& state() {
    static LoggingState* s = new LoggingState;  // never destroyed: loggers may log during exit
    return *s;
}

std::string defaultDirectory() {
    if (const char* dir = std::getenv("DROVEL_LOG_DIR"); dir && *dir) return dir;
    if (const char* dir = std::getenv("XDG_STATE_HOME"); dir && *dir) return std::string(dir) + "/drovel";
    if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.local/state/drovel";
    return ".";
}

}  // namespace

std::string_view logLevelName(LogLevel level) {
    switch (level) {
        case LogLevel::verbose: return "verbose";
        case LogLevel::debug: return "debug";
        case LogLevel::info: return "info";
        case LogLevel::warning: return "warning";
        case LogLevel::error: return "error";
    }
    return "unknown";
}

std::string formatLogLine(const LogRecord& record) {
    auto seconds = std::chrono::system_clock::to_time_t(record.time);
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(record.time.time_since_epoch()).count() % 1000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char stamp[96];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(millis));
    std::string line;
    line.reserve(64 + record.message.size());
    line.append(stamp).append(" [").append(logLevelName(record.level)).append("] ");
    line.append(record.loggerName).append(" ");
    line.append(record.file).append(".").append(record.function).append(":").append(std::to_string(record.line));
    line.append(" ").append(record.message);
    return line;
}

Logger::Logger(std::string name) : name_(std::move(name)), level_(defaultLogLevel()) {}

std::string Logger::logFilePath() const { return logDirectory() + "/" + name_ + ".log"; }

void Logger::log(LogLevel level, std::string_view message, LogSource source) const {
    if (!isEnabled(level)) return;
    LogRecord record{level, name_, std::string(source.file), std::string(source.function), source.line,
                     std::string(message), std::chrono::system_clock::now()};
    std::shared_ptr<LogSink> sink;
    {
        std::lock_guard lock(state().mutex);
        sink = state().sink;
    }
    sink->write(record);
    if (writeEnabled()) {
        // A log file that cannot be written must not disturb the host: the line is dropped.
        std::lock_guard lock(state().fileMutex);
        std::string path = logFilePath();
        std::error_code ec;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
        std::ofstream file(path, std::ios::app);
        if (file) file << formatLogLine(record) << '\n';
    }
}

std::shared_ptr<LogSink> Logger::setSink(std::shared_ptr<LogSink> sink) {
    if (!sink) sink = std::make_shared<StandardErrorSink>();
    std::lock_guard lock(state().mutex);
    std::swap(state().sink, sink);
    return sink;
}

void Logger::setDefaultLogLevel(LogLevel level) { state().defaultLevel.store(level); }
LogLevel Logger::defaultLogLevel() { return state().defaultLevel.load(); }

void Logger::setLogDirectory(std::string directory) {
    std::lock_guard lock(state().mutex);
    state().directory = std::move(directory);
}

std::string Logger::logDirectory() {
    std::lock_guard lock(state().mutex);
    if (state().directory.empty()) state().directory = defaultDirectory();
    return state().directory;
}

}  // namespace drovel::core
