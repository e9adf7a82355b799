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

void TagEndCapture::didTerminate(Parser::Scope& scope, Parser&) {
    // A loop pass that a break or continue cut short still captured what it produced so far.
    if (scope.outputState() != Parser::Scope::OutputState::disabled) {
        const Token::Value* assignee = scope.tag()->compiledExpression.find("assignee");
        if (assignee && assignee->asString()) {
            std::string text;
            Parser::appendFlattened(scope, text);
            scope.tag()->context->set(Token::Value::string(std::move(text)), *assignee->asString());
        }
    }
    scope.processedStatements.clear();
}

}  // namespace drovel::templating
