#include "bic/platform/dispatch/queue.hpp"
#include "bic/platform/dispatch/timer.hpp"

#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <vector>

using namespace bic::dispatch;
using namespace std::chrono_literals;

TEST(SerialQueue, RunsBlocksInOrderOnItsOwnThread) {
    SerialQueue queue("org.brellin.test");
    EXPECT_EQ(queue.label(), "org.brellin.test");
    std::vector<int> order;
    std::thread::id worker;
    for (int i = 0; i < 100; ++i)
        queue.async([&, i] {
            order.push_back(i);
            worker = std::this_thread::get_id();
        });
    bool inside = false;
    queue.sync([&] { inside = queue.isCurrent(); });
    EXPECT_TRUE(inside);
    EXPECT_FALSE(queue.isCurrent());
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[std::size_t(i)], i);
    EXPECT_NE(worker, std::this_thread::get_id());
}

TEST(SerialQueue, DestructionRunsWaitingBlocksAndMayHappenOnTheQueue) {
    std::atomic<int> ran = 0;
    {
        SerialQueue queue("q");
        queue.async([] { std::this_thread::sleep_for(20ms); });
        for (int i = 0; i < 10; ++i)
            queue.async([&] { ++ran; });
    }
    EXPECT_EQ(ran, 10);

    // The last owner lets go inside one of the queue's own blocks.
    auto owned = std::make_shared<SerialQueue>("self");
    std::atomic<bool> released = false;
    SerialQueue* queue = owned.get();
    queue->async([owned = std::move(owned), &released]() mutable {
        owned.reset();
        released = true;
    });
    for (int i = 0; i < 200 && !released; ++i)
        std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(released);
}

TEST(SerialQueueDeathTest, WaitingForItselfStops) {
    EXPECT_DEATH(
        {
            SerialQueue queue("q");
            queue.sync([&] { queue.sync([] {}); });
        },
        "A serial queue cannot wait for a block of its own\\.");
}

TEST(MainQueue, BlocksRunWhenTheHostPumps) {
    auto& main = MainQueue::shared();
    main.drain();
    ASSERT_TRUE(main.isMainThread());
    std::atomic<int> wakeUps = 0;
    main.setWakeUpHandler([&] { ++wakeUps; });
    int ran = 0;
    std::thread other([&] { main.async([&] { ++ran; }); });
    other.join();
    EXPECT_EQ(ran, 0) << "nothing runs before the host pumps";
    EXPECT_EQ(wakeUps, 1);
    EXPECT_EQ(main.drain(), 1u);
    EXPECT_EQ(ran, 1);

    // sync from another thread waits for the pump; on the main thread it runs at once.
    std::atomic<bool> returned = false;
    std::thread waiter([&] {
        EXPECT_FALSE(main.isMainThread());
        main.sync([&] { ++ran; });
        returned = true;
    });
    EXPECT_TRUE(main.runUntil([&] { return returned.load(); }, 5s));
    waiter.join();
    main.sync([&] { ++ran; });
    EXPECT_EQ(ran, 3);
    main.setWakeUpHandler({});
    EXPECT_FALSE(main.runUntil([] { return false; }, 5ms));
}

TEST(Timer, FiresOnItsQueueUntilStopped) {
    SerialQueue queue("timer");
    std::atomic<int> fires = 0;
    std::atomic<bool> onQueue = true;
    {
        Timer timer(queue);
        timer.setEventHandler([&] {
            ++fires;
            if (!queue.isCurrent()) onQueue = false;
        });
        timer.schedule(Timer::Clock::now(), 5ms);
        EXPECT_FALSE(timer.isRunning());
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(fires, 0) << "a new timer waits to be started";
        timer.start();
        timer.start(); // harmless
        while (fires < 3)
            std::this_thread::sleep_for(1ms);
        timer.stop();
        timer.stop(); // harmless
        queue.sync([] {});
        const int stopped = fires;
        std::this_thread::sleep_for(30ms);
        EXPECT_EQ(fires, stopped);
        timer.start(); // deadlines passed while stopped: fires at once
        while (fires == stopped)
            std::this_thread::sleep_for(1ms);
    }
    queue.sync([] {});
    const int destroyed = fires;
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(fires, destroyed) << "a destroyed timer never fires";
    EXPECT_TRUE(onQueue);
}

TEST(Timer, FiresDoNotPileUpBehindASlowHandler) {
    SerialQueue queue("slow");
    std::atomic<int> fires = 0;
    Timer timer(queue);
    timer.setEventHandler([&] {
        ++fires;
        std::this_thread::sleep_for(20ms);
    });
    timer.schedule(Timer::Clock::now(), 1ms);
    timer.start();
    std::this_thread::sleep_for(110ms);
    timer.stop();
    queue.sync([] {});
    // One fire at a time: about 110 / 20, never one per millisecond.
    EXPECT_GE(fires, 3);
    EXPECT_LE(fires, 8);
}
