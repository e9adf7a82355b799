// Operators, logical expressions and filter chains.

#include <gtest/gtest.h>

#include "template/Lexer.h"
#include "template/Parser.h"
#include "template/TemplateTestSupport.h"

namespace drovel::templating {
namespace {

using namespace testing;
using Value = Token::Value;

const Operator& op(std::string_view identifier) {
    for (const auto& candidate : builtinOperators())
        if (candidate.identifier == identifier) return candidate;
    throw std::logic_error("no operator");
}

TEST(Operators, Table) {
    const std::tuple<Value, const char*, Value, bool> cases[] = {
        {integer(3), "==", integer(3), true}, {integer(3), "==", decimal("3"), false},
        {str("3"), "==", integer(3), false}, {str("é"), "==", str("e\xCC\x81"), true},
        {integer(3), "!=", decimal("3"), true}, {Value::nil(), "!=", Value::nil(), false},
        {decimal("3"), ">", integer(2), true},
        {str("10"), ">", str("9"), true},  // numbers, not text order
        {str("abc"), "<", integer(1), true},  // a non-number counts as zero
        {Value::boolean(true), ">=", integer(0), true}, {Value::nil(), "<=", Value::array({}), true},
        {str("2.5"), "<", decimal("2.6"), true}, {str("hello world"), "contains", str("lo w"), true},
        {str("hello"), "contains", str("L"), false}, {str("hello"), "contains", str(""), false},
        {str("café"), "contains", str("e"), false},  // é is one character
        {str("a\r\nb"), "contains", str("\n"), false},  // so is CR LF
        {str("cafe\xCC\x81s"), "contains", str("é"), true},
        {Value::array({str("vip"), integer(1)}), "contains", str("vip"), true},
        {Value::array({integer(1), integer(2)}), "contains", integer(1), false},
        {Value::array({str("1")}), "contains", integer(1), false}, {integer(12), "contains", str("1"), false},
    };
    for (const auto& [left, identifier, right, expected] : cases)
        EXPECT_EQ(op(identifier).lambda(left, right), Value::boolean(expected))
            << left.stringValue() << " " << identifier << " " << right.stringValue();
}

class Expressions : public ::testing::Test {
protected:
    Value evaluate(std::string_view statement, bool filtered = false) {
        Parser parser({}, context);
        Value value = filtered ? parser.evaluateFilteredExpression(statement) : parser.evaluateExpression(statement);
        errors.clear();
        for (const auto& error : parser.parseErrors()) errors.push_back(error.message);
        return value;
    }

    void SetUp() override { context->set(HostValue(3), "x"); }

    std::shared_ptr<Context> context = contextWith(
        {{"a", integer(1)}, {"b", integer(2)}, {"c", integer(3)}, {"name", str("Ann Lee")}, {"points", str("120")}});
    std::vector<std::string> errors;
};

TEST_F(Expressions, LogicalEvaluation) {
    context->set(Value::array({str("vip"), str("gold")}), "tags");
    const std::pair<const char*, Value> cases[] = {
        {"", Value::nil()}, {"x", decimal("3")}, {"unknown", Value::nil()},
        {"x == 3", Value::boolean(false)},  // x came from a host integer: a decimal
        {"x == 3.0", Value::boolean(true)}, {"x > 2", Value::boolean(true)}, {"x   >   2", Value::boolean(true)},
        {"a == 1 and b == 2", Value::boolean(true)}, {"a == 1 and b == 3", Value::boolean(false)},
        {"a == 1 or b == 3", Value::boolean(true)},
        // Logical words group to the right: a == 1 or (b == 3 and c == 4), a == 2 and (b == 2 or c == 3).
        {"a == 1 or b == 3 and c == 4", Value::boolean(true)}, {"a == 2 and b == 2 or c == 3", Value::boolean(false)},
        {"tags contains 'vip'", Value::boolean(true)}, {"tags contains 'silver'", Value::boolean(false)},
    };
    for (const auto& [statement, expected] : cases) {
        EXPECT_EQ(evaluate(statement), expected) << statement;
        EXPECT_TRUE(errors.empty()) << statement << ": " << (errors.empty() ? "" : errors[0]);
    }
}

TEST_F(Expressions, MalformedExpressionsReportExactMessages) {
    const std::pair<const char*, const char*> cases[] = {
        {"name == 'Ann Lee'", "Malformed expression: Unknown variable “Lee'”."},
        {"a == 1 and", "Malformed expression: Expected value but found logical operator “and”."},
        {"and a == 1", "Malformed expression: Expected value but found nothing."},
        {"== 1", "Malformed expression: Expected value before operator “==” but found nothing."},
        {"a b", "Malformed expression: Unknown operator “a”."},
        {"a nothing", "Malformed expression: Unknown variable “nothing”."},
        {"a and b", "Malformed expression: Unknown operator “and”."},
        // The left operand is unknown, but the message names the component the step began with.
        {"nothing == 1", "Malformed expression: Unknown variable “1”."},
        {"nothing == 1 and a == 1", "Malformed expression: Unknown variable “and”."},
        {"a == 1 b == 2", "Malformed expression: Unknown logical operator “1”."},
    };
    for (const auto& [statement, message] : cases) {
        EXPECT_EQ(evaluate(statement), Value::nil()) << statement;
        EXPECT_EQ(errors, std::vector<std::string>{message}) << statement;
    }
}

TEST_F(Expressions, FilterChains) {
    LogCapture log;
    const std::tuple<const char*, Value, const char*> cases[] = {
        {"points | plus: 50", decimal("170"), nullptr}, {"points | plus: 50 | plus: 0.5", decimal("170.5"), nullptr},
        {"points|plus:50", decimal("170"), nullptr},
        {"points || plus: 1", decimal("121"), nullptr},  // empty pieces are dropped
        {"a | plus: b", decimal("3"), nullptr},
        {"points | shout | plus: 1", str("120"), "Unknown filter name: shout. Stopping filter processing."},
        {"points | plus: 1:2", str("120"), "Error: bad filter syntax:  plus: 1:2. Stopping filter processing."},
        {"|x", Value::nil(), nullptr},
    };
    for (const auto& [statement, expected, logged] : cases) {
        log.lines.clear();
        EXPECT_EQ(evaluate(statement, true), expected) << statement;
        EXPECT_EQ(log.lines, logged ? std::vector<std::string>{logged} : std::vector<std::string>{}) << statement;
        EXPECT_TRUE(errors.empty()) << statement;
    }
}

TEST_F(Expressions, RegisteredOperatorsAndFiltersApplyToOneParserOnly) {
    Parser parser({}, context);
    parser.registerOperator(Operator("startswith", [](const Value& l, const Value& r) {
        return Value::boolean(l.stringValue().starts_with(r.stringValue()));
    }));
    parser.registerOperator(Operator("==", [](const Value&, const Value&) { return Value::boolean(true); }));
    // Appended behind the built-in of the same name, which is found first.
    parser.registerFilter(Filter("plus", [](const Value&, Filter::Arguments) { return str("replaced"); }));
    parser.registerFilter(Filter("twice", [](const Value& v, Filter::Arguments) { return str(v.stringValue() + v.stringValue()); }));
    EXPECT_EQ(parser.evaluateExpression("name startswith 'Ann'"), Value::boolean(true));
    EXPECT_EQ(parser.evaluateExpression("a == 2"), Value::boolean(false));
    EXPECT_EQ(parser.evaluateFilteredExpression("a | plus: 1 | twice"), str("22"));
    EXPECT_EQ(parser.filters().size(), builtinFilters().size() + 2);
    EXPECT_EQ(Parser({}, context).evaluateFilteredExpression("a | plus: 1"), decimal("2"));
}

}  // namespace
}  // namespace drovel::templating
