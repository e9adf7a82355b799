#pragma once
// "capture name" ... "endcapture": the block's output is stored as a string variable instead of
// being shown.

#include "template/Tag.h"

namespace drovel::templating {

class TagCapture : public RegisteredTag<TagCapture> {
public:
    static constexpr std::string_view keywordText = "capture";
    static constexpr TagKind tagKind = TagKind::Capture;

    explicit TagCapture(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const ExpressionSegment> tagExpression() const override;
    bool definesScope() const override { return true; }
};

class TagEndCapture : public RegisteredTag<TagEndCapture> {
public:
    static constexpr std::string_view keywordText = "endcapture";
    static constexpr TagKind tagKind = TagKind::EndCapture;

    static constexpr bool usesContext = false;
    static constexpr bool reusable = true;

    explicit TagEndCapture(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const int> terminatesScopesWithTags() const override;
    // Stores the capture's joined output under its "assignee" (through the context, so inside a
    // loop it outlives the loop) and empties the scope so the text is not shown. A capture in a
    // block that shows nothing assigns nothing.
    void didTerminate(Parser::Scope& scope, Parser& parser) override;
};

}  // namespace drovel::templating
