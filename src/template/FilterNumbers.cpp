// The numeric filters.

#include "template/FilterLibrary.h"

namespace drovel::templating::filters {

using Value = Token::Value;

Value arithmetic(const Value& input, Filter::Arguments arguments, Arithmetic operation) {
    if (arguments.empty()) return Value::nil();
    // Numbers in templates and custom content use "." as the decimal separator, whatever the locale.
    auto left = input.decimalValue();
    auto right = arguments[0].decimalValue();
    if (!left || !right) return Value::nil();
    switch (operation) {
        case Arithmetic::add:
            return Value::decimal(*left + *right);
        case Arithmetic::subtract:
            return Value::decimal(*left - *right);
        case Arithmetic::multiply:
            return Value::decimal(*left * *right);
    }
    return Value::nil();
}

Value plus(const Value& input, Filter::Arguments arguments) { return arithmetic(input, arguments, Arithmetic::add); }

}  // namespace drovel::templating::filters
