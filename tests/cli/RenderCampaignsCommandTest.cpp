#include <gtest/gtest.h>

#include <fstream>

#include "support/RunCommand.h"
#include "support/TempDirectory.h"

using namespace drovel::testing;

namespace {

const std::string campaigns =
    R"("campaigns":[{"id":7,"region_type":"geofence","start_day":"2024-03-01","end_day":"2024-03-01",)"
    R"("geofence_radius_meters":150,"repeat_interval_days":0,"content":{},"defer_on_pickup":false},)"
    R"({"id":9,"region_type":"beacon","beacon_uuid":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f","beacon_major":12,)"
    R"("start_day":"2024-03-01","end_day":"2024-03-01","content":{},"defer_on_pickup":false}],)"
    R"("sites":[{"id":42,"distance_meters":5,"latitude":"52.5","longitude":"-0.25"},)"
    R"({"id":43,"distance_meters":5,"latitude":"52,5","longitude":"1"}])";

const std::string download =
    R"({"min_sync_interval_seconds":60,"data":[)"
    R"({"campaign_id":7,"site_id":42,"content":{"deep_link_url":"https://x.example/{{ app.name }}",)"
    R"("notification":{"title":"Hi {{ app.name }}","body":"{{ app.none }}"},"metadata":{"k":"{{ app.name | upcase }}"}}},)"
    R"({"campaign_id":7,"site_id":43,"content":{}},)"
    R"({"campaign_id":9,"site_id":null,"content":{}}],"included":{)" + campaigns + "}}";

const std::string geofenceLine =
    R"({"identifier":"drovel.notify.v2 geofence_approach 7 42","region":{"type":"circular",)"
    R"("identifier":"drovel.notify.v2 geofence_approach 7 42","latitude":52.5,"longitude":-0.25,"radius":150.0,)"
    R"("notify_on_entry":true,"notify_on_exit":false},"title":"Hi Ann","body":"{{ app.none }}","user_info":)"
    R"({"Drovel.Notify.CampaignID":7,"Drovel.Notify.DeepLinkURL":"https://x.example/Ann",)"
    R"("Drovel.Notify.Metadata":{"k":"ANN"},"Drovel.Notify.SiteID":42,"message_source":"drovel.notify.v2"}})"
    "\n";

const std::string beaconLine =
    R"({"identifier":"drovel.notify.v2 beacon_area_of_interest 9","region":{"type":"beacon",)"
    R"("identifier":"drovel.notify.v2 beacon_area_of_interest 9","uuid":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
    R"("major":12,"notify_on_entry":true,"notify_on_exit":false},"title":"","body":"","user_info":)"
    R"({"Drovel.Notify.CampaignID":9,"message_source":"drovel.notify.v2"}})"
    "\n";

}  // namespace

TEST(RenderCampaignsCommand, PrintsTheRequestsOfAFreshDownload) {
    TempDirectory directory;
    std::ofstream(directory.file("download.json")) << download;
    // The pair at a site whose coordinate does not parse gives no request; a campaign that fires
    // only once is still previewed.
    auto result = runCommand(cliCommand({"render-campaigns", directory.file("download.json"), "--app", R"({"name":"Ann"})"}));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, geofenceLine + beaconLine);

    // Without --app a reference alone renders empty and is shown as written.
    auto plain = runCommand(cliCommand({"render-campaigns", "-"}), download);
    ASSERT_EQ(plain.exitCode, 0) << plain.err;
    EXPECT_NE(plain.out.find(R"("title":"Hi ","body":"{{ app.none }}")"), std::string::npos) << plain.out;
    EXPECT_NE(plain.out.find(R"("Drovel.Notify.Metadata":{"k":"{{ app.name | upcase }}"})"), std::string::npos) << plain.out;

    auto empty = runCommand(cliCommand({"render-campaigns", "-"}), R"({"min_sync_interval_seconds":1,"data":[],"included":{}})");
    EXPECT_EQ(empty.exitCode, 0) << empty.err;
    EXPECT_EQ(empty.out, "");
}
