// The HTML filters.

#include <algorithm>

#include "html/HTMLEntities.h"
#include "template/FilterLibrary.h"
#include "template/FilterText.h"

namespace drovel::templating::filters {

using Value = Token::Value;

Value escape(const Value& input, Filter::Arguments) {
    auto text = textOf(input);
    if (!text) return Value::nil();
    return Value::string(html::htmlEscape(*text));
}

Value escapeOnce(const Value& input, Filter::Arguments) {
    auto text = textOf(input);
    if (!text) return Value::nil();
    // Unescaping first keeps existing references from being escaped a second time.
    return Value::string(html::htmlEscape(html::htmlUnescape(*text)));
}

Value stripHtml(const Value& input, Filter::Arguments) {
    auto text = textOf(input);
    if (!text) return Value::nil();
    // Removes every match of <[^>]+>: a "<", at least one character other than ">", then ">".
    // A "<" with no ">" after it ends the matching; "<>" is no match and stays.
    std::string out;
    out.reserve(text->size());
    std::size_t position = 0;
    while (position < text->size()) {
        std::size_t open = text->find('<', position);
        std::size_t close = open == std::string::npos ? std::string::npos : text->find('>', open + 1);
        if (close == std::string::npos) break;
        if (close == open + 1) {
            out.append(*text, position, close + 1 - position);
        } else {
            out.append(*text, position, open - position);
        }
        position = close + 1;
    }
    out.append(*text, std::min(position, text->size()));
    return Value::string(std::move(out));
}

}  // namespace drovel::templating::filters
