// drovel-notify --device DIR purge: removes the module's database, user-defaults keys and pending
// notifications from a simulated phone, and says what it removed.
//
// Exit 0; exit 1 with the message on standard error when DIR holds no simulated device or cannot
// be written.

#include <iostream>

#include "cli/Command.h"
#include "simulator/DeviceInspector.h"

namespace drovel::cli {

std::string& deviceDirectoryOption();  // StatusCommand.cpp

namespace {

int purge() {
    if (deviceDirectoryOption().empty()) {
        std::cerr << "drovel-notify purge: --device DIR is required\n";
        return 1;
    }
    if (auto error = simulator::purgeModule(deviceDirectoryOption(), std::cout)) {
        std::cerr << "drovel-notify purge: " << error->description() << '\n';
        return 1;
    }
    return 0;
}

void setup(CLI::App& app, int& exitCode) {
    auto* command = app.add_subcommand("purge", "Remove the module's data from a simulated phone (--device DIR)");
    command->callback([&exitCode] { exitCode = purge(); });
}

const CommandRegistration registration(15, setup);

}  // namespace

}  // namespace drovel::cli
