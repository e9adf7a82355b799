#include <gtest/gtest.h>

#include <httplib.h>

#include <fstream>

#include "simulator/SimulatorTestSupport.h"
#include "support/RunCommand.h"
#include "support/TempDirectory.h"

namespace drovel::backend {
namespace {

using testing::TempDirectory;

TEST(BackendCommandTest, ServesUntilTerminatedAndLogsEachRequest) {
    simulator::BackendProcess backend(simulator::kCatalogue, {"--token", "t"});
    ASSERT_EQ(backend.banner().rfind("Sample backend listening on http://127.0.0.1:", 0), 0u) << backend.banner();
    EXPECT_NE(backend.banner().find("(7 campaigns, 12 sites, 16 notifications)"), std::string::npos) << backend.banner();
    httplib::Client client(backend.url());
    auto answer = client.Get("/api/v1/notify/notifications?latitude=44.478&longitude=-73.2125&radius=5000.0",
                             httplib::Headers{{"Authorization", "Bearer t"}});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
    EXPECT_EQ(backend.readLine(),
              "GET /api/v1/notify/notifications?latitude=44.478&longitude=-73.2125&radius=5000.0 200 "
              "(11 sites, 15 pairs, 6 campaigns)\n");
    const int status = backend.terminate();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
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
