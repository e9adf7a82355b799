#pragma once
// Dates as text through the C library's strftime, for the "date" filter.

#include <optional>
#include <string>

#include "drovel/platform/Clock.h"

namespace drovel::templating {

// Formats dates with a strftime format string; the directives are exactly the C library's (the
// format is passed through unchanged). A plain value: copy it freely; one formatter must not be
// changed while another thread uses it.
class STRFTimeFormatter {
public:
    std::string formatString = "%Y-%m-%dT%H:%M:%S%z";
    // true: break the time down in UTC; false: in the local time zone, which follows TZ.
    bool useUniversalTimeLocale = false;

    // The text for the date `secondsSince1970` seconds after 1970-01-01 00:00:00 UTC, the fraction
    // dropped toward zero. Absent when the time cannot be broken down, the format has non-ASCII
    // characters, or the output is empty or longer than 79 characters. A value that is not finite or
    // lies outside the signed 64-bit range throws TemplateFatalError (Context.h), which abandons
    // the rendering that asked for it.
    std::optional<std::string> string(double secondsSince1970) const;
    // Dates of any year from 0001 to 9999 and beyond.
    std::optional<std::string> string(platform::Date date) const;
};

}  // namespace drovel::templating
