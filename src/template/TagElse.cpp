#include "template/TagElse.h"

#include "template/TagCase.h"
#include "template/TagIf.h"

namespace drovel::templating {

namespace {

constexpr int elseTerminates[] = {static_cast<int>(TagKind::If), static_cast<int>(TagKind::Elsif),
                                  static_cast<int>(TagKind::Unless), static_cast<int>(TagKind::When)};

// A block is live when the scope around it shows output: a branch inside a hidden block never
// shows, whatever its own rule says.
bool isLive(const Parser::Scope& block) {
    const Parser::Scope* outer = block.parentScope();
    return !outer || outer->outputState() == Parser::Scope::OutputState::enabled;
}

}  // namespace

std::span<const int> TagElse::terminatesScopesWithTags() const { return elseTerminates; }

void TagElse::didTerminate(Parser::Scope& scope, Parser&) {
    didTerminateScope = true;
    if (auto* branch = scope.tag()->conditionalTag()) chainTaken_ = branch->chainTaken();
}

void TagElse::didDefine(Parser::Scope& scope, Parser&) {
    using OutputState = Parser::Scope::OutputState;
    Parser::Scope* parent = scope.parentScope();
    Tag* parentTag = parent ? parent->tag() : nullptr;
    if (parentTag && parentTag->kind() == static_cast<int>(TagKind::Case)) {
        if (isLive(*parent) && !static_cast<TagCase*>(parentTag)->branchTaken()) scope.setOutputState(OutputState::enabled);
    } else if (auto* loop = parentTag ? parentTag->iterationTag() : nullptr; loop && !didTerminateScope) {
        bool show = loop->iterated() == 0 && isLive(*parent);
        scope.setOutputState(show ? OutputState::enabled : OutputState::disabled);
    } else if (chainTaken_) {
        scope.setOutputState(OutputState::disabled);
    }
}

}  // namespace drovel::templating
