#include "template/TagTablerow.h"

namespace drovel::templating {

namespace {

using OutputState = Parser::Scope::OutputState;

constexpr std::string_view tablerowParameters[] = {"cols", "limit", "offset"};
constexpr int endTablerowTerminates[] = {static_cast<int>(TagKind::Tablerow), static_cast<int>(TagKind::Else)};

}  // namespace

std::span<const std::string_view> TagTablerow::parameters() const { return tablerowParameters; }

std::uint64_t TagTablerow::columns() const {
    auto cols = parameter("cols");
    return cols && *cols > 0 ? static_cast<std::uint64_t>(*cols) : passCount();
}

void TagTablerow::didDefine(Parser::Scope& scope, Parser& parser) {
    TagFor::didDefine(scope, parser);
    if (scope.outputState() == OutputState::enabled) openCell(parser, 0);
}

void TagTablerow::openCell(Parser& parser, std::uint64_t pass) {
    std::uint64_t column = pass % columns();
    std::string markup;
    if (column == 0) markup = "<tr class=\"row" + std::to_string(pass / columns() + 1) + "\">";
    // As Liquid writes it: a line break after the first row's opening tag and after every row.
    if (pass == 0) markup += "\n";
    markup += "<td class=\"col" + std::to_string(column + 1) + "\">";
    parser.writeMarkup(markup);
}

void TagTablerow::endPass(Parser::Scope& scope, Parser& parser) {
    // A pass cut short by break or continue (halted) still closes its cell.
    if (scope.outputState() == OutputState::disabled) return;
    std::uint64_t pass = static_cast<std::uint64_t>(iterated()) - 1;
    bool rowEnds = pass % columns() == columns() - 1 || !hasNextPass();
    parser.writeMarkup(rowEnds ? "</td></tr>\n" : "</td>");
    if (hasNextPass()) openCell(parser, pass + 1);
}

std::span<const int> TagEndTablerow::terminatesScopesWithTags() const { return endTablerowTerminates; }

void TagEndTablerow::didTerminate(Parser::Scope& scope, Parser& parser) {
    BlockEndTag::didTerminate(scope, parser);
    if (!shouldTerminateParentScope()) static_cast<TagTablerow*>(scope.tag())->endPass(scope, parser);
}

}  // namespace drovel::templating
