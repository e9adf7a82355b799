#pragma once
// "for item in list" ... "endfor": walks its body once per element of an array or per number of
// a range, with the element under the "iteree" name and a "forloop" dictionary (first, index,
// index0, last, length, rindex, rindex0). Optional parameters after the list: "limit: n",
// "offset: n" and "reversed". An "else" inside shows only when the loop makes no pass.
// "offset: continue" starts where the rendering's previous loop with the same variable over the
// same collection text stopped (see Parser::loopPosition), or at 0 without one.

#include <cstdint>
#include <string>

#include "template/Tag.h"

namespace drovel::templating {

class TagFor : public RegisteredTag<TagFor>, public IterationTag {
public:
    static constexpr std::string_view keywordText = "for";
    static constexpr TagKind tagKind = TagKind::For;

    // Loops nest at most this deep; a deeper loop tag fails to compile. Lookups, counters and
    // cycles pass through every enclosing loop's context, so the bound keeps them cheap.
    static constexpr int maximumNestingDepth = 100;

    explicit TagFor(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}
    // Leaves a pass context that nothing else holds to the thread's next loop.
    ~TagFor() override;

    std::span<const ExpressionSegment> tagExpression() const override;
    std::span<const std::string_view> parameters() const override;
    bool definesScope() const override { return true; }
    // Compiles the grammar and the parameters. The "iterand" must be an array or a range; in a
    // block that shows nothing anything else is taken as an empty list, so the block's
    // structure stays intact without a message.
    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override;
    // Hides the scope when the loop makes no pass or stands in a block that shows nothing.
    void didDefine(Parser::Scope& scope, Parser& parser) override;

    IterationTag* iterationTag() override { return this; }
    std::shared_ptr<Context> iterationContext() override;
    std::shared_ptr<Context> nextIterationContext() override;
    std::int64_t iterated() const override { return static_cast<std::int64_t>(iterated_); }
    std::optional<std::uint64_t> passVariablesSize() const override { return passVariablesSize_; }

    // Whether another pass follows the current one.
    bool hasNextPass() const { return !stopped_ && iterated_ < count_; }
    // "break": no pass follows the current one, and a later "offset: continue" starts behind it.
    void stop(Parser& parser);
    // The number of passes the loop makes when not stopped.
    std::uint64_t passCount() const { return count_; }

    // What break and continue do: when `scope` shows output and lies in a loop, the rest of the
    // loop's current pass shows nothing, and with stopLoop no pass follows. Otherwise nothing.
    static void haltLoop(Parser::Scope& scope, Parser& parser, bool stopLoop);

protected:
    // Whether the loop takes "offset: continue" and records where it stops for later loops.
    virtual bool remembersPosition() const { return true; }
    // Keeps the iterand's text: with the loop variable it names the loop's position.
    Token::Value evaluateVariable(std::string_view key, std::string_view text, Parser& parser) override;
    // The value of a parameter ("limit", "offset", "cols") when given as an integer.
    std::optional<std::int64_t> parameter(std::string_view name) const;

private:
    // The context of the next pass, counted.
    std::shared_ptr<Context> makePass();
    // Sets `item` to the element or number of the given pass.
    void assignItem(std::uint64_t pass, Token::Value& item) const;

    Token::Value iterand_;
    std::uint64_t start_ = 0;  // the offset into the iterand
    std::uint64_t count_ = 0;
    bool reversed_ = false;
    std::uint64_t iterated_ = 0;
    bool stopped_ = false;
    std::string_view iterandText_;
    std::string iteree_;  // the loop variable's name, canonical
    // Whether the loop variable comes before "forloop" in key order, and whether it shows at all
    // (a loop variable named forloop is hidden by it).
    bool itemFirst_ = false;
    bool hasItem_ = true;
    std::uint64_t passVariablesSize_ = 0;
    // The contexts that the passes are given, refilled when free (see makePass).
    std::shared_ptr<SupplementalContext> passContexts_[2];
    // The loop's key while it records its position.
    std::optional<Parser::LoopKey> positionKey_;
};

// "break" and "continue": compile like any tag, then halt the innermost loop's pass (see
// TagFor::haltLoop), with stopsLoop the whole loop.
template <class Derived, bool stopsLoop>
class LoopHaltTag : public RegisteredTag<Derived> {
public:
    static constexpr bool usesContext = false;

    explicit LoopHaltTag(std::shared_ptr<Context> context) : RegisteredTag<Derived>(std::move(context)) {}

    std::optional<Tag::Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override {
        if (auto error = Tag::parse(statement, parser, currentScope)) return error;
        TagFor::haltLoop(currentScope, parser, stopsLoop);
        return std::nullopt;
    }
};

class TagEndFor : public BlockEndTag<TagEndFor, TagKind::For> {
public:
    static constexpr std::string_view keywordText = "endfor";
    static constexpr TagKind tagKind = TagKind::EndFor;

    explicit TagEndFor(std::shared_ptr<Context> context) : BlockEndTag(std::move(context)) {}

    std::span<const int> terminatesScopesWithTags() const override;
};

}  // namespace drovel::templating
