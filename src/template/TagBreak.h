#pragma once
// "break": ends the innermost loop; the rest of its current pass shows nothing. Outside a loop,
// or in a block that shows nothing, it does nothing.

#include "template/TagFor.h"

namespace drovel::templating {

class TagBreak : public LoopHaltTag<TagBreak, true> {
public:
    static constexpr std::string_view keywordText = "break";
    static constexpr TagKind tagKind = TagKind::Break;

    explicit TagBreak(std::shared_ptr<Context> context) : LoopHaltTag(std::move(context)) {}
};

}  // namespace drovel::templating
