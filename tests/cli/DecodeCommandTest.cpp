#include <gtest/gtest.h>

#include <fstream>

#include "support/RunCommand.h"
#include "support/TempDirectory.h"

using namespace drovel::testing;

namespace {

const std::string download =
    R"({"min_sync_interval_seconds":60,"data":[{"campaign_id":7,"site_id":null,"content":{"metadata":{"k":"v"}}}],)"
    R"("included":{"campaigns":[{"id":7,"region_type":"beacon","start_day":"2024-03-01","end_day":"2024-03-01",)"
    R"("content":{},"defer_on_pickup":false},{"id":8,"region_type":"geofence","start_day":"2024-3-1x","end_day":"2024-03-01",)"
    R"("content":{},"defer_on_pickup":true}],"sites":[{"id":1,"distance_meters":5,"latitude":"52.5","longitude":"-0.25"},)"
    R"({"id":2,"distance_meters":6,"latitude":"52,5","longitude":"1"}]}})";

}  // namespace

TEST(DecodeCommand, PrintsCountsForAFile) {
    TempDirectory directory;
    std::ofstream(directory.file("download.json")) << download;
    auto result = runCommand(cliCommand({"decode", directory.file("download.json")}));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "{\"min_sync_interval_seconds\":60,\"data\":1,\"campaigns\":2,\"sites\":2}\n");

    auto absent = runCommand(cliCommand({"decode", "-"}), R"({"min_sync_interval_seconds":1,"data":[],"included":{}})");
    ASSERT_EQ(absent.exitCode, 0) << absent.err;
    EXPECT_EQ(absent.out, "{\"min_sync_interval_seconds\":1,\"data\":0,\"campaigns\":null,\"sites\":null}\n");
}

TEST(DecodeCommand, FullWritesTheRecordsBackWithTheirComputedValues) {
    auto result = runCommand("TZ=Europe/Amsterdam " + cliCommand({"decode", "--full", "-"}), download);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out,
              R"({"min_sync_interval_seconds":60,"data":[{"campaign_id":7,"content":{"metadata":{"k":"v"}}}],)"
              R"("campaigns":[{"id":7,"region_type":"beacon","start_day":"2024-03-01","end_day":"2024-03-01","content":{},)"
              R"("defer_on_pickup":false,"date_interval":{"start":1709247600,"end":1709333999}},)"
              R"({"id":8,"region_type":"geofence","start_day":"2024-3-1x","end_day":"2024-03-01","content":{},)"
              R"("defer_on_pickup":true,"date_interval":null}],)"
              R"("sites":[{"id":1,"distance_meters":5,"latitude":"52.5","longitude":"-0.25","location_coordinate":[52.5,-0.25]},)"
              R"({"id":2,"distance_meters":6,"latitude":"52,5","longitude":"1","location_coordinate":null}]})"
              "\n");
}
