// The Linux connectivity probe: the look-up's answer, and an answer within the time limit when the
// look-up hangs.

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <future>
#include <latch>

#include "linux/LinuxConnectivityProbe.h"

namespace drovel::platform {
namespace {

using namespace std::chrono_literals;

// Runs one probe and waits (generously) for its answer.
std::optional<bool> probeOnce(LinuxConnectivityProbe& probe, std::chrono::milliseconds timeLimit) {
    auto answer = std::make_shared<std::promise<bool>>();
    auto future = answer->get_future();
    probe.probe(timeLimit, [answer](bool reachable) { answer->set_value(reachable); });
    if (future.wait_for(60s) != std::future_status::ready) return std::nullopt;
    return future.get();
}

TEST(LinuxConnectivityProbeTest, AnswersWhatTheLookUpFound) {
    for (bool found : {true, false}) {
        LinuxConnectivityProbe probe([found] { return found; });
        EXPECT_EQ(probeOnce(probe, 30s), found);
    }
}

TEST(LinuxConnectivityProbeTest, AHangingLookUpAnswersUnreachableAtTheTimeLimit) {
    auto release = std::make_shared<std::latch>(1);
    LinuxConnectivityProbe probe([release] {
        release->wait();
        return true;
    });
    EXPECT_EQ(probeOnce(probe, 20ms), false);
    // The late answer of the look-up is ignored; let its thread end.
    release->count_down();
}

TEST(LinuxConnectivityProbeTest, ResolvesNamesThroughTheSystemResolver) {
    EXPECT_TRUE(LinuxConnectivityProbe::resolves("localhost", AF_UNSPEC));
    EXPECT_FALSE(LinuxConnectivityProbe::resolves("", AF_UNSPEC));
}

}  // namespace
}  // namespace drovel::platform
