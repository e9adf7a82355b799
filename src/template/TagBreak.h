#pragma once
// "break": ends the innermost loop; the rest of its current pass shows nothing. Outside a loop,
// or in a block that shows nothing, it does nothing.

#include "template/Tag.h"

namespace drovel::templating {

class TagBreak : public RegisteredTag<TagBreak> {
public:
    static constexpr std::string_view keywordText = "break";
    static constexpr TagKind tagKind = TagKind::Break;

    explicit TagBreak(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override;
};

}  // namespace drovel::templating
