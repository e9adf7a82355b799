#include <gtest/gtest.h>

#include <httplib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "support/RunCommand.h"
#include "support/TempDirectory.h"

namespace drovel::backend {
namespace {

using testing::TempDirectory;

constexpr const char* kCatalogue = DROVEL_SOURCE_DIR "/examples/catalogue.json";

// Reads one line of the child's output; empty at its end.
std::string readLine(std::FILE* out) {
    char buffer[4096];
    return std::fgets(buffer, sizeof buffer, out) ? std::string(buffer) : std::string();
}

TEST(BackendCommandTest, ServesUntilTerminatedAndLogsEachRequest) {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::dup2(fds[1], STDOUT_FILENO);
        ::close(fds[0]);
        ::execl(DROVEL_CLI_PATH, "drovel-notify", "backend", "--catalogue", kCatalogue, "--port", "0", "--token", "t",
                static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(fds[1]);
    std::FILE* out = ::fdopen(fds[0], "r");
    const std::string banner = readLine(out);
    ASSERT_EQ(banner.rfind("Sample backend listening on http://127.0.0.1:", 0), 0u) << banner;
    EXPECT_NE(banner.find("(7 campaigns, 12 sites, 16 notifications)"), std::string::npos) << banner;
    const std::string url = banner.substr(28, banner.find(' ', 28) - 28);

    httplib::Client client(url);
    auto answer = client.Get("/api/v1/notify/notifications?latitude=44.478&longitude=-73.2125&radius=5000.0",
                             httplib::Headers{{"Authorization", "Bearer t"}});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(readLine(out),
              "GET /api/v1/notify/notifications?latitude=44.478&longitude=-73.2125&radius=5000.0 200 "
              "(11 sites, 15 pairs, 6 campaigns)\n");

    ASSERT_EQ(::kill(pid, SIGTERM), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    std::fclose(out);
}

TEST(BackendCommandTest, ABadCatalogueIsReportedAndNothingIsServed) {
    TempDirectory directory;
    std::ofstream(directory.file("bad.json")) << R"({"min_sync_interval_seconds": 1, "campaigns": [], "sites": [],
        "notifications": [{"campaign_id": 9, "site_id": null, "content": {}}]})";
    auto run = testing::runCommand(testing::cliCommand({"backend", "--catalogue", directory.file("bad.json")}));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "drovel-notify backend: " + directory.file("bad.json") +
                           ": notifications[0].campaign_id: no campaign 9\n");
    EXPECT_EQ(run.out, "");
}

}  // namespace
}  // namespace drovel::backend
