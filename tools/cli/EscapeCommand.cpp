// drovel-notify escape: a text with HTML character references for what needs them.

#include <iostream>
#include <string>

#include "cli/Command.h"
#include "html/HTMLEntities.h"

namespace drovel::cli {

namespace {

void setup(CLI::App& app, int& exitCode) {
    struct Arguments {
        bool allowUnsafe = false, decimal = false, everything = false, named = false;
        std::string text;
    };
    auto arguments = std::make_shared<Arguments>();
    auto* command = app.add_subcommand("escape", "Escape a text for HTML");
    command->add_flag("--allow-unsafe", arguments->allowUnsafe, "Keep \" & ' < > as they are");
    command->add_flag("--decimal", arguments->decimal, "Write numeric references in decimal");
    command->add_flag("--everything", arguments->everything, "Escape every character, ASCII included");
    command->add_flag("--named", arguments->named, "Prefer named references");
    command->add_option("TEXT", arguments->text, "The text")->required();
    command->callback([arguments, &exitCode] {
        std::cout << html::htmlEscape(arguments->text, arguments->allowUnsafe, arguments->decimal,
                                      arguments->everything, arguments->named)
                  << '\n';
        exitCode = 0;
    });
}

const CommandRegistration registration(60, setup);

}  // namespace

}  // namespace drovel::cli
