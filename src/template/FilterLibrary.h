#pragma once
// The functions behind the built-in filters, one row each in the table of Filter.cpp.

#include <string_view>

#include "template/Filter.h"

namespace drovel::templating::filters {

using Function = Token::Value (*)(const Token::Value& input, Filter::Arguments arguments);

struct Row {
    std::string_view name;
    Function function;
};

// The arithmetic shared by "minus", "plus" and "times": both operands become decimals (strings
// parse with "." as separator, integers convert exactly) and the operation applies. An input or
// first argument without a decimal value, or a missing argument, gives nil.
enum class Arithmetic { add, subtract, multiply };
Token::Value arithmetic(const Token::Value& input, Filter::Arguments arguments, Arithmetic operation);

Token::Value plus(const Token::Value& input, Filter::Arguments arguments);

}  // namespace drovel::templating::filters
