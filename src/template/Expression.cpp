// The two evaluations of expressions: logical expressions of comparisons, and filter chains.

#include <algorithm>
#include <cstring>

#include "template/Log.h"
#include "template/Parser.h"
#include "template/SmallVector.h"
#include "template/Unicode.h"

namespace drovel::templating {

namespace {

using Value = Token::Value;

// Splits on one character, dropping empty pieces. Quotes are not special.
template <std::size_t N>
void split(std::string_view text, char separator, SmallVector<std::string_view, N>& pieces) {
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = text.find(separator, start);
        if (end == std::string_view::npos) end = text.size();
        if (end > start) pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::string quoted(std::string_view text) { return "“" + std::string(text) + "”"; }

}  // namespace

namespace {

// The value a reference from the in-place evaluations stands for, as a value of its own.
Value taken(const Value& value, Value& storage) { return &value == &storage ? std::move(storage) : value; }

}  // namespace

Value Parser::evaluateExpression(std::string_view statement, Context* context) {
    Value storage;
    return taken(expressionValue(statement, context ? *context : *context_, storage), storage);
}

const Value& Parser::expressionValue(std::string_view statement, Context& scope, Value& storage) {
    if (statement.empty()) return storage = Value::nil();
    // A single operand (no space between two words), read in place: an unknown name quietly
    // gives nil.
    if (unicode::withoutOuterBlanks(statement).find(' ') == std::string_view::npos) {
        if (const Value* value = scope.resolveOperand(statement, storage)) return *value;
        return storage = Value::nil();
    }
    SmallVector<std::string_view, 8> components;
    split(statement, ' ', components);
    return storage = evaluateComparisons(components, scope);
}

Value Parser::evaluateComparisons(std::span<const std::string_view> components, Context& scope) {
    auto fail = [&](std::string message) {
        addParseError("Malformed expression: " + message);
        return Value::nil();
    };
    // Comparisons are taken from the right end, so logical words group to the right:
    // "a == 1 or b == 2 and c == 3" is "a == 1 or (b == 2 and c == 3)". No short-circuit.
    std::optional<Value> accumulated;
    std::size_t remaining = components.size();
    while (true) {
        std::string_view word = components[remaining - 1];
        bool isLogical = word == "or" || word == "and";
        std::size_t right = remaining - 1;
        if (isLogical) {
            if (!accumulated) return fail("Expected value but found logical operator " + quoted(word) + ".");
            if (remaining == 1) return fail("Expected value but found nothing.");
            right = remaining - 2;
        }
        Value rightLiteral, leftLiteral;
        const Value* rightValue = scope.resolveOperand(components[right], rightLiteral);
        if (!rightValue) return fail("Unknown variable " + quoted(components[right]) + ".");
        if (right == 0) return fail("Expected operator but found nothing.");
        std::string_view operatorWord = components[right - 1];
        const Operator* op = findOperator(operatorWord);
        if (!op) return fail("Unknown operator " + quoted(operatorWord) + ".");
        if (right == 1) return fail("Expected value before operator " + quoted(operatorWord) + " but found nothing.");
        const Value* leftValue = scope.resolveOperand(components[right - 2], leftLiteral);
        // The message names the component this step began with, not the left operand.
        if (!leftValue) return fail("Unknown variable " + quoted(word) + ".");
        // Comparisons read both sides whole.
        chargeWork(valueSize(*leftValue, maximumWorkBytes) + valueSize(*rightValue, maximumWorkBytes));
        Value result = op->lambda(*leftValue, *rightValue);
        remaining = right - 2;
        if (!accumulated) {
            // A lone comparison, the common case, is the answer as it is.
            if (remaining == 0) return result;
            accumulated = std::move(result);
        } else if (word == "and") accumulated = Value::boolean(accumulated->isTruthy() && result.isTruthy());
        else if (word == "or") accumulated = Value::boolean(accumulated->isTruthy() || result.isTruthy());
        else return fail("Unknown logical operator " + quoted(word) + ".");
        if (remaining == 0) return std::move(*accumulated);
    }
}

Value Parser::evaluateFilteredExpression(std::string_view statement, Context* context) {
    Value storage;
    return taken(filteredValue(statement, context, storage), storage);
}

const Value& Parser::filteredValue(std::string_view statement, Context* context, Value& storage) {
    const Value& value = filterChainValue(statement, context ? *context : *context_, storage);
    // Whoever asked reads (and often copies) the result: counted.
    chargeWork(valueSize(value, maximumWorkBytes));
    return value;
}

const Value& Parser::filterChainValue(std::string_view statement, Context& scope, Value& storage) {
    // The chain's pieces are the non-empty texts between bars, found one after the other; with
    // fewer than two the whole statement is a logical expression.
    const char* cursor = statement.data();
    const char* const end = cursor + statement.size();
    auto findBar = [end](const char* from) {
        return static_cast<const char*>(std::memchr(from, '|', static_cast<std::size_t>(end - from)));
    };
    // The first bar at or after the cursor, or null.
    const char* bar = statement.empty() ? nullptr : findBar(cursor);
    if (!bar) return expressionValue(statement, scope, storage);
    auto nextPiece = [&](std::string_view& piece) {
        while (cursor != end) {
            const char* stop = bar ? bar : end;
            piece = std::string_view(cursor, static_cast<std::size_t>(stop - cursor));
            cursor = bar ? bar + 1 : end;
            bar = bar && cursor != end ? findBar(cursor) : nullptr;
            if (!piece.empty()) return true;
        }
        return false;
    };
    std::string_view input, piece;
    if (!nextPiece(input) || !nextPiece(piece)) return expressionValue(statement, scope, storage);
    // The input of each filter: a variable's value in place, then each filter's result.
    const Value* value = &expressionValue(input, scope, storage);
    do {
        // The filter's name and its argument list are the non-empty texts around a colon.
        std::string_view name, argumentList;
        std::size_t partCount = 0;
        for (std::size_t start = 0; start < piece.size();) {
            std::size_t end = std::min(piece.find(':', start), piece.size());
            if (end > start) {
                if (++partCount == 1) name = piece.substr(start, end - start);
                else argumentList = piece.substr(start, end - start);
            }
            start = end + 1;
        }
        // A colon inside an argument (a time format, say) makes a third part and ends the chain.
        if (partCount > 2) {
            report("Error: bad filter syntax: " + std::string(piece) + ". Stopping filter processing.");
            return *value;
        }
        name = unicode::trimWhitespaceAndNewlines(name);
        // Each argument is resolved into its place: a literal is made there, a variable copied.
        SmallVector<Value, 4> arguments;
        for (std::size_t start = 0; start < argumentList.size();) {
            std::size_t end = std::min(argumentList.find(',', start), argumentList.size());
            if (end > start) {
                Value& slot = arguments.emplace_back();
                const Value* argument = scope.resolveOperand(argumentList.substr(start, end - start), slot);
                if (!argument) slot = Value::nil();
                else if (argument != &slot) slot = *argument;
            }
            start = end + 1;
        }
        const Filter* filter = findFilter(name);
        if (!filter) {
            report("Unknown filter name: " + std::string(name) + ". Stopping filter processing.");
            return *value;
        }
        // A filter reads its input and arguments and produces a value, all counted; the result
        // must stay within the value size limit.
        std::uint64_t read = valueSize(*value, maximumWorkBytes);
        for (const auto& argument : arguments) read += valueSize(argument, maximumWorkBytes);
        chargeWork(read);
        storage = filter->lambda(*value, arguments);
        value = &storage;
        chargeValue(storage);
    } while (nextPiece(piece));
    return *value;
}

}  // namespace drovel::templating
