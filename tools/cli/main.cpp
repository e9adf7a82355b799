// drovel-notify: the Notify module's command-line tool.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

#include "cli/Command.h"

namespace drovel::cli {

namespace {

struct Entry {
    int order;
    CommandSetup setup;
};

std::vector<Entry>& registry() {
    static std::vector<Entry> entries;
    return entries;
}

}  // namespace

CommandRegistration::CommandRegistration(int order, CommandSetup setup) { registry().push_back({order, setup}); }

std::optional<std::string> readStandardInput() {
    std::ostringstream buffer;
    buffer << std::cin.rdbuf();
    if (std::cin.bad()) return std::nullopt;
    return std::move(buffer).str();
}

std::optional<std::string> textOrStandardInput(const std::string& argument) {
    if (argument != "-") return argument;
    auto text = readStandardInput();
    if (!text) std::cerr << "cannot read standard input\n";
    return text;
}

bool readFileOrStandardInput(const std::string& path, std::string& text, std::string& problem) {
    if (path == "-") {
        auto input = readStandardInput();
        if (!input) {
            problem = "cannot read standard input";
            return false;
        }
        text = std::move(*input);
        return true;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        problem = "cannot read " + path + ": " + std::strerror(errno);
        return false;
    }
    std::ostringstream buffer;
    buffer << file.rdbuf();
    if (file.bad()) {
        problem = "cannot read " + path;
        return false;
    }
    text = std::move(buffer).str();
    return true;
}

}  // namespace drovel::cli

int main(int argc, char** argv) {
    using namespace drovel::cli;
    CLI::App app{"drovel-notify: location-marketing campaigns, templates and the device simulator", "drovel-notify"};
    app.set_version_flag("--version", std::string("drovel-notify ") + DROVEL_VERSION);
    app.require_subcommand(0, 1);

    int exitCode = 0;
    auto entries = registry();
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.order < b.order; });
    for (const auto& entry : entries) entry.setup(app, exitCode);

    CLI11_PARSE(app, argc, argv);
    if (app.get_subcommands().empty()) {
        std::cout << app.help();
        return 0;
    }
    return exitCode;
}
