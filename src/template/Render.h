#pragma once
// The single rendering entry used by the notification code and the command-line tool.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "template/Context.h"

namespace drovel::templating {

struct Rendering {
    // The joined output of the parser.
    std::string output;
    // What the caller shows: the output, or the template as written when the output is empty or
    // the rendering was abandoned.
    std::string rendered;
    // The messages of the expression errors, in order.
    std::vector<std::string> parseErrors;
    // True when the template could not be rendered at all (logged).
    bool abandoned = false;
    // The work the rendering did, as its budget counts it (see Parser): tokens visited, bytes
    // read and produced, and the largest value a filter or capture produced.
    std::uint64_t tokenVisits = 0;
    std::uint64_t workBytes = 0;
    std::size_t largestValueSize = 0;
};

// Lexes the text, parses it with the context (which the template's tags may change), and joins
// the output. Never throws and never stops the process: template input that cannot be rendered
// is logged and gives the text as written. Linear in the template's size for templates without
// loops.
Rendering renderTemplate(std::string_view templateText, const std::shared_ptr<Context>& context);
// renderTemplate(...).rendered.
std::string render(std::string_view templateText, const std::shared_ptr<Context>& context);

// The context of a notification: one variable "app" holding the host's custom template content
// as a dictionary of strings, so that templates read it as app.<key>.
std::shared_ptr<Context> makeAppContext(const std::map<std::string, std::string>& customTemplateContent);

}  // namespace drovel::templating
