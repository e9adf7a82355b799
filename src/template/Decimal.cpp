#include "template/Decimal.h"

#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale.h>

#include "template/Hasher.h"
#include "template/Unicode.h"

namespace drovel::templating {

namespace {

using u128 = unsigned __int128;

constexpr std::array<u128, 39> powersOfTen = [] {
    std::array<u128, 39> table{};
    u128 value = 1;
    for (auto& entry : table) {
        entry = value;
        value *= 10;
    }
    return table;
}();
constexpr u128 mantissaLimit = powersOfTen[38];

int digitCount(u128 value) {
    int digits = 0;
    while (digits < 39 && value >= powersOfTen[digits]) ++digits;
    return digits;
}

// A 256-bit unsigned integer, enough for the exact product of two mantissas and for a
// dividend scaled to 77 digits.
struct U256 {
    std::array<std::uint64_t, 4> words{};  // least significant first

    static U256 from(u128 value) {
        U256 out;
        out.words[0] = static_cast<std::uint64_t>(value);
        out.words[1] = static_cast<std::uint64_t>(value >> 64);
        return out;
    }

    static U256 product(u128 a, u128 b) {
        std::uint64_t x[2] = {static_cast<std::uint64_t>(a), static_cast<std::uint64_t>(a >> 64)};
        std::uint64_t y[2] = {static_cast<std::uint64_t>(b), static_cast<std::uint64_t>(b >> 64)};
        U256 out;
        for (int i = 0; i < 2; ++i) {
            u128 carry = 0;
            for (int j = 0; j < 2; ++j) {
                u128 t = u128(x[i]) * y[j] + out.words[i + j] + carry;
                out.words[i + j] = static_cast<std::uint64_t>(t);
                carry = t >> 64;
            }
            out.words[i + 2] = static_cast<std::uint64_t>(carry);
        }
        return out;
    }

    bool fitsMantissa() const { return words[2] == 0 && words[3] == 0 && low() < mantissaLimit; }
    u128 low() const { return (u128(words[1]) << 64) | words[0]; }

    void multiplySmall(std::uint64_t factor) {
        u128 carry = 0;
        for (auto& word : words) {
            u128 t = u128(word) * factor + carry;
            word = static_cast<std::uint64_t>(t);
            carry = t >> 64;
        }
    }

    void scaleByPowerOfTen(int exponent) {
        for (; exponent >= 19; exponent -= 19) multiplySmall(10000000000000000000ull);
        if (exponent > 0) multiplySmall(static_cast<std::uint64_t>(powersOfTen[exponent]));
    }

    void add(const U256& other) {
        u128 carry = 0;
        for (int i = 0; i < 4; ++i) {
            u128 t = u128(words[i]) + other.words[i] + carry;
            words[i] = static_cast<std::uint64_t>(t);
            carry = t >> 64;
        }
    }

    // Requires *this >= other.
    void subtract(const U256& other) {
        std::uint64_t borrow = 0;
        for (int i = 0; i < 4; ++i) {
            std::uint64_t a = words[i], b = other.words[i];
            std::uint64_t difference = a - b - borrow;
            borrow = (a < b || (a == b && borrow)) ? 1 : 0;
            words[i] = difference;
        }
    }

    friend std::strong_ordering operator<=>(const U256& a, const U256& b) {
        for (int i = 3; i >= 0; --i)
            if (a.words[i] != b.words[i]) return a.words[i] <=> b.words[i];
        return std::strong_ordering::equal;
    }
    friend bool operator==(const U256&, const U256&) = default;

    std::uint64_t divideSmall(std::uint64_t divisor) {
        u128 remainder = 0;
        for (int i = 3; i >= 0; --i) {
            u128 current = (remainder << 64) | words[i];
            words[i] = static_cast<std::uint64_t>(current / divisor);
            remainder = current % divisor;
        }
        return static_cast<std::uint64_t>(remainder);
    }

    // Long division, one bit at a time; the divisor is below 2^127, so the running remainder
    // never needs more than 128 bits.
    void divide(u128 divisor) {
        U256 quotient;
        u128 remainder = 0;
        for (int bit = 255; bit >= 0; --bit) {
            remainder = (remainder << 1) | ((words[bit / 64] >> (bit % 64)) & 1);
            if (remainder >= divisor) {
                remainder -= divisor;
                quotient.words[bit / 64] |= std::uint64_t(1) << (bit % 64);
            }
        }
        *this = quotient;
    }
};

// Rounds to at most 38 digits (halves away from zero), adding the dropped digits to exponent.
u128 roundToMantissa(U256 value, int& exponent) {
    if (value.fitsMantissa()) return value.low();
    std::uint64_t lastDropped = 0;
    while (!value.fitsMantissa()) {
        lastDropped = value.divideSmall(10);
        ++exponent;
    }
    u128 mantissa = value.low();
    if (lastDropped >= 5 && ++mantissa == mantissaLimit) {
        mantissa /= 10;
        ++exponent;
    }
    return mantissa;
}

void appendDigits(std::string& out, u128 value) {
    char buffer[48];
    if (value >> 64 == 0) {
        out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, static_cast<std::uint64_t>(value)).ptr);
        return;
    }
    auto high = static_cast<std::uint64_t>(value / 10000000000000000000ull);
    auto low = static_cast<std::uint64_t>(value % 10000000000000000000ull);
    if (high == 0) {
        out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, low).ptr);
        return;
    }
    out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, high).ptr);
    char* end = std::to_chars(buffer, buffer + sizeof buffer, low).ptr;
    out.append(19 - (end - buffer), '0');
    out.append(buffer, end);
}

std::string_view skipWhitespace(std::string_view text) {
    std::size_t position = 0, length;
    while (position < text.size() && unicode::isWhitespaceOrNewline(unicode::decode(text, position, length)))
        position += length;
    return text.substr(position);
}

}  // namespace

Decimal::Decimal(std::int64_t value) {
    u128 magnitude = value < 0 ? u128(-(value + 1)) + 1 : u128(value);
    *this = fromParts(magnitude, 0, value < 0);
}

Decimal Decimal::notANumber() {
    Decimal out;
    out.nan_ = true;
    return out;
}

Decimal Decimal::fromParts(u128 mantissa, int exponent, bool negative) {
    // A mantissa of 64 bits with an exponent in range, the common case: only trailing zeros move.
    if (!(mantissa >> 64) && exponent >= minimumExponent && exponent <= maximumExponent) {
        auto low = static_cast<std::uint64_t>(mantissa);
        if (low == 0) return Decimal();
        while (exponent < maximumExponent && low % 10 == 0) {
            low /= 10;
            ++exponent;
        }
        Decimal out;
        out.mantissa_ = low;
        out.exponent_ = static_cast<std::int16_t>(exponent);
        out.negative_ = negative;
        return out;
    }
    return fromWideParts(mantissa, exponent, negative);
}

[[gnu::noinline]] Decimal Decimal::fromWideParts(u128 mantissa, int exponent, bool negative) {
    // Most mantissas already fit in 38 digits: no rounding, so no 256-bit arithmetic.
    u128 m = mantissa < mantissaLimit ? mantissa : roundToMantissa(U256::from(mantissa), exponent);
    if (m == 0) return Decimal();
    if (exponent < minimumExponent) {
        int drop = minimumExponent - exponent;
        if (drop > 38) return Decimal();
        u128 quotient = m / powersOfTen[drop], remainder = m % powersOfTen[drop];
        if (remainder * 2 >= powersOfTen[drop]) ++quotient;
        m = quotient;
        exponent = minimumExponent;
        if (m == 0) return Decimal();
    }
    // Trailing zeros move into the exponent; a mantissa that fits in 64 bits, the common case,
    // is divided in 64 bits.
    while (exponent < maximumExponent && m >> 64) {
        if (m % 10 != 0) break;
        m /= 10;
        ++exponent;
    }
    if (!(m >> 64)) {
        auto low = static_cast<std::uint64_t>(m);
        while (exponent < maximumExponent && low % 10 == 0) {
            low /= 10;
            ++exponent;
        }
        m = low;
    }
    // A value just beyond the exponent range may still fit with trailing zeros in the mantissa.
    while (exponent > maximumExponent && m < powersOfTen[37]) {
        m *= 10;
        --exponent;
    }
    if (exponent > maximumExponent) return notANumber();
    Decimal out;
    out.mantissa_ = m;
    out.exponent_ = static_cast<std::int16_t>(exponent);
    out.negative_ = negative;
    return out;
}

Decimal Decimal::fromDouble(double value) {
    if (!std::isfinite(value)) return notANumber();
    if (value == 0) return Decimal();
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::scientific);
    auto parsed = parse(std::string_view(buffer, result.ptr - buffer));
    return parsed ? *parsed : notANumber();
}

std::optional<Decimal> Decimal::parse(std::string_view text) {
    // A whole text of up to 18 digits after an optional sign, the common case, in 64 bits.
    std::size_t signLength = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
    if (text.size() > signLength && text.size() - signLength <= 18) {
        std::uint64_t value = 0;
        std::size_t i = signLength;
        for (; i < text.size(); ++i) {
            auto digit = static_cast<unsigned char>(text[i] - '0');
            if (digit > 9) break;
            value = value * 10 + digit;
        }
        if (i == text.size()) return fromParts(value, 0, text[0] == '-');
    }
    text = skipWhitespace(text);
    std::size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    u128 mantissa = 0;
    int exponent = 0;
    bool sawDigit = false;
    auto isDigit = [&](std::size_t at) { return at < text.size() && text[at] >= '0' && text[at] <= '9'; };
    for (; isDigit(i); ++i) {
        sawDigit = true;
        if (mantissa < powersOfTen[37]) mantissa = mantissa * 10 + (text[i] - '0');
        else ++exponent;  // digits beyond the 38th are dropped
    }
    if (i < text.size() && text[i] == '.') {
        for (++i; isDigit(i); ++i) {
            sawDigit = true;
            if (mantissa < powersOfTen[37]) {
                mantissa = mantissa * 10 + (text[i] - '0');
                --exponent;
            }
        }
    }
    if (!sawDigit) return std::nullopt;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t j = i + 1;
        bool negativeExponent = false;
        if (j < text.size() && (text[j] == '+' || text[j] == '-')) negativeExponent = text[j++] == '-';
        if (isDigit(j)) {
            int written = 0;
            for (; isDigit(j); ++j) written = std::min(written * 10 + (text[j] - '0'), 100000);
            exponent += negativeExponent ? -written : written;
        }
    }
    Decimal out = fromParts(mantissa, exponent, negative);
    if (out.isNaN()) return std::nullopt;
    return out;
}

std::string Decimal::description() const {
    std::string out;
    appendDescription(out);
    return out;
}

void Decimal::appendDescription(std::string& out) const {
    if (nan_) {
        out += "NaN";
        return;
    }
    if (mantissa_ == 0) {
        out += '0';
        return;
    }
    if (negative_) out += '-';
    if (exponent_ >= 0) {
        appendDigits(out, mantissa_);
        out.append(static_cast<std::size_t>(exponent_), '0');
        return;
    }
    std::string digits;
    appendDigits(digits, mantissa_);
    auto fraction = static_cast<std::size_t>(-exponent_);
    if (digits.size() > fraction) {
        out.append(digits, 0, digits.size() - fraction);
        out += '.';
        out.append(digits, digits.size() - fraction);
    } else {
        out += "0.";
        out.append(fraction - digits.size(), '0');
        out += digits;
    }
}

std::optional<std::int64_t> Decimal::integerValue() const {
    if (nan_) return std::nullopt;
    u128 magnitude;
    if (exponent_ >= 0) {
        if (digitCount(mantissa_) + exponent_ > 38) return std::nullopt;
        magnitude = mantissa_ * powersOfTen[exponent_];
    } else {
        magnitude = -exponent_ > 38 ? 0 : mantissa_ / powersOfTen[-exponent_];
    }
    constexpr u128 maximum = u128(std::numeric_limits<std::int64_t>::max());
    if (magnitude > maximum + (negative_ ? 1 : 0)) return std::nullopt;
    if (negative_) return magnitude == maximum + 1 ? std::numeric_limits<std::int64_t>::min()
                                                   : -static_cast<std::int64_t>(magnitude);
    return static_cast<std::int64_t>(magnitude);
}

double Decimal::doubleValue() const {
    if (nan_) return std::numeric_limits<double>::quiet_NaN();
    if (mantissa_ == 0) return 0;
    // Exact when both the mantissa and the power of ten are exact doubles: one rounding only.
    static constexpr double exactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                             1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                             1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (mantissa_ <= (u128(1) << 53) && exponent_ >= -22 && exponent_ <= 22) {
        double m = static_cast<double>(static_cast<std::uint64_t>(mantissa_));
        double value = exponent_ >= 0 ? m * exactPowers[exponent_] : m / exactPowers[-exponent_];
        return negative_ ? -value : value;
    }
    std::string text;
    if (negative_) text += '-';
    appendDigits(text, mantissa_);
    text += 'e';
    text += std::to_string(exponent_);
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

Decimal operator+(const Decimal& a, const Decimal& b) {
    // Two numbers of one sign and exponent with 64-bit mantissas, the common case: their sum
    // needs no alignment and fits in 128 bits.
    if (!a.nan_ && !b.nan_ && a.exponent_ == b.exponent_ && a.negative_ == b.negative_ && !(a.mantissa_ >> 64) &&
        !(b.mantissa_ >> 64))
        return Decimal::fromParts(a.mantissa_ + b.mantissa_, a.exponent_, a.negative_);
    return Decimal::sum(a, b);
}

[[gnu::noinline]] Decimal Decimal::sum(const Decimal& a, const Decimal& b) {
    if (a.nan_ || b.nan_) return Decimal::notANumber();
    if (a.mantissa_ == 0) return b;
    if (b.mantissa_ == 0) return a;
    const Decimal& high = a.exponent_ >= b.exponent_ ? a : b;  // the larger exponent
    const Decimal& low = a.exponent_ >= b.exponent_ ? b : a;
    int shift = high.exponent_ - low.exponent_;
    // Beyond 77 digits of alignment the smaller operand is below half a unit of the result's
    // last digit and cannot change it.
    int highDigits = shift == 0 ? 0 : digitCount(high.mantissa_);
    if (highDigits + shift > 77) return high;
    if (highDigits + shift <= 38) {
        // Aligned operands below 10^38 each: their sum still fits in 128 bits.
        u128 left = high.mantissa_ * powersOfTen[shift], right = low.mantissa_;
        if (high.negative_ == low.negative_) return Decimal::fromParts(left + right, low.exponent_, high.negative_);
        if (left >= right) return Decimal::fromParts(left - right, low.exponent_, high.negative_);
        return Decimal::fromParts(right - left, low.exponent_, low.negative_);
    }
    U256 left = U256::from(high.mantissa_);
    left.scaleByPowerOfTen(shift);
    U256 right = U256::from(low.mantissa_);
    bool negative = high.negative_;
    if (high.negative_ == low.negative_) {
        left.add(right);
    } else if (left >= right) {
        left.subtract(right);
    } else {
        right.subtract(left);
        left = right;
        negative = low.negative_;
    }
    int exponent = low.exponent_;
    u128 mantissa = roundToMantissa(left, exponent);
    return Decimal::fromParts(mantissa, exponent, negative);
}

Decimal operator-(const Decimal& a, const Decimal& b) { return a + (-b); }

Decimal Decimal::operator-() const {
    Decimal out = *this;
    if (!nan_ && mantissa_ != 0) out.negative_ = !negative_;
    return out;
}

Decimal operator*(const Decimal& a, const Decimal& b) {
    if (a.nan_ || b.nan_) return Decimal::notANumber();
    if (a.mantissa_ == 0 || b.mantissa_ == 0) return Decimal();
    int exponent = a.exponent_ + b.exponent_;
    u128 mantissa = roundToMantissa(U256::product(a.mantissa_, b.mantissa_), exponent);
    return Decimal::fromParts(mantissa, exponent, a.negative_ != b.negative_);
}

Decimal operator/(const Decimal& a, const Decimal& b) {
    if (a.nan_ || b.nan_ || b.mantissa_ == 0) return Decimal::notANumber();
    if (a.mantissa_ == 0) return Decimal();
    // Scale the dividend so that the quotient has at least 39 digits; rounding then only needs
    // the first dropped digit, since halves round away from zero anyway.
    int scale = digitCount(b.mantissa_) + 39 - digitCount(a.mantissa_);
    U256 quotient = U256::from(a.mantissa_);
    quotient.scaleByPowerOfTen(scale);
    quotient.divide(b.mantissa_);
    int exponent = a.exponent_ - b.exponent_ - scale;
    u128 mantissa = roundToMantissa(quotient, exponent);
    return Decimal::fromParts(mantissa, exponent, a.negative_ != b.negative_);
}

std::strong_ordering operator<=>(const Decimal& a, const Decimal& b) {
    if (a.nan_ || b.nan_) return b.nan_ <=> a.nan_;
    if (a.negative_ != b.negative_) return a.negative_ ? std::strong_ordering::less : std::strong_ordering::greater;
    auto magnitude = [&]() -> std::strong_ordering {
        if (a.mantissa_ == 0 || b.mantissa_ == 0) return (a.mantissa_ != 0) <=> (b.mantissa_ != 0);
        int adjustedA = digitCount(a.mantissa_) + a.exponent_, adjustedB = digitCount(b.mantissa_) + b.exponent_;
        if (adjustedA != adjustedB) return adjustedA <=> adjustedB;
        // Same magnitude: scaling the one with the larger exponent keeps it within 38 digits.
        if (a.exponent_ >= b.exponent_) return a.mantissa_ * powersOfTen[a.exponent_ - b.exponent_] <=> b.mantissa_;
        return a.mantissa_ <=> b.mantissa_ * powersOfTen[b.exponent_ - a.exponent_];
    }();
    if (!a.negative_) return magnitude;
    return 0 <=> magnitude;
}

void Decimal::hash(Hasher& hasher) const {
    hasher.combine(static_cast<std::uint64_t>(mantissa_));
    hasher.combine(static_cast<std::uint64_t>(mantissa_ >> 64));
    hasher.combine((std::uint64_t(std::uint16_t(exponent_)) << 2) | (negative_ ? 1 : 0) | (nan_ ? 2 : 0));
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
    bool negative = false;
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
        negative = text[0] == '-';
        text.remove_prefix(1);
    }
    if (text.empty()) return std::nullopt;
    std::uint64_t magnitude = 0;
    // Nineteen digits always fit in 64 bits; only longer texts are checked for overflow.
    bool checked = text.size() > 19;
    for (char c : text) {
        auto digit = static_cast<unsigned char>(c - '0');
        if (digit > 9) return std::nullopt;
        if (!checked) magnitude = magnitude * 10 + digit;
        else if (__builtin_mul_overflow(magnitude, 10u, &magnitude) || __builtin_add_overflow(magnitude, digit, &magnitude))
            return std::nullopt;
    }
    constexpr std::uint64_t maximum = std::numeric_limits<std::int64_t>::max();
    if (magnitude > maximum + (negative ? 1 : 0)) return std::nullopt;
    if (negative) return magnitude == maximum + 1 ? std::numeric_limits<std::int64_t>::min()
                                                 : -static_cast<std::int64_t>(magnitude);
    return static_cast<std::int64_t>(magnitude);
}

std::optional<double> parseDouble(std::string_view text) {
    if (text.empty() || std::strchr(" \t\n\v\f\r", text[0]) != nullptr || text[0] == '\0') return std::nullopt;
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    char small[64];
    std::string large;
    const char* terminated;
    if (text.size() < sizeof small) {
        std::memcpy(small, text.data(), text.size());
        small[text.size()] = '\0';
        terminated = small;
    } else {
        large.assign(text);
        terminated = large.c_str();
    }
    char* end = nullptr;
    double value = strtod_l(terminated, &end, cLocale);
    if (end != terminated + text.size()) return std::nullopt;
    return value;
}

}  // namespace drovel::templating
