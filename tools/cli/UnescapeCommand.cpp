// drovel-notify unescape: a text with its HTML character references decoded.

#include <iostream>
#include <string>

#include "cli/Command.h"
#include "html/HTMLEntities.h"

namespace drovel::cli {

namespace {

void setup(CLI::App& app, int& exitCode) {
    struct Arguments {
        bool strict = false;
        std::string text;
    };
    auto arguments = std::make_shared<Arguments>();
    auto* command = app.add_subcommand("unescape", "Decode the HTML character references of a text");
    command->add_flag("--strict", arguments->strict, "Fail on the first malformed reference");
    command->add_option("TEXT", arguments->text, "The text")->required();
    command->callback([arguments, &exitCode] {
        auto result = html::htmlUnescape(arguments->text, arguments->strict);
        if (!result) {
            std::cerr << result.error()->description() << '\n';
            exitCode = 1;
            return;
        }
        std::cout << result.value() << '\n';
        exitCode = 0;
    });
}

const CommandRegistration registration(61, setup);

}  // namespace

}  // namespace drovel::cli
