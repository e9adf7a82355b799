// drovel-notify --device DIR status [--json]: a snapshot of what the module keeps on a simulated
// phone. Also declares the tool's --device option, which purge shares.
//
// Exit 0 with the snapshot on standard output; exit 1 with the message on standard error when DIR
// holds no simulated device or cannot be read.

#include <iostream>

#include "cli/Command.h"
#include "simulator/DeviceInspector.h"

namespace drovel::cli {

// The device folder given before the subcommand.
std::string& deviceDirectoryOption() {
    static std::string directory;
    return directory;
}

namespace {

int status(bool json) {
    if (deviceDirectoryOption().empty()) {
        std::cerr << "drovel-notify status: --device DIR is required\n";
        return 1;
    }
    if (auto error = simulator::printStatus(deviceDirectoryOption(), json, std::cout)) {
        std::cerr << "drovel-notify status: " << error->description() << '\n';
        return 1;
    }
    return 0;
}

void setup(CLI::App& app, int& exitCode) {
    static bool json = false;
    app.add_option("--device", deviceDirectoryOption(), "The simulated phone's folder (for status and purge)");
    auto* command = app.add_subcommand("status", "Show what the module keeps on a simulated phone (--device DIR)");
    command->add_flag("--json", json, "One JSON object");
    command->callback([&exitCode] { exitCode = status(json); });
}

const CommandRegistration registration(14, setup);

}  // namespace

}  // namespace drovel::cli
