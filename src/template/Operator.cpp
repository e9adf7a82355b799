#include "template/Operator.h"

#include "template/Unicode.h"

namespace drovel::templating {

namespace {

using Value = Token::Value;

// Strings that are not numbers, booleans, containers and nil all order as zero.
double number(const Value& value) { return value.doubleValue().value_or(0.0); }

Value contains(const Value& left, const Value& right) {
    const std::string* needle = right.asString();
    if (!needle) return Value::boolean(false);
    if (auto* text = left.asString()) return Value::boolean(unicode::containsCanonically(*text, *needle));
    if (auto* elements = left.asArray()) {
        for (const auto& element : *elements)
            if (auto* candidate = element.asString(); candidate && unicode::canonicallyEqual(*candidate, *needle))
                return Value::boolean(true);
    }
    return Value::boolean(false);
}

}  // namespace

const std::vector<Operator>& builtinOperators() {
    static const std::vector<Operator> operators{
        {"==", [](const Value& l, const Value& r) { return Value::boolean(l == r); }},
        {"!=", [](const Value& l, const Value& r) { return Value::boolean(!(l == r)); }},
        {">", [](const Value& l, const Value& r) { return Value::boolean(number(l) > number(r)); }},
        {"<", [](const Value& l, const Value& r) { return Value::boolean(number(l) < number(r)); }},
        {">=", [](const Value& l, const Value& r) { return Value::boolean(number(l) >= number(r)); }},
        {"<=", [](const Value& l, const Value& r) { return Value::boolean(number(l) <= number(r)); }},
        {"contains", contains},
    };
    return operators;
}

}  // namespace drovel::templating
