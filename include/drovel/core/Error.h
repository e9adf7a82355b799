#pragma once
// Errors as the SDK reports them: callbacks carry a shared, immutable Error; nothing throws across
// the public API.

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace drovel::core {

class Error {
public:
    virtual ~Error() = default;
    // The error's own text.
    virtual std::string description() const = 0;
    // The text shown to a user; errors without a localised text of their own give description().
    virtual std::string localizedDescription() const { return description(); }
};

using ErrorPtr = std::shared_ptr<const Error>;

// A plain error with a fixed text, for failures that have no richer type.
class SimpleError : public Error {
public:
    explicit SimpleError(std::string text) : text_(std::move(text)) {}
    std::string description() const override { return text_; }

private:
    std::string text_;
};

template <class E, class... Args>
ErrorPtr makeError(Args&&... args) {
    return std::make_shared<const E>(std::forward<Args>(args)...);
}

// Success with a payload, or failure with an error. A result left unread is a warning: whoever
// ignores a failure on purpose says so with a (void) cast and a comment.
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(ErrorPtr error) : state_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }
    // Calling value() on a failure, or error() on a success, is a programming error.
    const T& value() const& { return std::get<0>(state_); }
    T& value() & { return std::get<0>(state_); }
    T&& value() && { return std::get<0>(std::move(state_)); }
    const ErrorPtr& error() const { return std::get<1>(state_); }

private:
    std::variant<T, ErrorPtr> state_;
};

// Misuse by calling code (never outside input): logs the message and aborts the process.
[[noreturn]] void programmingError(std::string_view message);

}  // namespace drovel::core
