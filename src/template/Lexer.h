#pragma once
// Cuts a template into text, output statements ("{{ ... }}") and tag statements ("{% ... %}").
// The lexer never fails: malformed input only changes the tokens it produces.

#include <string_view>
#include <vector>

#include "template/Recycling.h"
#include "template/Token.h"

namespace drovel::templating {

class Lexer {
public:
    // A rendering's tokens live in recycled memory: a notification text's fit in one block,
    // which the next rendering on the thread takes again.
    using Tokens = std::vector<Token, RecyclingAllocator<Token>>;

    // The template text is viewed, not copied: it must outlive the lexer and its tokens.
    explicit Lexer(std::string_view templateString) : templateString(templateString) {}

    // The tokens in template order. Statement texts lose their delimiters and outer spaces (only
    // U+0020; tabs and line breaks stay). An opening delimiter that never closes gives one empty
    // text token and drops the rest; "{% raw %}" makes everything up to the exact terminator
    // "{% endraw %}" one text token, the terminator then being lexed as the tag "endraw".
    // Delimiters match only on character boundaries. One pass, linear in the template's length.
    Tokens tokenize() const;

    std::string_view templateString;
};

}  // namespace drovel::templating
