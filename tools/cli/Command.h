#pragma once
// Subcommands of drovel-notify register themselves here, one file each.

#include <CLI/CLI.hpp>

namespace drovel::cli {

// Adds one subcommand to the app. The subcommand's callback stores the process's exit code.
using CommandSetup = void (*)(CLI::App& app, int& exitCode);

struct CommandRegistration {
    // Lower orders are listed first in --help.
    CommandRegistration(int order, CommandSetup setup);
};

}  // namespace drovel::cli
