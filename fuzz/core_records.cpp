// The app configuration and the core library's records. The first byte picks the decoder.

#include "FuzzInput.h"
#include "drovel/core/AppConfig.h"
#include "drovel/core/Site.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace drovel::core;
    if (size == 0) return 0;
    auto json = drovel::fuzz::text(data + 1, size - 1);
    switch (data[0] % 7) {
        case 0: (void)AppConfig::fromJson(json); break;
        case 1: (void)AppConfigData::fromJson(json); break;
        case 2: (void)NotifyConfig::fromJson(json); break;
        case 3: (void)PushData::fromJson(json); break;
        case 4: (void)Site::listFromJson(json); break;
        case 5: (void)Order::listFromJson(json); break;
        case 6: (void)Geofence::fromJson(json); break;
    }
    return 0;
}
