#pragma once
// Filters transform a value in an output expression ("{{ points | plus: 50 }}"). The built-in
// library is one table of (name, function) rows, registered by every parser in table order.

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "template/Token.h"

namespace drovel::templating {

class Filter {
public:
    using Arguments = std::span<const Token::Value>;
    // Never throws and has no error path: a wrong kind of input gives a value (usually nil).
    using Lambda = std::function<Token::Value(const Token::Value& input, Arguments arguments)>;

    Filter(std::string identifier, Lambda lambda) : identifier(std::move(identifier)), lambda(std::move(lambda)) {}

    // The name used in templates.
    std::string identifier;
    Lambda lambda;
};

// The built-in filters in table order, created once per process.
const std::vector<Filter>& builtinFilters();

}  // namespace drovel::templating
