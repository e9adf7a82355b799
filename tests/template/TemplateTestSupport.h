#pragma once
// Shared helpers of the template engine tests.

#include <memory>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "template/Context.h"
#include "template/Lexer.h"
#include "template/Log.h"
#include "template/Parser.h"
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

// Variables for tag and parser tests.
inline std::shared_ptr<Context> sampleContext() {
    using Value = Token::Value;
    auto named = [](const char* name) { return Value::dictionary({{"name", str(name)}}); };
    return contextWith({{"name", str("Ann")},
                        {"flag", Value::boolean(true)},
                        {"points", str("120")},
                        {"tier", str("gold")},
                        {"count", decimal("3")},
                        {"list", Value::array({integer(1), integer(2), integer(3)})},
                        {"pair", Value::array({str("a"), str("b")})},
                        {"empty", Value::array({})},
                        {"items", Value::array({named("tea"), named("cake")})},
                        {"user", named("Ann")}});
}

// A walk of the text with sampleContext(): the output, the log lines and the expression errors.
struct Outcome {
    std::string output;
    std::vector<std::string> log;
    std::vector<std::string> errors;
};

template <class... Tags>
Outcome run(std::string_view text) {
    LogCapture log;
    Parser parser(Lexer(text).tokenize(), sampleContext());
    (parser.registerTag<Tags>(), ...);
    Outcome outcome{parser.parseJoined(), std::move(log.lines), {}};
    for (const auto& error : parser.parseErrors()) outcome.errors.push_back(error.message);
    return outcome;
}

// Each text renders as expected with nothing logged.
template <class... Tags>
void expectRenders(std::span<const std::pair<const char*, const char*>> cases) {
    for (const auto& [text, expected] : cases) {
        auto outcome = run<Tags...>(text);
        EXPECT_EQ(outcome.output, expected) << text;
        EXPECT_TRUE(outcome.log.empty()) << text << ": " << outcome.log[0];
        EXPECT_TRUE(outcome.errors.empty()) << text;
    }
}

// Each text renders as expected and logs the message first.
template <class... Tags>
void expectLogs(std::span<const std::tuple<const char*, const char*, const char*>> cases) {
    for (const auto& [text, expected, message] : cases) {
        auto outcome = run<Tags...>(text);
        EXPECT_EQ(outcome.output, expected) << text;
        ASSERT_FALSE(outcome.log.empty()) << text;
        EXPECT_EQ(outcome.log.front(), message) << text;
    }
}

}  // namespace drovel::templating::testing
