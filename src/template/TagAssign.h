#pragma once
// "assign name = expression": sets a variable to the value of a filtered expression.

#include "template/Tag.h"

namespace drovel::templating {

class TagAssign : public RegisteredTag<TagAssign> {
public:
    static constexpr std::string_view keywordText = "assign";
    static constexpr TagKind tagKind = TagKind::Assign;

    explicit TagAssign(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override;
    // Compiles, then stores "value" under "assignee" through the context (inside a loop that
    // reaches the outermost context). Inside a branch that shows no output nothing is assigned.
    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override;
};

}  // namespace drovel::templating
