#include "template/TagComment.h"

namespace drovel::templating {

namespace {

constexpr int endCommentTerminates[] = {static_cast<int>(TagKind::Comment)};

}  // namespace

TagComment::TagComment(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {
    tagKindsToSkip.emplace();
    for (int kind = 0; kind <= static_cast<int>(TagKind::EndComment); ++kind)
        if (kind != static_cast<int>(TagKind::Comment) && kind != static_cast<int>(TagKind::EndComment))
            tagKindsToSkip->push_back(kind);
}

void TagComment::didDefine(Parser::Scope& scope, Parser&) { scope.setOutputState(Parser::Scope::OutputState::disabled); }

std::span<const int> TagEndComment::terminatesScopesWithTags() const { return endCommentTerminates; }

}  // namespace drovel::templating
