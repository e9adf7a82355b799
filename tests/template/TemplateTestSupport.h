#pragma once
// Shared helpers of the template engine tests.

#include <memory>
#include <string>
#include <vector>

#include "template/Context.h"
#include "template/Log.h"
#include "template/Render.h"

namespace drovel::templating::testing {

// Collects the engine's log lines while alive.
class LogCapture {
public:
    LogCapture() {
        setLogHandler([this](std::string_view message) { lines.emplace_back(message); });
    }
    ~LogCapture() { setLogHandler(nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines;
};

inline Token::Value str(std::string text) { return Token::Value::string(std::move(text)); }
inline Token::Value integer(std::int64_t value) { return Token::Value::integer(value); }
inline Token::Value decimal(std::string_view text) { return Token::Value::decimal(*Decimal::parse(text)); }

inline std::shared_ptr<Context> contextWith(Token::Value::Dictionary variables = {}) {
    return std::make_shared<Context>(std::move(variables));
}

}  // namespace drovel::templating::testing
