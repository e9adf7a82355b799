// drovel-notify: the Notify module's command-line tool.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
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

namespace {

// Reads the stream to its end, but no more than maxInputBytes. name is the input as messages call it.
std::optional<std::string> readLimited(std::istream& in, const std::string& name) {
    std::string text;
    std::vector<char> buffer(1 << 16);
    while (in) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        text.append(buffer.data(), static_cast<std::size_t>(in.gcount()));
        if (text.size() > maxInputBytes) {
            std::cerr << name << " is larger than " << maxInputBytes << " bytes\n";
            return std::nullopt;
        }
    }
    if (in.bad()) {
        std::cerr << "cannot read " << name << '\n';
        return std::nullopt;
    }
    return text;
}

}  // namespace

std::optional<std::string> readInput(const std::string& path) {
    if (path == "-") return readLimited(std::cin, "standard input");
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::cerr << "cannot read " << path << ": " << std::strerror(errno) << '\n';
        return std::nullopt;
    }
    return readLimited(file, path);
}

std::optional<std::string> textOrStandardInput(const std::string& argument) {
    if (argument != "-") return argument;
    return readInput(argument);
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
