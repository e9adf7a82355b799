#pragma once
// "cycle 'a', 'b', 'c'" or "cycle group: 'a', 'b'": outputs the next value of a rotation kept in
// the context. Without a group name, cycles over equal lists share one rotation; a named group
// keeps the list it started with.

#include "template/Tag.h"

namespace drovel::templating {

class TagCycle : public RegisteredTag<TagCycle> {
public:
    static constexpr std::string_view keywordText = "cycle";
    static constexpr TagKind tagKind = TagKind::Cycle;

    explicit TagCycle(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override;
    // Compiles the optional "group" (the text before a colon outside quotes: a quoted name, a
    // variable's printed value, or else the text itself) and the "list", then takes the next
    // value as output. A cycle in a block that shows nothing does not turn its rotation.
    std::optional<Errors> parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) override;
};

}  // namespace drovel::templating
