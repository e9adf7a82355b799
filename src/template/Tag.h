#pragma once
// Tags are the statements between "{%" and "%}". Each keyword is served by a class derived from
// Tag: the parser looks the keyword up in its registry, makes the class with the current
// context, lets it compile the statement, and asks it whether it opens, ends or continues a
// scope (see Parser's token walk).

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "template/Context.h"
#include "template/Parser.h"
#include "template/Recycling.h"
#include "template/SmallVector.h"
#include "template/Token.h"

namespace drovel::templating {

// The kind of each built-in tag class, in declaration order.
enum class TagKind : int {
    Assign,
    Increment,
    Decrement,
    Capture,
    EndCapture,
    If,
    EndIf,
    Else,
    Elsif,
    Unless,
    EndUnless,
    Case,
    When,
    EndCase,
    For,
    EndFor,
    Break,
    Continue,
    Cycle,
    Tablerow,
    EndTablerow,
    Comment,
    EndComment,
};

class IterationTag;
class TagIf;

// Tags live in recycled memory: a loop makes and ends one per tag statement and pass.
class Tag : public Recycled {
public:
    // One piece of a tag statement's grammar.
    struct ExpressionSegment {
        enum class Kind {
            literal,     // a fixed word that must appear
            identifier,  // a name, stored as a string under `text`
            variable,    // a value expression, evaluated and stored under `text`
            group,       // a comma-separated list of operands, stored as an array under `text`
        };
        Kind kind;
        std::string_view text;
    };

    class Errors {
    public:
        enum class Case { malformedStatement, missingArtifacts };
        static Errors malformedStatement(std::string message) { return {Case::malformedStatement, std::move(message)}; }
        static Errors missingArtifacts() { return {Case::missingArtifacts, "Missing artifacts"}; }

        Case kind;
        std::string message;
    };

    // What parse() stored, by segment key. Keys are viewed, not copied: they are the segments'
    // static names or words of the statement, which outlive the tag.
    class CompiledExpression {
    public:
        const Token::Value* find(std::string_view key) const {
            for (const auto& [name, value] : entries_)
                if (name == key) return &value;
            return nullptr;
        }
        void set(std::string_view key, Token::Value value) {
            for (auto& [name, existing] : entries_) {
                if (name == key) {
                    existing = std::move(value);
                    return;
                }
            }
            entries_.push_back({key, std::move(value)});
        }

    private:
        // Tags store one to three entries; keep them inline.
        SmallVector<std::pair<std::string_view, Token::Value>, 3> entries_;
    };

    explicit Tag(std::shared_ptr<Context> context) : context(std::move(context)) {}
    virtual ~Tag() = default;

    // Whether the class reads its context; the parser makes the classes that do not without one,
    // which spares a loop pass's context a holder (see TagFor).
    static constexpr bool usesContext = true;
    // Whether one tag of the class may serve every visit of its statement (see TagClass).
    static constexpr bool reusable = false;

    // Class-level properties.
    virtual std::string_view keyword() const = 0;
    virtual int kind() const = 0;
    virtual std::span<const ExpressionSegment> tagExpression() const { return {}; }
    virtual std::span<const std::string_view> parameters() const { return {}; }
    virtual bool definesScope() const { return false; }
    // True for tags that close the scope they terminate before opening their own beside it
    // (else, elsif); the walk always leaves a terminated scope before opening the next.
    virtual bool terminatesParentScope() const { return false; }
    // The kinds of the tags whose scopes this tag ends.
    virtual std::span<const int> terminatesScopesWithTags() const { return {}; }
    bool terminates(const Tag& scopeTag) const;
    // Asked after the walk left a scope this tag terminated: whether the tag also ends the scope
    // that is now current (an end tag that closes an else branch and then its loop or case).
    virtual bool shouldTerminateParentScope() const { return false; }
    // Loop tags return themselves (see IterationTag); the parser asks them for each pass.
    virtual IterationTag* iterationTag() { return nullptr; }
    // Branches of an if chain (if, elsif, unless) return themselves.
    virtual TagIf* conditionalTag() { return nullptr; }

    // Compiles the whole statement (keyword included) against tagExpression(), storing each
    // identifier, variable and group in compiledExpression. Returns the failure, if any.
    virtual std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope);
    // Called with the current scope when this tag ends it, before the parser leaves it.
    virtual void didTerminate(Parser::Scope& scope, Parser& parser) {}
    // Called with the scope this tag opened, before it becomes the current scope.
    virtual void didDefine(Parser::Scope& scope, Parser& parser) {}

    CompiledExpression compiledExpression;
    // Null for a class that declares usesContext false.
    std::shared_ptr<Context> context;
    // Set by tags whose block ignores other tags: the kinds not compiled while it is the current
    // scope (unknown keywords are then ignored too).
    std::optional<std::vector<int>> tagKindsToSkip;
    // Values whose printed forms the tag contributes to the output.
    std::optional<std::vector<Token::Value>> output;

    // The statement without its keyword, trimmed.
    static std::string_view statementBody(std::string_view statement);
    // Calls onElement with each trimmed, non-empty element of a list: elements are separated by
    // commas outside quotes and, with orSeparates, by the word "or" outside quotes. Linear.
    template <class F>
    static void forEachListElement(std::string_view text, bool orSeparates, F&& onElement);

protected:
    // Matches the statement body (keyword removed) against tagExpression(); see parse().
    std::optional<Errors> parseSegments(std::string_view body, Parser& parser);
    // How a variable segment's text becomes its value: by default a filtered expression.
    virtual Token::Value evaluateVariable(std::string_view key, std::string_view text, Parser& parser);
};

// Follows single and double quotes through a text, fed one character at a time.
class QuoteTracker {
public:
    // Whether c stands outside quotes; the quote marks themselves do not.
    bool outside(char c) {
        if (quote_) {
            if (c == quote_) quote_ = 0;
            return false;
        }
        if (c == '"' || c == '\'') {
            quote_ = c;
            return false;
        }
        return true;
    }

private:
    char quote_ = 0;
};

template <class F>
void Tag::forEachListElement(std::string_view text, bool orSeparates, F&& onElement) {
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    auto emit = [&](std::size_t start, std::size_t end) {
        std::string_view element = text.substr(start, end - start);
        while (!element.empty() && isSpace(element.front())) element.remove_prefix(1);
        while (!element.empty() && isSpace(element.back())) element.remove_suffix(1);
        if (!element.empty()) onElement(element);
    };
    QuoteTracker quotes;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (!quotes.outside(c)) continue;
        if (c == ',') {
            emit(start, i);
            start = i + 1;
        } else if (orSeparates && c == 'o' && text.substr(i, 2) == "or" && (i == 0 || isSpace(text[i - 1])) &&
                   (i + 2 == text.size() || isSpace(text[i + 2]))) {
            emit(start, i);
            start = i + 2;
            ++i;
        }
    }
    emit(start, text.size());
}

// Adopted by loop tags, which also override Tag::iterationTag() to return themselves: the parser
// asks them for the context of each pass.
class IterationTag {
public:
    virtual ~IterationTag() = default;
    // The context of the first pass, given to the loop's scope when it opens.
    virtual std::shared_ptr<Context> iterationContext() = 0;
    // The context of the next pass, or null when the loop is over.
    virtual std::shared_ptr<Context> nextIterationContext() = 0;
    // The number of passes made so far.
    virtual std::int64_t iterated() const = 0;
    // The size of the latest pass's variables as Parser::variablesSize counts them, when the tag
    // knows it without walking them; otherwise nothing.
    virtual std::optional<std::uint64_t> passVariablesSize() const { return std::nullopt; }
};

// Gives a tag class its keyword, kind and registry entry from Derived::keywordText and
// Derived::tagKind.
template <class Derived, class Base = Tag>
class RegisteredTag : public Base {
public:
    explicit RegisteredTag(std::shared_ptr<Context> context) : Base(std::move(context)) {}

    std::string_view keyword() const override { return Derived::keywordText; }
    int kind() const override { return static_cast<int>(Derived::tagKind); }

    static TagClass tagClass() {
        return {Derived::keywordText, static_cast<int>(Derived::tagKind),
                [](std::shared_ptr<Context> context) -> std::unique_ptr<Tag> {
                    return std::make_unique<Derived>(std::move(context));
                },
                Derived::usesContext, Derived::reusable};
    }
};

// The end tag of a block that may hold branches ("endfor", "endcase", "endtablerow"). It ends the
// innermost branch or the block itself, whichever is current; after a branch it ends the block too.
template <class Derived, TagKind blockKind>
class BlockEndTag : public RegisteredTag<Derived> {
public:
    static constexpr bool usesContext = false;
    // didTerminate sets the one thing it keeps before it is read.
    static constexpr bool reusable = true;

    explicit BlockEndTag(std::shared_ptr<Context> context) : RegisteredTag<Derived>(std::move(context)) {}

    void didTerminate(Parser::Scope& scope, Parser&) override {
        shouldTerminateParentScope_ = scope.tag()->kind() != static_cast<int>(blockKind);
    }
    bool shouldTerminateParentScope() const override { return shouldTerminateParentScope_; }

private:
    bool shouldTerminateParentScope_ = false;
};

// The built-in tag classes in registration order, made once per process.
const std::vector<TagClass>& builtinTagClasses();

}  // namespace drovel::templating
