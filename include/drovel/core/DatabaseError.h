#pragma once
// Failures of the core library's database layer.

#include <stdexcept>
#include <string>

#include "drovel/core/Error.h"

namespace drovel::core {

// The Error form of a database failure, for callbacks and for log lines ("... with error: " +
// description()). The description is the database's own message, e.g. "no such table: t".
class DatabaseFailure : public Error {
public:
    DatabaseFailure(std::string message, int code) : message_(std::move(message)), code_(code) {}
    std::string description() const override { return message_; }
    // SQLite's extended result code (0 when the failure is the library's own, e.g. a column of the
    // wrong type).
    int code() const { return code_; }

private:
    std::string message_;
    int code_;
};

// Thrown by DrovelDBManager and its statements. Callers inside the SDK catch it, log
// "... with error: " + description(), and go on.
class DatabaseError : public std::runtime_error {
public:
    explicit DatabaseError(const std::string& message, int code = 0)
        : std::runtime_error(message), code_(code) {}

    std::string description() const { return what(); }
    int code() const { return code_; }
    ErrorPtr toError() const { return makeError<DatabaseFailure>(description(), code_); }

private:
    int code_;
};

}  // namespace drovel::core
