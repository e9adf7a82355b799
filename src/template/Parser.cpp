#include "template/Parser.h"

#include <algorithm>

#include "template/Bytes.h"
#include "template/Log.h"
#include "template/Tag.h"
#include "template/Unicode.h"

namespace drovel::templating {

namespace {

using OutputState = Parser::Scope::OutputState;

// The built-in lists last as long as the process. Parsers share them through pointers that own
// nothing, so that making and ending a parser touches no reference count.
template <class T>
std::shared_ptr<const T> unowned(const T& list) {
    return std::shared_ptr<const T>(std::shared_ptr<const T>(), &list);
}

const std::shared_ptr<const Parser::TagRegistry>& builtinTagRegistry() {
    static const Parser::TagRegistry registry = [] {
        Parser::TagRegistry tags;
        for (const auto& tagClass : builtinTagClasses()) tags[std::string(tagClass.keyword)].push_back(tagClass);
        return tags;
    }();
    static const auto shared = unowned(registry);
    return shared;
}

const std::shared_ptr<const std::vector<Filter>>& builtinFilterList() {
    static const auto shared = unowned(builtinFilters());
    return shared;
}

const std::shared_ptr<const std::vector<Operator>>& builtinOperatorList() {
    static const auto shared = unowned(builtinOperators());
    return shared;
}

}  // namespace

Parser::Scope::Scope(std::unique_ptr<Tag> tag, Scope* parent, std::size_t outputStart, std::size_t pieceStart)
    : tag_(std::move(tag)), parent_(parent), outputStart_(outputStart), pieceStart_(pieceStart) {
    if (!parent) return;
    // Nothing inside a hidden or halted block shows, whatever its own tag decides.
    if (parent->outputState_ != OutputState::enabled) outputState_ = parent->outputState_;
    evaluationContext_ = parent->evaluationContext_;
    enclosingLoop_ = parent->isLoop_ ? parent : parent->enclosingLoop_;
}

Parser::Scope::~Scope() = default;

void Parser::Scope::setOutputState(OutputState state) {
    for (Scope* scope = this; scope; scope = scope->openChild_) scope->outputState_ = state;
}

void Parser::Scope::setContext(std::shared_ptr<Context> context) {
    context_ = std::move(context);
    evaluationContext_ = context_ ? context_.get() : (parent_ ? parent_->evaluationContext_ : nullptr);
    passContextDown();
}

void Parser::Scope::passContextDown() {
    for (Scope* child = openChild_; child && !child->context_; child = child->openChild_)
        child->evaluationContext_ = evaluationContext_;
}

Parser::Parser(Lexer::Tokens tokens, std::shared_ptr<Context> context)
    : tokens_(std::move(tokens)),
      context_(context ? std::move(context) : std::make_shared<Context>()),
      filters_(builtinFilterList()),
      operators_(builtinOperatorList()),
      tags_(builtinTagRegistry()),
      root_(std::make_unique<Scope>(nullptr, nullptr)),
      current_(root_.get()) {
    output_.reserve(expectedOutputSize);
}

Parser::~Parser() {
    // A template that leaves blocks open leaves their scopes to free here, innermost first.
    while (current_ != root_.get()) {
        Scope* scope = current_;
        current_ = scope->parent_;
        delete scope;
    }
}

void Parser::registerFilter(Filter filter) {
    auto filters = std::make_shared<std::vector<Filter>>(*filters_);
    filters->push_back(std::move(filter));
    filters_ = std::move(filters);
}

void Parser::registerOperator(Operator op) {
    auto operators = std::make_shared<std::vector<Operator>>(*operators_);
    operators->push_back(std::move(op));
    operators_ = std::move(operators);
}

void Parser::registerTag(const TagClass& tagClass) {
    auto tags = std::make_shared<TagRegistry>(*tags_);
    (*tags)[std::string(tagClass.keyword)].push_back(tagClass);
    tags_ = std::move(tags);
    builtinTags_ = false;
    tagLookups_.clear();
}

namespace {

// A fixed set of names with a value each, in an open-addressed hash table: the built-in filters
// and tags, looked up by every statement.
template <class T, std::size_t slotCount>
class NameTable {
public:
    // Of two entries with one name the first stays.
    void insert(std::string_view name, T value) {
        std::size_t slot = hash(name);
        while (slots_[slot].used && slots_[slot].name != name) slot = (slot + 1) % slotCount;
        if (!slots_[slot].used) slots_[slot] = {name, std::move(value), true};
        ++count_;
    }

    const T* find(std::string_view name) const {
        for (std::size_t slot = hash(name);; slot = (slot + 1) % slotCount) {
            const Slot& entry = slots_[slot];
            if (!entry.used) return nullptr;
            if (entry.name.size() == name.size() && bytes::same(entry.name.data(), name.data(), name.size()))
                return &entry.value;
        }
    }
    // The number of entries inserted.
    std::size_t count() const { return count_; }

private:
    struct Slot {
        std::string_view name;
        T value{};
        bool used = false;
    };
    // The length and three letters tell the built-in names well enough apart; probing and the
    // comparison in find settle the rest.
    static std::size_t hash(std::string_view name) {
        if (name.empty()) return 0;
        auto at = [&](std::size_t i) { return static_cast<std::size_t>(static_cast<unsigned char>(name[i])); };
        std::size_t h = name.size() * 0x9E3779B1u ^ at(0) * 0x85EBCA6Bu ^ at(name.size() / 2) * 0xC2B2AE35u ^
                        at(name.size() - 1) * 0x27D4EB2Fu;
        return (h ^ (h >> 15)) % slotCount;
    }

    // Well above twice the entries, so that probes stay short.
    Slot slots_[slotCount];
    std::size_t count_ = 0;
};

using BuiltinFilterIndex = NameTable<std::size_t, 256>;

// The built-in filters' positions in their list, by name.
const BuiltinFilterIndex& builtinFilterIndex() {
    static const BuiltinFilterIndex index = [] {
        BuiltinFilterIndex out;
        const auto& filters = *builtinFilterList();
        for (std::size_t i = 0; i < filters.size(); ++i) out.insert(filters[i].identifier, i);
        return out;
    }();
    return index;
}

// The built-in tag classes by keyword, pointing into the built-in registry.
const NameTable<const std::vector<TagClass>*, 64>& builtinTagIndex() {
    static const auto index = [] {
        NameTable<const std::vector<TagClass>*, 64> out;
        for (const auto& [keyword, classes] : *builtinTagRegistry()) out.insert(keyword, &classes);
        return out;
    }();
    return index;
}

}  // namespace

const Filter* Parser::findFilter(std::string_view identifier) const {
    // Every list starts with the built-ins (registering copies them and appends), and the first
    // entry with a name wins: look there first, then through what was registered after them.
    const auto& index = builtinFilterIndex();
    if (auto found = index.find(identifier)) return &(*filters_)[*found];
    for (std::size_t i = index.count(); i < filters_->size(); ++i)
        if ((*filters_)[i].identifier == identifier) return &(*filters_)[i];
    return nullptr;
}

const Operator* Parser::findOperator(std::string_view identifier) const {
    for (const auto& op : *operators_)
        if (op.identifier == identifier) return &op;
    return nullptr;
}

bool Parser::LoopKeyOrder::operator()(const LoopKey& a, const LoopKey& b) const {
    // The texts are compared piece by piece, as if each were joined into one string.
    const std::string_view aParts[] = {a.variable, "-", a.collection}, bParts[] = {b.variable, "-", b.collection};
    std::size_t i = 0, j = 0;
    std::string_view x = aParts[0], y = bParts[0];
    while (true) {
        while (x.empty() && i < 2) x = aParts[++i];
        while (y.empty() && j < 2) y = bParts[++j];
        if (x.empty() || y.empty()) return x.empty() && !y.empty();
        std::size_t common = std::min(x.size(), y.size());
        if (int order = x.substr(0, common).compare(y.substr(0, common))) return order < 0;
        x.remove_prefix(common);
        y.remove_prefix(common);
    }
}

std::uint64_t Parser::loopPosition(const LoopKey& key) const {
    auto found = loopPositions_.find(key);
    return found == loopPositions_.end() ? 0 : found->second;
}

void Parser::setLoopPosition(const LoopKey& key, std::uint64_t position) { loopPositions_[key] = position; }

void Parser::workLimitExceeded() { throw TemplateFatalError("Template rendering exceeded its work limit"); }

void Parser::chargeValue(const Token::Value& value) {
    std::size_t size = valueSize(value);
    checkValueSize(size);
    largestValueSize_ = std::max(largestValueSize_, size);
    chargeWork(size);
}

void Parser::report(std::string_view message) {
    if (++messages_ > maximumMessages) throw TemplateFatalError("Template rendering exceeded its message limit");
    chargeWork(message.size());
    log(message);
}

void Parser::addParseError(std::string message) {
    if (++messages_ > maximumMessages) throw TemplateFatalError("Template rendering exceeded its message limit");
    chargeWork(message.size());
    parseErrors_.push_back(ParseErrors::malformedExpression(std::move(message)));
}

namespace {

std::size_t sizeOf(const Token::Value& value, std::size_t limit);

std::size_t sizeOf(const Token::Value::Dictionary& dictionary, std::size_t limit) {
    std::size_t size = 0;
    for (const auto& [key, element] : dictionary) {
        size += Parser::elementOverhead + key.size() + sizeOf(element, limit);
        if (size > limit) break;
    }
    return size;
}

std::size_t sizeOf(const Token::Value& value, std::size_t limit) {
    if (auto* text = value.asString()) return text->size();
    if (auto* elements = value.asArray()) {
        std::size_t size = 0;
        for (const auto& element : *elements) {
            size += Parser::elementOverhead + sizeOf(element, limit);
            if (size > limit) break;
        }
        return size;
    }
    if (auto* dictionary = value.asDictionary()) return sizeOf(*dictionary, limit);
    return Parser::scalarSize;
}

}  // namespace

std::size_t Parser::containerSize(const Token::Value& value, std::size_t limit) { return sizeOf(value, limit); }

std::uint64_t Parser::passSize(const IterationTag& loop, const Context& pass) {
    if (auto size = loop.passVariablesSize()) return *size;
    return variablesSize(pass.variables);
}

std::size_t Parser::variablesSize(const Token::Value::Dictionary& variables, std::size_t limit) {
    return sizeOf(variables, limit);
}

void Parser::countOutput(std::size_t size) {
    outputBytes_ += size;
    if (outputBytes_ > maximumOutputSize) throw TemplateFatalError("Template rendering exceeded its output limit");
    chargeWork(size);
    if (recordsPieces_) pieceEnds_.push_back(output_.size());
}

void Parser::emit(std::string_view text) {
    // Checked before it is written: a text token may be as long as the template.
    if (outputBytes_ + text.size() > maximumOutputSize)
        throw TemplateFatalError("Template rendering exceeded its output limit");
    output_ += text;
    countOutput(text.size());
}

void Parser::emit(const Token::Value& value) {
    // A value is within maximumValueSize, so writing it before the check stays bounded.
    std::size_t before = output_.size();
    value.appendStringValue(output_);
    countOutput(output_.size() - before);
}

void Parser::writeMarkup(std::string_view text) {
    output_ += text;
    if (recordsPieces_) pieceEnds_.push_back(output_.size());
}

std::string Parser::takeOutput(const Scope& scope) {
    std::string text = output_.substr(scope.outputStart_);
    output_.resize(scope.outputStart_);
    if (recordsPieces_) pieceEnds_.resize(scope.pieceStart_);
    return text;
}

void Parser::joinPieces(const Scope& loopScope) {
    if (!recordsPieces_) return;
    pieceEnds_.resize(loopScope.pieceStart_);
    pieceEnds_.push_back(output_.size());
}

std::vector<std::string> Parser::parse() {
    if (!walked_) {
        recordsPieces_ = true;
        // Without loops there are never more pieces than tokens.
        pieceEnds_.reserve(tokens_.size());
        walk();
    }
    // After a walk for the joined output, that output is the one piece.
    if (!recordsPieces_) return {output_};
    std::vector<std::string> pieces;
    pieces.reserve(pieceEnds_.size());
    std::size_t start = 0;
    for (std::size_t end : pieceEnds_) {
        pieces.emplace_back(output_, start, end - start);
        start = end;
    }
    return pieces;
}

std::string Parser::parseJoined() {
    if (!walked_) walk();
    return output_;
}

std::string Parser::takeOutput() {
    if (!walked_) walk();
    pieceEnds_.clear();
    return std::move(output_);
}

void Parser::leaveScope(Scope& scope) {
    if (!scope.parent_) {
        report("terminating scope tag scope has no parent scope!!!");
        return;
    }
    scope.parent_->openChild_ = nullptr;
    current_ = scope.parent_;
    // Nothing refers to a closed scope: its output is written and its tag has done its work.
    delete &scope;
}

void Parser::walk() {
    walked_ = true;
    for (std::size_t index = 0; index < tokens_.size(); ++index) {
        if (++tokenVisits_ > maximumTokenVisits) throw TemplateFatalError("Template rendering exceeded its step limit");
        const Token& token = tokens_[index];
        switch (token.kind) {
            case Token::Kind::text:
                if (current_->outputState_ == OutputState::enabled) emit(token.value);
                break;
            case Token::Kind::variable:
                // A statement in a block that shows nothing is not even evaluated.
                if (current_->outputState_ == OutputState::enabled) {
                    chargeWork(token.value.size());
                    Token::Value storage;
                    emit(filteredValue(token.value, current_->evaluationContext_, storage));
                }
                break;
            case Token::Kind::tag:
                processTag(index);
                break;
        }
    }
    if (current_ != root_.get()) report("Unbalanced scopes!!");
}

void Parser::processTag(std::size_t& index) {
    CompiledTag compiled = compileTag(index);
    Tag* tag = compiled.tag;
    if (!tag) return;
    std::optional<std::size_t> resumeAt;
    while (current_->tag_ && tag->terminates(*current_->tag_)) {
        Scope& scope = *current_;
        tag->didTerminate(scope, *this);
        auto* loop = scope.tag_->iterationTag();
        if (scope.outputState_ != OutputState::disabled && loop && scope.tagTokenIndex) {
            // The pass is over (its scopes, closed, are gone with their tags). The walk's hold on
            // its context goes first, so that the loop may refill that context for the next pass.
            joinPieces(scope);
            scope.setContext(nullptr);
            if (auto next = loop->nextIterationContext()) {
                // Another pass: walk the body again into the same scope.
                chargeWork(passSize(*loop, *next));
                scope.setContext(std::move(next));
                scope.setOutputState(OutputState::enabled);
                resumeAt = *scope.tagTokenIndex + 1;
                break;
            }
        }
        bool isRoot = !scope.parent_;
        leaveScope(scope);
        if (isRoot || !tag->shouldTerminateParentScope()) break;
    }
    // Like text, a tag's output shows only where output is enabled.
    if (tag->output && current_->outputState_ == OutputState::enabled)
        for (const auto& value : *tag->output) emit(value);
    if (compiled.owned && tag->definesScope()) openScope(std::move(compiled.owned), index);
    if (resumeAt) index = *resumeAt - 1;
}

Parser::CompiledTag Parser::compileTag(std::size_t tokenIndex) {
    std::string_view text = tokens_[tokenIndex].value;
    chargeWork(text.size());
    // Only tags inside a loop are visited again; the others are looked up once without keeping it.
    bool inLoop = current_->enclosingLoop_ || current_->isLoop_;
    // The first tag looked up in a loop comes before every later one: the lookups start there.
    if (inLoop && tagLookups_.empty()) {
        tagLookupsStart_ = tokenIndex;
        tagLookups_.resize(tokens_.size() - tokenIndex);
    }
    TagLookup* kept = inLoop ? &tagLookups_[tokenIndex - tagLookupsStart_] : nullptr;
    std::string_view statement, keyword;
    const std::vector<TagClass>* classes = nullptr;
    if (kept && kept->done) {
        statement = kept->statement;
        keyword = kept->keyword;
        classes = kept->classes;
    } else {
        statement = unicode::trimWhitespaceAndNewlines(text);
        keyword = statement.substr(0, unicode::findWhitespaceOrNewline(statement));
        if (builtinTags_) {
            if (auto* found = builtinTagIndex().find(keyword)) classes = *found;
        } else if (auto found = tags_->find(keyword); found != tags_->end()) {
            classes = &found->second;
        }
        if (kept) *kept = {true, statement, keyword, classes, nullptr};
    }
    if (statement.empty()) {
        report("Malformed tag: “" + std::string(text) + "”");
        return {};
    }
    // A block that skips tags (a comment) ignores them, and unknown keywords, without a word.
    if (const Tag* scopeTag = current_->tag_.get(); scopeTag && scopeTag->tagKindsToSkip) {
        const auto& skipped = *scopeTag->tagKindsToSkip;
        if (!classes || std::find(skipped.begin(), skipped.end(), classes->front().kind) != skipped.end())
            return {};
    }
    if (!classes) {
        report("Unknown tag keyword: “" + std::string(keyword) + "”");
        return {};
    }
    if (kept && kept->reusable) return {nullptr, kept->reusable.get()};
    // The body as Tag::statementBody cuts it: the keyword is the statement's first word.
    compilingStatement_ = statement;
    compilingBody_ = unicode::trimWhitespaceAndNewlines(statement.substr(keyword.size()));
    Context* evaluation = current_->evaluationContext_;
    std::shared_ptr<Context> context;
    // The classes under a keyword are tried in order; the first that compiles is the tag.
    std::optional<Tag::Errors> firstError;
    for (const auto& tagClass : *classes) {
        if (tagClass.usesContext && !context) context = evaluation ? evaluation->shared_from_this() : context_;
        std::unique_ptr<Tag> tag = tagClass.make(tagClass.usesContext ? context : nullptr);
        auto error = tag->parse(statement, *this, *current_);
        if (!error) {
            compilingStatement_ = {};
            // Kept for the next pass when the class compiles the statement the same way each
            // time and no other class was tried before it.
            if (kept && tagClass.reusable && &tagClass == &classes->front() && !tag->definesScope()) {
                kept->reusable = std::move(tag);
                return {nullptr, kept->reusable.get()};
            }
            Tag* compiled = tag.get();
            return {std::move(tag), compiled};
        }
        if (!firstError) firstError = std::move(error);
    }
    compilingStatement_ = {};
    report("Tag “" + std::string(keyword) + "” skipped: " + firstError->message);
    return {};
}

std::string_view Parser::tagStatementBody(std::string_view statement) const {
    if (!compilingStatement_.empty() && statement.data() == compilingStatement_.data() &&
        statement.size() == compilingStatement_.size())
        return compilingBody_;
    return Tag::statementBody(statement);
}

Parser::Scope& Parser::openScope(std::unique_ptr<Tag> tag, std::size_t tokenIndex) {
    // Owned through the chain of open scopes until leaveScope (or the parser's end) frees it.
    auto owned = std::make_unique<Scope>(std::move(tag), current_, output_.size(), pieceEnds_.size());
    Scope& scope = *owned;
    scope.tagTokenIndex = tokenIndex;
    auto* loop = scope.tag_->iterationTag();
    scope.isLoop_ = loop != nullptr;
    if (loop) {
        auto first = loop->iterationContext();
        if (first) chargeWork(passSize(*loop, *first));
        scope.setContext(std::move(first));
    }
    scope.tag_->didDefine(scope, *this);
    current_->openChild_ = &scope;
    current_ = owned.release();
    return scope;
}

}  // namespace drovel::templating
