#pragma once
// The module's two backend requests, and the service that sends them.
//
//   GET  <latestApi>/notify/notifications?latitude=..&longitude=..&radius=..  -> NotifyNotificationsResponse
//   POST <latestApi>/notify/campaign_events  {"data": {"app_instance_id": ..., "events": [...]}}  -> no content read

#include <functional>
#include <memory>
#include <string>

#include "drovel/core/BaseAPIService.h"
#include "drovel/core/Error.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyNotificationsResponse.h"

namespace drovel::core {
class Core;
}

namespace drovel::notify {

// The campaigns around a position. Every query value is the shortest decimal text that reads back
// to the same double (40 is sent as "40.0", 52.123456 as "52.123456").
class GetNotifyNotificationsEndpoint final : public core::CodableRequest<NotifyNotificationsResponse> {
public:
    GetNotifyNotificationsEndpoint(double latitude, double longitude, double radius)
        : latitude(latitude), longitude(longitude), radius(radius) {}

    double latitude;   // decimal degrees
    double longitude;  // decimal degrees
    double radius;     // metres

    std::string requestEndPoint() const override;
    core::QueryParams queryParams() const override;
};

class UploadNotifyAnalyticsEndpoint;

// The upload body: the batch wrapped under the single top-level key "data".
struct UploadNotifyAnalyticsBody {
    NotifyAnalyticsBody data;

    std::string toJson() const;
};

// One batch of analytics events. The answer's content is not read; only success matters.
class UploadNotifyAnalyticsEndpoint final : public core::EncodableRequest<UploadNotifyAnalyticsBody> {
public:
    using Body = UploadNotifyAnalyticsBody;

    explicit UploadNotifyAnalyticsEndpoint(Body body) : EncodableRequest(std::move(body)) {}

    std::string requestEndPoint() const override;
};

// What the interactor needs from the backend; a test puts a fake in its place. Completions run
// exactly once, on the transport's thread (or before the call returns when nothing could be sent).
class NotifyServiceProtocol {
public:
    using NotificationsCompletion = std::function<void(core::Result<NotifyNotificationsResponse>)>;
    // No error: the backend confirmed the batch.
    using UploadCompletion = std::function<void(core::ErrorPtr)>;

    virtual ~NotifyServiceProtocol() = default;

    virtual void fetchNotifications(double latitude, double longitude, double radius,
                                    NotificationsCompletion completion) const = 0;
    virtual void uploadAnalytics(UploadNotifyAnalyticsEndpoint::Body body, UploadCompletion completion) const = 0;
};

// The requests sent the way the core library sends its own: its transport, base URL and token.
// Thread-safe.
class NotifyService final : public core::BaseAPIService, public NotifyServiceProtocol {
public:
    using BaseAPIService::BaseAPIService;
    // On the core library's transport and current configuration.
    explicit NotifyService(const core::Core& core);

    void fetchNotifications(double latitude, double longitude, double radius,
                            NotificationsCompletion completion) const override;
    void uploadAnalytics(UploadNotifyAnalyticsEndpoint::Body body, UploadCompletion completion) const override;
};

}  // namespace drovel::notify
