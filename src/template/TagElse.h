#pragma once
// "else": the alternative branch of if, unless, case and for.

#include "template/Tag.h"

namespace drovel::templating {

class TagElse : public RegisteredTag<TagElse> {
public:
    static constexpr std::string_view keywordText = "else";
    static constexpr TagKind tagKind = TagKind::Else;

    static constexpr bool usesContext = false;

    explicit TagElse(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    bool definesScope() const override { return true; }
    bool terminatesParentScope() const override { return true; }
    // Ends an if, elsif, unless or when branch; inside a loop it does not end the loop's scope
    // but opens its own inside it.
    std::span<const int> terminatesScopesWithTags() const override;
    void didTerminate(Parser::Scope& scope, Parser& parser) override;
    // Under a case: shown when no when branch was taken. Inside a loop it did not end: shown
    // only when the loop made no pass.
    // After an if chain: hidden when a branch of the chain was taken.
    void didDefine(Parser::Scope& scope, Parser& parser) override;

    bool didTerminateScope = false;

private:
    bool chainTaken_ = false;
};

}  // namespace drovel::templating
