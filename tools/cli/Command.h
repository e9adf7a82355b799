#pragma once
// Subcommands of drovel-notify register themselves here, one file each.

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace drovel::cli {

// Adds one subcommand to the app. The subcommand's callback stores the process's exit code.
using CommandSetup = void (*)(CLI::App& app, int& exitCode);

struct CommandRegistration {
    // Lower orders are listed first in --help.
    CommandRegistration(int order, CommandSetup setup);
};

// All of standard input, or none when it cannot be read.
std::optional<std::string> readStandardInput();

// A command's text argument, where "-" stands for standard input. Prints the problem on standard
// error and gives none when standard input cannot be read.
std::optional<std::string> textOrStandardInput(const std::string& argument);

// The whole file at path, or all of standard input when path is "-". False with the problem
// ("cannot read <path>: <reason>") when it cannot be read.
bool readFileOrStandardInput(const std::string& path, std::string& text, std::string& problem);

}  // namespace drovel::cli
