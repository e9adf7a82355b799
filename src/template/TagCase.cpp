#include "template/TagCase.h"

namespace drovel::templating {

namespace {

using OutputState = Parser::Scope::OutputState;

constexpr Tag::ExpressionSegment comparatorExpression[] = {
    {Tag::ExpressionSegment::Kind::variable, "comparator"},
};
constexpr int whenTerminates[] = {static_cast<int>(TagKind::When)};
constexpr int endCaseTerminates[] = {static_cast<int>(TagKind::Case), static_cast<int>(TagKind::When),
                                     static_cast<int>(TagKind::Else)};

bool isNumber(const Token::Value& value) { return value.asInteger() || value.asDecimal(); }

bool matches(const Token::Value& candidate, const Token::Value& value) {
    if (isNumber(candidate) && isNumber(value)) return candidate.decimalValue() == value.decimalValue();
    return candidate == value;
}

}  // namespace

std::span<const Tag::ExpressionSegment> TagCase::tagExpression() const { return comparatorExpression; }

void TagCase::didDefine(Parser::Scope& scope, Parser&) {
    // Only the branches show; each decides for itself.
    scope.setOutputState(OutputState::disabled);
}

bool TagCase::takeBranch(const Token::Value::Array& candidates) {
    const Token::Value* comparator = compiledExpression.find("comparator");
    if (branchTaken_ || !comparator) return false;
    for (const auto& candidate : candidates) {
        if (matches(candidate, *comparator)) {
            branchTaken_ = true;
            return true;
        }
    }
    return false;
}

std::span<const Tag::ExpressionSegment> TagWhen::tagExpression() const { return comparatorExpression; }

std::span<const int> TagWhen::terminatesScopesWithTags() const { return whenTerminates; }

void TagWhen::didDefine(Parser::Scope& scope, Parser&) {
    Parser::Scope* caseScope = scope.parentScope();
    Tag* caseTag = caseScope ? caseScope->tag() : nullptr;
    if (!caseTag || caseTag->kind() != static_cast<int>(TagKind::Case)) {
        scope.setOutputState(OutputState::disabled);
        return;
    }
    // A case inside a hidden block takes no branch, so that its else stays hidden too.
    const Parser::Scope* outer = caseScope->parentScope();
    bool live = !outer || outer->outputState() == OutputState::enabled;
    const Token::Value* candidates = compiledExpression.find("comparator");
    if (live && candidates && static_cast<TagCase*>(caseTag)->takeBranch(*candidates->asArray()))
        scope.setOutputState(OutputState::enabled);
}

Token::Value TagWhen::evaluateVariable(std::string_view, std::string_view text, Parser&) {
    Token::Value::Array candidates;
    forEachListElement(text, true, [&](std::string_view element) {
        if (auto value = context->resolveOperand(element)) candidates.push_back(std::move(*value));
    });
    return Token::Value::array(std::move(candidates));
}

std::span<const int> TagEndCase::terminatesScopesWithTags() const { return endCaseTerminates; }

}  // namespace drovel::templating
