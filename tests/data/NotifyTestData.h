#pragma once
// What several data tests build: campaigns as the backend sends them, decoded downloads, and log
// records as single lines.

#include <stdexcept>
#include <string>
#include <vector>

#include "drovel/notify/NotifyNotificationsResponse.h"
#include "support/CapturingLogSink.h"

namespace drovel::testing {

// A geofence campaign running from start to end (inclusive), as the backend sends it.
inline std::string campaignJson(std::int64_t id, const std::string& start, const std::string& end, bool deferOnPickup = false) {
    return "{\"id\":" + std::to_string(id) + R"(,"region_type":"geofence","start_day":")" + start + R"(","end_day":")" +
           end + R"(","repeat_interval_days":1,"content":{},"defer_on_pickup":)" + (deferOnPickup ? "true" : "false") + "}";
}

// A download of these campaigns (JSON objects separated by commas), without pairs or sites.
inline std::string campaignsDownload(const std::string& campaigns) {
    return R"({"min_sync_interval_seconds":0,"data":[],"included":{"campaigns":[)" + campaigns + "]}}";
}

inline notify::NotifyNotificationsResponse decodedResponse(const std::string& json) {
    auto decoded = notify::NotifyNotificationsResponse::fromJson(json);
    if (!decoded) throw std::runtime_error(decoded.error()->description());
    return std::move(decoded).value();
}

// Each record as "[level] Logger File.function(): message".
inline std::vector<std::string> logLines(const CapturingLogSink& log) {
    std::vector<std::string> lines;
    for (const auto& r : log.records())
        lines.push_back("[" + std::string(core::logLevelName(r.level)) + "] " + r.loggerName + " " + r.file + "." +
                        r.function + ": " + r.message);
    return lines;
}

}  // namespace drovel::testing
