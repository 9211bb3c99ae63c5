#include "platform/Dispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/Log.h"

using namespace std::chrono_literals;

namespace qm {
namespace {

// A generous bound that only a hang would reach.
constexpr auto kHang = 30s;

TEST(SerialQueue, RunsAsyncAndSyncWorkOneAtATimeInFifoOrder) {
    auto queue = DispatchQueue::createSerial("test.serial");
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::vector<int> order;  // touched only within the queue
    auto step = [&](int index) {
        if (++inside != 1) overlapped = true;
        order.push_back(index);
        --inside;
    };

    DispatchGroup syncCallers;
    syncCallers.async(DispatchQueue::global(), [&] {
        for (int i = 0; i < 50; ++i) queue->sync([&] { step(-1); });
    });
    for (int i = 0; i < 200; ++i) queue->async([&step, i] { step(i); });
    ASSERT_TRUE(syncCallers.wait(kHang));
    queue->sync([] {});  // returns once everything queued before it has run

    EXPECT_FALSE(overlapped);
    ASSERT_EQ(order.size(), 250u);
    order.erase(std::remove(order.begin(), order.end(), -1), order.end());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(SerialQueue, SyncWaitsForEarlierTasksAndRunsInlineWhenAlreadyOnTheQueue) {
    auto queue = DispatchQueue::createSerial();
    auto other = DispatchQueue::createSerial();
    std::vector<std::string> steps;
    queue->async([&] { steps.push_back("async"); });
    queue->sync([&] {
        steps.push_back("sync");
        EXPECT_TRUE(queue->isCurrent());
        other->sync([&] {
            EXPECT_TRUE(other->isCurrent());
            queue->sync([&] { steps.push_back("nested back onto the held queue"); });
        });
    });
    EXPECT_FALSE(queue->isCurrent());

    DispatchSemaphore done(0);
    queue->async([&] {
        queue->sync([&] { steps.push_back("sync on self"); });
        done.signal();
    });
    ASSERT_TRUE(done.wait(kHang));
    EXPECT_EQ(steps, (std::vector<std::string>{"async", "sync", "nested back onto the held queue", "sync on self"}));
}

TEST(SerialQueue, QueuedTasksStillRunAfterTheQueueIsReleased) {
    auto queue = DispatchQueue::createSerial();
    DispatchSemaphore gate(0);
    DispatchGroup group;
    std::atomic<int> ran{0};
    group.async(*queue, [&] { gate.wait(); });
    for (int i = 0; i < 10; ++i) group.async(*queue, [&] { ++ran; });
    queue.reset();
    gate.signal();
    ASSERT_TRUE(group.wait(kHang));
    EXPECT_EQ(ran, 10);
}

TEST(GlobalQueue, TasksBlockedOnEachOtherDoNotStarveThePool) {
    // More waiters than the pool is wide; only the last task releases them.
    const unsigned waiters = std::max(1u, std::thread::hardware_concurrency()) + 1;
    DispatchSemaphore gate(0);
    DispatchGroup group;
    for (unsigned i = 0; i < waiters; ++i) group.async(DispatchQueue::global(), [&] { gate.wait(); });
    group.async(DispatchQueue::global(DispatchQueue::Priority::Background), [&] {
        for (unsigned i = 0; i < waiters; ++i) gate.signal();
    });
    bool finished = group.wait(kHang);
    if (!finished) {
        for (unsigned i = 0; i < waiters; ++i) gate.signal();
        group.wait();
    }
    EXPECT_TRUE(finished);
}

TEST(DispatchGroup, WaitsForEveryMemberAndNotifiesOnceEmpty) {
    MainLoop::drain();
    DispatchGroup group;
    std::atomic<int> sum{0};
    for (int i = 1; i <= 20; ++i) group.async(DispatchQueue::global(), [&sum, i] { sum += i; });
    group.enter();
    EXPECT_FALSE(group.wait(1ms));  // one member never left yet

    bool notified = false;
    group.notify(DispatchQueue::main(), [&] {
        EXPECT_TRUE(MainLoop::isMainThread());
        EXPECT_EQ(sum, 210);
        notified = true;
    });
    MainLoop::drain();
    EXPECT_FALSE(notified);

    group.leave();
    EXPECT_TRUE(group.wait(kHang));
    EXPECT_EQ(sum, 210);
    EXPECT_TRUE(MainLoop::runUntil([&] { return notified; }, kHang));

    LogCapture capture;
    group.leave();
    EXPECT_EQ(capture.count("DispatchGroup: leave without enter."), 1u);
    EXPECT_TRUE(group.wait(0ns));
}

TEST(DispatchSemaphore, CountsUnitsAndTimesOutWithoutTakingOne) {
    DispatchSemaphore semaphore(2);
    EXPECT_TRUE(semaphore.wait(0ns));
    EXPECT_TRUE(semaphore.wait(0ns));
    EXPECT_FALSE(semaphore.wait(1ms));

    DispatchQueue::global().async([&] { semaphore.signal(); });
    semaphore.wait();
    EXPECT_FALSE(semaphore.wait(0ns));
}

TEST(DispatchAfter, FiresInDeadlineOrderOnTheTargetQueue) {
    MainLoop::drain();
    std::vector<std::string> fired;
    DispatchQueue::main().after(50ms, [&] { fired.push_back("50ms"); });
    DispatchQueue::main().after(10ms, [&] { fired.push_back("10ms first"); });
    DispatchQueue::main().after(10ms, [&] { fired.push_back("10ms second"); });
    EXPECT_TRUE(fired.empty());
    ASSERT_TRUE(MainLoop::runUntil([&] { return fired.size() == 3; }, kHang));
    EXPECT_EQ(fired, (std::vector<std::string>{"10ms first", "10ms second", "50ms"}));

    auto queue = DispatchQueue::createSerial();
    DispatchSemaphore onQueue(0);
    queue->after(1ms, [&] {
        if (queue->isCurrent()) onQueue.signal();
    });
    EXPECT_TRUE(onQueue.wait(kHang));
}

TEST(DispatchAfter, SchedulingWhileTheTimerWaitsKeepsEveryDeadline) {
    // The timer thread sleeps towards the earliest deadline while other threads keep adding
    // timers, which grows (and moves) its list under it.
    auto queue = DispatchQueue::createSerial();
    std::atomic<int> fired{0};
    queue->after(200ms, [&] { ++fired; });
    std::vector<std::thread> schedulers;
    for (int t = 0; t < 4; ++t) {
        schedulers.emplace_back([&] {
            for (int i = 0; i < 200; ++i) queue->after(std::chrono::milliseconds(1 + i % 50), [&] { ++fired; });
        });
    }
    for (auto& thread : schedulers) thread.join();
    DispatchSemaphore done(0);
    queue->after(250ms, [&] { done.signal(); });
    ASSERT_TRUE(done.wait(kHang));
    EXPECT_EQ(fired.load(), 801);
}

TEST(MainQueue, WorkRunsOnlyWhenTheMainThreadDrains) {
    MainLoop::drain();
    ASSERT_TRUE(MainLoop::isMainThread());

    std::atomic<int> wakeUps{0};
    MainLoop::setWakeUpHandler([&] { ++wakeUps; });
    bool ranOnMain = false;
    DispatchSemaphore posted(0);
    size_t drainedOffMain = 99;
    DispatchQueue::global().async([&] {
        EXPECT_FALSE(MainLoop::isMainThread());
        EXPECT_FALSE(DispatchQueue::main().isCurrent());
        DispatchQueue::main().async([&] { ranOnMain = MainLoop::isMainThread(); });
        drainedOffMain = MainLoop::drain();
        posted.signal();
    });
    ASSERT_TRUE(posted.wait(kHang));
    MainLoop::setWakeUpHandler(nullptr);
    EXPECT_EQ(drainedOffMain, 0u);
    EXPECT_EQ(wakeUps, 1);
    EXPECT_FALSE(ranOnMain);

    EXPECT_EQ(MainLoop::drain(), 1u);
    EXPECT_TRUE(ranOnMain);
}

TEST(MainQueue, SyncFromAnotherThreadBlocksUntilTheLoopRunsIt) {
    MainLoop::drain();
    std::atomic<bool> returned{false};
    bool ranOnMain = false;
    DispatchQueue::global().async([&] {
        DispatchQueue::main().sync([&] { ranOnMain = MainLoop::isMainThread(); });
        returned = true;
    });
    EXPECT_TRUE(MainLoop::runUntil([&] { return returned.load(); }, kHang));
    EXPECT_TRUE(ranOnMain);

    bool ranInline = false;
    DispatchQueue::main().sync([&] { ranInline = true; });  // already on main
    EXPECT_TRUE(ranInline);
}

TEST(MainLoop, RunDrainsUntilStopped) {
    MainLoop::drain();
    std::vector<int> order;
    DispatchQueue::main().async([&] { order.push_back(1); });
    DispatchQueue::global().async([&] {
        DispatchQueue::main().async([&] {
            order.push_back(2);
            MainLoop::stop();
        });
    });
    MainLoop::run();
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

}  // namespace
}  // namespace qm
