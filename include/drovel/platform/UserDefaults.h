#pragma once
// The host app's standard user defaults: small typed values under text keys that survive a restart.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "drovel/platform/Clock.h"

namespace drovel::platform {

struct DefaultsValue;
using DefaultsBytes = std::vector<std::uint8_t>;
using DefaultsDictionary = std::map<std::string, DefaultsValue, std::less<>>;
using DefaultsArray = std::vector<DefaultsValue>;

// One stored value: text, integer, double, boolean, date, data (bytes), dictionary or array.
struct DefaultsValue {
    using Storage = std::variant<std::string, std::int64_t, double, bool, Date, DefaultsBytes,
                                 DefaultsDictionary, DefaultsArray>;
    Storage storage;

    DefaultsValue() : storage(std::string()) {}
    DefaultsValue(std::string v) : storage(std::move(v)) {}
    DefaultsValue(std::string_view v) : storage(std::string(v)) {}
    DefaultsValue(const char* v) : storage(std::string(v)) {}
    DefaultsValue(std::int64_t v) : storage(v) {}
    DefaultsValue(int v) : storage(std::int64_t{v}) {}
    DefaultsValue(double v) : storage(v) {}
    DefaultsValue(bool v) : storage(v) {}
    DefaultsValue(Date v) : storage(v) {}
    DefaultsValue(DefaultsBytes v) : storage(std::move(v)) {}
    DefaultsValue(DefaultsDictionary v) : storage(std::move(v)) {}
    DefaultsValue(DefaultsArray v) : storage(std::move(v)) {}

    template <class T>
    bool is() const { return std::holds_alternative<T>(storage); }
    // The value if it holds a T, else nullptr.
    template <class T>
    const T* get() const { return std::get_if<T>(&storage); }

    bool operator==(const DefaultsValue& other) const { return storage == other.storage; }
};

// Any thread may call every operation; implementations are thread-safe. There are no callbacks.
// A write is visible to every later read at once; it reaches durable storage no later than
// synchronize() (implementations may write through at once).
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    // The value stored under key, or none.
    virtual std::optional<DefaultsValue> object(std::string_view key) const = 0;
    // Stores value under key, replacing what was there.
    virtual void set(std::string_view key, DefaultsValue value) = 0;
    // Removes key; removing a missing key does nothing.
    virtual void removeObject(std::string_view key) = 0;
    // Every key and its value.
    virtual DefaultsDictionary dictionaryRepresentation() const = 0;
    // Makes every earlier write durable; false when storing failed (the failure is logged).
    virtual bool synchronize() = 0;

    // Typed reads: none when the key is missing or holds another kind of value.
    std::optional<std::string> string(std::string_view key) const { return typed<std::string>(key); }
    std::optional<std::int64_t> integer(std::string_view key) const { return typed<std::int64_t>(key); }
    // An integer value reads as a double too, as the platform's numbers do.
    std::optional<double> doubleValue(std::string_view key) const {
        auto value = object(key);
        if (!value) return std::nullopt;
        if (auto d = value->get<double>()) return *d;
        if (auto i = value->get<std::int64_t>()) return static_cast<double>(*i);
        return std::nullopt;
    }
    std::optional<bool> boolValue(std::string_view key) const { return typed<bool>(key); }
    std::optional<Date> date(std::string_view key) const { return typed<Date>(key); }
    std::optional<DefaultsBytes> data(std::string_view key) const { return typed<DefaultsBytes>(key); }
    std::optional<DefaultsDictionary> dictionary(std::string_view key) const { return typed<DefaultsDictionary>(key); }
    std::optional<DefaultsArray> array(std::string_view key) const { return typed<DefaultsArray>(key); }

    // Typed writes, the same as set(key, DefaultsValue(value)).
    void setString(std::string_view key, std::string value) { set(key, DefaultsValue(std::move(value))); }
    void setInteger(std::string_view key, std::int64_t value) { set(key, DefaultsValue(value)); }
    void setDouble(std::string_view key, double value) { set(key, DefaultsValue(value)); }
    void setBool(std::string_view key, bool value) { set(key, DefaultsValue(value)); }
    void setDate(std::string_view key, Date value) { set(key, DefaultsValue(value)); }
    void setData(std::string_view key, DefaultsBytes value) { set(key, DefaultsValue(std::move(value))); }
    void setDictionary(std::string_view key, DefaultsDictionary value) { set(key, DefaultsValue(std::move(value))); }
    void setArray(std::string_view key, DefaultsArray value) { set(key, DefaultsValue(std::move(value))); }

private:
    template <class T>
    std::optional<T> typed(std::string_view key) const {
        auto value = object(key);
        if (!value) return std::nullopt;
        if (auto* held = std::get_if<T>(&value->storage)) return std::move(*held);
        return std::nullopt;
    }
};

}  // namespace drovel::platform
