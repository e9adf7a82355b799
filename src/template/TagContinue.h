#pragma once
// "continue": the rest of the innermost loop's current pass shows nothing and the next pass
// begins. Outside a loop, or in a block that shows nothing, it does nothing.

#include "template/Tag.h"

namespace drovel::templating {

class TagContinue : public RegisteredTag<TagContinue> {
public:
    static constexpr std::string_view keywordText = "continue";
    static constexpr TagKind tagKind = TagKind::Continue;

    explicit TagContinue(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override;
};

}  // namespace drovel::templating
