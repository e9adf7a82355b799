// drovel-notify tokens: the lexer's view of a template, as a JSON array.

#include <iostream>
#include <string>

#include "cli/Command.h"
#include "drovel/core/JsonWriter.h"
#include "template/Lexer.h"

namespace drovel::cli {

namespace {

void setup(CLI::App& app, int& exitCode) {
    auto text = std::make_shared<std::string>();
    auto* command = app.add_subcommand("tokens", "Print a template's tokens as a JSON array of {kind, value}");
    command->add_option("TEMPLATE", *text, "The template text, or - for standard input")->required();
    command->callback([text, &exitCode] {
        auto input = textOrStandardInput(*text);
        if (!input) {
            exitCode = 1;
            return;
        }
        core::JsonWriter json;
        json.beginArray();
        for (const auto& token : templating::Lexer(*input).tokenize())
            json.beginObject().key("kind").value(templating::kindName(token.kind)).key("value").value(token.value).endObject();
        json.endArray();
        std::cout << json.str() << '\n';
        exitCode = 0;
    });
}

const CommandRegistration registration(31, setup);

}  // namespace

}  // namespace drovel::cli
