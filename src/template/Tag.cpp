#include "template/Tag.h"

#include <algorithm>

#include "template/TagAssign.h"
#include "template/TagElse.h"
#include "template/TagIf.h"
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

const Token::Value* Tag::CompiledExpression::find(std::string_view key) const {
    for (const auto& [name, value] : entries_)
        if (name == key) return &value;
    return nullptr;
}

void Tag::CompiledExpression::set(std::string_view key, Token::Value value) {
    for (auto& [name, existing] : entries_) {
        if (name == key) {
            existing = std::move(value);
            return;
        }
    }
    entries_.push_back({std::string(key), std::move(value)});
}

bool Tag::terminates(const Tag& scopeTag) const {
    auto kinds = terminatesScopesWithTags();
    return std::find(kinds.begin(), kinds.end(), scopeTag.kind()) != kinds.end();
}

std::optional<Tag::Errors> Tag::parse(std::string_view statement, Parser& parser, Parser::Scope&) {
    std::string_view rest = unicode::trimWhitespaceAndNewlines(statement);
    takeWord(rest);  // the keyword
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
                compiledExpression.set(segment.text, evaluateVariable(segment.text, text, parser));
                break;
            }
            case ExpressionSegment::Kind::group: {
                std::string_view text = std::exchange(rest, {});
                if (text.empty()) return Errors::malformedStatement("Expected group list of strings, found nothing.");
                Token::Value::Array elements;
                for (std::size_t start = 0; start <= text.size();) {
                    std::size_t comma = std::min(text.find(',', start), text.size());
                    std::string_view piece = unicode::trimWhitespaceAndNewlines(text.substr(start, comma - start));
                    if (!piece.empty()) elements.push_back(context->resolveOperand(piece).value_or(Token::Value::nil()));
                    start = comma + 1;
                }
                compiledExpression.set(segment.text, Token::Value::array(std::move(elements)));
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

const std::vector<TagClass>& builtinTagClasses() {
    static const std::vector<TagClass> classes{
        TagAssign::tagClass(),
        TagIf::tagClass(),
        TagEndIf::tagClass(),
        TagElse::tagClass(),
        TagElsif::tagClass(),
    };
    return classes;
}

}  // namespace drovel::templating
