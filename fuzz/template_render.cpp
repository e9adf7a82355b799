// Lexing, parsing and rendering a notification template with the notification context, as the
// module renders campaign texts.

#include "FuzzInput.h"
#include "template/Render.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace drovel::templating;
    static const std::map<std::string, std::string> app = {
        {"first_name", "ann"}, {"points", "120"}, {"store", "Main St"}, {"tier", "gold"},
        {"visits", "4"},       {"promo", "Two for one"}, {"url", "https://ex.com/a b?c=d"}};
    (void)renderTemplate(drovel::fuzz::text(data, size), makeAppContext(app));
    return 0;
}
