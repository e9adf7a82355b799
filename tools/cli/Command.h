#pragma once
// Subcommands of drovel-notify register themselves here, one file each.

#include <CLI/CLI.hpp>

#include <cstddef>
#include <optional>
#include <string>

#include "drovel/core/BaseAPIService.h"

namespace drovel::cli {

// Adds one subcommand to the app. The subcommand's callback stores the process's exit code.
using CommandSetup = void (*)(CLI::App& app, int& exitCode);

struct CommandRegistration {
    // Lower orders are listed first in --help.
    CommandRegistration(int order, CommandSetup setup);
};

// The most a command reads from a file or standard input: what the module accepts as a response
// body, so that `decode` takes exactly the downloads the module would.
inline constexpr std::size_t maxInputBytes = core::APIServiceConfiguration::defaultMaxResponseBytes;

// All of the file at path, or of standard input for "-". Prints the problem on standard error and
// gives none when it cannot be read ("cannot read PATH: reason") or holds more than maxInputBytes
// ("PATH is larger than N bytes").
std::optional<std::string> readInput(const std::string& path);

// A command's text argument, where "-" stands for standard input (read as readInput does).
std::optional<std::string> textOrStandardInput(const std::string& argument);

}  // namespace drovel::cli
