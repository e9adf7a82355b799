#include "template/TagBreak.h"

#include "template/TagFor.h"

namespace drovel::templating {

std::optional<Tag::Errors> TagBreak::parse(std::string_view statement, Parser& parser, Parser::Scope& currentScope) {
    if (auto error = Tag::parse(statement, parser, currentScope)) return error;
    TagFor::haltLoop(currentScope, true);
    return std::nullopt;
}

}  // namespace drovel::templating
