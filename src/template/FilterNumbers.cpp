// The numeric filters.

#include <locale.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "template/FilterLibrary.h"

namespace drovel::templating::filters {

using Value = Token::Value;

namespace {

// strtod in the C locale whatever the process's locale: white space is skipped and the number
// may be followed by other text ("2.5px" is 2.5); a string with no number is 0, as strtod has it.
double strtodValue(const std::string& text) {
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    return cLocale ? strtod_l(text.c_str(), nullptr, cLocale) : std::strtod(text.c_str(), nullptr);
}

// The number of a numeric filter's input or argument: a decimal's value, with strings parsed
// ("." as separator) and nil, non-numeric strings and every other kind counting as 0.
Decimal numberOf(const Value& value) { return value.decimalValue().value_or(Decimal()); }

// The number of an input to "ceil", "floor", "round", "divided_by" and "modulo" as a double:
// strings through strtod, integers and decimals converted, anything else 0.
double cDouble(const Value& value) {
    if (auto* text = value.asString()) return strtodValue(*text);
    return value.doubleValue().value_or(0.0);
}

// The same number as a decimal: integers and decimals stay exact; a string's double must be finite.
std::optional<Decimal> cDecimal(const Value& value) {
    if (auto* text = value.asString()) {
        double number = strtodValue(*text);
        if (!std::isfinite(number)) return std::nullopt;
        return Decimal::fromDouble(number);
    }
    return numberOf(value);
}

unsigned __int128 powerOfTen(int exponent) {
    unsigned __int128 out = 1;
    while (exponent-- > 0) out *= 10;
    return out;
}

enum class Rounding { down, up, halfAwayFromZero };

// The rounding shared by "ceil", "floor" and "round": `number` to `places` decimal places.
Decimal rounded(const Decimal& number, int places, Rounding mode) {
    int exponent = number.exponent();
    if (number.isNaN() || exponent >= -places) return number;
    // Digits to drop; beyond 38 the whole mantissa is dropped.
    int drop = -places - exponent;
    unsigned __int128 mantissa = number.mantissa(), quotient = 0, remainder = mantissa;
    bool half = false;
    if (drop <= Decimal::maximumDigits) {
        unsigned __int128 divisor = powerOfTen(drop);
        quotient = mantissa / divisor;
        remainder = mantissa % divisor;
        half = remainder >= divisor - remainder;
    }
    bool negative = number.isNegative();
    bool increment = remainder != 0 && (mode == Rounding::halfAwayFromZero ? half
                                        : mode == Rounding::up             ? !negative
                                                                           : negative);
    if (increment) ++quotient;
    return Decimal::fromParts(quotient, -places, negative);
}

Value roundedValue(const Value& input, int places, Rounding mode) {
    auto number = cDecimal(input);
    if (!number) return Value::nil();
    return Value::decimal(rounded(*number, places, mode));
}

// fmod and division of doubles, returned as decimals; a zero divisor or a result that is not
// finite gives nil.
template <class Operation>
Value doubleOperation(const Value& input, Filter::Arguments arguments, Operation operation) {
    if (arguments.empty()) return Value::nil();
    double left = cDouble(input), right = cDouble(arguments[0]);
    if (right == 0) return Value::nil();
    double result = operation(left, right);
    if (!std::isfinite(result)) return Value::nil();
    return Value::decimal(Decimal::fromDouble(result));
}

// The larger (or smaller) of the input and the argument, by decimal ordering.
Value bound(const Value& input, Filter::Arguments arguments, bool larger) {
    if (arguments.empty()) return Value::nil();
    Decimal left = numberOf(input), right = numberOf(arguments[0]);
    bool rightWins = larger ? left < right : right < left;
    return Value::decimal(rightWins ? right : left);
}

}  // namespace

Value arithmetic(const Value& input, Filter::Arguments arguments, Arithmetic operation) {
    if (arguments.empty()) return Value::nil();
    // Numbers in templates and custom content use "." as the decimal separator, whatever the locale.
    Decimal left = numberOf(input), right = numberOf(arguments[0]);
    switch (operation) {
        case Arithmetic::add:
            return Value::decimal(left + right);
        case Arithmetic::subtract:
            return Value::decimal(left - right);
        case Arithmetic::multiply:
            return Value::decimal(left * right);
    }
    return Value::nil();
}

Value abs(const Value& input, Filter::Arguments) {
    Decimal number = numberOf(input);
    return Value::decimal(number.isNegative() ? -number : number);
}

Value atLeast(const Value& input, Filter::Arguments arguments) { return bound(input, arguments, true); }

Value atMost(const Value& input, Filter::Arguments arguments) { return bound(input, arguments, false); }

Value ceil(const Value& input, Filter::Arguments) { return roundedValue(input, 0, Rounding::up); }

Value dividedBy(const Value& input, Filter::Arguments arguments) {
    return doubleOperation(input, arguments, [](double a, double b) { return a / b; });
}

Value floor(const Value& input, Filter::Arguments) { return roundedValue(input, 0, Rounding::down); }

Value minus(const Value& input, Filter::Arguments arguments) {
    return arithmetic(input, arguments, Arithmetic::subtract);
}

Value modulo(const Value& input, Filter::Arguments arguments) {
    return doubleOperation(input, arguments, [](double a, double b) { return std::fmod(a, b); });
}

Value plus(const Value& input, Filter::Arguments arguments) { return arithmetic(input, arguments, Arithmetic::add); }

Value round(const Value& input, Filter::Arguments arguments) {
    int places = 0;
    if (!arguments.empty()) {
        // Places that are no integer count as 0. Beyond these bounds every decimal is already
        // rounded, or rounds to zero.
        places = static_cast<int>(std::clamp<std::int64_t>(arguments[0].integerValue().value_or(0), -200, 200));
    }
    return roundedValue(input, places, Rounding::halfAwayFromZero);
}

Value times(const Value& input, Filter::Arguments arguments) {
    return arithmetic(input, arguments, Arithmetic::multiply);
}

}  // namespace drovel::templating::filters
