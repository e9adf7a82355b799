#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "drovel/core/Error.h"
#include "linux/LocalNotificationCenter.h"

namespace drovel::platform {
namespace {

TEST(LocalNotificationCenterTest, DeliversByNameInOrderAddedWithObjectAndUserInfo) {
    LocalNotificationCenter center;
    std::vector<std::string> calls;
    center.addObserver("a", [&](const Notification& n) { calls.push_back("first " + n.name); });
    center.addObserver("b", [&](const Notification& n) { calls.push_back("other " + n.name); });
    center.addObserver("", [&](const Notification& n) { calls.push_back("any " + n.name); });
    center.addObserver("a", [&](const Notification& n) {
        auto error = std::any_cast<core::ErrorPtr>(n.object);
        calls.push_back("second " + error->description() + " " + *userInfoGet<std::string>(n.userInfo, "k"));
    });

    center.post("a", core::ErrorPtr(core::makeError<core::SimpleError>("boom")), UserInfo{{"k", "v"}});
    center.post("c");
    EXPECT_EQ(calls, (std::vector<std::string>{"first a", "any a", "second boom v", "any c"}));
}

TEST(LocalNotificationCenterTest, RemovedObserversAreNotCalledAndTokensAreNotReused) {
    LocalNotificationCenter center;
    int calls = 0;
    ObserverToken first = center.addObserver("n", [&](const Notification&) { ++calls; });
    center.removeObserver(first);
    center.removeObserver(first);            // twice: nothing happens
    center.removeObserver(ObserverToken{999});  // unknown: nothing happens
    ObserverToken second = center.addObserver("n", [&](const Notification&) { calls += 10; });
    EXPECT_NE(first, second);
    center.post("n");
    EXPECT_EQ(calls, 10);
    EXPECT_EQ(center.observerCount(), 1u);
}

TEST(LocalNotificationCenterTest, ObserversMayRemoveThemselvesOthersAndPostWhileRunning) {
    LocalNotificationCenter center;
    std::vector<std::string> calls;
    ObserverToken self{}, later{};
    self = center.addObserver("n", [&](const Notification&) {
        calls.push_back("self");
        center.removeObserver(self);
        center.removeObserver(later);  // removed before its turn in this post
        center.post("nested");
    });
    center.addObserver("nested", [&](const Notification&) { calls.push_back("nested"); });
    later = center.addObserver("n", [&](const Notification&) { calls.push_back("later"); });

    center.post("n");
    center.post("n");
    EXPECT_EQ(calls, (std::vector<std::string>{"self", "nested"}));
}

TEST(LocalNotificationCenterTest, ConcurrentPostsAddsAndRemovalsNeitherDeadlockNorLoseObservers) {
    LocalNotificationCenter center;
    std::atomic<int> steady{0};
    center.addObserver("n", [&](const Notification&) { ++steady; });
    constexpr int rounds = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                // Each thread adds an observer that removes itself when called.
                auto token = std::make_shared<ObserverToken>();
                *token = center.addObserver("n", [&center, token](const Notification&) { center.removeObserver(*token); });
                center.post("n");
                center.removeObserver(*token);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(steady.load(), 4 * rounds);
    EXPECT_EQ(center.observerCount(), 1u);
}

}  // namespace
}  // namespace drovel::platform
