#pragma once
// The user-info dictionary a notification carries: text keys, dynamically typed values.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "drovel/core/Error.h"

namespace drovel::platform {

struct UserInfoValue;
using UserInfo = std::map<std::string, UserInfoValue, std::less<>>;
using UserInfoArray = std::vector<UserInfoValue>;

// Text, integer, double, boolean, nested dictionary or array.
struct UserInfoValue {
    using Storage = std::variant<std::string, std::int64_t, double, bool, UserInfo, UserInfoArray>;
    Storage storage;

    UserInfoValue() : storage(std::string()) {}
    UserInfoValue(std::string v) : storage(std::move(v)) {}
    UserInfoValue(std::string_view v) : storage(std::string(v)) {}
    UserInfoValue(const char* v) : storage(std::string(v)) {}
    UserInfoValue(std::int64_t v) : storage(v) {}
    UserInfoValue(int v) : storage(std::int64_t{v}) {}
    UserInfoValue(double v) : storage(v) {}
    UserInfoValue(bool v) : storage(v) {}
    UserInfoValue(UserInfo v) : storage(std::move(v)) {}
    UserInfoValue(UserInfoArray v) : storage(std::move(v)) {}

    template <class T>
    bool is() const { return std::holds_alternative<T>(storage); }
    // The value if it holds a T, else nullptr.
    template <class T>
    const T* get() const { return std::get_if<T>(&storage); }

    bool operator==(const UserInfoValue& other) const { return storage == other.storage; }
};

// The value under key if it holds a T, else nullptr.
template <class T>
const T* userInfoGet(const UserInfo& userInfo, std::string_view key) {
    auto it = userInfo.find(key);
    return it == userInfo.end() ? nullptr : it->second.get<T>();
}

// JSON form: a dictionary is an object, an array an array, text a string, a boolean true or false,
// an integer a number without fraction, a double a number with a fraction or exponent ("2.0").
// A double that JSON cannot carry (NaN, infinity) is written as null and dropped on reading.
std::string userInfoToJson(const UserInfo& userInfo);
// Reads the JSON form back. Integers that do not fit 64 bits read as doubles. Fails on anything
// that is not an object at the top, and on nesting deeper than 64 levels.
core::Result<UserInfo> userInfoFromJson(std::string_view json);

}  // namespace drovel::platform
