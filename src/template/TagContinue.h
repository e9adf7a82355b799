#pragma once
// "continue": the rest of the innermost loop's current pass shows nothing and the next pass
// begins. Outside a loop, or in a block that shows nothing, it does nothing.

#include "template/TagFor.h"

namespace drovel::templating {

class TagContinue : public LoopHaltTag<TagContinue, false> {
public:
    static constexpr std::string_view keywordText = "continue";
    static constexpr TagKind tagKind = TagKind::Continue;

    explicit TagContinue(std::shared_ptr<Context> context) : LoopHaltTag(std::move(context)) {}
};

}  // namespace drovel::templating
