#include "template/TagDecrement.h"

namespace drovel::templating {

namespace {

constexpr Tag::ExpressionSegment counterExpression[] = {
    {Tag::ExpressionSegment::Kind::identifier, "assignee"},
};

}  // namespace

std::span<const Tag::ExpressionSegment> TagDecrement::tagExpression() const { return counterExpression; }

std::optional<Tag::Errors> TagDecrement::parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) {
    if (auto error = Tag::parse(statement, parser, currentScope)) return error;
    if (currentScope.outputState() != Parser::Scope::OutputState::enabled) return std::nullopt;
    const Token::Value* assignee = compiledExpression.find("assignee");
    if (!assignee) return Errors::missingArtifacts();
    output = std::vector<Token::Value>{Token::Value::integer(context->decrementCounter(*assignee->asString()))};
    return std::nullopt;
}

}  // namespace drovel::templating
