#pragma once
// What the simulator's end-to-end tests share: the sample backend as a child process, and readers
// of the event lines the CLI prints and the backend keeps.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/RunCommand.h"
#include "support/TempDirectory.h"

namespace drovel::simulator {

using testing::cliCommand;
using testing::runCommand;
using testing::TempDirectory;

inline constexpr const char* kCatalogue = DROVEL_SOURCE_DIR "/examples/catalogue.json";

inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
}

// The lines holding every one of the parts.
inline std::vector<std::string> matching(const std::vector<std::string>& all, std::initializer_list<std::string> parts) {
    std::vector<std::string> found;
    for (const auto& line : all) {
        bool all_in = true;
        for (const auto& part : parts) all_in = all_in && line.find(part) != std::string::npos;
        if (all_in) found.push_back(line);
    }
    return found;
}

// `drovel-notify backend --catalogue FILE --port 0 [arguments]` in a child process, on a free
// port, until terminated or destroyed.
class BackendProcess {
public:
    explicit BackendProcess(const std::string& catalogue, std::vector<std::string> arguments = {}) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        arguments.insert(arguments.begin(), {"drovel-notify", "backend", "--catalogue", catalogue, "--port", "0"});
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::close(fds[0]);
            std::vector<char*> argv;
            for (auto& argument : arguments) argv.push_back(argument.data());
            argv.push_back(nullptr);
            ::execv(DROVEL_CLI_PATH, argv.data());
            ::_exit(127);
        }
        ::close(fds[1]);
        out_ = ::fdopen(fds[0], "r");
        banner_ = readLine();
        constexpr std::string_view prefix = "Sample backend listening on ";
        if (banner_.rfind(prefix, 0) == 0) url_ = banner_.substr(prefix.size(), banner_.find(' ', prefix.size()) - prefix.size());
    }
    BackendProcess(const std::string& catalogue, const std::string& eventsPath, int failUploads)
        : BackendProcess(catalogue, {"--events", eventsPath, "--fail-uploads", std::to_string(failUploads)}) {}
    ~BackendProcess() {
        terminate();
        if (out_) std::fclose(out_);
    }

    const std::string& banner() const { return banner_; }
    const std::string& url() const { return url_; }
    // The next line the backend printed; empty at its end.
    std::string readLine() {
        char buffer[4096];
        return out_ && std::fgets(buffer, sizeof buffer, out_) ? std::string(buffer) : std::string();
    }
    // Sends SIGTERM and gives the wait status (-1 when there is no process).
    int terminate() {
        if (pid_ <= 0) return -1;
        int status = -1;
        ::kill(pid_, SIGTERM);
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        return status;
    }

private:
    pid_t pid_ = -1;
    std::FILE* out_ = nullptr;
    std::string banner_, url_;
};

inline std::string readFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The guid of each event line in the backend's events file.
inline std::vector<std::string> guids(const std::vector<std::string>& eventLines) {
    std::vector<std::string> result;
    for (const auto& line : eventLines) {
        const auto at = line.find("\"guid\":\"");
        if (at != std::string::npos) result.push_back(line.substr(at + 8, 36));
    }
    return result;
}

}  // namespace drovel::simulator
