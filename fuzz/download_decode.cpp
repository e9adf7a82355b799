// The campaigns download decoder, with the values the module computes from the records (date
// intervals from the campaign days, site coordinates).

#include "FuzzInput.h"
#include "drovel/notify/NotifyNotificationsResponse.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace drovel::notify;
    auto response = NotifyNotificationsResponse::fromJson(drovel::fuzz::text(data, size));
    if (!response) return 0;
    if (const auto& campaigns = response.value().included.campaigns)
        for (const auto& campaign : *campaigns) (void)campaign.dateInterval();
    if (const auto& sites = response.value().included.sites)
        for (const auto& site : *sites) (void)site.locationCoordinate();
    (void)response.value().toJson();
    return 0;
}
