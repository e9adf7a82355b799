// The array filters, and "default".

#include <algorithm>
#include <unordered_set>

#include "template/Context.h"
#include "template/FilterLibrary.h"
#include "template/FilterText.h"
#include "template/Unicode.h"

namespace drovel::templating::filters {

using Value = Token::Value;

namespace {

// What "sort" and "sort_natural" order an element by.
struct SortKey {
    enum Rank { number, string, boolean, other, nil };
    Rank rank = nil;
    Decimal numberValue;
    std::string text;
    bool flag = false;

    SortKey(const Value* value, bool ignoringCase) {
        if (!value) return;
        if (value->asInteger() || value->asDecimal()) {
            rank = number;
            numberValue = value->decimalValue().value_or(Decimal());
        } else if (auto* string = value->asString()) {
            rank = SortKey::string;
            // UTF-8 bytes order as code points do; the canonical form makes equal strings tie.
            text = ignoringCase ? text::caseFolded(unicode::canonicalForm(*string)) : unicode::canonicalForm(*string);
        } else if (auto* b = value->asBool()) {
            rank = boolean;
            flag = *b;
        } else if (!value->isNil()) {
            rank = other;
        }
    }

    friend bool operator<(const SortKey& a, const SortKey& b) {
        if (a.rank != b.rank) return a.rank < b.rank;
        switch (a.rank) {
            case number:
                return a.numberValue < b.numberValue;
            case string:
                return a.text < b.text;
            case boolean:
                return !a.flag && b.flag;
            default:
                return false;
        }
    }
};

Value sorted(const Value& input, Filter::Arguments arguments, bool ignoringCase) {
    Value array = arrayValue(input);
    auto* elements = array.asArray();
    std::optional<std::string> property = textArgument(arguments);
    std::vector<std::pair<SortKey, const Value*>> keyed;
    keyed.reserve(elements->size());
    for (const auto& element : *elements) {
        const Value* key = &element;
        if (property) {
            auto* dictionary = element.asDictionary();
            key = dictionary ? dictionary->find(*property) : nullptr;
        }
        keyed.emplace_back(SortKey(key, ignoringCase), &element);
    }
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    Value::Array out;
    out.reserve(keyed.size());
    for (const auto& entry : keyed) out.push_back(*entry.second);
    return Value::array(std::move(out));
}

}  // namespace

Value concat(const Value& input, Filter::Arguments arguments) {
    if (arguments.empty()) return Value::nil();
    Value array = arrayValue(input), added = arrayValue(arguments[0]);
    auto *elements = array.asArray(), *more = added.asArray();
    checkValueSize((elements->size() + more->size()) * valueElementOverhead);
    Value::Array out(*elements);
    out.insert(out.end(), more->begin(), more->end());
    return Value::array(std::move(out));
}

Value compact(const Value& input, Filter::Arguments) {
    Value array = arrayValue(input);
    auto* elements = array.asArray();
    Value::Array out;
    std::copy_if(elements->begin(), elements->end(), std::back_inserter(out), [](const Value& v) { return !v.isNil(); });
    return Value::array(std::move(out));
}

Value defaultValue(const Value& input, Filter::Arguments arguments) {
    if (arguments.empty()) return Value::nil();
    bool isFalse = input.asBool() && !*input.asBool();
    // An empty array or dictionary is a value of its own and stays.
    if (input.isNil() || isFalse || input.isEmptyString()) return arguments[0];
    return input;
}

Value first(const Value& input, Filter::Arguments) {
    auto* elements = input.asArray();
    if (!elements || elements->empty()) return Value::nil();
    return elements->front();
}

Value join(const Value& input, Filter::Arguments arguments) {
    Value array = arrayValue(input);
    auto* elements = array.asArray();
    // Without a separator the elements are joined with a blank.
    std::string separator = arguments.empty() ? std::string(" ") : *textArgument(arguments);
    std::string out;
    for (std::size_t i = 0; i < elements->size(); ++i) {
        checkValueSize(out.size() + separator.size());
        if (i > 0) out += separator;
        (*elements)[i].appendStringValue(out);
    }
    return Value::string(std::move(out));
}

Value last(const Value& input, Filter::Arguments) {
    auto* elements = input.asArray();
    if (!elements || elements->empty()) return Value::nil();
    return elements->back();
}

Value map(const Value& input, Filter::Arguments arguments) {
    auto property = textArgument(arguments);
    if (!property) return Value::nil();
    Value array = arrayValue(input);
    Value::Array out;
    // Nested arrays are read as one flat list of their elements.
    auto add = [&](auto& self, const Value::Array& elements) -> void {
        for (const auto& element : elements) {
            if (auto* nested = element.asArray()) {
                self(self, *nested);
                continue;
            }
            checkValueSize((out.size() + 1) * valueElementOverhead);
            auto* dictionary = element.asDictionary();
            const Value* value = dictionary ? dictionary->find(*property) : nullptr;
            out.push_back(value ? *value : Value::nil());
        }
    };
    add(add, *array.asArray());
    return Value::array(std::move(out));
}

Value reverse(const Value& input, Filter::Arguments) {
    Value array = arrayValue(input);
    auto* elements = array.asArray();
    return Value::array(Value::Array(elements->rbegin(), elements->rend()));
}

Value sort(const Value& input, Filter::Arguments arguments) { return sorted(input, arguments, false); }

Value sortNatural(const Value& input, Filter::Arguments arguments) { return sorted(input, arguments, true); }

Value uniq(const Value& input, Filter::Arguments) {
    Value array = arrayValue(input);
    auto* elements = array.asArray();
    std::unordered_set<Value> seen;
    Value::Array out;
    for (const auto& element : *elements)
        if (seen.insert(element).second) out.push_back(element);
    return Value::array(std::move(out));
}

}  // namespace drovel::templating::filters
