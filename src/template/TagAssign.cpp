#include "template/TagAssign.h"

namespace drovel::templating {

namespace {

constexpr Tag::ExpressionSegment assignExpression[] = {
    {Tag::ExpressionSegment::Kind::identifier, "assignee"},
    {Tag::ExpressionSegment::Kind::literal, "="},
    {Tag::ExpressionSegment::Kind::variable, "value"},
};

}  // namespace

std::span<const Tag::ExpressionSegment> TagAssign::tagExpression() const { return assignExpression; }

std::optional<Tag::Errors> TagAssign::parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) {
    if (auto error = Tag::parse(statement, parser, currentScope)) return error;
    if (currentScope.outputState() != Parser::Scope::OutputState::enabled) return std::nullopt;
    const Token::Value* assignee = compiledExpression.find("assignee");
    const Token::Value* value = compiledExpression.find("value");
    if (!assignee || !value) return Errors::missingArtifacts();
    context->set(*value, *assignee->asString());
    return std::nullopt;
}

}  // namespace drovel::templating
