#pragma once
// "tablerow item in list cols: n" ... "endtablerow": a loop that wraps each pass in a table
// cell, <td class="colM">, inside rows <tr class="rowN"> of n cells (all in one row without
// "cols"), each row closed by </tr>. Row and column numbers start at 1; an empty list gives no
// markup. Takes "limit" and "offset" like "for" and sets the same loop variables.

#include "template/TagFor.h"

namespace drovel::templating {

class TagTablerow : public RegisteredTag<TagTablerow, TagFor> {
public:
    static constexpr std::string_view keywordText = "tablerow";
    static constexpr TagKind tagKind = TagKind::Tablerow;

    explicit TagTablerow(std::shared_ptr<Context> context) : RegisteredTag<TagTablerow, TagFor>(std::move(context)) {}

    std::span<const std::string_view> parameters() const override;
    // Opens the first cell when the loop shows.
    void didDefine(Parser::Scope& scope, Parser& parser) override;
    // Closes the current pass's cell (and its row at the row's end or the loop's), then opens
    // the next pass's cell when one follows. Called at the end of each pass that shows.
    void endPass(Parser::Scope& scope, Parser& parser);

protected:
    // Liquid's tables know no "offset: continue": here "continue" reads as any other operand, and
    // a table leaves the positions of "for" loops alone.
    bool remembersPosition() const override { return false; }

private:
    void openCell(Parser& parser, std::uint64_t pass);
    std::uint64_t columns() const;
};

class TagEndTablerow : public BlockEndTag<TagEndTablerow, TagKind::Tablerow> {
public:
    static constexpr std::string_view keywordText = "endtablerow";
    static constexpr TagKind tagKind = TagKind::EndTablerow;

    explicit TagEndTablerow(std::shared_ptr<Context> context) : BlockEndTag(std::move(context)) {}

    std::span<const int> terminatesScopesWithTags() const override;
    // Ending the table itself also closes its last cell (see TagTablerow::endPass).
    void didTerminate(Parser::Scope& scope, Parser& parser) override;
};

}  // namespace drovel::templating
