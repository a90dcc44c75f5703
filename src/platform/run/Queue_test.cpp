#include "platform/run/Group.h"
#include "platform/run/MainQueue.h"
#include "platform/run/Queue.h"

#include <atomic>
#include <csignal>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <thread>
#include <utility>

using namespace platform::run;
using namespace std::chrono_literals;

namespace {

constexpr auto limit = 60s; // never reached unless something is broken

TEST(SerialQueue, RunsOneAtATimeInOrder) {
    const QueueRef queue = Queue::serial("order");
    std::vector<int> order; // guarded by nothing but the queue
    for (int i = 0; i < 1000; ++i)
        queue->async([&, i] { order.push_back(i); });
    queue->sync([&] { order.push_back(1000); });
    std::vector<int> expected(1001);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
}

TEST(SerialQueue, GivesEachOfManyThreadsItsTurn) {
    const QueueRef queue = Queue::serial();
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            for (int j = 0; j < 500; ++j) {
                if ((i + j) % 2)
                    queue->sync([&] { ++count; });
                else
                    queue->async([&] { ++count; });
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    queue->sync([&] { EXPECT_EQ(count, 8 * 500); });
}

TEST(SerialQueue, RunsInlineWhatItAsksOfItself) {
    const QueueRef outer = Queue::serial("outer");
    const QueueRef inner = Queue::serial("inner");
    std::string trace;
    outer->sync([&] {
        trace += currentQueueLabel() + ";";
        outer->sync([&] { trace += "itself;"; });
        inner->sync([&] {
            trace += currentQueueLabel() + ";";
            outer->sync([&] { trace += "through another;"; });
        });
        EXPECT_TRUE(outer->isCurrent());
        EXPECT_FALSE(inner->isCurrent());
    });
    EXPECT_EQ(trace, "outer;itself;inner;through another;");
    EXPECT_EQ(currentQueueLabel(), "");
    EXPECT_FALSE(outer->isCurrent());
}

TEST(SerialQueue, OutlivesItsHolderWhileItHasWork) {
    const auto group = std::make_shared<Group>();
    std::atomic<int> count = 0;
    {
        const QueueRef queue = Queue::serial();
        for (int i = 0; i < 100; ++i)
            group->async(queue, [&] { ++count; });
    }
    group->wait();
    EXPECT_EQ(count, 100);
}

TEST(SerialQueue, LetsGoOfItsWorkInItsTurn) {
    const QueueRef queue = Queue::serial();
    std::atomic<bool> endedOnQueue = false;
    std::shared_ptr<void> held(nullptr, [&](void*) { endedOnQueue = queue->isCurrent(); });
    queue->async([held = std::exchange(held, {})] {});
    queue->sync([] {});
    EXPECT_TRUE(endedOnQueue);
}

TEST(GlobalQueue, GrowsWhenItsThreadsBlock) {
    // Each piece waits for the next one: without growth none but the last ones would ever run.
    constexpr int depth = 60;
    const QueueRef queue = Queue::global();
    int masked = 0; // pieces that met the signals blocked that who asks for them has
    std::function<void(int)> descend = [&](int level) {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        masked += level > 0 && sigismember(&mask, SIGUSR1);
        if (level == depth) return;
        Group group;
        group.async(queue, [&, level] { descend(level + 1); });
        group.wait();
    };
    std::promise<void> begun;
    queue->async([&] { begun.set_value(); });
    begun.get_future().wait(); // the pool is there
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    descend(0);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_EQ(masked, 0);
}

TEST(GlobalQueue, GrowsWhenItsThreadsBlockWithoutTellingIt) {
    constexpr int count = 6;
    std::promise<void> gate; // the pool is not told that its work waits for it
    const std::shared_future<void> opened = gate.get_future().share();
    Group group;
    for (int i = 0; i < count; ++i)
        group.async(Queue::global(), [&] { opened.wait(); });
    group.async(Queue::global(), [&] { gate.set_value(); });
    group.wait();
}

TEST(Group, WaitsForAllAndNotifiesOnce) {
    const auto group = std::make_shared<Group>();
    group->wait(); // nothing under way
    std::atomic<int> finished = 0;
    std::atomic<int> notified = 0;
    for (int i = 0; i < 20; ++i)
        group->async(Queue::global(QualityOfService::userInitiated), [&] { ++finished; });
    group->enter();
    const QueueRef queue = Queue::serial();
    std::promise<void> told;
    group->notify(queue, [&] {
        notified += finished;
        told.set_value();
    });
    queue->sync([&] { EXPECT_EQ(notified, 0); });
    group->leave();
    group->wait();
    told.get_future().wait(); // it may come a little after the wait's end
    EXPECT_EQ(notified, 20);
    group->leave(); // surplus
    group->enter();
    group->leave();
    group->wait();
    group->notify(queue, [&] { notified = -1; });
    queue->sync([&] { EXPECT_EQ(notified, -1); });
}

TEST(Group, MayEndAsSoonAsItsWaitReturns) {
    for (int i = 0; i < 200; ++i) {
        Group group;
        group.async(Queue::global(), [] {});
        group.wait();
    }
}

TEST(MainQueue, RunsOnTheThreadOfItsLoop) {
    RunLoop loop;
    const std::thread::id mainThread = std::this_thread::get_id();
    std::atomic<int> right = 0;
    Group group;
    for (int i = 0; i < 10; ++i)
        group.async(Queue::global(), [&] {
            EXPECT_FALSE(isMainThread());
            EXPECT_FALSE(mainQueue()->isCurrent());
            mainQueue()->sync([&] { right += std::this_thread::get_id() == mainThread && mainQueue()->isCurrent(); });
            mainQueue()->async([&] { right += std::this_thread::get_id() == mainThread; });
        });
    EXPECT_TRUE(loop.runUntil([&] { return right == 20; }, limit));
    group.wait();

    // On the main thread itself: inline, and some time later.
    std::string trace;
    mainQueue()->async([&] { trace += "later"; });
    mainQueue()->sync([&] { trace += "inline "; });
    EXPECT_EQ(trace, "inline ");
    loop.drain();
    EXPECT_EQ(trace, "inline later");
}

TEST(MainQueue, AsksBackForTheQueueThatWaitsForIt) {
    RunLoop loop;
    const QueueRef queue = Queue::serial("stream");
    std::string trace;
    std::atomic<bool> isDone = false;
    queue->async([&] {
        mainQueue()->sync([&] { queue->sync([&] { trace = currentQueueLabel(); }); });
        isDone = true;
    });
    EXPECT_TRUE(loop.runUntil([&] { return isDone.load(); }, limit));
    EXPECT_EQ(trace, mainQueue()->label()); // inline, so still the main queue's work
}

TEST(MainQueue, KeepsWorkUntilALoopComes) {
    std::atomic<int> count = 0;
    mainQueue()->async([&] { ++count; });
    EXPECT_EQ(count, 0);
    std::thread([&] {
        RunLoop loop;
        mainQueue()->async([&] {
            ++count;
            EXPECT_TRUE(isMainThread());
            loop.stop();
        });
        loop.run();
        loop.stop(); // comes before run and counts
        loop.run();
    }).join();
    EXPECT_EQ(count, 2);
    EXPECT_TRUE(isMainThread());
}

TEST(MainQueue, DrainsOnlyWhatWasThere) {
    RunLoop loop;
    int runs = 0;
    std::function<void()> again = [&] {
        ++runs;
        mainQueue()->async(again);
    };
    mainQueue()->async(again);
    loop.drain();
    EXPECT_EQ(runs, 1);
    loop.drain();
    EXPECT_EQ(runs, 2);
    again = [] {};
    loop.drain();
}

} // namespace
