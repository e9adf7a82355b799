#include "support/RunCommand.h"
#include "support/TempDirectory.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace drovel::testing {

namespace {

std::string temporaryPath(const char* tag) {
    char name[] = "/tmp/drovel-cmd-XXXXXX";
    int fd = mkstemp(name);
    if (fd >= 0) close(fd);
    return std::string(name) + tag;
}

}  // namespace

std::string shellQuote(const std::string& argument) {
    std::string quoted = "'";
    for (char c : argument) {
        if (c == '\'') quoted += "'\\''";
        else quoted += c;
    }
    return quoted + "'";
}

std::string cliCommand(const std::vector<std::string>& arguments) {
    std::string command = shellQuote(DROVEL_CLI_PATH);
    for (const auto& argument : arguments) command += " " + shellQuote(argument);
    return command;
}

CommandOutput runCommand(const std::string& command, const std::string& input) {
    std::string base = temporaryPath("");
    std::string inPath = base + ".in", outPath = base + ".out", errPath = base + ".err";
    std::ofstream(inPath, std::ios::binary) << input;
    std::string full = "(" + command + ") <" + shellQuote(inPath) + " >" + shellQuote(outPath) + " 2>" +
                       shellQuote(errPath);
    int status = std::system(full.c_str());
    CommandOutput result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = fileContents(outPath);
    result.err = fileContents(errPath);
    for (const auto& path : {base, inPath, outPath, errPath}) std::remove(path.c_str());
    return result;
}

}  // namespace drovel::testing
