#pragma once
// The engine's two value types: Token, a lexical piece of a template, and Token::Value, the
// dynamically typed value that variables, literals, filters, operators and tags exchange. Also
// the conversions of host values into template values (tokenValue and TokenValueConvertible).

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "template/Bytes.h"
#include "template/Decimal.h"
#include "template/Hasher.h"

namespace drovel::templating {

// A closed integer range: both bounds inclusive, lower never above upper.
struct Range {
    std::int64_t lower = 0;
    std::int64_t upper = 0;
    friend bool operator==(const Range&, const Range&) = default;
};

class Token {
public:
    enum class Kind : std::uint8_t { text, variable, tag };
    class Value;

    // The value views the template text the token was cut from (or a caller's string), which must
    // outlive the token: text tokens are never copied.
    Kind kind = Kind::text;
    std::string_view value;

    static constexpr Token text(std::string_view value) { return {Kind::text, value}; }
    static constexpr Token variable(std::string_view value) { return {Kind::variable, value}; }
    static constexpr Token tag(std::string_view value) { return {Kind::tag, value}; }

    // Same kind and canonically equal strings.
    friend bool operator==(const Token& a, const Token& b);
};

// "text", "variable" or "tag".
std::string_view kindName(Token::Kind kind);

class Token::Value {
public:
    // The cases in their fixed order; the order is also that of the storage below.
    enum class Case : std::uint8_t { boolean, string, integer, decimal, array, dictionary, range, nil };
    using Array = std::vector<Value>;
    class Dictionary;

    // nil.
    Value() = default;

    static Value boolean(bool value) { return Value(std::in_place_type<bool>, value); }
    static Value string(std::string value) { return Value(std::in_place_type<std::string>, std::move(value)); }
    static Value integer(std::int64_t value) { return Value(std::in_place_type<std::int64_t>, value); }
    static Value decimal(Decimal value) { return Value(std::in_place_type<Decimal>, value); }
    static Value array(Array elements);
    static Value dictionary(Dictionary entries);
    // lower must not exceed upper: a reversed range is a programming error (std::invalid_argument).
    static Value range(std::int64_t lower, std::int64_t upper);
    static Value nil() { return {}; }

    Case kind() const { return static_cast<Case>(storage_.index()); }
    bool isNil() const { return kind() == Case::nil; }

    // The payload when the value is of that case, otherwise null.
    const bool* asBool() const { return std::get_if<bool>(&storage_); }
    const std::string* asString() const { return std::get_if<std::string>(&storage_); }
    const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&storage_); }
    const Decimal* asDecimal() const { return std::get_if<Decimal>(&storage_); }
    const Array* asArray() const {
        auto* array = std::get_if<std::shared_ptr<const Array>>(&storage_);
        return array ? array->get() : nullptr;
    }
    const Dictionary* asDictionary() const {
        auto* dictionary = std::get_if<std::shared_ptr<const Dictionary>>(&storage_);
        return dictionary ? dictionary->get() : nullptr;
    }
    const Range* asRange() const { return std::get_if<Range>(&storage_); }

    // The printed form: strings as they are, integers in decimal, decimals in plain notation,
    // arrays as their elements' forms with no separator, ranges as "1..5"; booleans,
    // dictionaries and nil print as nothing.
    std::string stringValue() const;
    void appendStringValue(std::string& out) const;
    // Strings parse as base-10 integers (no trimming); decimals truncate toward zero.
    std::optional<std::int64_t> integerValue() const;
    // Strings parse as the platform decimal does, with "." as separator; integers are exact.
    std::optional<Decimal> decimalValue() const;
    // Strings parse as C-locale floating-point literals using up the whole string.
    std::optional<double> doubleValue() const;
    // Only false and nil are falsy; "", 0 and empty containers are truthy.
    bool isTruthy() const;
    bool isFalsy() const { return !isTruthy(); }
    bool isEmptyString() const;
    // The dictionary, to change in place, when this value is its only holder; otherwise null.
    Dictionary* uniqueDictionary();
    // Makes the value that boolean or integer in place: cheaper than assigning a new value when
    // it already is one (a loop pass refilling its variables).
    void setBoolean(bool value) {
        if (auto* flag = std::get_if<bool>(&storage_)) *flag = value;
        else storage_.emplace<bool>(value);
    }
    void setInteger(std::int64_t value) {
        if (auto* integer = std::get_if<std::int64_t>(&storage_)) *integer = value;
        else storage_.emplace<std::int64_t>(value);
    }

    // Same case and equal payloads: strings by canonical equivalence, decimals by value,
    // containers element by element. Never across cases: integer 1 is not decimal 1.
    friend bool operator==(const Value& a, const Value& b);

    // Feeds only the payload (no case discriminator); consistent with ==.
    void hash(Hasher& hasher) const;
    std::uint64_t hashValue() const;

private:
    template <class T, class... Arguments>
    explicit Value(std::in_place_type_t<T> type, Arguments&&... arguments)
        : storage_(type, std::forward<Arguments>(arguments)...) {}

    std::variant<bool, std::string, std::int64_t, Decimal, std::shared_ptr<const Array>,
                 std::shared_ptr<const Dictionary>, Range, std::monostate>
        storage_{std::monostate{}};
};

// A map from string keys to values. Keys are compared by canonical equivalence, like the
// platform's strings: they are stored in NFC form and looked up through it. The entries are kept
// in key order in one array: template dictionaries hold a handful of entries, mostly set in key
// order (host maps, loop variables), and are read far more often than built.
class Token::Value::Dictionary {
public:
    using Entry = std::pair<std::string, Value>;
    using Entries = std::vector<Entry>;

    Dictionary() = default;
    Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);
    // Takes entries whose keys are already in NFC form and in strictly increasing order (the
    // engine's own dictionaries, such as a loop's "forloop"); anything else is a programming error
    // (std::invalid_argument).
    static Dictionary fromOrderedEntries(Entries entries);
    // The same without the check, for entries whose order the engine's code fixes.
    static Dictionary fromSortedEntries(Entries entries);

    // The value under the key, or null. The pointer stays valid until the dictionary changes.
    const Value* find(std::string_view key) const {
        // A key of a small dictionary is found here, without a call; the rest in findElsewhere.
        if (entries_.size() <= smallSize)
            if (const Value* found = findSmall(key)) return found;
        return findElsewhere(key);
    }
    // The same for a key that is its own canonical form (ASCII, say): a key missing as given is
    // missing.
    const Value* findCanonical(std::string_view key) const {
        return entries_.size() <= smallSize ? findSmall(key) : findSorted(key);
    }
    // Stores or replaces the entry.
    void set(std::string_view key, Value value);
    bool erase(std::string_view key);
    // The value of the entry at that position in key order, to change in place.
    Value& valueAt(std::size_t position) { return entries_[position].second; }

    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    Entries::const_iterator begin() const { return entries_.begin(); }
    Entries::const_iterator end() const { return entries_.end(); }

    friend bool operator==(const Dictionary& a, const Dictionary& b) { return a.entries_ == b.entries_; }

private:
    // The first entry whose key is not below `key` (canonical).
    Entries::const_iterator lowerBound(std::string_view key) const;
    // The binary search of a larger dictionary.
    const Value* findSorted(std::string_view key) const;
    const Value* findElsewhere(std::string_view key) const;
    // The search of a small dictionary: lengths before bytes.
    const Value* findSmall(std::string_view key) const {
        for (const auto& [name, value] : entries_)
            if (name.size() == key.size() && bytes::same(name.data(), key.data(), key.size())) return &value;
        return nullptr;
    }
    // Up to this many entries, comparing lengths first beats a binary search of comparisons.
    static constexpr std::size_t smallSize = 16;
    void setCanonical(std::string key, Value value);

    Entries entries_;
};

// Host types that know their template value.
class TokenValueConvertible {
public:
    virtual ~TokenValueConvertible() = default;
    virtual Token::Value tokenValue() const = 0;
};

// Host integer ranges: ClosedRange includes upper, HalfOpenRange stops before it.
template <std::signed_integral Int>
struct ClosedRange {
    Int lower;
    Int upper;
};
template <std::signed_integral Int>
struct HalfOpenRange {
    Int lower;
    Int upper;
};

// The conversions of host values: strings, signed integers, booleans, doubles and floats (as
// decimals made from the double's literal), arrays and string-keyed maps of convertible values,
// and integer ranges. An empty half-open range, or a bound outside 64 bits, is a programming
// error (std::invalid_argument).
inline Token::Value tokenValue(const Token::Value& value) { return value; }
inline Token::Value tokenValue(std::string_view value) { return Token::Value::string(std::string(value)); }
inline Token::Value tokenValue(const std::string& value) { return Token::Value::string(value); }
inline Token::Value tokenValue(const char* value) { return Token::Value::string(value); }
inline Token::Value tokenValue(bool value) { return Token::Value::boolean(value); }
template <std::signed_integral Int>
Token::Value tokenValue(Int value) {
    return Token::Value::integer(static_cast<std::int64_t>(value));
}
inline Token::Value tokenValue(double value) { return Token::Value::decimal(Decimal::fromDouble(value)); }
inline Token::Value tokenValue(float value) { return tokenValue(static_cast<double>(value)); }
inline Token::Value tokenValue(const TokenValueConvertible& value) { return value.tokenValue(); }

template <class T>
concept TokenValueConvertibleType = requires(const T& value) {
    { tokenValue(value) } -> std::same_as<Token::Value>;
};

template <TokenValueConvertibleType T>
Token::Value tokenValue(const std::vector<T>& elements) {
    Token::Value::Array out;
    out.reserve(elements.size());
    for (const auto& element : elements) out.push_back(tokenValue(element));
    return Token::Value::array(std::move(out));
}

template <TokenValueConvertibleType T, class Compare>
Token::Value tokenValue(const std::map<std::string, T, Compare>& entries) {
    Token::Value::Dictionary out;
    for (const auto& [key, element] : entries) out.set(key, tokenValue(element));
    return Token::Value::dictionary(std::move(out));
}

namespace detail {
template <std::signed_integral Int>
std::int64_t checkedBound(Int bound) {
    if (!std::in_range<std::int64_t>(bound)) throw std::invalid_argument("range bound does not fit in 64 bits");
    return static_cast<std::int64_t>(bound);
}
}  // namespace detail

template <std::signed_integral Int>
Token::Value tokenValue(const ClosedRange<Int>& range) {
    return Token::Value::range(detail::checkedBound(range.lower), detail::checkedBound(range.upper));
}

template <std::signed_integral Int>
Token::Value tokenValue(const HalfOpenRange<Int>& range) {
    std::int64_t lower = detail::checkedBound(range.lower), upper = detail::checkedBound(range.upper);
    if (upper == std::numeric_limits<std::int64_t>::min() || upper - 1 < lower)
        throw std::invalid_argument("empty half-open range has no closed form");
    return Token::Value::range(lower, upper - 1);
}

}  // namespace drovel::templating

template <>
struct std::hash<drovel::templating::Token::Value> {
    std::size_t operator()(const drovel::templating::Token::Value& value) const { return value.hashValue(); }
};
