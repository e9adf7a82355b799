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

// `drovel-notify backend` in a child process, on a free port, until destroyed.
class BackendProcess {
public:
    BackendProcess(const std::string& catalogue, const std::string& eventsPath, int failUploads) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::close(fds[0]);
            const std::string fail = std::to_string(failUploads);
            ::execl(DROVEL_CLI_PATH, "drovel-notify", "backend", "--catalogue", catalogue.c_str(), "--port", "0", "--events",
                    eventsPath.c_str(), "--fail-uploads", fail.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(fds[1]);
        out_ = ::fdopen(fds[0], "r");
        char buffer[4096];
        const std::string banner = std::fgets(buffer, sizeof buffer, out_) ? buffer : "";
        constexpr std::string_view prefix = "Sample backend listening on ";
        if (banner.rfind(prefix, 0) == 0) url_ = banner.substr(prefix.size(), banner.find(' ', prefix.size()) - prefix.size());
    }
    ~BackendProcess() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            int status = 0;
            ::waitpid(pid_, &status, 0);
        }
        if (out_) std::fclose(out_);
    }
    const std::string& url() const { return url_; }

private:
    pid_t pid_ = -1;
    std::FILE* out_ = nullptr;
    std::string url_;
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
