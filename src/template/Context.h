#pragma once
// What one rendering can read and change: named variables, the counters of increment and
// decrement, and the rotation state of cycle groups. Loops stack a SupplementalContext on the
// context instead of copying it. Also the resolution of one expression operand into a value.

#include <any>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "template/Token.h"

namespace drovel::templating {

// Template input that the engine cannot render at all (a range literal whose lower bound
// exceeds its upper bound, a rendering that runs away). The rendering entry catches it, logs it
// and shows the template as written; it never leaves the engine.
class TemplateFatalError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The largest value, in bytes, that a rendering may produce (see Parser::valueSize), where each
// element of an array or entry of a dictionary counts valueElementOverhead beyond its contents.
inline constexpr std::size_t maximumValueSize = 64u << 10;
inline constexpr std::size_t valueElementOverhead = 16;

// Throws TemplateFatalError for a value that would grow past maximumValueSize. Filters whose
// result can be many times their input (a replacement at every match, a separator between
// many elements, a split into many pieces) check as they build it, before the memory is spent.
inline void checkValueSize(std::size_t size) {
    if (size > maximumValueSize) throw TemplateFatalError("Template rendering exceeded its value size limit");
}

// A host value: std::any holding a signed integer, a double, a string, a boolean or anything
// else; an empty std::any is the absent value.
using HostValue = std::any;

// Host integers deliberately become decimals, doubles decimals, strings strings, booleans
// booleans and the absent value nil; anything else (arrays, dictionaries, dates, objects) has no
// template value. Arrays, dictionaries and ranges go through tokenValue() instead.
std::optional<Token::Value> convertHostValue(const HostValue& value);

class SupplementalContext;

// Contexts are shared by reference between a parser, its scopes and its tags, and must be owned
// by a std::shared_ptr (makeSupplement needs it). Not thread-safe: one rendering at a time.
class Context : public std::enable_shared_from_this<Context> {
public:
    using Dictionary = Token::Value::Dictionary;

    // The rotation state of one cycle group.
    struct Group {
        std::uint64_t originalHash = 0;
        std::vector<Token::Value> values;
        std::size_t position = 0;  // the next element to return
    };

    Context() = default;
    explicit Context(Dictionary variables) : variables(std::move(variables)) {}
    // Each entry is converted by convertHostValue; entries without a template value are left out.
    explicit Context(const std::map<std::string, HostValue>& hostDictionary);
    virtual ~Context() = default;
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    // The value stored under exactly that name (no key paths), or null. The pointer is valid
    // until the variables change.
    virtual const Token::Value* getValue(std::string_view name) const;
    // Stores or replaces the variable.
    virtual void set(Token::Value value, std::string_view name);
    // Converts the host value; without a template value nothing happens (an existing entry stays).
    void set(const HostValue& value, std::string_view name);
    // Returns the counter's value (0 when new), then stores it plus one: 0, 1, 2, ...
    virtual std::int64_t incrementCounter(std::string_view name);
    // Stores the counter's value (0 when new) minus one and returns it: -1, -2, ...
    virtual std::int64_t decrementCounter(std::string_view name);
    // The next element of a rotation, starting again after the last; absent for an empty list.
    // Groups are keyed by the identifier's hash when given, else by the hash of the list, so two
    // rotations over equal lists share a group and a named group keeps its first list.
    virtual std::optional<Token::Value> next(const std::vector<Token::Value>& values,
                                             std::optional<std::string_view> identifier = std::nullopt);

    // A context holding `loopVariables` that passes everything else to this one.
    std::shared_ptr<SupplementalContext> makeSupplement(Dictionary loopVariables);

    // Resolves one operand: "true"/"false", a range literal "(a..b)", a quoted string, an
    // integer, a variable (a dotted key path is read from this context's own variables only, then
    // the whole text by exact name through getValue), else a decimal number. Absent when nothing
    // fits. Throws TemplateFatalError for a range literal whose lower bound exceeds its upper.
    std::optional<Token::Value> resolveOperand(std::string_view text, bool variableLookupForbidden = false) const;
    // The same without copying a variable's value: the result points into the variables (valid
    // until they change) or, for a literal, at `literal`, which receives it. Null when nothing fits.
    const Token::Value* resolveOperand(std::string_view text, Token::Value& literal,
                                       bool variableLookupForbidden = false) const;

    // Reads a dotted path ("order.items[2].name", "items.first.name") from a map of variables;
    // null when any step is missing or of the wrong kind.
    static const Token::Value* valueForKeyPath(std::string_view keyPath, const Dictionary& variables);

    Dictionary variables;
    std::map<std::string, std::int64_t, std::less<>> counters;
    std::map<std::uint64_t, Group> groups;
};

// A loop's context: its own variables hold the loop variables and shadow the supplemented
// context's; assignments, counters and cycle groups all go to the supplemented context, so they
// outlive the loop.
class SupplementalContext final : public Context {
public:
    SupplementalContext(std::shared_ptr<Context> supplementedContext, Dictionary loopVariables);

    const Token::Value* getValue(std::string_view name) const override;
    void set(Token::Value value, std::string_view name) override;
    using Context::set;
    std::int64_t incrementCounter(std::string_view name) override;
    std::int64_t decrementCounter(std::string_view name) override;
    std::optional<Token::Value> next(const std::vector<Token::Value>& values,
                                     std::optional<std::string_view> identifier = std::nullopt) override;

    // Null only while a finished loop keeps the context for the next loop (see TagFor).
    std::shared_ptr<Context> supplementedContext;
};

}  // namespace drovel::templating
