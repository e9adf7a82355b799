#include "support/CapturingLogSink.h"
#include "support/Locked.h"

namespace drovel::testing {

void CapturingLogSink::write(const core::LogRecord& record) {
    std::lock_guard lock(mutex_);
    records_.push_back(record);
}

std::vector<core::LogRecord> CapturingLogSink::records() const { return lockedCopy(mutex_, records_); }

std::vector<std::string> CapturingLogSink::messages() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const auto& record : records_) out.push_back(record.message);
    return out;
}

std::vector<std::string> CapturingLogSink::messages(core::LogLevel level) const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const auto& record : records_)
        if (record.level == level) out.push_back(record.message);
    return out;
}

bool CapturingLogSink::contains(std::string_view text) const { return count(text) > 0; }

std::size_t CapturingLogSink::count(std::string_view text) const {
    std::lock_guard lock(mutex_);
    std::size_t n = 0;
    for (const auto& record : records_)
        if (record.message.find(text) != std::string::npos) ++n;
    return n;
}

void CapturingLogSink::clear() {
    std::lock_guard lock(mutex_);
    records_.clear();
}

ScopedLogCapture::ScopedLogCapture()
    : sink_(std::make_shared<CapturingLogSink>()), previous_(core::Logger::setSink(sink_)) {}

ScopedLogCapture::~ScopedLogCapture() { core::Logger::setSink(previous_); }

}  // namespace drovel::testing
