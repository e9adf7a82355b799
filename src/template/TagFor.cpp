#include "template/TagFor.h"

#include <algorithm>
#include <limits>

#include "template/Recycling.h"
#include "template/Unicode.h"

namespace drovel::templating {

namespace {

using OutputState = Parser::Scope::OutputState;
using Value = Token::Value;

constexpr Tag::ExpressionSegment forExpression[] = {
    {Tag::ExpressionSegment::Kind::identifier, "iteree"},
    {Tag::ExpressionSegment::Kind::literal, "in"},
    {Tag::ExpressionSegment::Kind::variable, "iterand"},
};
constexpr std::string_view forParameters[] = {"limit", "offset", "reversed"};
constexpr int endForTerminates[] = {static_cast<int>(TagKind::For), static_cast<int>(TagKind::Else)};

constexpr std::string_view reversedWord = "reversed";
constexpr std::string_view offsetName = "offset";
constexpr std::string_view continueWord = "continue";

// forloop's names in key order, and what Parser::valueSize counts for the dictionary: each
// entry's overhead and name, and a scalar for each value.
constexpr std::string_view forloopName = "forloop";
constexpr std::string_view forloopKeys[] = {"first", "index", "index0", "last", "length", "rindex", "rindex0"};
constexpr std::uint64_t forloopSize = [] {
    std::uint64_t size = 0;
    for (std::string_view key : forloopKeys) size += Parser::elementOverhead + key.size() + Parser::scalarSize;
    return size;
}();

// The pass context of the thread's last finished loop, kept for the next loop's first pass: a
// rendering runs loop after loop, and each would otherwise make and free the same blocks (the
// context, its variables and forloop). It holds no value and no context of a rendering: the loop
// variable is nil and the supplemented context null while it waits.
struct SparePass {
    std::shared_ptr<SupplementalContext> context;
};

// The thread's spare; null once the thread is ending.
SparePass* threadSparePass() { return PerThread<SparePass>::get(); }

// The position of forloop among a pass's variables, with and without a loop variable before it.
std::size_t forloopPosition(bool hasItem, bool itemFirst) { return hasItem && itemFirst ? 1 : 0; }

// Calls onWord(word) for each white-space-separated word of `text` until it returns false.
template <class F>
void forEachWord(std::string_view text, F&& onWord) {
    for (std::string_view rest = unicode::trimWhitespaceAndNewlines(text); !rest.empty();) {
        std::size_t end = unicode::findWhitespaceOrNewline(rest);
        if (!onWord(rest.substr(0, end))) return;
        rest = unicode::trimWhitespaceAndNewlines(rest.substr(end));
    }
}

// A word that starts the parameters: "reversed", or "name:" with an optional value after it.
bool isParameterWord(std::string_view word, std::span<const std::string_view> names) {
    for (std::string_view name : names) {
        if (name == reversedWord ? word == name
                                 : word.size() > name.size() && unicode::hasPrefix(word, name) && word[name.size()] == ':')
            return true;
    }
    return false;
}

std::uint64_t clampedCount(std::optional<std::int64_t> value) {
    return value && *value > 0 ? static_cast<std::uint64_t>(*value) : 0;
}

std::int64_t saturated(std::uint64_t value) {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(value, std::numeric_limits<std::int64_t>::max()));
}

}  // namespace

std::span<const Tag::ExpressionSegment> TagFor::tagExpression() const { return forExpression; }

std::span<const std::string_view> TagFor::parameters() const { return forParameters; }

std::optional<Tag::Errors> TagFor::parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) {
    int depth = 0;
    for (const Parser::Scope* loop = currentScope.tag() && currentScope.tag()->iterationTag()
                                         ? &currentScope
                                         : currentScope.enclosingLoopScope();
         loop; loop = loop->enclosingLoopScope()) {
        if (++depth >= maximumNestingDepth)
            return Errors::malformedStatement("Loops nested more than " + std::to_string(maximumNestingDepth) + " deep");
    }
    std::string_view body = parser.tagStatementBody(statement);
    auto names = parameters();
    // The parameters begin at the first parameter word after "item in list". A parameter word
    // starts with a parameter's name: without any name in the text there is none to look for.
    std::size_t parametersStart = body.size();
    bool namesAParameter = std::any_of(names.begin(), names.end(),
                                       [&](std::string_view name) { return body.find(name) != std::string_view::npos; });
    std::size_t wordIndex = 0;
    if (namesAParameter) {
        forEachWord(body, [&](std::string_view word) {
            if (wordIndex++ >= 3 && isParameterWord(word, names)) {
                parametersStart = static_cast<std::size_t>(word.data() - body.data());
                return false;
            }
            return true;
        });
    }
    if (auto error = parseSegments(body.substr(0, parametersStart), parser)) return error;

    std::string_view pending;  // a parameter name whose value is the next word ("limit: 2")
    std::optional<Errors> error;
    bool continues = false;  // "offset: continue"
    std::string_view parameterText = body.substr(parametersStart);
    forEachWord(parameterText, [&](std::string_view word) {
        std::string_view name = pending, value = word;
        if (pending.empty()) {
            if (word == reversedWord && std::find(names.begin(), names.end(), reversedWord) != names.end()) {
                reversed_ = true;
                compiledExpression.set(reversedWord, Value::boolean(true));
                return true;
            }
            std::size_t colon = word.find(':');
            name = word.substr(0, std::min(colon, word.size()));
            if (colon == std::string_view::npos || name == reversedWord ||
                std::find(names.begin(), names.end(), name) == names.end()) {
                std::size_t at = static_cast<std::size_t>(word.data() - parameterText.data());
                error = Errors::malformedStatement("Expected end of tag expression, but found " +
                                                   std::string(parameterText.substr(at)));
                return false;
            }
            value = word.substr(colon + 1);
            if (value.empty()) {
                pending = name;
                return true;
            }
        }
        pending = {};
        if (name == offsetName && value == continueWord && remembersPosition()) {
            continues = true;
            return true;
        }
        // A value that is no integer (a missing variable, say) leaves the parameter unset.
        if (auto resolved = context->resolveOperand(value))
            if (auto number = resolved->integerValue()) compiledExpression.set(name, Value::integer(*number));
        return true;
    });
    if (error) return error;
    if (!pending.empty()) return Errors::malformedStatement("Expected identifier or literal, found nothing.");

    const Value* iterand = compiledExpression.find("iterand");
    if (!iterand) return Errors::missingArtifacts();
    std::uint64_t total = 0;
    if (auto* array = iterand->asArray()) {
        total = array->size();
    } else if (auto* range = iterand->asRange()) {
        // The full 64-bit range has 2^64 numbers; no rendering gets near that many passes.
        std::uint64_t span = static_cast<std::uint64_t>(range->upper) - static_cast<std::uint64_t>(range->lower);
        total = span == std::numeric_limits<std::uint64_t>::max() ? span : span + 1;
    } else if (currentScope.outputState() == OutputState::enabled) {
        return Errors::malformedStatement("Expected array or range parameter for for statement, found " +
                                          iterand->stringValue());
    }
    if (total > 0) iterand_ = *iterand;
    iteree_ = unicode::canonicalForm(*compiledExpression.find("iteree")->asString());
    itemFirst_ = iteree_ < forloopName;
    hasItem_ = iteree_ != forloopName;
    // A loop is known by its variable and its collection as written: "item-order.items". The
    // variable is the body's first word, as the grammar took it.
    Parser::LoopKey key{body.substr(0, unicode::findWhitespaceOrNewline(body)),
                        unicode::trimWhitespaceAndNewlines(iterandText_)};
    bool hasParameters = parametersStart < body.size();
    // A loop that keeps no position (tablerow) continues from the start.
    std::uint64_t offset = continues ? (remembersPosition() ? parser.loopPosition(key) : 0)
                           : hasParameters ? clampedCount(parameter(offsetName))
                                           : 0;
    start_ = std::min(total, offset);
    count_ = total - start_;
    if (hasParameters)
        if (auto limit = parameter("limit")) count_ = std::min(count_, clampedCount(limit));
    // Only a loop that runs moves the position; one in a block that shows nothing leaves it.
    if (remembersPosition() && currentScope.outputState() == OutputState::enabled) {
        positionKey_ = key;
        parser.setLoopPosition(key, start_ + count_);
    }
    return std::nullopt;
}

Value TagFor::evaluateVariable(std::string_view key, std::string_view text, Parser& parser) {
    if (key == "iterand") iterandText_ = text;
    return Tag::evaluateVariable(key, text, parser);
}

void TagFor::stop(Parser& parser) {
    stopped_ = true;
    // A loop left by break resumes after the pass that broke it. Reversed, it walked its slice
    // from the end, so the slice counts as used up, as a loop that was not broken.
    if (positionKey_ && !reversed_) parser.setLoopPosition(*positionKey_, start_ + iterated_);
}

std::optional<std::int64_t> TagFor::parameter(std::string_view name) const {
    const Value* value = compiledExpression.find(name);
    if (!value || !value->asInteger()) return std::nullopt;
    return *value->asInteger();
}

void TagFor::didDefine(Parser::Scope& scope, Parser&) {
    // A new scope starts in its block's state; a loop in a hidden or halted block makes no pass.
    if (count_ == 0 || scope.outputState() != OutputState::enabled) scope.setOutputState(OutputState::disabled);
}

std::shared_ptr<Context> TagFor::iterationContext() { return count_ > 0 ? makePass() : nullptr; }

std::shared_ptr<Context> TagFor::nextIterationContext() { return hasNextPass() ? makePass() : nullptr; }

void TagFor::assignItem(std::uint64_t pass, Value& item) const {
    std::uint64_t index = start_ + (reversed_ ? count_ - 1 - pass : pass);
    if (auto* array = iterand_.asArray()) item = (*array)[static_cast<std::size_t>(index)];
    else if (auto* range = iterand_.asRange())
        item.setInteger(static_cast<std::int64_t>(static_cast<std::uint64_t>(range->lower) + index));
    else item = Value::nil();
}


std::shared_ptr<Context> TagFor::makePass() {
    std::uint64_t pass = iterated_++;
    std::uint64_t remaining = count_ - pass;  // this pass included
    // forloop's values in key order, written where they are stored.
    auto setForloop = [&](Value::Dictionary& entries) {
        entries.valueAt(0).setBoolean(pass == 0);
        entries.valueAt(1).setInteger(saturated(pass + 1));
        entries.valueAt(2).setInteger(saturated(pass));
        entries.valueAt(3).setBoolean(remaining == 1);
        entries.valueAt(4).setInteger(saturated(count_));
        entries.valueAt(5).setInteger(saturated(remaining));
        entries.valueAt(6).setInteger(saturated(remaining - 1));
    };
    // The loop variable and forloop, in key order; a loop variable named forloop is hidden by it.
    // Counted as Parser::variablesSize counts them, which stops once past the value size limit.
    bool itemFirst = itemFirst_, hasItem = hasItem_;
    auto countVariables = [&](const Value& item) {
        std::uint64_t forloopEntrySize = Parser::elementOverhead + forloopName.size() + forloopSize;
        std::uint64_t itemEntrySize = hasItem ? Parser::elementOverhead + iteree_.size() + Parser::valueSize(item) : 0;
        passVariablesSize_ = itemEntrySize + (itemFirst && itemEntrySize > Parser::maximumValueSize ? 0 : forloopEntrySize);
    };

    // A pass's context that nothing holds any more is refilled instead of made anew. The walk lets
    // go of a finished pass's context before it asks for the next (see Parser::processTag), so
    // one context usually serves every pass; one that a tag still holds is left to it.
    auto makeForloop = [&setForloop] {
        // Copied from one made once: its keys are copied whole instead of made one by one.
        static const Value::Dictionary prototype = [] {
            Value::Dictionary::Entries entries;
            for (std::string_view key : forloopKeys) entries.emplace_back(key, Value::integer(0));
            return Value::Dictionary::fromSortedEntries(std::move(entries));
        }();
        Value::Dictionary dictionary = prototype;
        setForloop(dictionary);
        return Value::dictionary(std::move(dictionary));
    };
    std::shared_ptr<SupplementalContext>* free = nullptr;
    for (auto& slot : passContexts_)
        if (slot && slot.use_count() == 1) free = &slot;
    // The first pass takes the spare of the thread's last loop when its variables have the same
    // names in the same order.
    SparePass* spare = free ? nullptr : threadSparePass();
    if (spare && spare->context) {
        const Value::Dictionary& variables = spare->context->variables;
        bool fits = variables.size() == (hasItem ? 2u : 1u) &&
                    (!hasItem || variables.begin()[itemFirst ? 0 : 1].first == iteree_);
        if (fits) {
            std::shared_ptr<SupplementalContext>& slot = passContexts_[pass % 2];
            slot = std::move(spare->context);
            slot->supplementedContext = context;
            free = &slot;
        }
    }
    if (free) {
        std::shared_ptr<SupplementalContext>& reusable = *free;
        Value::Dictionary& variables = reusable->variables;
        // The item is copied into its place, where a string reuses the previous item's room.
        if (hasItem) {
            Value& item = variables.valueAt(itemFirst ? 0 : 1);
            assignItem(pass, item);
            countVariables(item);
        } else {
            countVariables(Value());
        }
        Value& forloop = variables.valueAt(forloopPosition(hasItem, itemFirst));
        // A template may have kept the previous forloop ("assign f = forloop"): then a new one.
        if (Value::Dictionary* entries = forloop.uniqueDictionary()) {
            setForloop(*entries);
        } else {
            forloop = makeForloop();
        }
        return reusable;
    }
    Value item;
    if (hasItem) assignItem(pass, item);
    countVariables(item);
    Value forloop = makeForloop();
    Value::Dictionary::Entries variableEntries;
    variableEntries.reserve(2);
    if (hasItem && itemFirst) variableEntries.emplace_back(iteree_, std::move(item));
    variableEntries.emplace_back(forloopName, std::move(forloop));
    if (hasItem && !itemFirst) variableEntries.emplace_back(iteree_, std::move(item));
    std::shared_ptr<SupplementalContext>& made = passContexts_[pass % 2];
    made = context->makeSupplement(Value::Dictionary::fromSortedEntries(std::move(variableEntries)));
    return made;
}

TagFor::~TagFor() {
    SparePass* spare = threadSparePass();
    if (!spare || spare->context) return;
    for (auto& slot : passContexts_) {
        if (!slot || slot.use_count() != 1) continue;
        Value::Dictionary& variables = slot->variables;
        bool hasItem = variables.size() == 2;
        if (variables.size() > 2 || !variables.valueAt(forloopPosition(hasItem, itemFirst_)).uniqueDictionary()) continue;
        if (hasItem) variables.valueAt(itemFirst_ ? 0 : 1) = Value();
        slot->supplementedContext.reset();
        spare->context = std::move(slot);
        return;
    }
}

void TagFor::haltLoop(Parser::Scope& scope, Parser& parser, bool stopLoop) {
    if (scope.outputState() != OutputState::enabled) return;
    Parser::Scope* loopScope = scope.tag() && scope.tag()->iterationTag() ? &scope : scope.enclosingLoopScope();
    // Outside a loop break and continue do nothing.
    if (!loopScope) return;
    loopScope->setOutputState(OutputState::halted);
    if (!stopLoop) return;
    loopScope->haltedOutput = true;
    if (auto* loop = dynamic_cast<TagFor*>(loopScope->tag())) loop->stop(parser);
}

std::span<const int> TagEndFor::terminatesScopesWithTags() const { return endForTerminates; }

}  // namespace drovel::templating
