#pragma once
// Cuts a template into text, output statements ("{{ ... }}") and tag statements ("{% ... %}").
// The lexer never fails: malformed input only changes the tokens it produces.

#include <string_view>
#include <vector>

#include "template/Token.h"

namespace drovel::templating {

// The cursor of one tokenize() call: `content` is the part of the template not yet consumed.
class Scanner {
public:
    explicit Scanner(std::string_view content) : content(content) {}

    // Finds the first position where `delimiter` starts (on character boundaries). Found: returns
    // the text before it and leaves `content` starting at it; with includingDelimiter the
    // delimiter is consumed too and ends the result. Not found, or an empty delimiter: empties
    // `content` and returns an empty view.
    std::string_view scanUntil(std::string_view delimiter, bool includingDelimiter);

    std::string_view content;
};

class Lexer {
public:
    // The template text is viewed, not copied: it must outlive the lexer and its tokens.
    explicit Lexer(std::string_view templateString) : templateString(templateString) {}

    // The tokens in template order. Statement texts lose their delimiters and outer spaces (only
    // U+0020; tabs and line breaks stay). An opening delimiter that never closes gives one empty
    // text token and drops the rest; "{% raw %}" makes everything up to the exact terminator
    // "{% endraw %}" one text token, the terminator then being lexed as the tag "endraw".
    // Linear in the template's length.
    std::vector<Token> tokenize() const;

    std::string_view templateString;
};

}  // namespace drovel::templating
