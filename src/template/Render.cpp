#include "template/Render.h"

#include <new>

#include "template/Lexer.h"
#include "template/Log.h"
#include "template/Parser.h"

namespace drovel::templating {

namespace {

// Renders into `output`; false when the rendering was abandoned (and logged). With a rendering,
// also reports the errors and the work there.
bool renderOutput(std::string_view templateText, const std::shared_ptr<Context>& context, std::string& output,
                  Rendering* report) {
    try {
        Parser parser(Lexer(templateText).tokenize(), context);
        auto collectErrors = [&] {
            if (!report) return;
            report->tokenVisits = parser.tokenVisits();
            report->workBytes = parser.workBytes();
            report->largestValueSize = parser.largestValueSize();
            for (const auto& error : parser.parseErrors()) report->parseErrors.push_back(error.message);
        };
        try {
            output = parser.takeOutput();
        } catch (...) {
            collectErrors();
            throw;
        }
        collectErrors();
        return true;
    } catch (const std::exception& error) {
        // Template input must never stop the host: abandon this rendering only.
        log(std::string("Template rendering abandoned: ") + error.what());
        output.clear();
        return false;
    }
}

}  // namespace

Rendering renderTemplate(std::string_view templateText, const std::shared_ptr<Context>& context) {
    Rendering rendering;
    rendering.abandoned = !renderOutput(templateText, context, rendering.output, &rendering);
    rendering.rendered = rendering.output.empty() ? std::string(templateText) : rendering.output;
    return rendering;
}

std::string render(std::string_view templateText, const std::shared_ptr<Context>& context) {
    std::string output;
    renderOutput(templateText, context, output, nullptr);
    // A template that renders to nothing is shown as written.
    if (output.empty()) return std::string(templateText);
    return output;
}

std::shared_ptr<Context> makeAppContext(const std::map<std::string, std::string>& customTemplateContent) {
    Token::Value::Dictionary app;
    for (const auto& [key, value] : customTemplateContent) app.set(key, Token::Value::string(value));
    Token::Value::Dictionary variables;
    variables.set("app", Token::Value::dictionary(std::move(app)));
    return std::make_shared<Context>(std::move(variables));
}

}  // namespace drovel::templating
