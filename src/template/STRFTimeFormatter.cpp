#include "template/STRFTimeFormatter.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "template/Context.h"

namespace drovel::templating {

std::optional<std::string> STRFTimeFormatter::string(double secondsSince1970) const {
    // Template input can reach here (through the "date" filter), so this never stops the process.
    if (!std::isfinite(secondsSince1970) || secondsSince1970 < -0x1p63 || secondsSince1970 >= 0x1p63) {
        char number[32];
        std::snprintf(number, sizeof number, "%g", secondsSince1970);
        throw TemplateFatalError(std::string("STRFTimeFormatter: ") + number + " seconds is no 64-bit time");
    }
    const auto time = static_cast<std::time_t>(static_cast<std::int64_t>(secondsSince1970));
    std::tm parts{};
    bool brokenDown = useUniversalTimeLocale && gmtime_r(&time, &parts);
    if (!brokenDown) {
        // localtime_r need not read TZ again; tzset makes a changed zone take effect.
        tzset();
        if (!localtime_r(&time, &parts)) return std::nullopt;
    }
    for (unsigned char c : formatString)
        if (c >= 0x80) return std::nullopt;
    char buffer[80];
    std::size_t length = std::strftime(buffer, sizeof buffer, formatString.c_str(), &parts);
    if (length == 0) return std::nullopt;
    return std::string(buffer, length);
}

std::optional<std::string> STRFTimeFormatter::string(platform::Date date) const {
    // Whole seconds toward zero, without a trip through a double.
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
    return string(static_cast<double>(seconds));
}

}  // namespace drovel::templating
