#pragma once
// Filters transform a value in an output expression ("{{ points | plus: 50 }}"). The built-in
// library is one table of (name, function) rows, registered by every parser in table order.

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "drovel/platform/Clock.h"
#include "template/Token.h"

namespace drovel::templating {

class Filter {
public:
    using Arguments = std::span<const Token::Value>;
    // Never throws and has no error path: a wrong kind of input gives a value (usually nil).
    using Lambda = std::function<Token::Value(const Token::Value& input, Arguments arguments)>;

    Filter(std::string identifier, Lambda lambda) : identifier(std::move(identifier)), lambda(std::move(lambda)) {}

    // The name used in templates.
    std::string identifier;
    Lambda lambda;

    // The date a template text stands for, or nothing. Surrounding white space is ignored.
    // Accepted, in the en_US locale (English names, any letter case):
    // - "now" and "today": the current date and time of the engine's clock (see setClock);
    // - Unix seconds: an optional sign, digits and an optional "." fraction ("1577934245.5");
    // - ISO 8601 dates "yyyy-MM-dd" (midnight, local time);
    // - ISO 8601 date-times "yyyy-MM-ddTHH:mm", "yyyy-MM-ddTHH:mm:ss" and with a fraction
    //   ("...:ss.SSS", any number of digits, "." or ","), "T" in either case or a blank between
    //   date and time ("yyyy-MM-dd HH:mm:ss"); then an optional zone "Z", "+HH", "+HH:mm" or
    //   "+HHmm" (or "-"), or " UTC"/" GMT"/" +HHmm" after a blank. Without a zone: local time;
    // - RFC 2822: "[Thu, ]2 Jan 2020 03:04[:05] +0000", with the day and month as their
    //   three-letter abbreviations or full names, a two-digit year read as 1950-2049, and the
    //   zone as "+HHmm"/"-HHmm", "UT", "UTC", "GMT", "Z" or a North American zone ("EST",
    //   "EDT", "CST", "CDT", "MST", "MDT", "PST", "PDT"); without a zone: local time.
    // Fields must be in range (a 31 February is no date) and seconds may be 60. Every year from
    // 0001 to 9999 is a date (the platform date, in nanoseconds, ends in 1677 and 2262, hence
    // microseconds here). Local time follows TZ.
    using Date = platform::Date;  // microseconds: every year from 0001 to 9999
    static std::optional<Date> parseDate(std::string_view string);
    // The same, with "now" and "today" meaning `now`.
    static std::optional<Date> parseDate(std::string_view string, platform::Date now);
};

// The built-in filters in table order, created once per process.
const std::vector<Filter>& builtinFilters();

}  // namespace drovel::templating
