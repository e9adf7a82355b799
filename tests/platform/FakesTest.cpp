// The fakes other tests build on: a check that each behaves as its header promises.

#include <gtest/gtest.h>

#include <thread>

#include "support/FakePlatform.h"

namespace drovel::testing {
namespace {

using namespace platform;
using namespace std::chrono_literals;

class LastLocation : public LocationProviderDelegate {
public:
    void locationManager(LocationProvider&, const std::vector<Location>& locations) override { last = locations; }
    void locationManager(LocationProvider&, core::ErrorPtr) override {}
    void locationManager(LocationProvider&, const std::vector<Beacon>&, const BeaconIdentityConstraint&) override {}
    void locationManager(LocationProvider&, const BeaconIdentityConstraint&, core::ErrorPtr) override {}
    void locationManager(LocationProvider&, const std::vector<Beacon>&, const BeaconRegion&) override {}
    void locationManager(LocationProvider&, const BeaconRegion&, core::ErrorPtr) override {}
    std::optional<std::vector<Location>> last;
};

TEST(FakesTest, TwoFakePlatformsShareNothing) {
    FakePlatform a, b;
    Platform pa = a.platform(), pb = b.platform();
    EXPECT_NE(pa.userDefaults, pb.userDefaults);
    EXPECT_NE(pa.mainQueue, pb.mainQueue);
    EXPECT_NE(pa.applicationSupportDirectory, pb.applicationSupportDirectory);
    pa.userDefaults->setString("k", "a");
    EXPECT_FALSE(pb.userDefaults->string("k"));
}

TEST(FakesTest, NotificationCenterKeepsPendingRequestsAndAnswersOffTheCallingThread) {
    FakeUserNotificationCenter center;
    center.failAdds("bad", core::makeError<UserNotificationError>(UserNotificationError::Code::notificationsNotAllowed));
    std::vector<std::pair<std::string, bool>> results;
    std::mutex mutex;
    const auto caller = std::this_thread::get_id();
    for (const char* id : {"a", "bad", "b", "a"})
        center.add(NotificationRequest{id, {}, std::nullopt}, [&, id](core::ErrorPtr error) {
            std::lock_guard lock(mutex);
            EXPECT_NE(std::this_thread::get_id(), caller);
            results.emplace_back(id, error == nullptr);
        });
    center.waitForCallbacks();
    EXPECT_EQ(results, (std::vector<std::pair<std::string, bool>>{{"a", true}, {"bad", false}, {"b", true}, {"a", true}}));
    EXPECT_EQ(center.pendingIdentifiers(), (std::vector<std::string>{"b", "a"}));  // re-adding replaces
    EXPECT_EQ(center.addedRequests().size(), 4u);

    EXPECT_TRUE(center.deliver("b"));
    EXPECT_FALSE(center.deliver("b"));
    center.removePendingNotificationRequests({"a", "unknown"});
    EXPECT_TRUE(center.pending().empty());
    EXPECT_EQ(center.removeCalls().back(), (std::vector<std::string>{"a", "unknown"}));
}

TEST(FakesTest, LocationProviderAnswersThroughTheMainQueueAndRecordsCalls) {
    FakePlatform fakes;
    auto delegate = std::make_shared<LastLocation>();
    auto& provider = *fakes.locationProvider;
    provider.setDelegate(delegate);
    provider.setDesiredAccuracy(kLocationAccuracyKilometer);
    Location here;
    here.coordinate = {52.1, 4.3};
    provider.setLocationAnswer(FakeLocationProvider::LocationAnswer{std::vector<Location>{here}});
    provider.requestLocation();
    EXPECT_FALSE(delegate->last);
    fakes.mainQueue->drain();
    ASSERT_TRUE(delegate->last);
    EXPECT_EQ(delegate->last->at(0).coordinate, (LocationCoordinate{52.1, 4.3}));
    EXPECT_EQ(provider.calls(), (std::vector<std::string>{"setDelegate", "setDesiredAccuracy(1000)", "requestLocation()"}));

    BeaconIdentityConstraint constraint{"E2C56DB5-DFFB-48D2-B060-D0F5A71096E0", std::nullopt, std::nullopt};
    provider.startRangingBeacons(constraint);
    EXPECT_EQ(provider.rangedConstraints().size(), 1u);
    provider.stopRangingBeacons(constraint);
    EXPECT_TRUE(provider.rangedConstraints().empty());
}

TEST(FakesTest, SchedulerLaunchesRegisteredTasksAndClockMovesOnlyWhenTold) {
    FakeBackgroundTaskScheduler scheduler;
    EXPECT_EQ(scheduler.launch("refresh"), nullptr);
    ASSERT_TRUE(scheduler.registerForTask("refresh", [](std::shared_ptr<BackgroundTask> task) {
        task->setExpirationHandler([task] { task->setTaskCompleted(false); });
    }));
    auto task = scheduler.launch("refresh");
    ASSERT_TRUE(task && task->hasExpirationHandler());
    task->expire();
    task->setTaskCompleted(true);
    EXPECT_EQ(task->completion(), false);
    EXPECT_EQ(task->completionCalls(), (std::vector<bool>{false, true}));

    FakeClock clock;
    auto start = clock.now();
    auto steady = clock.steadyNow();
    EXPECT_EQ(clock.now(), start);  // the system clock has moved on by now; the fake has not
    clock.advance(5s);
    EXPECT_EQ(clock.now() - start, 5s);
    EXPECT_EQ(clock.steadyNow() - steady, 5s);
    clock.set(start);
    EXPECT_EQ(clock.steadyNow() - steady, 5s);
}

}  // namespace
}  // namespace drovel::testing
