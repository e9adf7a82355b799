#include "data/NotifyService.h"

#include "drovel/core/Core.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::notify {

std::string GetNotifyNotificationsEndpoint::requestEndPoint() const {
    return std::string(latestApi) + "/notify/notifications";
}

core::QueryParams GetNotifyNotificationsEndpoint::queryParams() const {
    return {
        {"latitude", core::doubleText(latitude)},
        {"longitude", core::doubleText(longitude)},
        {"radius", core::doubleText(radius)},
    };
}

std::string UploadNotifyAnalyticsBody::toJson() const {
    core::JsonWriter writer;
    writer.beginObject().key("data");
    data.writeJson(writer);
    writer.endObject();
    return writer.take();
}

std::string UploadNotifyAnalyticsEndpoint::requestEndPoint() const {
    return std::string(latestApi) + "/notify/campaign_events";
}

NotifyService::NotifyService(const core::Core& core)
    : BaseAPIService(core.httpTransport(), core.apiConfigurationSource()) {}

void NotifyService::fetchNotifications(double latitude, double longitude, double radius,
                                       NotificationsCompletion completion) const {
    execute(GetNotifyNotificationsEndpoint(latitude, longitude, radius), std::move(completion));
}

void NotifyService::uploadAnalytics(UploadNotifyAnalyticsEndpoint::Body body, UploadCompletion completion) const {
    execute(UploadNotifyAnalyticsEndpoint(std::move(body)),
            [completion = std::move(completion)](core::Result<core::VoidResponse> answer) {
                completion(answer ? nullptr : answer.error());
            });
}

}  // namespace drovel::notify
