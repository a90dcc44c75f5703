#include "folders/Coalescer.h"
#include "folders/QueueHelpers.h"

#include "platform/run/Clock.h"
#include "platform/run/MainQueue.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using folders::Coalescer;
using platform::run::ManualClock;
using platform::run::QueueRef;

namespace {

struct Request {
    int milliseconds;
    std::string key;
    std::string callback;
};

struct CallbackRun {
    int milliseconds;
    std::string callback;
    friend bool operator==(const CallbackRun&, const CallbackRun&) = default;
    friend void PrintTo(const CallbackRun& run, std::ostream* out) {
        *out << run.callback << " at " << run.milliseconds;
    }
};

struct CoalescerCase {
    std::string name;
    Coalescer::When when;
    std::vector<Request> requests; // each with half a second of wait
    std::vector<CallbackRun> runs;
};

class CoalescerBursts : public ::testing::TestWithParam<CoalescerCase> {};

TEST_P(CoalescerBursts, RunAtTheirTimes) {
    const auto clock = std::make_shared<ManualClock>();
    Coalescer coalescer(clock);
    const QueueRef target = folders::dispatchQueueSerial();
    std::vector<CallbackRun> runs;
    auto next = GetParam().requests.begin();
    for (int now = 0; now <= 3000; now += 100) {
        for (; next != GetParam().requests.end() && next->milliseconds == now; ++next)
            coalescer.runOnceForKey(next->key, target, 0.5, GetParam().when,
                                    [&runs, &clock, callback = next->callback] {
                                        runs.push_back({static_cast<int>(clock->now() / 1ms), callback});
                                    });
        coalescer.queue()->sync([] {});
        target->sync([] {});
        clock->advance(100ms);
        coalescer.queue()->sync([] {});
        target->sync([] {});
    }
    EXPECT_EQ(runs, GetParam().runs);
    EXPECT_EQ(clock->waitingCount(), 0u);
}

using enum Coalescer::When;
const std::vector<Request> burst{{0, "k", "first"}, {300, "k", "second"}, {600, "k", "third"}};

INSTANTIATE_TEST_SUITE_P(
    Cases, CoalescerBursts,
    ::testing::Values(
        CoalescerCase{"last", last, burst, {{1100, "third"}}}, CoalescerCase{"first", first, burst, {{0, "first"}}},
        CoalescerCase{"both", firstAndLast, burst, {{0, "first"}, {1100, "third"}}},
        CoalescerCase{"single", firstAndLast, {{0, "k", "only"}}, {{0, "only"}, {500, "only"}}},
        CoalescerCase{"twoBursts", last, {{0, "k", "a"}, {1000, "k", "b"}}, {{500, "a"}, {1500, "b"}}},
        CoalescerCase{"firstAgainAfterABurst", first, {{0, "k", "a"}, {600, "k", "b"}}, {{0, "a"}, {600, "b"}}},
        CoalescerCase{"keysAreSeparate", last, {{0, "k", "a"}, {100, "l", "b"}}, {{500, "a"}, {600, "b"}}}),
    [](const auto& test) { return test.param.name; });

TEST(Coalescer, RunsOnTheMainQueueUnlessTold) {
    platform::run::RunLoop loop;
    const auto clock = std::make_shared<ManualClock>();
    platform::run::setClock(clock);
    std::string trace;
    folders::runOnceForKeyAfterWaiting("main", nullptr, 0.1,
                                       [&] { trace += folders::isMainQueue() ? "main;" : "other;"; });
    folders::runOnceForKeyCollectingFor("instant", nullptr, 0, [&] { trace += "first;"; });
    Coalescer::shared().queue()->sync([] {});
    loop.drain();
    EXPECT_EQ(trace, "first;");
    clock->advance(100ms);
    Coalescer::shared().queue()->sync([] {});
    loop.drain();
    EXPECT_EQ(trace, "first;main;");
    platform::run::setClock(nullptr);
}

TEST(QueueHelpers, RunInlineOnTheQueueItself) {
    platform::run::RunLoop loop;
    const QueueRef queue = folders::dispatchQueueSerialWithDebugLabel("queue");
    std::string trace;
    folders::performSyncOnQueue(nullptr, [&] { trace += "absent;"; });
    folders::performSyncOnQueue(queue, [&] {
        folders::performInlineOnQueue(queue, [&] { trace += "inline;"; });
        folders::performSyncOnQueue(queue, [&] { trace += "sync;"; });
        queue->async([&] { trace += "later;"; });
        trace += "end;";
    });
    folders::performInlineOnQueue(queue, [&] { trace += "elsewhere;"; });
    queue->sync([] {});
    EXPECT_EQ(trace, "absent;inline;sync;end;later;elsewhere;");

    EXPECT_TRUE(folders::isMainQueue());
    folders::performSyncOnMainQueue([&] { trace = "inline"; });
    folders::performAsyncOnMainQueue([&] { trace += " later"; });
    EXPECT_EQ(trace, "inline");
    loop.drain();
    EXPECT_EQ(trace, "inline later");
}

} // namespace
