#pragma once
// "unless condition" ... "endunless": an if branch with its condition inverted; it may be
// followed by elsif and else branches like an if.

#include "template/TagIf.h"

namespace drovel::templating {

class TagUnless : public RegisteredTag<TagUnless, TagIf> {
public:
    static constexpr std::string_view keywordText = "unless";
    static constexpr TagKind tagKind = TagKind::Unless;

    explicit TagUnless(std::shared_ptr<Context> context) : RegisteredTag<TagUnless, TagIf>(std::move(context)) {}

    // Taken when the "conditional" is falsy.
    bool branchTaken() const override;
};

class TagEndUnless : public RegisteredTag<TagEndUnless> {
public:
    static constexpr std::string_view keywordText = "endunless";
    static constexpr TagKind tagKind = TagKind::EndUnless;

    static constexpr bool usesContext = false;
    static constexpr bool reusable = true;

    explicit TagEndUnless(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const int> terminatesScopesWithTags() const override;
};

}  // namespace drovel::templating
