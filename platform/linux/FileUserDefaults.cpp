#include "linux/FileUserDefaults.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "drovel/core/Logger.h"
#include "linux/AtomicFileWrite.h"
#include "linux/UserDefaultsJson.h"

namespace drovel::platform {

namespace {

// A defaults file holds small values; a larger file is treated as damaged rather than read.
constexpr std::uintmax_t maxFileBytes = 64u << 20;

const core::Logger& logger() {
    static auto* instance = new core::Logger("DrovelPlatform");
    return *instance;
}

class LiveInstances;
LiveInstances& liveInstances();

// The instances alive in the process, so that a normal exit writes what they have pending even
// when an instance is never destroyed (the default platform lives until the process ends).
class LiveInstances {
public:
    LiveInstances() { std::atexit([] { liveInstances().flushAll(); }); }
    void add(FileUserDefaults* instance) {
        std::lock_guard lock(mutex_);
        instances_.insert(instance);
    }
    void remove(FileUserDefaults* instance) {
        std::lock_guard lock(mutex_);
        instances_.erase(instance);
    }
    void flushAll() {
        std::lock_guard lock(mutex_);
        for (auto* instance : instances_) instance->synchronize();
    }

private:
    std::mutex mutex_;
    std::set<FileUserDefaults*> instances_;
};

LiveInstances& liveInstances() {
    static auto* instances = new LiveInstances;  // never destroyed: used at exit
    return *instances;
}

}  // namespace

FileUserDefaults::FileUserDefaults(std::string path, std::chrono::milliseconds flushDelay)
    : path_(std::move(path)), flushDelay_(flushDelay) {
    load();
    liveInstances().add(this);
    writer_ = std::thread([this] { writerLoop(); });
}

FileUserDefaults::~FileUserDefaults() {
    liveInstances().remove(this);
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    writer_.join();
    flush();
}

void FileUserDefaults::load() {
    namespace fs = std::filesystem;
    std::error_code error;
    std::string problem;
    if (!fs::exists(path_, error)) {
        if (!error) return;  // a first start: nothing stored yet
        // Not even its existence can be checked; the first write will tell whether it can be replaced.
        logger().error("User defaults file " + path_ + " is unreadable, starting empty (" + error.message() + ")",
                       DROVEL_SOURCE("FileUserDefaults", "init(path:)"));
        return;
    }

    auto size = fs::file_size(path_, error);
    if (error) {
        problem = error.message();
    } else if (size > maxFileBytes) {
        problem = "the file is too large (" + std::to_string(size) + " bytes)";
    } else {
        std::ifstream in(path_, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        if (!in.good() && !in.eof()) {
            problem = "reading failed";
        } else if (auto decoded = decodeUserDefaults(text.str())) {
            values_ = std::move(decoded).value();
            return;
        } else {
            problem = decoded.error()->description();
        }
    }
    // Keep the damaged file for inspection instead of overwriting it with the next change.
    std::string aside = path_ + ".corrupt";
    fs::rename(path_, aside, error);
    logger().error("User defaults file " + path_ + " is unreadable, starting empty (" + problem + ")" +
                       (error ? "" : "; the file was moved to " + aside),
                   DROVEL_SOURCE("FileUserDefaults", "init(path:)"));
}

std::optional<DefaultsValue> FileUserDefaults::object(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

void FileUserDefaults::set(std::string_view key, DefaultsValue value) {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::move(value));
    changed();
}

void FileUserDefaults::removeObject(std::string_view key) {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return;
    values_.erase(it);
    changed();
}

DefaultsDictionary FileUserDefaults::dictionaryRepresentation() const {
    std::lock_guard lock(mutex_);
    return values_;
}

bool FileUserDefaults::synchronize() { return flush(); }

void FileUserDefaults::changed() {
    ++version_;
    changed_.notify_all();
}

void FileUserDefaults::writerLoop() {
    std::unique_lock lock(mutex_);
    // Changes made before this thread got going count too: start from the loaded state.
    std::uint64_t seen = 0;
    for (;;) {
        changed_.wait(lock, [&] { return stopping_ || version_ != seen; });
        if (stopping_) return;  // the destructor writes what is pending
        // Let a burst of changes settle into one write.
        changed_.wait_for(lock, flushDelay_, [&] { return stopping_; });
        if (stopping_) return;
        seen = version_;
        lock.unlock();
        flush();
        lock.lock();
    }
}

bool FileUserDefaults::flush() {
    std::lock_guard writeLock(writeMutex_);
    std::string text;
    std::uint64_t version;
    {
        std::lock_guard lock(mutex_);
        if (version_ == writtenVersion_) return true;
        version = version_;
        text = encodeUserDefaults(values_);
    }
    // A failed write leaves writtenVersion_ behind, so the next flush tries again.
    if (auto failure = writeFileAtomically(path_, text)) {
        logger().error("Failed to write user defaults to " + path_ + ": " + *failure,
                       DROVEL_SOURCE("FileUserDefaults", "flush()"));
        return false;
    }
    writtenVersion_ = version;
    written_.notify_all();
    return true;
}

bool FileUserDefaults::waitUntilWritten(std::chrono::milliseconds timeout) {
    std::uint64_t target;
    {
        std::lock_guard lock(mutex_);
        target = version_;
    }
    std::unique_lock lock(writeMutex_);
    return written_.wait_for(lock, timeout, [&] { return writtenVersion_ >= target; });
}

}  // namespace drovel::platform
