// The analytics-event and loaded-campaigns readers (the records the module keeps as JSON in its
// database and user defaults), and the trigger-event reader. The first byte picks the reader.

#include "FuzzInput.h"
#include "drovel/notify/LoadedCampaigns.h"
#include "drovel/notify/NotifyAnalyticsEvent.h"
#include "drovel/notify/NotifyTriggerEvent.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace drovel::notify;
    if (size == 0) return 0;
    auto json = drovel::fuzz::text(data + 1, size - 1);
    switch (data[0] % 4) {
        case 0:
            if (auto event = NotifyAnalyticsEvent::fromJson(json)) (void)event.value().toJson();
            break;
        case 1: (void)paramsFromJson(json); break;
        case 2:
            if (auto loaded = LoadedCampaigns::fromJson(json)) (void)loaded.value().toJson();
            break;
        case 3:
            if (auto event = NotifyTriggerEvent::fromJson(json)) (void)event.value().toJson();
            break;
    }
    return 0;
}
