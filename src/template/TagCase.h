#pragma once
// "case value" ... "when a, b" ... "else" ... "endcase": shows the first "when" branch with a
// candidate equal to the case's value, otherwise its "else". Text between "case" and the first
// branch is not shown.

#include "template/Tag.h"

namespace drovel::templating {

class TagCase : public RegisteredTag<TagCase> {
public:
    static constexpr std::string_view keywordText = "case";
    static constexpr TagKind tagKind = TagKind::Case;

    explicit TagCase(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override;
    bool definesScope() const override { return true; }
    void didDefine(Parser::Scope& scope, Parser& parser) override;

    // Whether one of the candidates equals the "comparator" while no branch was taken yet; if
    // so the branch is taken. Numbers match across integer and decimal (a host 3 matches
    // "when 3"); everything else by strict value equality.
    bool takeBranch(const Token::Value::Array& candidates);
    // Whether a "when" branch was taken (an "else" then stays hidden).
    bool branchTaken() const { return branchTaken_; }

private:
    bool branchTaken_ = false;
};

class TagWhen : public RegisteredTag<TagWhen> {
public:
    static constexpr std::string_view keywordText = "when";
    static constexpr TagKind tagKind = TagKind::When;

    explicit TagWhen(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override;
    bool definesScope() const override { return true; }
    bool terminatesParentScope() const override { return true; }
    // Ends the previous branch.
    std::span<const int> terminatesScopesWithTags() const override;
    // Shown when its case is in a shown block and takes this branch; hidden outside a case.
    void didDefine(Parser::Scope& scope, Parser& parser) override;

protected:
    // The "comparator" is the array of candidates, separated by commas or "or" (outside quotes);
    // candidates that resolve to nothing are dropped.
    Token::Value evaluateVariable(std::string_view key, std::string_view text, Parser& parser) override;
};

class TagEndCase : public BlockEndTag<TagEndCase, TagKind::Case> {
public:
    static constexpr std::string_view keywordText = "endcase";
    static constexpr TagKind tagKind = TagKind::EndCase;

    explicit TagEndCase(std::shared_ptr<Context> context) : BlockEndTag(std::move(context)) {}

    std::span<const int> terminatesScopesWithTags() const override;
};

}  // namespace drovel::templating
