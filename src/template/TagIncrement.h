#pragma once
// "increment name": outputs the counter's value, then adds one to it (0, 1, 2, ...). Counters
// are apart from variables and last for the whole rendering.

#include "template/Tag.h"

namespace drovel::templating {

class TagIncrement : public RegisteredTag<TagIncrement> {
public:
    static constexpr std::string_view keywordText = "increment";
    static constexpr TagKind tagKind = TagKind::Increment;

    explicit TagIncrement(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override;
    // Compiles, then counts and sets output; a counter in a block that shows nothing stays.
    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override;
};

}  // namespace drovel::templating
