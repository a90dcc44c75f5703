#include "folders/Coalescer.h"
#include "folders/QueueHelpers.h"

#include "platform/run/Clock.h"

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
};

struct CoalescerCase {
    std::string name;
    Coalescer::When when;
    std::vector<Request> requests; // each with half a second of wait
    std::vector<CallbackRun> runs;
};

void expectRuns(const CoalescerCase& test) {
    const auto clock = std::make_shared<ManualClock>();
    Coalescer coalescer(clock);
    const QueueRef target = folders::dispatchQueueSerial();
    std::vector<CallbackRun> runs;
    auto next = test.requests.begin();
    for (int now = 0; now <= 3000; now += 100) {
        for (; next != test.requests.end() && next->milliseconds == now; ++next)
            coalescer.runOnceForKey(next->key, target, 0.5, test.when, [&runs, &clock, callback = next->callback] {
                runs.push_back({static_cast<int>(clock->now() / 1ms), callback});
            });
        coalescer.queue()->sync([] {});
        target->sync([] {});
        clock->advance(100ms);
        coalescer.queue()->sync([] {});
        target->sync([] {});
    }
    EXPECT_EQ(runs, test.runs) << test.name;
    EXPECT_EQ(clock->waitingCount(), 0u) << test.name;
}

TEST(Coalescer, RunsTheFirstOrTheLastOfABurst) {
    using enum Coalescer::When;
    const std::vector<Request> burst{{0, "k", "first"}, {300, "k", "second"}, {600, "k", "third"}};
    const CoalescerCase cases[] = {
        {"last", last, burst, {{1100, "third"}}},
        {"first", first, burst, {{0, "first"}}},
        {"both", firstAndLast, burst, {{0, "first"}, {1100, "third"}}},
        {"single", firstAndLast, {{0, "k", "only"}}, {{0, "only"}, {500, "only"}}},
        {"first again after a burst", first, {{0, "k", "a"}, {600, "k", "b"}}, {{0, "a"}, {600, "b"}}},
        {"keys are separate", last, {{0, "k", "a"}, {100, "l", "b"}}, {{500, "a"}, {600, "b"}}},
    };
    for (const CoalescerCase& test : cases)
        expectRuns(test);
}

TEST(QueueHelpers, RunInlineOnTheQueueItself) {
    const QueueRef queue = folders::dispatchQueueSerial();
    std::string trace;
    folders::performInlineOnQueue(nullptr, [&] { trace += "absent;"; });
    folders::performSyncOnQueue(queue, [&] {
        folders::performInlineOnQueue(queue, [&] { trace += "inline;"; });
        folders::performSyncOnQueue(nullptr, [&] { trace += "sync;"; });
    });
    folders::performInlineOnQueue(queue, [&] { trace += queue->isCurrent() ? "elsewhere;" : ""; });
    queue->sync([] {});
    EXPECT_EQ(trace, "absent;inline;sync;elsewhere;");
}

} // namespace
