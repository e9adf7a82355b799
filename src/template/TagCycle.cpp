#include "template/TagCycle.h"

#include "template/Unicode.h"

namespace drovel::templating {

namespace {

constexpr Tag::ExpressionSegment cycleExpression[] = {
    {Tag::ExpressionSegment::Kind::group, "list"},
};

// The position of the first colon outside quotes, or npos.
std::size_t groupColon(std::string_view text) {
    QuoteTracker quotes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (quotes.outside(text[i]) && text[i] == ':') return i;
    }
    return std::string_view::npos;
}

}  // namespace

std::span<const Tag::ExpressionSegment> TagCycle::tagExpression() const { return cycleExpression; }

std::optional<Tag::Errors> TagCycle::parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) {
    std::string_view body = parser.tagStatementBody(statement);
    std::optional<std::string> group;
    if (std::size_t colon = groupColon(body); colon != std::string_view::npos) {
        std::string_view name = unicode::trimWhitespaceAndNewlines(body.substr(0, colon));
        if (name.empty()) return Errors::malformedStatement("Expected identifier, found nothing.");
        auto value = context->resolveOperand(name);
        group = value ? value->stringValue() : std::string(name);
        parser.chargeWork(group->size());
        compiledExpression.set("group", Token::Value::string(*group));
        body = body.substr(colon + 1);
    }
    if (auto error = parseSegments(body, parser)) return error;
    if (currentScope.outputState() != Parser::Scope::OutputState::enabled) return std::nullopt;
    const Token::Value* list = compiledExpression.find("list");
    if (!list || !list->asArray()) return Errors::missingArtifacts();
    if (auto next = context->next(*list->asArray(), group)) output = std::vector<Token::Value>{std::move(*next)};
    return std::nullopt;
}

}  // namespace drovel::templating
