#pragma once
// What the simulated device and simulated platform tests share.

#include "linux/SimulatedDevice.h"

namespace drovel::platform::simulated {

inline constexpr const char* kUUID = "E2C56DB5-DFFB-48D2-B060-D0F5A71096E0";
inline const Date kStart = Date(std::chrono::seconds(1795269600));  // 2026-11-21T14:00:00Z

// Settings that change one thing: changing(&SimulatedDeviceSettings::online, false).
template <class Value, class Given>
SimulatedDeviceSettings changing(std::optional<Value> SimulatedDeviceSettings::*setting, Given value) {
    SimulatedDeviceSettings settings;
    settings.*setting = Value(value);
    return settings;
}

}  // namespace drovel::platform::simulated
