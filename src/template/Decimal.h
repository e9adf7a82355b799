#pragma once
// A base-10 decimal number with the platform decimal's behaviour: a mantissa of at most 38
// digits, a base-10 exponent from -128 to 127 and a sign, plus a not-a-number state for failed
// arithmetic (overflow, division by zero). Values are kept in one canonical form (the largest
// exponent that still gives an integral mantissa), so 1.0 and 1.00 are the same value and
// equality, ordering and hashing work on the fields.

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace drovel::templating {

class Hasher;

class Decimal {
public:
    static constexpr int maximumDigits = 38;
    static constexpr int minimumExponent = -128;
    static constexpr int maximumExponent = 127;

    // Zero.
    Decimal() = default;
    // The exact value of an integer.
    explicit Decimal(std::int64_t value);
    template <class Int>
        requires(std::is_integral_v<Int> && !std::is_same_v<Int, bool> && !std::is_same_v<Int, std::int64_t> &&
                 (std::is_signed_v<Int> || sizeof(Int) < sizeof(std::int64_t)))
    explicit Decimal(Int value) : Decimal(static_cast<std::int64_t>(value)) {}

    // mantissa × 10^exponent, rounded to 38 digits; not-a-number when the exponent is out of range.
    static Decimal fromParts(unsigned __int128 mantissa, int exponent, bool negative);
    // The decimal that the double's shortest round-trip literal spells (0.1 gives exactly 0.1);
    // infinities, NaN and magnitudes beyond the exponent range give not-a-number.
    static Decimal fromDouble(double value);
    // Parses like the platform's string initialiser with no locale: leading white space is
    // skipped, then an optional sign, digits with an optional "." fraction and an optional
    // exponent ("e" or "E"). Parsing stops at the first character that does not fit, so "12px"
    // gives 12; text without a digit where the number should start gives nothing. Digits beyond
    // the 38th are dropped; a value beyond the exponent range gives nothing.
    static std::optional<Decimal> parse(std::string_view text);
    static Decimal notANumber();

    bool isNaN() const { return nan_; }
    bool isZero() const { return !nan_ && mantissa_ == 0; }
    bool isNegative() const { return negative_; }
    unsigned __int128 mantissa() const { return mantissa_; }
    int exponent() const { return exponent_; }

    // Plain notation with "." and no exponent: "-12.5", "0.005", "1200"; not-a-number is "NaN".
    std::string description() const;
    void appendDescription(std::string& out) const;
    // Truncated toward zero; absent for not-a-number and values outside the 64-bit range.
    std::optional<std::int64_t> integerValue() const;
    // The nearest double; not-a-number gives NaN.
    double doubleValue() const;

    // Results are rounded to 38 digits, halves away from zero; overflow and division by zero give
    // not-a-number, as does any operation on not-a-number.
    friend Decimal operator+(const Decimal& a, const Decimal& b);
    friend Decimal operator-(const Decimal& a, const Decimal& b);
    friend Decimal operator*(const Decimal& a, const Decimal& b);
    friend Decimal operator/(const Decimal& a, const Decimal& b);
    Decimal operator-() const;

    // Ordering by value; not-a-number equals itself and sorts below every number.
    friend std::strong_ordering operator<=>(const Decimal& a, const Decimal& b);
    friend bool operator==(const Decimal& a, const Decimal& b) = default;

    void hash(Hasher& hasher) const;

private:
    // The general cases of fromParts and operator+, apart from their common fast paths.
    static Decimal fromWideParts(unsigned __int128 mantissa, int exponent, bool negative);
    static Decimal sum(const Decimal& a, const Decimal& b);

    unsigned __int128 mantissa_ = 0;
    std::int16_t exponent_ = 0;
    bool negative_ = false;
    bool nan_ = false;
};

// A base-10 signed integer: an optional "+" or "-", then ASCII digits only; anything else,
// an empty text or a value outside 64 bits gives nothing.
std::optional<std::int64_t> parseInteger(std::string_view text);
// A C-locale floating-point literal that must use up the whole text (so "1.5", "-2e3", "0x1p4",
// "inf"); an empty text or one that begins with white space or NUL gives nothing.
std::optional<double> parseDouble(std::string_view text);

}  // namespace drovel::templating
