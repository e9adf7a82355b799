#include "template/TagContinue.h"

#include "template/TagFor.h"

namespace drovel::templating {

std::optional<Tag::Errors> TagContinue::parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) {
    if (auto error = Tag::parse(statement, parser, currentScope)) return error;
    TagFor::haltLoop(currentScope, false);
    return std::nullopt;
}

}  // namespace drovel::templating
