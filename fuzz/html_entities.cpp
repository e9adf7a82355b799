// HTML escaping with each set of options (the first byte picks them), and strict and lenient
// unescaping of the text and of its escaped form.

#include "FuzzInput.h"
#include "html/HTMLEntities.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace drovel::html;
    if (size == 0) return 0;
    std::uint8_t options = data[0];
    auto text = drovel::fuzz::text(data + 1, size - 1);
    std::string escaped = htmlEscape(text, options & 1, options & 2, options & 4, options & 8);
    (void)htmlUnescape(text);
    (void)htmlUnescape(text, true);
    (void)htmlUnescape(escaped, true);
    return 0;
}
