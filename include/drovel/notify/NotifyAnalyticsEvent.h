#pragma once
// Analytics events: what happened to a campaign notification, or an SDK error worth reporting.
// They wait in the database until they are uploaded in batches (NotifyAnalyticsBody).
//
// Event JSON:
//   {"guid": "E621E1F8-...", "name": "notification_triggered", "occurred_at": "2024-03-01T13:00:00.123+01:00",
//    "campaign_id": 7, "params": {"key": "value", ...}}
// "campaign_id" is optional (missing or null); the others are required.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/notify/NotifyRecord.h"

namespace drovel::notify {

enum class NotifyAnalyticsEventType { notificationTriggered, notificationClicked, sdkError };

// The text written for a kind: "notification_triggered", "notification_clicked", "sdk_error".
std::string_view rawValue(NotifyAnalyticsEventType type);
// The kind a text reads back as. Not the inverse of rawValue() on purpose: the SDK-error kind is
// written as "sdk_error" but read back from "notification_permission_denied", and "sdk_error"
// itself reads back as no kind.
std::optional<NotifyAnalyticsEventType> notifyAnalyticsEventTypeFromRawValue(std::string_view raw);

class NotifyAnalyticsEvent {
public:
    using Params = std::map<std::string, std::string, std::less<>>;

    // A new event: a fresh random guid, and occurredAt formatted as the core library's
    // iso8601FullLocalTZ ("2024-03-01T13:00:00.123+01:00", in the current time zone).
    NotifyAnalyticsEvent(NotifyAnalyticsEventType type, Date occurredAt, std::optional<std::int64_t> campaignID,
                         Params params);
    // An event as stored or received.
    NotifyAnalyticsEvent(UUID guid, NotifyAnalyticsEventType name, std::string occurredAt,
                         std::optional<std::int64_t> campaignID, Params params);

    const UUID& guid() const { return guid_; }
    NotifyAnalyticsEventType name() const { return name_; }
    const std::string& occurredAt() const { return occurredAt_; }
    std::optional<std::int64_t> campaignID() const { return campaignID_; }
    const Params& params() const { return params_; }

    static core::Result<NotifyAnalyticsEvent> fromJson(std::string_view json);
    void writeJson(core::JsonWriter& writer) const;
    std::string toJson() const;
    bool operator==(const NotifyAnalyticsEvent&) const = default;

private:
    UUID guid_;
    NotifyAnalyticsEventType name_;
    std::string occurredAt_;
    std::optional<std::int64_t> campaignID_;
    Params params_;
};

// One upload batch. Only ever encoded:
//   {"app_instance_id": "E621E1F8-...", "events": [event, ...]}
class NotifyAnalyticsBody {
public:
    NotifyAnalyticsBody(UUID appInstanceID, std::vector<NotifyAnalyticsEvent> events)
        : appInstanceID_(appInstanceID), events_(std::move(events)) {}

    const UUID& appInstanceID() const { return appInstanceID_; }
    const std::vector<NotifyAnalyticsEvent>& events() const { return events_; }

    void writeJson(core::JsonWriter& writer) const;
    std::string toJson() const;

private:
    UUID appInstanceID_;
    std::vector<NotifyAnalyticsEvent> events_;
};

// A parameter map (an analytics event's "params") as a JSON object of strings, and back.
std::string paramsJson(const NotifyAnalyticsEvent::Params& params);
core::Result<NotifyAnalyticsEvent::Params> paramsFromJson(std::string_view json);

}  // namespace drovel::notify
