#include "template/TagCapture.h"

namespace drovel::templating {

namespace {

constexpr Tag::ExpressionSegment captureExpression[] = {
    {Tag::ExpressionSegment::Kind::identifier, "assignee"},
};
constexpr int endCaptureTerminates[] = {static_cast<int>(TagKind::Capture)};

}  // namespace

std::span<const Tag::ExpressionSegment> TagCapture::tagExpression() const { return captureExpression; }

std::span<const int> TagEndCapture::terminatesScopesWithTags() const { return endCaptureTerminates; }

void TagEndCapture::didTerminate(Parser::Scope& scope, Parser& parser) {
    // What the block wrote goes into the variable, not the output. A loop pass that a break or
    // continue cut short still captured what it produced so far.
    std::string text = parser.takeOutput(scope);
    if (scope.outputState() != Parser::Scope::OutputState::disabled) {
        const Token::Value* assignee = scope.tag()->compiledExpression.find("assignee");
        if (assignee && assignee->asString()) {
            Token::Value captured = Token::Value::string(std::move(text));
            parser.chargeValue(captured);
            scope.tag()->context->set(std::move(captured), *assignee->asString());
        }
    }
}

}  // namespace drovel::templating
