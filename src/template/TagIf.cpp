#include "template/TagIf.h"

namespace drovel::templating {

namespace {

constexpr Tag::ExpressionSegment conditionalExpression[] = {
    {Tag::ExpressionSegment::Kind::variable, "conditional"},
};
// An elsif may also follow an unless branch, which is an if branch with its condition inverted.
constexpr int elsifTerminates[] = {static_cast<int>(TagKind::If), static_cast<int>(TagKind::Elsif),
                                   static_cast<int>(TagKind::Unless)};
constexpr int endIfTerminates[] = {static_cast<int>(TagKind::If), static_cast<int>(TagKind::Elsif),
                                   static_cast<int>(TagKind::Else)};

}  // namespace

std::span<const Tag::ExpressionSegment> TagIf::tagExpression() const { return conditionalExpression; }

std::optional<Tag::Errors> TagIf::parse(std::string_view statement, Parser& parser, Parser::Scope&) {
    std::string_view condition = parser.tagStatementBody(statement);
    if (condition.empty()) return Errors::malformedStatement("Expected identifier or literal, found nothing.");
    Token::Value value = evaluateVariable(conditionalExpression[0].text, condition, parser);
    parser.chargeWork(Parser::valueSize(value, Parser::maximumWorkBytes));
    compiledExpression.set(conditionalExpression[0].text, std::move(value));
    return std::nullopt;
}

bool TagIf::branchTaken() const {
    const Token::Value* conditional = compiledExpression.find("conditional");
    return conditional && conditional->isTruthy();
}

void TagIf::didDefine(Parser::Scope& scope, Parser&) {
    if (earlierBranchTaken_ || !branchTaken()) scope.setOutputState(Parser::Scope::OutputState::disabled);
}

Token::Value TagIf::evaluateVariable(std::string_view, std::string_view text, Parser& parser) {
    return parser.evaluateExpression(text, context.get());
}

std::span<const int> TagElsif::terminatesScopesWithTags() const { return elsifTerminates; }

void TagElsif::didTerminate(Parser::Scope& scope, Parser&) {
    if (auto* branch = scope.tag()->conditionalTag()) earlierBranchTaken_ = branch->chainTaken();
}

std::span<const int> TagEndIf::terminatesScopesWithTags() const { return endIfTerminates; }

}  // namespace drovel::templating
