#pragma once
// Turns a template's tokens into output text. The parser walks the tokens once, keeping the
// chain of open scopes: a tag that opens a block opens a scope, its end tag closes (and frees)
// it. Output is written straight into one string as the walk goes; a scope only remembers where
// its output began, so that a capture can take its text back out. The parser also owns the three
// registries the language is built from: tags by keyword, filters and operators.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "template/Context.h"
#include "template/Filter.h"
#include "template/Lexer.h"
#include "template/Operator.h"
#include "template/Recycling.h"
#include "template/Token.h"

namespace drovel::templating {

class Tag;
class IterationTag;

// A tag class as the registry holds it: its keyword, its kind and how to make one.
struct TagClass {
    std::string_view keyword;  // static storage
    int kind = 0;
    std::unique_ptr<Tag> (*make)(std::shared_ptr<Context> context) = nullptr;
    // False for classes that never read their context (end tags, say): they are made with none.
    bool usesContext = true;
    // True for classes whose tags carry nothing from one use to the next and compile the same
    // way each time (end tags): a loop's passes then share the one tag made on the first pass.
    bool reusable = false;
};

// A compile-time error value, equal when the descriptions are.
struct TemplateSyntaxError {
    explicit TemplateSyntaxError(std::string description) : description(std::move(description)) {}
    std::string description;
    friend bool operator==(const TemplateSyntaxError&, const TemplateSyntaxError&) = default;
};

class Parser {
public:
    class Scope;

    // An error collected while evaluating an expression.
    class ParseErrors {
    public:
        enum class Case { malformedExpression };
        static ParseErrors malformedExpression(std::string message) { return {Case::malformedExpression, std::move(message)}; }
        const std::string& localizedDescription() const { return message; }
        friend bool operator==(const ParseErrors&, const ParseErrors&) = default;

        Case kind;
        std::string message;
    };

    using TagRegistry = std::map<std::string, std::vector<TagClass>, std::less<>>;

    // The budget of one rendering: past any of these limits the rendering is abandoned with
    // TemplateFatalError instead of holding or exhausting the host. A notification's text needs a
    // few hundred visits and a few kilobytes; the limits keep the worst template to milliseconds
    // and megabytes.
    // Tokens visited, loop passes included (a loop walks its body again).
    static constexpr std::uint64_t maximumTokenVisits = 50'000;
    // Bytes that statements, filters and tags read and produce, assigned and captured values
    // included; a loop pass counts as loopPassBytes for the context it makes.
    static constexpr std::uint64_t maximumWorkBytes = 2u << 20;
    static constexpr std::uint64_t loopPassBytes = 256;
    // The size of any value a filter or a capture produces (see valueSize).
    static constexpr std::size_t maximumValueSize = templating::maximumValueSize;
    // Text added to the output, captured text and every loop pass included.
    static constexpr std::size_t maximumOutputSize = 256u << 10;
    // Expression errors and log lines of one rendering.
    static constexpr std::size_t maximumMessages = 100;

    // Registers the built-in filters, tags and operators. The built-in lists are made once per
    // process and shared until a parser registers something of its own. The tokens' texts must
    // outlive the parser.
    Parser(Lexer::Tokens tokens, std::shared_ptr<Context> context);
    ~Parser();
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    // Walks the tokens (once; later calls return the same) and returns the output strings in
    // order, for the caller to join with no separator: one per text, statement and tag output,
    // and one for all the passes of a loop (after parseJoined walked, the whole output is one).
    // Expression errors go to parseErrors(), tag and structure problems to the engine log;
    // neither stops the walk. Throws TemplateFatalError for template input that cannot be
    // rendered at all.
    std::vector<std::string> parse();
    // The same walk, with the output joined into one string.
    std::string parseJoined();
    // parseJoined for a one-shot rendering: the output is moved out, so that later calls of
    // parse or parseJoined see none.
    std::string takeOutput();

    // Each appends to its registry. Filters and operators are found by their first entry with a
    // name, so one registered under a name already taken is never used (the built-ins win).
    void registerFilter(Filter filter);
    void registerOperator(Operator op);
    void registerTag(const TagClass& tagClass);
    template <class T>
    void registerTag() {
        registerTag(T::tagClass());
    }

    const std::vector<Filter>& filters() const { return *filters_; }
    const std::vector<Operator>& operators() const { return *operators_; }
    const TagRegistry& tags() const { return *tags_; }
    // The first entry with that identifier, or null.
    const Filter* findFilter(std::string_view identifier) const;
    const Operator* findOperator(std::string_view identifier) const;

    // Logical evaluation: comparisons ("a == 1") joined by "and"/"or", grouped to the right, both
    // sides always evaluated. A single operand resolves silently (an unknown name is nil).
    // Errors are appended to parseErrors() and give nil. Without a context, the parser's.
    Token::Value evaluateExpression(std::string_view statement, Context* context = nullptr);
    // A logical expression followed by filters ("x | plus: 1 | append: 'a'"). Filter problems
    // are logged and stop the chain with the value computed so far.
    Token::Value evaluateFilteredExpression(std::string_view statement, Context* context = nullptr);

    const Lexer::Tokens& tokens() const { return tokens_; }
    const std::shared_ptr<Context>& context() const { return context_; }
    const std::vector<ParseErrors>& parseErrors() const { return parseErrors_; }
    // The rendering's counted work so far (see the budget above).
    std::uint64_t tokenVisits() const { return tokenVisits_; }
    std::uint64_t workBytes() const { return workBytes_; }
    std::size_t largestValueSize() const { return largestValueSize_; }

    // Counts work against the budget; throws TemplateFatalError past it.
    void chargeWork(std::uint64_t bytes) {
        workBytes_ += bytes;
        if (workBytes_ > maximumWorkBytes) workLimitExceeded();
    }
    // Charges a value that the rendering produced and checks it against maximumValueSize.
    void chargeValue(const Token::Value& value);
    // Logs a message of this rendering, counted against maximumMessages.
    void report(std::string_view message);
    // A value's size in bytes: a string's length, a number's printed length, and for containers
    // their elements' (and keys') sizes plus elementOverhead for each. Counting stops once it
    // passes `limit`.
    static constexpr std::size_t elementOverhead = valueElementOverhead;
    // What a boolean, number, range or nil counts: the few bytes it prints as.
    static constexpr std::size_t scalarSize = 8;
    static std::size_t valueSize(const Token::Value& value, std::size_t limit = maximumValueSize) {
        // Strings and scalars here; containers are walked in containerSize.
        if (auto* text = value.asString()) return text->size();
        if (!value.asArray() && !value.asDictionary()) return scalarSize;
        return containerSize(value, limit);
    }
    static std::size_t variablesSize(const Token::Value::Dictionary& variables, std::size_t limit = maximumValueSize);

    // A loop is known by the text "variable-collection" (its variable and its collection as
    // written); the key keeps the two parts as views into the template.
    struct LoopKey {
        std::string_view variable;
        std::string_view collection;
    };
    // Where the rendering's last loop with that key stopped (the index of the next element), for
    // "offset: continue"; 0 before any such loop.
    std::uint64_t loopPosition(const LoopKey& key) const;
    void setLoopPosition(const LoopKey& key, std::uint64_t position);

    // Tag::statementBody of the statement, which the parser has worked out already for the tag
    // it is compiling.
    std::string_view tagStatementBody(std::string_view statement) const;

    // The scope tree, for tags that steer it.
    Scope& rootScope() { return *root_; }
    Scope& currentScope() { return *current_; }
    // Makes the scope's parent the current scope and frees the scope (with its tag); a scope
    // without a parent is logged and stays.
    void leaveScope(Scope& scope);

    // Takes the output written since the scope opened out of the rendering's output (a capture).
    std::string takeOutput(const Scope& scope);
    // Writes markup that a tag puts around its passes (table cells). Not counted: each pass is.
    void writeMarkup(std::string_view text);

private:
    void walk();
    // The in-place forms of the evaluations: the result is a variable's value where the
    // statement reads one unchanged (valid until the variables change), else `storage`.
    const Token::Value& expressionValue(std::string_view statement, Context& scope, Token::Value& storage);
    const Token::Value& filteredValue(std::string_view statement, Context* context, Token::Value& storage);
    const Token::Value& filterChainValue(std::string_view statement, Context& scope, Token::Value& storage);
    Token::Value evaluateComparisons(std::span<const std::string_view> components, Context& scope);
    void processTag(std::size_t& index);
    // A compiled tag: owned, or one that the parser keeps for a reusable class (owned null).
    struct CompiledTag {
        std::unique_ptr<Tag> owned;
        Tag* tag = nullptr;
    };
    CompiledTag compileTag(std::size_t tokenIndex);
    Scope& openScope(std::unique_ptr<Tag> tag, std::size_t tokenIndex);
    // Makes everything a loop wrote so far one piece of parse()'s list.
    void joinPieces(const Scope& loopScope);
    // What a loop pass's variables count against the budget.
    static std::uint64_t passSize(const IterationTag& loop, const Context& pass);
    // Adds a statement's text to the output, counted against the output limit.
    void emit(std::string_view text);
    void emit(const Token::Value& value);
    // Counts output that was just written; throws past the output limit.
    void countOutput(std::size_t size);
    void addParseError(std::string message);
    [[noreturn]] static void workLimitExceeded();
    static std::size_t containerSize(const Token::Value& value, std::size_t limit);

    Lexer::Tokens tokens_;
    std::shared_ptr<Context> context_;
    std::shared_ptr<const std::vector<Filter>> filters_;
    std::shared_ptr<const std::vector<Operator>> operators_;
    std::shared_ptr<const TagRegistry> tags_;
    std::vector<ParseErrors> parseErrors_;
    std::unique_ptr<Scope> root_;
    // The innermost open scope; every open scope but the root is owned through this chain.
    Scope* current_ = nullptr;
    // The rendering's output, and where each of parse()'s pieces ends in it (recorded only when
    // parse() walks).
    bool recordsPieces_ = false;
    std::string output_;
    // Room for a notification's text from the start, so that most renderings never grow it.
    static constexpr std::size_t expectedOutputSize = 256;
    std::vector<std::size_t, RecyclingAllocator<std::size_t>> pieceEnds_;
    // Orders loop keys as their texts "variable-collection" order.
    struct LoopKeyOrder {
        bool operator()(const LoopKey& a, const LoopKey& b) const;
    };
    std::map<LoopKey, std::uint64_t, LoopKeyOrder, RecyclingAllocator<std::pair<const LoopKey, std::uint64_t>>>
        loopPositions_;
    // What compileTag found for a tag token, kept for the loop passes that visit it again.
    struct TagLookup {
        bool done = false;
        std::string_view statement;
        std::string_view keyword;
        const std::vector<TagClass>* classes = nullptr;  // null for an unknown keyword
        // The tag of a reusable class, once compiled.
        std::unique_ptr<Tag> reusable;
    };
    std::vector<TagLookup, RecyclingAllocator<TagLookup>> tagLookups_;
    // The token index of tagLookups_'s first entry.
    std::size_t tagLookupsStart_ = 0;
    // The statement of the tag being compiled, and its body.
    std::string_view compilingStatement_;
    std::string_view compilingBody_;
    // Whether the tag registry is the built-in one, which has a faster index.
    bool builtinTags_ = true;
    std::uint64_t tokenVisits_ = 0;
    std::uint64_t workBytes_ = 0;
    std::uint64_t outputBytes_ = 0;
    std::size_t largestValueSize_ = 0;
    std::size_t messages_ = 0;
    bool walked_ = false;
};

// Scopes live in recycled memory: a loop opens one per block and pass.
class Parser::Scope : public Recycled {
public:
    enum class OutputState { enabled, disabled, halted };

    // A child of a scope that is not enabled starts in the parent's state. Its output begins at
    // the given positions of the parser's output and pieces.
    Scope(std::unique_ptr<Tag> tag, Scope* parent, std::size_t outputStart = 0, std::size_t pieceStart = 0);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    // The tag that opened the scope; null for the root.
    Tag* tag() const { return tag_.get(); }
    Scope* parentScope() const { return parent_; }
    // The nearest enclosing scope opened by a loop tag, or null (break and continue act on it).
    Scope* enclosingLoopScope() const { return enclosingLoop_; }

    OutputState outputState() const { return outputState_; }
    // Sets the state here and in the scopes still open inside this one. Closed child scopes
    // keep theirs: nothing reads a closed scope's state again, and this keeps loop passes linear.
    void setOutputState(OutputState state);

    // The scope's own context (a loop's supplement), or null.
    const std::shared_ptr<Context>& context() const { return context_; }
    void setContext(std::shared_ptr<Context> context);
    // The context that statements inside evaluate against: the nearest own context of this scope
    // or an enclosing one; null means the parser's.
    Context* evaluationContext() const { return evaluationContext_; }

    bool haltedOutput = false;
    std::optional<std::size_t> tagTokenIndex;

private:
    friend class Parser;
    void passContextDown();

    std::unique_ptr<Tag> tag_;
    Scope* parent_ = nullptr;
    Scope* enclosingLoop_ = nullptr;
    Scope* openChild_ = nullptr;
    // Whether the scope's tag is a loop.
    bool isLoop_ = false;
    // Where the scope's output begins in the parser's output and in its list of pieces.
    std::size_t outputStart_ = 0;
    std::size_t pieceStart_ = 0;
    OutputState outputState_ = OutputState::enabled;
    std::shared_ptr<Context> context_;
    Context* evaluationContext_ = nullptr;
};

}  // namespace drovel::templating
