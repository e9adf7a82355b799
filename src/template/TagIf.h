#pragma once
// The conditional tags: "if", "elsif" and "endif". An if/elsif chain shows the first branch
// whose condition is truthy; "else" (TagElse.h) shows when none was.

#include "template/Tag.h"

namespace drovel::templating {

class TagIf : public RegisteredTag<TagIf> {
public:
    static constexpr std::string_view keywordText = "if";
    static constexpr TagKind tagKind = TagKind::If;

    explicit TagIf(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override;
    // The grammar is one "conditional" taking the whole body: compiled without the segment walk.
    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override;
    bool definesScope() const override { return true; }
    // Disables the branch unless its condition holds and no earlier branch of the chain was taken.
    void didDefine(Parser::Scope& scope, Parser& parser) override;
    TagIf* conditionalTag() override { return this; }

    // Whether this branch's own condition selects it (a truthy "conditional").
    virtual bool branchTaken() const;
    // Whether this branch or an earlier branch of the same chain was taken.
    bool chainTaken() const { return earlierBranchTaken_ || branchTaken(); }

protected:
    // Conditions are logical expressions, without filters.
    Token::Value evaluateVariable(std::string_view key, std::string_view text, Parser& parser) override;

    bool earlierBranchTaken_ = false;
};

class TagElsif : public RegisteredTag<TagElsif, TagIf> {
public:
    static constexpr std::string_view keywordText = "elsif";
    static constexpr TagKind tagKind = TagKind::Elsif;

    explicit TagElsif(std::shared_ptr<Context> context) : RegisteredTag<TagElsif, TagIf>(std::move(context)) {}

    bool terminatesParentScope() const override { return true; }
    std::span<const int> terminatesScopesWithTags() const override;
    // Carries the chain's state over from the branch it ends.
    void didTerminate(Parser::Scope& scope, Parser& parser) override;
};

class TagEndIf : public RegisteredTag<TagEndIf> {
public:
    static constexpr std::string_view keywordText = "endif";
    static constexpr TagKind tagKind = TagKind::EndIf;

    static constexpr bool usesContext = false;
    static constexpr bool reusable = true;

    explicit TagEndIf(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const int> terminatesScopesWithTags() const override;
};

}  // namespace drovel::templating
