#include "template/Token.h"

#include <algorithm>
#include <charconv>

#include "template/Unicode.h"

namespace drovel::templating {

bool operator==(const Token& a, const Token& b) {
    return a.kind == b.kind && unicode::canonicallyEqual(a.value, b.value);
}

std::string_view kindName(Token::Kind kind) {
    switch (kind) {
        case Token::Kind::text:
            return "text";
        case Token::Kind::variable:
            return "variable";
        case Token::Kind::tag:
            return "tag";
    }
    return "text";
}

using Value = Token::Value;

Value Value::array(Array elements) {
    Value out;
    out.storage_ = std::make_shared<const Array>(std::move(elements));
    return out;
}

Value Value::dictionary(Dictionary entries) {
    Value out;
    // Made mutable and held as const, so that uniqueDictionary may change it.
    out.storage_ = std::shared_ptr<const Dictionary>(std::make_shared<Dictionary>(std::move(entries)));
    return out;
}

Value::Dictionary* Value::uniqueDictionary() {
    auto* dictionary = std::get_if<std::shared_ptr<const Dictionary>>(&storage_);
    if (!dictionary || dictionary->use_count() != 1) return nullptr;
    return const_cast<Dictionary*>(dictionary->get());
}

Value Value::range(std::int64_t lower, std::int64_t upper) {
    if (lower > upper) throw std::invalid_argument("range lower bound above its upper bound");
    Value out;
    out.storage_ = Range{lower, upper};
    return out;
}

std::string Value::stringValue() const {
    if (auto* text = asString()) return *text;
    std::string out;
    appendStringValue(out);
    return out;
}

void Value::appendStringValue(std::string& out) const {
    char buffer[24];
    switch (kind()) {
        case Case::string:
            out += *asString();
            break;
        case Case::integer:
            out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, *asInteger()).ptr);
            break;
        case Case::decimal:
            asDecimal()->appendDescription(out);
            break;
        case Case::array:
            for (const auto& element : *asArray()) element.appendStringValue(out);
            break;
        case Case::range:
            out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, asRange()->lower).ptr);
            out += "..";
            out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, asRange()->upper).ptr);
            break;
        case Case::boolean:  // a boolean deliberately prints as nothing, not as a word
        case Case::dictionary:
        case Case::nil:
            break;
    }
}

std::optional<std::int64_t> Value::integerValue() const {
    if (auto* text = asString()) return parseInteger(*text);
    if (auto* integer = asInteger()) return *integer;
    if (auto* decimal = asDecimal()) return decimal->integerValue();
    return std::nullopt;
}

std::optional<Decimal> Value::decimalValue() const {
    if (auto* text = asString()) return Decimal::parse(*text);
    if (auto* integer = asInteger()) return Decimal(*integer);
    if (auto* decimal = asDecimal()) return *decimal;
    return std::nullopt;
}

std::optional<double> Value::doubleValue() const {
    if (auto* text = asString()) return parseDouble(*text);
    if (auto* integer = asInteger()) return static_cast<double>(*integer);
    if (auto* decimal = asDecimal()) return decimal->doubleValue();
    return std::nullopt;
}

bool Value::isTruthy() const {
    if (auto* flag = asBool()) return *flag;
    return !isNil();
}

bool Value::isEmptyString() const {
    auto* text = asString();
    return text && text->empty();
}

bool operator==(const Value& a, const Value& b) {
    if (a.kind() != b.kind()) return false;
    switch (a.kind()) {
        case Value::Case::boolean:
            return *a.asBool() == *b.asBool();
        case Value::Case::string:
            return unicode::canonicallyEqual(*a.asString(), *b.asString());
        case Value::Case::integer:
            return *a.asInteger() == *b.asInteger();
        case Value::Case::decimal:
            return *a.asDecimal() == *b.asDecimal();
        case Value::Case::array:
            return a.asArray() == b.asArray() || *a.asArray() == *b.asArray();
        case Value::Case::dictionary:
            return a.asDictionary() == b.asDictionary() || *a.asDictionary() == *b.asDictionary();
        case Value::Case::range:
            return *a.asRange() == *b.asRange();
        case Value::Case::nil:
            return true;
    }
    return false;
}

void Value::hash(Hasher& hasher) const {
    switch (kind()) {
        case Case::boolean:
            hasher.combine(*asBool() ? 1 : 0);
            break;
        case Case::string:
            unicode::hashCanonically(hasher, *asString());
            break;
        case Case::integer:
            hasher.combine(static_cast<std::uint64_t>(*asInteger()));
            break;
        case Case::decimal:
            asDecimal()->hash(hasher);
            break;
        case Case::array:
            hasher.combine(asArray()->size());
            for (const auto& element : *asArray()) element.hash(hasher);
            break;
        case Case::dictionary: {
            // Order-independent: each entry is hashed by a copy of the outer hasher and the
            // results are combined by exclusive-or.
            std::uint64_t combined = 0;
            for (const auto& [key, element] : *asDictionary()) {
                Hasher entry = hasher;
                unicode::hashCanonically(entry, key);
                element.hash(entry);
                combined ^= entry.finalize();
            }
            hasher.combine(combined);
            break;
        }
        case Case::range:
            hasher.combine(static_cast<std::uint64_t>(asRange()->lower));
            hasher.combine(static_cast<std::uint64_t>(asRange()->upper));
            break;
        case Case::nil:
            hasher.combine(0);
            break;
    }
}

std::uint64_t Value::hashValue() const {
    Hasher hasher;
    hash(hasher);
    return hasher.finalize();
}

Value::Dictionary::Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries) {
    entries_.reserve(entries.size());
    for (const auto& [key, value] : entries) set(key, value);
}

Value::Dictionary Value::Dictionary::fromOrderedEntries(Entries entries) {
    for (std::size_t i = 1; i < entries.size(); ++i)
        if (!(entries[i - 1].first < entries[i].first)) throw std::invalid_argument("dictionary entries out of order");
    Dictionary out;
    out.entries_ = std::move(entries);
    return out;
}

Value::Dictionary Value::Dictionary::fromSortedEntries(Entries entries) {
    Dictionary out;
    out.entries_ = std::move(entries);
    return out;
}

Value::Dictionary::Entries::const_iterator Value::Dictionary::lowerBound(std::string_view key) const {
    return std::lower_bound(entries_.begin(), entries_.end(), key,
                            [](const Entry& entry, std::string_view wanted) { return std::string_view(entry.first) < wanted; });
}

const Value* Value::Dictionary::findElsewhere(std::string_view key) const {
    // Keys are stored canonical, so a key found byte for byte is canonical itself; only a key
    // that is not found and not ASCII needs its canonical form to be looked up again. (find has
    // searched a small dictionary for the key as given already.)
    if (entries_.size() > smallSize)
        if (const Value* found = findSorted(key)) return found;
    if (unicode::isASCII(key)) return nullptr;
    std::string canonical = unicode::canonicalForm(key);
    return canonical == key ? nullptr : findCanonical(canonical);
}

const Value* Value::Dictionary::findSorted(std::string_view key) const {
    auto found = lowerBound(key);
    return found != entries_.end() && found->first == key ? &found->second : nullptr;
}

void Value::Dictionary::set(std::string_view key, Value value) {
    if (!unicode::isASCII(key)) {
        setCanonical(unicode::canonicalForm(key), std::move(value));
        return;
    }
    // An ASCII key is its own canonical form: an existing entry is replaced in place, and the key
    // is copied only for a new one.
    if (const Value* existing = find(key)) {
        const_cast<Value&>(*existing) = std::move(value);
        return;
    }
    setCanonical(std::string(key), std::move(value));
}

void Value::Dictionary::setCanonical(std::string key, Value value) {
    // Keys set in order go to the end without a search. Room for a few entries from the start:
    // a loop's variables and most contexts hold two to four.
    if (entries_.capacity() == 0) entries_.reserve(4);
    if (entries_.empty() || entries_.back().first < key) {
        entries_.emplace_back(std::move(key), std::move(value));
        return;
    }
    auto at = entries_.begin() + (lowerBound(key) - entries_.cbegin());
    if (at->first == key) at->second = std::move(value);
    else entries_.emplace(at, std::move(key), std::move(value));
}

bool Value::Dictionary::erase(std::string_view key) {
    std::string canonical = unicode::canonicalForm(key);
    auto found = lowerBound(canonical);
    if (found == entries_.end() || found->first != canonical) return false;
    entries_.erase(found);
    return true;
}

}  // namespace drovel::templating
