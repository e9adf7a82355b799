#pragma once
// A LogSink that keeps every record, for tests that assert log lines. Thread-safe.

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Logger.h"

namespace drovel::testing {

class CapturingLogSink : public core::LogSink {
public:
    void write(const core::LogRecord& record) override;

    std::vector<core::LogRecord> records() const;
    // The messages, in the order written.
    std::vector<std::string> messages() const;
    // The messages written at this level.
    std::vector<std::string> messages(core::LogLevel level) const;
    // Whether some message contains text.
    bool contains(std::string_view text) const;
    // How many messages contain text.
    std::size_t count(std::string_view text) const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<core::LogRecord> records_;
};

// Installs a CapturingLogSink as the process-wide sink for its lifetime, then puts the previous
// sink back.
class ScopedLogCapture {
public:
    ScopedLogCapture();
    ~ScopedLogCapture();
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

    CapturingLogSink& sink() { return *sink_; }
    CapturingLogSink* operator->() { return sink_.get(); }

private:
    std::shared_ptr<CapturingLogSink> sink_;
    std::shared_ptr<core::LogSink> previous_;
};

}  // namespace drovel::testing
