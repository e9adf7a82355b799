#pragma once
// Runs a command line through the shell and collects what it printed, for CLI tests.

#include <string>
#include <vector>

namespace drovel::testing {

struct CommandOutput {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs `command` with /bin/sh; stdin is `input` (empty: /dev/null). stdout and stderr are kept apart.
CommandOutput runCommand(const std::string& command, const std::string& input = {});
// Quotes one argument for the shell.
std::string shellQuote(const std::string& argument);
// The built drovel-notify followed by the quoted arguments.
std::string cliCommand(const std::vector<std::string>& arguments);

}  // namespace drovel::testing
