#pragma once
// "decrement name": subtracts one from the counter, then outputs it (-1, -2, ...). Shares its
// counters with "increment".

#include "template/Tag.h"

namespace drovel::templating {

class TagDecrement : public RegisteredTag<TagDecrement> {
public:
    static constexpr std::string_view keywordText = "decrement";
    static constexpr TagKind tagKind = TagKind::Decrement;

    explicit TagDecrement(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override;
    // Compiles, then counts and sets output; a counter in a block that shows nothing stays.
    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override;
};

}  // namespace drovel::templating
