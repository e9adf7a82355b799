// drovel-notify simulate [SCENARIO] [--backend URL] [--device DIR] [--json] [--token T]:
// plays a scenario on a simulated device with the Notify module and prints what happened.
//
// Without SCENARIO the bundled one (examples/scenario.json) runs against an embedded backend on a
// free loopback port. A scenario with a mistake is refused before anything runs (exit 2, the step
// number and the problem on standard error); a device or backend that cannot be set up: exit 1.
//
// Tests only, and on purpose not in --help: DROVEL_SIMULATE_KILL=store:N, upload or upload:N makes
// the run SIGKILL itself at that point (simulator/KillPoint.h), so that a test can check what the
// next run on the same --device folder finds. A value of another form is refused (exit 2).

#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "cli/Command.h"
#include "simulator/ScenarioRunner.h"

#ifndef DROVEL_EXAMPLES_DIR
#define DROVEL_EXAMPLES_DIR "examples"
#endif

namespace drovel::cli {

namespace {

struct Options {
    std::string scenario;
    simulator::RunnerOptions runner;
};

// The bundled scenario: next to the program's source tree, or examples/ in the working folder.
std::string bundledScenario() {
    const std::filesystem::path installed = std::filesystem::path(DROVEL_EXAMPLES_DIR) / "scenario.json";
    std::error_code ec;
    if (std::filesystem::exists(installed, ec)) return installed.string();
    return "examples/scenario.json";
}

int simulate(Options& options) {
    const std::string path = options.scenario.empty() ? bundledScenario() : options.scenario;
    auto scenario = simulator::loadScenario(path);
    if (!scenario) {
        std::cerr << "drovel-notify simulate: " << scenario.error()->description() << '\n';
        return 2;
    }
    if (const char* kill = std::getenv("DROVEL_SIMULATE_KILL"); kill && *kill) {
        auto point = simulator::parseKillPoint(kill);
        if (!point) {
            std::cerr << "drovel-notify simulate: " << point.error()->description() << '\n';
            return 2;
        }
        options.runner.kill = point.value();
    }
    options.runner.progress = true;
    auto summary = simulator::runScenario(scenario.value(), options.runner, std::cout);
    if (!summary) {
        std::cerr << "drovel-notify simulate: " << summary.error()->description() << '\n';
        return 1;
    }
    return 0;
}

void setup(CLI::App& app, int& exitCode) {
    static Options options;
    auto* command = app.add_subcommand("simulate", "Play a scenario on a simulated device and show what the phone shows");
    command->add_option("scenario", options.scenario, "The scenario file (default: the bundled examples/scenario.json)");
    command->add_option("--backend", options.runner.backendURL,
                        "The backend's base URL (default: an embedded backend serving the scenario's catalogue)");
    command->add_option("--token", options.runner.apiToken, "The API token to send (and, embedded, to ask for)");
    command->add_option("--device", options.runner.deviceDirectory, "The device folder (default: a fresh temporary one)");
    command->add_flag("--json", options.runner.json, "One JSON object per line");
    command->callback([&exitCode] { exitCode = simulate(options); });
}

const CommandRegistration registration(13, setup);

}  // namespace

}  // namespace drovel::cli
