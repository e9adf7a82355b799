#pragma once
// "comment" ... "endcomment": a block whose text is never shown and whose tags are not run
// (comments may nest).

#include "template/Tag.h"

namespace drovel::templating {

class TagComment : public RegisteredTag<TagComment> {
public:
    static constexpr std::string_view keywordText = "comment";
    static constexpr TagKind tagKind = TagKind::Comment;

    // Skips every tag kind but the comment's own pair.
    explicit TagComment(std::shared_ptr<Context> context);

    bool definesScope() const override { return true; }
    void didDefine(Parser::Scope& scope, Parser& parser) override;
};

class TagEndComment : public RegisteredTag<TagEndComment> {
public:
    static constexpr std::string_view keywordText = "endcomment";
    static constexpr TagKind tagKind = TagKind::EndComment;

    static constexpr bool usesContext = false;
    static constexpr bool reusable = true;

    explicit TagEndComment(std::shared_ptr<Context> context) : RegisteredTag(std::move(context)) {}

    std::span<const int> terminatesScopesWithTags() const override;
};

}  // namespace drovel::templating
