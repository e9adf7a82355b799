#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <numeric>
#include <thread>

#include "drovel/platform/DispatchQueue.h"
#include "drovel/platform/MainQueue.h"

namespace drovel::platform {
namespace {

using namespace std::chrono_literals;

TEST(DispatchQueueTest, RunsJobsOneAtATimeInQueueOrderPerProducer) {
    auto queue = std::make_shared<DispatchQueue>("test.serial");
    constexpr int producers = 8, jobsEach = 500;
    std::atomic<int> running{0}, overlaps{0};
    std::vector<std::vector<int>> seen(producers);  // only touched by the queue's worker
    DispatchGroup group;
    std::vector<std::thread> threads;
    for (int p = 0; p < producers; ++p) {
        threads.emplace_back([&, p] {
            for (int i = 0; i < jobsEach; ++i) {
                group.enter();
                queue->async([&, p, i] {
                    if (running.fetch_add(1) != 0) ++overlaps;
                    seen[p].push_back(i);
                    running.fetch_sub(1);
                    group.leave();
                });
            }
        });
    }
    for (auto& thread : threads) thread.join();
    ASSERT_TRUE(group.wait(10s));
    EXPECT_EQ(overlaps.load(), 0);
    for (int p = 0; p < producers; ++p) {
        ASSERT_EQ(seen[p].size(), static_cast<std::size_t>(jobsEach));
        for (int i = 0; i < jobsEach; ++i) ASSERT_EQ(seen[p][i], i) << "producer " << p;
    }
}

TEST(DispatchQueueTest, SyncRunsOnTheQueueAfterEarlierJobsAndReturnsTheValue) {
    DispatchQueue queue("test.sync");
    std::vector<int> order;
    std::latch release(1);
    queue.async([&] {
        release.wait();  // still busy when sync is called, unless the opener is very quick
        order.push_back(1);
    });
    std::thread opener([&] { release.count_down(); });
    int value = queue.sync([&] {
        order.push_back(2);
        return queue.isCurrent() ? 42 : -1;
    });
    opener.join();
    EXPECT_EQ(value, 42);
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_FALSE(queue.isCurrent());
}

TEST(DispatchQueueTest, DestructionRunsTheJobsAlreadyQueued) {
    std::atomic<int> ran{0};
    {
        DispatchQueue queue("test.destroy");
        std::latch release(1);
        queue.async([&] { release.wait(); });
        for (int i = 0; i < 10; ++i) queue.async([&] { ++ran; });
        release.count_down();  // the ten jobs are still queued as the destructor begins
    }
    EXPECT_EQ(ran.load(), 10);
}

TEST(DispatchQueueTest, LastOwnerLettingGoInsideItsOwnJobDoesNotDeadlock) {
    auto queue = std::make_shared<DispatchQueue>("test.self-release");
    std::atomic<bool> after{false};
    DispatchGroup released, done;
    released.enter();
    done.enter();
    queue->async([queue, &released]() mutable {
        released.wait();
        queue.reset();  // by now the job holds the only reference: the queue dies on its own worker
    });
    queue->async([&] {
        after = true;
        done.leave();
    });
    queue.reset();
    released.leave();
    EXPECT_TRUE(done.wait(5s));
    EXPECT_TRUE(after);
}

TEST(ConcurrentQueueTest, JobsThatWaitForEachOtherStillFinish) {
    // Each job waits for the next one to start: a fixed pool smaller than the chain would hang.
    ConcurrentQueue queue("test.concurrent", 16);
    constexpr int chain = 6;
    std::vector<std::unique_ptr<DispatchGroup>> started;
    for (int i = 0; i < chain; ++i) {
        started.push_back(std::make_unique<DispatchGroup>());
        started.back()->enter();
    }
    DispatchGroup finished;
    for (int i = 0; i < chain; ++i) {
        finished.enter();
        queue.async([&, i] {
            started[i]->leave();
            if (i + 1 < chain) started[i + 1]->wait();
            finished.leave();
        });
    }
    EXPECT_TRUE(finished.wait(5s));
}

TEST(DispatchGroupTest, WaitReturnsAfterTheLastLeaveAndNotifyFiresOnce) {
    DispatchGroup group;
    auto queue = std::make_shared<DispatchQueue>("test.notify");
    std::atomic<int> notified{0};
    group.enter();
    group.enter();
    group.notify(queue, [&] { ++notified; });
    EXPECT_FALSE(group.wait(20ms));

    group.leave();
    EXPECT_FALSE(group.wait(20ms));
    queue->sync([] {});
    EXPECT_EQ(notified.load(), 0);

    std::thread leaver([&] { group.leave(); });
    group.wait();
    leaver.join();
    queue->sync([] {});  // the notification was queued by the leave
    EXPECT_EQ(notified.load(), 1);

    // Entering and leaving again does not repeat an earlier notification.
    group.enter();
    group.leave();
    queue->sync([] {});
    EXPECT_EQ(notified.load(), 1);
}

TEST(DispatchGroupTest, NotifyOnAnEmptyGroupQueuesTheJobAtOnce) {
    DispatchGroup group;
    auto main = std::make_shared<MainQueue>();
    bool notified = false;
    group.notify(main, [&] { notified = true; });
    EXPECT_EQ(main->drain(), 1u);
    EXPECT_TRUE(notified);
    EXPECT_TRUE(group.wait(0ms));
}

TEST(MainQueueTest, RunUntilRunsJobsUntilThePredicateHoldsOrTimesOut) {
    MainQueue main;
    int count = 0;
    for (int i = 0; i < 5; ++i) main.async([&] { ++count; });
    EXPECT_TRUE(main.runUntil([&] { return count == 3; }, 30s));
    EXPECT_EQ(count, 3);
    EXPECT_EQ(main.drain(), 2u);
    EXPECT_FALSE(main.runUntil([] { return false; }, 50ms));  // without jobs it waits out the limit
}

TEST(MainQueueTest, RunUntilNoticesStateChangedByAnotherThread) {
    MainQueue main;
    std::atomic<bool> flag{false};
    std::latch polled(1);
    std::thread setter([&] {
        polled.wait();
        flag = true;  // no job is queued: the idle poll must see it
    });
    bool first = true;
    EXPECT_TRUE(main.runUntil(
        [&] {
            if (std::exchange(first, false)) polled.count_down();
            return flag.load();
        },
        30s));
    setter.join();
}

TEST(MainQueueTest, DrainRunsOnlyWhatWasQueuedBeforeIt) {
    MainQueue main;
    int ran = 0;
    main.async([&] {
        ++ran;
        main.async([&] { ++ran; });  // queued during the drain: left for later
    });
    main.async([&] { ++ran; });
    EXPECT_EQ(main.drain(), 2u);
    EXPECT_EQ(ran, 2);
    EXPECT_EQ(main.pendingCount(), 1u);
    EXPECT_EQ(main.drain(), 1u);
    EXPECT_EQ(main.drain(), 0u);
}

TEST(MainQueueTest, RunReturnsAfterStop) {
    MainQueue main;
    int ran = 0;
    main.async([&] { ++ran; });
    main.async([&] { main.stop(); });
    std::latch ranLast(1);
    main.async([&] {
        ++ran;
        ranLast.count_down();
    });  // after the stop: stays queued
    main.run();
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(main.pendingCount(), 1u);

    std::thread stopper([&] {
        ranLast.wait();
        main.stop();
    });
    main.run();  // runs the remaining job, then waits until stopped from the other thread
    stopper.join();
    EXPECT_EQ(ran, 2);
}

TEST(MainQueueTest, JobsFromAnotherThreadRunOnThePumpingThreadInOrderAndSyncWaitsForThem) {
    auto main = std::make_shared<MainQueue>();
    DispatchQueue worker("test.worker");
    std::vector<int> order, expected(100);
    std::iota(expected.begin(), expected.end(), 0);
    bool onMain = true;
    std::atomic<std::size_t> seenBySync{0};
    worker.async([&] {
        for (int i = 0; i < 100; ++i)
            main->async([&, i] {
                order.push_back(i);
                onMain = onMain && main->isCurrent();
            });
        seenBySync = main->sync([&] { return main->isCurrent() ? order.size() : 0; });
    });
    EXPECT_TRUE(main->runUntil([&] { return seenBySync.load() != 0; }, 5s));
    EXPECT_EQ(seenBySync.load(), 100u);
    EXPECT_EQ(order, expected);
    EXPECT_TRUE(onMain);
    EXPECT_FALSE(main->isCurrent());
}

// Each misuse stops the process naming what went wrong: sync from a serial queue's own job, more
// leaves than enters, sync from the main queue's pumping thread.
TEST(QueueDeathTest, MisuseIsAProgrammingError) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            DispatchQueue queue("test.deadlock");
            queue.sync([&] { queue.sync([] {}); });
        },
        "test.deadlock");
    EXPECT_DEATH(
        {
            DispatchGroup group;
            group.leave();
        },
        "leave");
    EXPECT_DEATH(
        {
            MainQueue main;
            main.async([&] { main.sync([] {}); });
            main.drain();
        },
        "main queue");
}

}  // namespace
}  // namespace drovel::platform
