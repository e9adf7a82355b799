#include "template/Context.h"

#include <array>
#include <cstring>

#include "template/Unicode.h"

namespace drovel::templating {

using Value = Token::Value;

namespace {

template <class T>
std::optional<std::int64_t> signedInteger(const std::any& value) {
    if (auto* integer = std::any_cast<T>(&value)) return static_cast<std::int64_t>(*integer);
    return std::nullopt;
}

struct KeyPathComponent {
    std::string_view name;
    std::optional<std::string_view> index;
    std::string_view rest;
};

// Whether the character at `position` is a \w character, and its length; ASCII without decoding.
bool wordCharacterAt(std::string_view path, std::size_t position, std::size_t& length) {
    auto byte = static_cast<unsigned char>(path[position]);
    if (byte < 0x80) {
        length = 1;
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte == '_';
    }
    return unicode::isWordCharacter(unicode::decode(path, position, length));
}

// The first match of "(\w+)(\[(\d+)\])?\.?" in the path, with \w and \d in their Unicode meaning.
std::optional<KeyPathComponent> firstKeyPathComponent(std::string_view path) {
    std::size_t i = 0, length;
    while (i < path.size() && !wordCharacterAt(path, i, length)) i += length;
    if (i == path.size()) return std::nullopt;
    std::size_t start = i;
    while (i < path.size() && wordCharacterAt(path, i, length)) i += length;
    KeyPathComponent component{path.substr(start, i - start), std::nullopt, {}};
    if (i < path.size() && path[i] == '[') {
        std::size_t j = i + 1;
        while (j < path.size() && unicode::isDecimalDigit(unicode::decode(path, j, length))) j += length;
        if (j > i + 1 && j < path.size() && path[j] == ']') {
            component.index = path.substr(i + 1, j - i - 1);
            i = j + 1;
        }
    }
    if (i < path.size() && path[i] == '.') ++i;
    component.rest = path.substr(i);
    return component;
}

struct RangeLiteral {
    std::string_view lower;
    std::string_view upper;
};

// The first match of "\(([^\.\n]+)\.\.([^\.\n]+)\)". Every "(" before the same "." or line break
// meets the same ".." and the same second group, so a failed candidate rules out the others up
// to that point and the search stays linear.
std::optional<RangeLiteral> firstRangeLiteral(std::string_view text) {
    std::size_t from = 0;
    while (true) {
        std::size_t open = text.find('(', from);
        if (open == std::string_view::npos) return std::nullopt;
        std::size_t firstEnd = text.find_first_of(".\n", open + 1);
        if (firstEnd == std::string_view::npos) return std::nullopt;
        if (firstEnd > open + 1 && text.substr(firstEnd, 2) == "..") {
            std::size_t secondStart = firstEnd + 2;
            std::size_t secondEnd = std::min(text.find_first_of(".\n", secondStart), text.size());
            // The second group backtracks to the last ")" of its run that leaves it non-empty.
            std::size_t close = text.substr(secondStart, secondEnd - secondStart).rfind(')');
            if (close != std::string_view::npos && close > 0)
                return RangeLiteral{text.substr(open + 1, firstEnd - open - 1), text.substr(secondStart, close)};
        }
        from = firstEnd + 1;
    }
}

// The common range literal, a whole operand "(digits..digits)" with up to 18 digits a side: the
// bounds that firstRangeLiteral and resolving its sides would give, read directly.
std::optional<Range> plainRangeLiteral(std::string_view operand) {
    if (operand.size() < 6 || operand.front() != '(' || operand.back() != ')') return std::nullopt;
    std::size_t i = 1, end = operand.size() - 1;
    auto digits = [&](std::int64_t& value) {
        std::size_t start = i;
        value = 0;
        while (i < end && operand[i] >= '0' && operand[i] <= '9' && i - start < 18) value = value * 10 + (operand[i++] - '0');
        return i > start;
    };
    Range range;
    if (!digits(range.lower) || operand.substr(i, 2) != "..") return std::nullopt;
    i += 2;
    if (!digits(range.upper) || i != end) return std::nullopt;
    return range;
}

// A quoted literal loses every quote character at either end (quotes are not paired). A quote
// counts only as a whole character (not followed by a combining mark).
std::optional<std::string_view> quotedLiteral(std::string_view operand) {
    // Inner ends of ASCII other than the quote, the common case: both quotes are whole
    // characters and the only ones to go.
    if (operand.size() > 2 && (operand[0] == '"' || operand[0] == '\'') && operand.back() == operand[0]) {
        auto inner = [quote = operand[0]](char c) { return c != quote && static_cast<unsigned char>(c) < 0x80; };
        if (inner(operand[1]) && inner(operand[operand.size() - 2])) return operand.substr(1, operand.size() - 2);
    }
    for (std::string_view quote : {std::string_view("\""), std::string_view("'")}) {
        std::size_t last = operand.size() - 1;
        if (!operand.empty() && operand[0] == quote[0] && operand[last] == quote[0] &&
            unicode::boundariesAround(operand, 0, 1) && unicode::boundariesAround(operand, last, last + 1)) {
            std::size_t start = operand.find_first_not_of(quote[0]);
            if (start == std::string_view::npos) return std::string_view();
            return operand.substr(start, operand.find_last_not_of(quote[0]) - start + 1);
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<Value> convertHostValue(const HostValue& value) {
    if (!value.has_value()) return Value::nil();
    for (auto integer : {signedInteger<int>(value), signedInteger<long>(value), signedInteger<long long>(value),
                         signedInteger<short>(value), signedInteger<signed char>(value)})
        if (integer) return Value::decimal(Decimal(*integer));
    if (auto* number = std::any_cast<double>(&value)) return Value::decimal(Decimal::fromDouble(*number));
    if (auto* text = std::any_cast<std::string>(&value)) return Value::string(*text);
    if (auto* text = std::any_cast<std::string_view>(&value)) return Value::string(std::string(*text));
    if (auto* text = std::any_cast<const char*>(&value)) return Value::string(*text ? *text : "");
    if (auto* flag = std::any_cast<bool>(&value)) return Value::boolean(*flag);
    return std::nullopt;
}

Context::Context(const std::map<std::string, HostValue>& hostDictionary) {
    for (const auto& [name, value] : hostDictionary)
        if (auto converted = convertHostValue(value)) variables.set(name, std::move(*converted));
}

const Value* Context::getValue(std::string_view name) const { return variables.find(name); }

void Context::set(Value value, std::string_view name) { variables.set(name, std::move(value)); }

void Context::set(const HostValue& value, std::string_view name) {
    if (auto converted = convertHostValue(value)) set(std::move(*converted), name);
}

namespace {

// Counter names compare like the platform's strings: by canonical equivalence.
std::int64_t& counter(std::map<std::string, std::int64_t, std::less<>>& counters, std::string_view name) {
    std::string key = unicode::canonicalForm(name);
    auto found = counters.find(key);
    if (found == counters.end()) found = counters.emplace(std::move(key), 0).first;
    return found->second;
}

}  // namespace

std::int64_t Context::incrementCounter(std::string_view name) {
    std::int64_t& value = counter(counters, name);
    std::int64_t current = value;
    value = static_cast<std::int64_t>(static_cast<std::uint64_t>(current) + 1);
    return current;
}

std::int64_t Context::decrementCounter(std::string_view name) {
    std::int64_t& value = counter(counters, name);
    value = static_cast<std::int64_t>(static_cast<std::uint64_t>(value) - 1);
    return value;
}

std::optional<Value> Context::next(const std::vector<Value>& values, std::optional<std::string_view> identifier) {
    Hasher hasher;
    if (identifier) {
        unicode::hashCanonically(hasher, *identifier);
    } else {
        hasher.combine(values.size());
        for (const auto& value : values) value.hash(hasher);
    }
    std::uint64_t key = hasher.finalize();
    auto found = groups.find(key);
    if (found != groups.end() && found->second.originalHash == key &&
        found->second.position < found->second.values.size())
        return found->second.values[found->second.position++];
    Group& group = groups[key] = Group{key, values, 0};
    if (group.values.empty()) return std::nullopt;
    group.position = 1;
    return group.values.front();
}

std::shared_ptr<SupplementalContext> Context::makeSupplement(Dictionary loopVariables) {
    return std::make_shared<SupplementalContext>(shared_from_this(), std::move(loopVariables));
}

std::optional<Value> Context::resolveOperand(std::string_view text, bool variableLookupForbidden) const {
    // The literal is made in the result itself; a variable's value is copied into it.
    std::optional<Value> out(std::in_place);
    const Value* value = resolveOperand(text, *out, variableLookupForbidden);
    if (!value) out.reset();
    else if (value != &*out) *out = *value;
    return out;
}

namespace {

// Letters, digits and "_" by byte: one load per byte of a key path.
constexpr auto asciiWordBytes = [] {
    std::array<bool, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[c] = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    return table;
}();

bool isASCIIWordByte(char c) { return asciiWordBytes[static_cast<unsigned char>(c)]; }

// The end of the run of ASCII word bytes that starts at `from`.
std::size_t wordEnd(std::string_view text, std::size_t from) {
    std::size_t end = from;
    while (end < text.size() && isASCIIWordByte(text[end])) ++end;
    return end;
}

// Names joined by single dots ("app.first_name"), all ASCII: the common key path, read straight
// through dictionaries; `end` is where its first name ends. False when the path is of another
// shape or meets anything but a dictionary before its end; the general walk then reads it.
bool plainKeyPath(std::string_view keyPath, std::size_t end, const Token::Value::Dictionary& variables,
                  const Value*& found) {
    const Token::Value::Dictionary* map = &variables;
    for (std::size_t start = 0;;) {
        if (end == start || (end < keyPath.size() && (keyPath[end] != '.' || end + 1 == keyPath.size()))) return false;
        const Value* value = map->findCanonical(std::string_view(keyPath.data() + start, end - start));
        if (!value || end == keyPath.size()) {
            found = value;
            return true;
        }
        map = value->asDictionary();
        if (!map) {
            if (value->asArray()) return false;
            found = nullptr;
            return true;
        }
        start = end + 1;
        end = wordEnd(keyPath, start);
    }
}

// A variable: a dotted key path read from the context's own variables, then the whole text by
// exact name through getValue. Key paths read this context's own variables only: inside a loop
// that is the loop's variables, so a dotted path into an outer variable finds nothing. Intended.
const Value* variableValue(const Context& context, std::string_view operand) {
    // A plain name, the common case, is found without looking for a dot.
    std::size_t end = wordEnd(operand, 0);
    if (end < operand.size()) {
        const Value* value;
        if (operand[end] != '.' || !plainKeyPath(operand, end, context.variables, value))
            value = std::memchr(operand.data() + end, '.', operand.size() - end)
                        ? Context::valueForKeyPath(operand, context.variables)
                        : nullptr;
        if (value) return value;
    }
    return context.getValue(operand);
}

// The variable named by an operand that starts with a letter or "_" and holds no "(": then it
// can be no range, quoted string or number, and is looked up at once. False for an operand of
// another shape, which goes through every form in order.
bool plainVariable(const Context& context, std::string_view operand, const Value*& value) {
    std::size_t end = wordEnd(operand, 0);
    if (end == operand.size()) {
        value = context.getValue(operand);
        return true;
    }
    const Value* found;
    if (operand[end] != '.' || !plainKeyPath(operand, end, context.variables, found)) return false;
    // A walk that found nothing may have stopped before reading the whole path.
    if (!found) {
        if (std::memchr(operand.data(), '(', operand.size())) return false;
        found = context.getValue(operand);
    }
    value = found;
    return true;
}

}  // namespace

const Value* Context::resolveOperand(std::string_view text, Value& literal, bool variableLookupForbidden) const {
    std::string_view operand = unicode::trimWhitespaceAndNewlines(text);
    auto made = [&literal](Value value) {
        literal = std::move(value);
        return &literal;
    };
    // The forms in their order: a range literal, "true" and "false", a quoted string, an integer,
    // a variable, a decimal; each is tried only where the first byte allows it. Names, the common
    // case, are told apart first (neither of the two words holds a "(").
    char first = operand.empty() ? '\0' : operand[0];
    if (isASCIIWordByte(first) && !(first >= '0' && first <= '9')) {
        if (first == 't' && operand == "true") return made(Value::boolean(true));
        if (first == 'f' && operand == "false") return made(Value::boolean(false));
        if (const Value* value; !variableLookupForbidden && plainVariable(*this, operand, value)) return value;
    }
    // An integer starts with a digit or a sign; a decimal may also start with "." (the operand
    // starts with no white space for the decimal parse to skip). A text that is an integer holds
    // no "(", so no range comes before it: it is read at once.
    bool numeric = (first >= '0' && first <= '9') || first == '-' || first == '+';
    if (numeric) {
        if (auto integer = parseInteger(operand)) {
            literal.setInteger(*integer);
            return &literal;
        }
    }
    // A range literal may stand anywhere in the text and comes before every other form. Its
    // pattern is matched against the text as given, before trimming; it needs a "(", which
    // trimming never removes.
    if (!operand.empty() && std::memchr(operand.data(), '(', operand.size()) &&
        text.find("..") != std::string_view::npos) {
        if (auto range = plainRangeLiteral(operand)) {
            if (range->lower > range->upper)
                throw TemplateFatalError("Range literal “" + std::string(operand) + "” has its lower bound above its upper bound");
            return made(Value::range(range->lower, range->upper));
        }
        if (auto range = firstRangeLiteral(text)) {
            auto bound = [this](std::string_view side) -> std::optional<std::int64_t> {
                auto value = resolveOperand(side);
                if (!value) return std::nullopt;
                return value->integerValue();
            };
            std::optional<std::int64_t> lowerBound = bound(range->lower), upperBound = bound(range->upper);
            if (lowerBound.has_value() && upperBound.has_value()) {
                if (*lowerBound > *upperBound)
                    throw TemplateFatalError("Range literal “" + std::string(operand) +
                                             "” has its lower bound above its upper bound");
                return made(Value::range(*lowerBound, *upperBound));
            }
        }
    }
    if (first == '"' || first == '\'')
        if (auto quoted = quotedLiteral(operand)) return made(Value::string(std::string(*quoted)));
    if (!variableLookupForbidden)
        if (const Value* value = variableValue(*this, operand)) return value;
    if (numeric || first == '.')
        if (auto number = Decimal::parse(operand)) return made(Value::decimal(*number));
    return nullptr;
}


const Value* Context::valueForKeyPath(std::string_view keyPath, const Dictionary& variables) {
    if (const Value* found; plainKeyPath(keyPath, wordEnd(keyPath, 0), variables, found)) return found;
    const Dictionary* map = &variables;
    for (std::string_view path = keyPath;;) {
        auto component = firstKeyPathComponent(path);
        if (!component) return nullptr;
        const Value* value = map->find(component->name);
        if (!value) return nullptr;
        path = component->rest;
        const Value* element = nullptr;
        if (component->index) {
            // An index in another script's digits matches the pattern but is no integer.
            auto index = parseInteger(*component->index);
            auto* array = value->asArray();
            if (!array || !index || *index < 0 || static_cast<std::uint64_t>(*index) >= array->size()) return nullptr;
            element = &(*array)[static_cast<std::size_t>(*index)];
        } else if (path.empty()) {
            return value;
        } else if (auto* dictionary = value->asDictionary()) {
            map = dictionary;
            continue;
        } else if (auto* array = value->asArray()) {
            bool first = unicode::hasPrefix(path, "first");
            if (!first && !unicode::hasPrefix(path, "last")) return nullptr;
            path.remove_prefix(first ? 5 : 4);
            if (!path.empty() && path[0] == '.') path.remove_prefix(1);
            if (array->empty()) return nullptr;
            element = first ? &array->front() : &array->back();
        } else {
            return nullptr;
        }
        if (path.empty()) return element;
        map = element->asDictionary();
        if (!map) return nullptr;
    }
}

SupplementalContext::SupplementalContext(std::shared_ptr<Context> supplementedContext, Dictionary loopVariables)
    : Context(std::move(loopVariables)), supplementedContext(std::move(supplementedContext)) {}

const Value* SupplementalContext::getValue(std::string_view name) const {
    if (auto* value = variables.find(name)) return value;
    return supplementedContext->getValue(name);
}

void SupplementalContext::set(Value value, std::string_view name) { supplementedContext->set(std::move(value), name); }

std::int64_t SupplementalContext::incrementCounter(std::string_view name) {
    return supplementedContext->incrementCounter(name);
}

std::int64_t SupplementalContext::decrementCounter(std::string_view name) {
    return supplementedContext->decrementCounter(name);
}

std::optional<Value> SupplementalContext::next(const std::vector<Value>& values, std::optional<std::string_view> identifier) {
    return supplementedContext->next(values, identifier);
}

}  // namespace drovel::templating
