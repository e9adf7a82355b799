// drovel-notify backend --catalogue FILE [--port N] [--token T] [--fail-uploads N] [--events FILE]:
// serves a campaigns catalogue on 127.0.0.1 as the module's backend, until interrupted.
//
// Standard output: "Sample backend listening on http://127.0.0.1:<port>" once it serves, then one
// line per request. A bad catalogue, a port that cannot be had or an events file that cannot be
// opened: exit 1 with the message on standard error. SIGINT or SIGTERM: exit 0.

#include <csignal>
#include <iostream>
#include <mutex>
#include <optional>

#include "backend/BackendServer.h"
#include "cli/Command.h"

namespace drovel::cli {

namespace {

struct Options {
    std::string catalogue;
    int port = 0;
    std::string token;
    int failUploads = 0;
    std::string events;
};

int serve(const Options& options) {
    auto catalogue = backend::Catalogue::load(options.catalogue);
    if (!catalogue) {
        std::cerr << "drovel-notify backend: " << catalogue.error()->description() << '\n';
        return 1;
    }
    // The server's threads inherit the blocked signals, so only this thread receives them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    static std::mutex outputMutex;
    backend::BackendOptions serverOptions;
    const std::size_t campaigns = catalogue.value().campaigns().size(), sites = catalogue.value().sites().size(),
                      pairs = catalogue.value().notifications().size();
    serverOptions.catalogue = std::move(catalogue).value();
    serverOptions.port = options.port;
    serverOptions.token = options.token;
    serverOptions.failUploads = options.failUploads;
    if (!options.events.empty()) serverOptions.eventsPath = options.events;
    serverOptions.log = [](const std::string& line) {
        std::lock_guard lock(outputMutex);
        std::cout << line << std::endl;
    };
    auto server = backend::BackendServer::start(std::move(serverOptions));
    if (!server) {
        std::cerr << "drovel-notify backend: " << server.error()->description() << '\n';
        return 1;
    }
    {
        std::lock_guard lock(outputMutex);
        std::cout << "Sample backend listening on " << server.value()->baseURL() << " (" << campaigns
                  << " campaigns, " << sites << " sites, " << pairs << " notifications)" << std::endl;
    }
    int received = 0;
    sigwait(&signals, &received);
    server.value()->stop();
    return 0;
}

void setup(CLI::App& app, int& exitCode) {
    static Options options;
    auto* command = app.add_subcommand("backend", "Serve a campaigns catalogue as the module's backend, on loopback");
    command->add_option("--catalogue", options.catalogue, "The catalogue file (examples/catalogue.json)")
        ->required()
        ->check(CLI::ExistingFile);
    command->add_option("--port", options.port, "The port to listen on; 0 picks a free one")->check(CLI::Range(0, 65535));
    command->add_option("--token", options.token, "The API token requests must carry (Authorization: Bearer)");
    command->add_option("--fail-uploads", options.failUploads, "Answer 500 to this many first uploads")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--events", options.events, "Keep the received events in this JSON-lines file");
    command->callback([&exitCode] { exitCode = serve(options); });
}

const CommandRegistration registration(12, setup);

}  // namespace

}  // namespace drovel::cli
