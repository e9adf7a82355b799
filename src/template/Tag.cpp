#include "template/Tag.h"

#include <algorithm>

#include "template/TagAssign.h"
#include "template/TagBreak.h"
#include "template/TagCapture.h"
#include "template/TagCase.h"
#include "template/TagComment.h"
#include "template/TagContinue.h"
#include "template/TagCycle.h"
#include "template/TagDecrement.h"
#include "template/TagElse.h"
#include "template/TagFor.h"
#include "template/TagIf.h"
#include "template/TagIncrement.h"
#include "template/TagTablerow.h"
#include "template/TagUnless.h"
#include "template/Unicode.h"

namespace drovel::templating {

namespace {

// Takes the first white-space-separated word off the front of `rest` (already trimmed).
std::string_view takeWord(std::string_view& rest) {
    std::size_t end = unicode::findWhitespaceOrNewline(rest);
    std::string_view word = rest.substr(0, end);
    rest = unicode::trimWhitespaceAndNewlines(rest.substr(end));
    return word;
}

std::string quoted(std::string_view text) { return "“" + std::string(text) + "”"; }

}  // namespace

bool Tag::terminates(const Tag& scopeTag) const {
    auto kinds = terminatesScopesWithTags();
    return std::find(kinds.begin(), kinds.end(), scopeTag.kind()) != kinds.end();
}

std::string_view Tag::statementBody(std::string_view statement) {
    std::string_view rest = unicode::trimWhitespaceAndNewlines(statement);
    takeWord(rest);  // the keyword
    return rest;
}

std::optional<Tag::Errors> Tag::parse(std::string_view statement, Parser& parser, Parser::Scope&) {
    std::string_view body = parser.tagStatementBody(statement);
    // An end tag's statement, the common case: nothing to match.
    if (body.empty() && tagExpression().empty()) return std::nullopt;
    return parseSegments(body, parser);
}

std::optional<Tag::Errors> Tag::parseSegments(std::string_view body, Parser& parser) {
    std::string_view rest = unicode::trimWhitespaceAndNewlines(body);
    auto segments = tagExpression();
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const ExpressionSegment& segment = segments[i];
        switch (segment.kind) {
            case ExpressionSegment::Kind::literal: {
                std::string_view word = takeWord(rest);
                if (word.empty()) return Errors::malformedStatement("Expected literal " + quoted(segment.text) + ", found nothing.");
                if (word != segment.text)
                    return Errors::malformedStatement("Unexpected statement " + quoted(word) + ", expected " + quoted(segment.text));
                break;
            }
            case ExpressionSegment::Kind::identifier: {
                std::string_view word = takeWord(rest);
                if (word.empty()) return Errors::malformedStatement("Expected identifier, found nothing.");
                compiledExpression.set(segment.text, Token::Value::string(std::string(word)));
                break;
            }
            case ExpressionSegment::Kind::variable: {
                // The last segment takes the rest of the statement: expressions contain spaces.
                std::string_view text = i + 1 == segments.size() ? std::exchange(rest, {}) : takeWord(rest);
                if (text.empty()) return Errors::malformedStatement("Expected identifier or literal, found nothing.");
                Token::Value value = evaluateVariable(segment.text, text, parser);
                parser.chargeWork(Parser::valueSize(value, Parser::maximumWorkBytes));
                compiledExpression.set(segment.text, std::move(value));
                break;
            }
            case ExpressionSegment::Kind::group: {
                // A group takes the rest of the statement; a comma inside a quoted element stays.
                Token::Value::Array elements;
                forEachListElement(std::exchange(rest, {}), false, [&](std::string_view element) {
                    elements.push_back(context->resolveOperand(element).value_or(Token::Value::nil()));
                });
                if (elements.empty()) return Errors::malformedStatement("Expected group list of strings, found nothing.");
                Token::Value list = Token::Value::array(std::move(elements));
                parser.chargeWork(Parser::valueSize(list, Parser::maximumWorkBytes));
                compiledExpression.set(segment.text, std::move(list));
                break;
            }
        }
    }
    if (!rest.empty()) return Errors::malformedStatement("Expected end of tag expression, but found " + std::string(rest));
    return std::nullopt;
}

Token::Value Tag::evaluateVariable(std::string_view, std::string_view text, Parser& parser) {
    return parser.evaluateFilteredExpression(text, context.get());
}

// In declaration order, which is also the order of TagKind.
const std::vector<TagClass>& builtinTagClasses() {
    static const std::vector<TagClass> classes{
        TagAssign::tagClass(),
        TagIncrement::tagClass(),
        TagDecrement::tagClass(),
        TagCapture::tagClass(),
        TagEndCapture::tagClass(),
        TagIf::tagClass(),
        TagEndIf::tagClass(),
        TagElse::tagClass(),
        TagElsif::tagClass(),
        TagUnless::tagClass(),
        TagEndUnless::tagClass(),
        TagCase::tagClass(),
        TagWhen::tagClass(),
        TagEndCase::tagClass(),
        TagFor::tagClass(),
        TagEndFor::tagClass(),
        TagBreak::tagClass(),
        TagContinue::tagClass(),
        TagCycle::tagClass(),
        TagTablerow::tagClass(),
        TagEndTablerow::tagClass(),
        TagComment::tagClass(),
        TagEndComment::tagClass(),
    };
    return classes;
}

}  // namespace drovel::templating
