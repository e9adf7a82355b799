#pragma once
// User defaults kept in one JSON file.
//
// The whole file is rewritten atomically (temporary file, fsync, rename, fsync of the folder), so a
// crash at any moment leaves either the old or the new file, both readable. Writing is done by a
// background thread shortly after a change (flushDelay), so that a burst of changes costs one write
// rather than one per change (each write waits for the disk); synchronize() writes at once, and
// the destructor and a normal process exit write whatever is pending. The file is read once, at
// construction; an unreadable or corrupt file is set aside as "<path>.corrupt", logged at error
// level, and the defaults start empty. Thread-safe.
//
// File form: see UserDefaultsJson.h.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "drovel/core/Error.h"
#include "drovel/platform/UserDefaults.h"

namespace drovel::platform {

class FileUserDefaults final : public UserDefaults {
public:
    // Reads the file at path when it exists; its folder is created on the first write.
    explicit FileUserDefaults(std::string path,
                              std::chrono::milliseconds flushDelay = std::chrono::milliseconds(10));
    // Writes what is pending.
    ~FileUserDefaults() override;
    FileUserDefaults(const FileUserDefaults&) = delete;
    FileUserDefaults& operator=(const FileUserDefaults&) = delete;

    const std::string& path() const { return path_; }

    std::optional<DefaultsValue> object(std::string_view key) const override;
    void set(std::string_view key, DefaultsValue value) override;
    void removeObject(std::string_view key) override;
    DefaultsDictionary dictionaryRepresentation() const override;
    // Writes pending changes now (and retries a write that failed); false when writing failed.
    bool synchronize() override;
    // Waits until every change made before the call is in the file, without writing it itself;
    // false when timeout passes first. For tests and tools that watch the background writer.
    bool waitUntilWritten(std::chrono::milliseconds timeout);

private:
    // Reads the file into values_.
    void load();
    // Marks a change for the writer thread. Called with mutex_ held.
    void changed();
    void writerLoop();
    // Writes the values if they changed since the last successful write; logs a failure.
    bool flush();

    std::string path_;
    std::chrono::milliseconds flushDelay_;

    // Guards values_, version_ and stopping_.
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    DefaultsDictionary values_;
    std::uint64_t version_ = 0;  // counts changes
    bool stopping_ = false;

    // Serialises writes; guards writtenVersion_.
    std::mutex writeMutex_;
    std::condition_variable written_;
    std::uint64_t writtenVersion_ = 0;

    std::thread writer_;
};

}  // namespace drovel::platform
