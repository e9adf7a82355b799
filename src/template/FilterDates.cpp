// The "date" filter and the date parser behind it.

#include <cerrno>
#include <cstdint>
#include <ctime>

#include "template/Context.h"
#include "template/FilterLibrary.h"
#include "template/Log.h"
#include "template/STRFTimeFormatter.h"
#include "template/Unicode.h"

namespace drovel::templating {

namespace {

using Value = Token::Value;

// A broken-down date as written; `offset` (seconds east of UTC) is absent for local time.
struct Fields {
    int year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    std::int64_t nanoseconds = 0;
    std::optional<int> offset;
};

// A cursor over the text with the small pieces the formats are made of.
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    bool atEnd() const { return position_ == text_.size(); }
    bool peek(char c) const { return position_ < text_.size() && text_[position_] == c; }
    bool skip(char c) {
        if (!peek(c)) return false;
        ++position_;
        return true;
    }
    bool skipAnyOf(std::string_view set) {
        if (position_ >= text_.size() || set.find(text_[position_]) == std::string_view::npos) return false;
        ++position_;
        return true;
    }
    // One or more blanks or tabs.
    bool skipBlanks() {
        std::size_t start = position_;
        while (skipAnyOf(" \t")) {}
        return position_ > start;
    }
    // Between `fewest` and `most` ASCII digits (as many as there are), or nothing.
    std::optional<int> number(std::size_t fewest, std::size_t most) {
        std::size_t start = position_;
        int value = 0;
        while (position_ < text_.size() && position_ - start < most && isDigit(text_[position_]))
            value = value * 10 + (text_[position_++] - '0');
        if (position_ - start < fewest) return std::nullopt;
        return value;
    }
    // A run of ASCII letters.
    std::string_view word() {
        std::size_t start = position_;
        while (position_ < text_.size() && isLetter(text_[position_])) ++position_;
        return text_.substr(start, position_ - start);
    }
    // Fraction digits after "." or ",", as nanoseconds (digits beyond the ninth are read and dropped).
    std::optional<std::int64_t> fraction() {
        std::size_t start = position_;
        std::int64_t value = 0;
        for (std::size_t count = 0; position_ < text_.size() && isDigit(text_[position_]); ++position_, ++count)
            if (count < 9) value = value * 10 + (text_[position_] - '0');
        std::size_t digits = position_ - start;
        if (digits == 0) return std::nullopt;
        for (std::size_t count = digits; count < 9; ++count) value *= 10;
        return value;
    }

    static bool isDigit(char c) { return c >= '0' && c <= '9'; }
    static bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

private:
    std::string_view text_;
    std::size_t position_ = 0;
};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if ((a[i] | 0x20) != (b[i] | 0x20)) return false;
    return true;
}

// The index (0 based) of an English month or day name, full or abbreviated to three letters.
std::optional<int> nameIndex(std::string_view word, std::initializer_list<std::string_view> names) {
    int index = 0;
    for (std::string_view name : names) {
        if (equalsIgnoringCase(word, name) || equalsIgnoringCase(word, name.substr(0, 3))) return index;
        ++index;
    }
    return std::nullopt;
}

std::optional<int> monthNumber(std::string_view word) {
    auto index = nameIndex(word, {"January", "February", "March", "April", "May", "June", "July", "August",
                                  "September", "October", "November", "December"});
    return index ? std::optional(*index + 1) : std::nullopt;
}

bool isDayName(std::string_view word) {
    return nameIndex(word, {"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"}).has_value();
}

// "+HH", "+HHmm" or "+HH:mm" (or "-"), as seconds east of UTC.
std::optional<int> numericOffset(Scanner& scanner) {
    int sign = scanner.skip('+') ? 1 : scanner.skip('-') ? -1 : 0;
    if (sign == 0) return std::nullopt;
    auto hours = scanner.number(2, 2);
    if (!hours || *hours > 23) return std::nullopt;
    bool colon = scanner.skip(':');
    auto minutes = scanner.number(colon ? 2 : 0, 2);
    if (colon && !minutes) return std::nullopt;
    int minute = minutes.value_or(0);
    if (minute > 59) return std::nullopt;
    return sign * (*hours * 3600 + minute * 60);
}

// A zone name of RFC 2822 (and "Z", "UTC"), as seconds east of UTC.
std::optional<int> namedOffset(std::string_view name) {
    static constexpr std::pair<std::string_view, int> zones[] = {
        {"UT", 0},   {"UTC", 0},  {"GMT", 0},  {"Z", 0},    {"EST", -5}, {"EDT", -4},
        {"CST", -6}, {"CDT", -5}, {"MST", -7}, {"MDT", -6}, {"PST", -8}, {"PDT", -7},
    };
    for (const auto& [zone, hours] : zones)
        if (equalsIgnoringCase(name, zone)) return hours * 3600;
    return std::nullopt;
}

// A zone at the scanner: numeric or named. False when something else is there.
bool zone(Scanner& scanner, Fields& fields) {
    if (scanner.peek('+') || scanner.peek('-')) {
        fields.offset = numericOffset(scanner);
    } else {
        fields.offset = namedOffset(scanner.word());
    }
    return fields.offset.has_value();
}

// HH:mm[:ss[.fraction]], the fraction only when `withFraction`.
bool time(Scanner& scanner, Fields& fields, bool withFraction) {
    auto hour = scanner.number(2, 2);
    if (!hour || !scanner.skip(':')) return false;
    auto minute = scanner.number(2, 2);
    if (!minute) return false;
    fields.hour = *hour;
    fields.minute = *minute;
    if (scanner.skip(':')) {
        auto second = scanner.number(2, 2);
        if (!second) return false;
        fields.second = *second;
        if (withFraction && scanner.skipAnyOf(".,")) {
            auto nanoseconds = scanner.fraction();
            if (!nanoseconds) return false;
            fields.nanoseconds = *nanoseconds;
        }
    }
    return true;
}

// yyyy-MM-dd, then optionally [T or blank] time [[blank] zone].
std::optional<Fields> iso8601(std::string_view text) {
    Scanner scanner(text);
    Fields fields;
    auto year = scanner.number(4, 4);
    if (!year || !scanner.skip('-')) return std::nullopt;
    auto month = scanner.number(2, 2);
    if (!month || !scanner.skip('-')) return std::nullopt;
    auto day = scanner.number(2, 2);
    if (!day) return std::nullopt;
    fields.year = *year;
    fields.month = *month;
    fields.day = *day;
    if (scanner.atEnd()) return fields;
    if (!scanner.skipAnyOf("Tt ") || !time(scanner, fields, true)) return std::nullopt;
    if (scanner.atEnd()) return fields;
    scanner.skip(' ');
    if (!zone(scanner, fields) || !scanner.atEnd()) return std::nullopt;
    return fields;
}

// [Day[,]] d Mon yyyy HH:mm[:ss] [zone]
std::optional<Fields> rfc2822(std::string_view text) {
    Scanner scanner(text);
    Fields fields;
    if (Scanner::isLetter(text.empty() ? '\0' : text[0])) {
        if (!isDayName(scanner.word())) return std::nullopt;
        scanner.skip(',');
        scanner.skipBlanks();
    }
    auto day = scanner.number(1, 2);
    if (!day || !scanner.skipBlanks()) return std::nullopt;
    auto month = monthNumber(scanner.word());
    if (!month || !scanner.skipBlanks()) return std::nullopt;
    auto year = scanner.number(2, 4);
    if (!year || !scanner.skipBlanks()) return std::nullopt;
    if (*year < 100) *year += *year < 50 ? 2000 : 1900;
    fields.year = *year;
    fields.month = *month;
    fields.day = *day;
    if (!time(scanner, fields, false)) return std::nullopt;
    if (scanner.atEnd()) return fields;
    if (!scanner.skipBlanks() || !zone(scanner, fields) || !scanner.atEnd()) return std::nullopt;
    return fields;
}

// Microseconds in 64 bits hold about 292,000 years each way; twelve digits of seconds (the most
// unixSeconds reads) and every four-digit year stay far inside.
constexpr std::int64_t maximumSeconds = 999'999'999'999;

std::optional<Filter::Date> dateFrom(std::int64_t seconds, std::int64_t nanoseconds) {
    if (seconds < -maximumSeconds || seconds > maximumSeconds) return std::nullopt;
    return Filter::Date(std::chrono::seconds(seconds) +
                        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::nanoseconds(nanoseconds)));
}

// [+-]digits[.digits]
std::optional<Filter::Date> unixSeconds(std::string_view text) {
    Scanner scanner(text);
    int sign = scanner.skip('-') ? -1 : (scanner.skip('+'), 1);
    auto seconds = std::int64_t{0};
    std::size_t digits = 0;
    for (; !scanner.atEnd() && !scanner.peek('.'); ++digits) {
        auto digit = scanner.number(1, 1);
        // More than twelve digits is far beyond any representable date.
        if (!digit || digits >= 12) return std::nullopt;
        seconds = seconds * 10 + *digit;
    }
    if (digits == 0) return std::nullopt;
    std::int64_t nanoseconds = 0;
    if (scanner.skip('.')) {
        auto fraction = scanner.fraction();
        if (!fraction || !scanner.atEnd()) return std::nullopt;
        nanoseconds = *fraction;
    }
    return dateFrom(sign * seconds, sign * nanoseconds);
}

// Days from 1970-01-01 to the date of the proleptic Gregorian calendar.
std::int64_t daysFromCivil(std::int64_t year, int month, int day) {
    year -= month <= 2;
    std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    std::int64_t yearOfEra = year - era * 400;
    std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

int daysInMonth(int year, int month) {
    static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : days[month - 1];
}

std::optional<Filter::Date> dateFrom(const Fields& fields) {
    if (fields.month < 1 || fields.month > 12 || fields.day < 1 || fields.day > daysInMonth(fields.year, fields.month) ||
        fields.hour > 23 || fields.minute > 59 || fields.second > 60)
        return std::nullopt;
    std::int64_t seconds;
    if (fields.offset) {
        seconds = daysFromCivil(fields.year, fields.month, fields.day) * 86400 + fields.hour * 3600 +
                  fields.minute * 60 + fields.second - *fields.offset;
    } else {
        std::tm parts{};
        parts.tm_year = fields.year - 1900;
        parts.tm_mon = fields.month - 1;
        parts.tm_mday = fields.day;
        parts.tm_hour = fields.hour;
        parts.tm_min = fields.minute;
        parts.tm_sec = fields.second;
        // Let the zone's rules decide whether daylight saving time applies.
        parts.tm_isdst = -1;
        // mktime need not read TZ again; tzset makes a changed zone take effect.
        tzset();
        errno = 0;
        std::time_t local = std::mktime(&parts);
        // -1 is also one second before 1970 in a zone at UTC, so only errno tells a failure.
        if (local == static_cast<std::time_t>(-1) && errno != 0) return std::nullopt;
        seconds = static_cast<std::int64_t>(local);
    }
    return dateFrom(seconds, fields.nanoseconds);
}

}  // namespace

std::optional<Filter::Date> Filter::parseDate(std::string_view string) {
    return parseDate(string, std::chrono::floor<platform::Date::duration>(currentDate()));
}

std::optional<Filter::Date> Filter::parseDate(std::string_view string, platform::Date now) {
    std::string_view text = unicode::trimWhitespaceAndNewlines(string);
    if (text == "now" || text == "today") return std::chrono::floor<std::chrono::microseconds>(now);
    if (text.empty()) return std::nullopt;
    if (auto date = unixSeconds(text)) return date;
    if (auto fields = iso8601(text)) return dateFrom(*fields);
    if (auto fields = rfc2822(text)) return dateFrom(*fields);
    return std::nullopt;
}

namespace filters {

Value date(const Value& input, Filter::Arguments arguments) {
    if (arguments.empty()) return Value::nil();
    auto when = Filter::parseDate(input.stringValue());
    if (!when) return Value::nil();
    STRFTimeFormatter formatter;
    formatter.formatString = arguments[0].stringValue();
    try {
        auto text = formatter.string(*when);
        return text ? Value::string(std::move(*text)) : Value::nil();
    } catch (const TemplateFatalError&) {
        // Parsed dates always fit the formatter; a filter still never throws.
        return Value::nil();
    }
}

}  // namespace filters
}  // namespace drovel::templating
