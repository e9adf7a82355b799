#pragma once
// Comparison operators of expressions ("==", "!=", ">", "<", ">=", "<=", "contains").

#include <functional>
#include <string>
#include <vector>

#include "template/Token.h"

namespace drovel::templating {

class Operator {
public:
    using Lambda = std::function<Token::Value(const Token::Value& left, const Token::Value& right)>;

    Operator(std::string identifier, Lambda lambda) : identifier(std::move(identifier)), lambda(std::move(lambda)) {}

    // Compared for exact equality with an expression component.
    std::string identifier;
    Lambda lambda;
};

// The built-in operators in registration order, created once per process:
// "==" and "!=" compare strictly (same case, equal payload; integer 3 is not decimal 3), the four
// orderings compare the sides' doubleValue with a missing one counting as 0.0, and "contains"
// finds a string in a string or a string element in an array.
const std::vector<Operator>& builtinOperators();

}  // namespace drovel::templating
