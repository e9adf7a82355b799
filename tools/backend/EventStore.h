#pragma once
// The analytics events the sample backend received, each kept once by guid; with a file, as JSON
// lines appended as they arrive:
//   {"guid": "...", "name": "notification_triggered", "occurred_at": "...", "campaign_id": 7 or null,
//    "params": {...}, "app_instance_id": "..."}

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"

namespace drovel::backend {

struct ReceivedEvent {
    // Canonical upper-case UUID text.
    std::string guid;
    std::string name;
    std::string occurredAt;
    std::optional<std::int64_t> campaignID;
    std::map<std::string, std::string> params;
    std::string appInstanceID;

    // One line of the events file (without the line end).
    std::string json() const;
    bool operator==(const ReceivedEvent&) const = default;
};

// The events of an upload body {"data": {"app_instance_id": "...", "events": [...]}}; fails with
// a message naming the key path when the body is not such an object.
core::Result<std::vector<ReceivedEvent>> parseUploadBody(std::string_view body);

// Thread-safe.
class EventStore {
public:
    // With a path, the events already in the file count as received (lines that cannot be read are
    // skipped), and new ones are appended to it. Fails when the file cannot be opened.
    static core::Result<std::unique_ptr<EventStore>> open(std::optional<std::string> path);
    ~EventStore();
    EventStore(const EventStore&) = delete;
    EventStore& operator=(const EventStore&) = delete;

    // Keeps the events whose guid is new and returns them, in order; they are in the file (flushed
    // to the disk) when this returns. Fails when the file cannot be written; nothing is kept then.
    core::Result<std::vector<ReceivedEvent>> add(std::vector<ReceivedEvent> events);
    // Every event kept, in the order received.
    std::vector<ReceivedEvent> events() const;
    // Lines of the file that could not be read at opening.
    std::size_t skippedLines() const { return skippedLines_; }

private:
    EventStore() = default;

    mutable std::mutex mutex_;
    std::FILE* file_ = nullptr;
    std::set<std::string, std::less<>> guids_;
    std::vector<ReceivedEvent> events_;
    std::size_t skippedLines_ = 0;
};

}  // namespace drovel::backend
