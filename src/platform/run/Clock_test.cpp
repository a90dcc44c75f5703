#include "platform/run/Clock.h"
#include "platform/run/Group.h"

#include <gtest/gtest.h>
#include <string>

using namespace platform::run;
using namespace std::chrono_literals;

namespace {

TEST(ManualClock, HandsOutWorkInTheOrderOfItsTime) {
    ManualClock clock;
    const QueueRef queue = Queue::serial();
    std::string trace;
    const auto note = [&](std::string text) { return [&trace, text] { trace += text; }; };
    clock.after(30ms, queue, note("c"));
    clock.after(10ms, queue, note("a"));
    clock.after(10ms, queue, note("b"));
    clock.after(-5ms, queue, note("0"));
    const auto traceAfter = [&](std::chrono::nanoseconds by) {
        clock.advance(by);
        std::string seen;
        queue->sync([&] { seen = trace; });
        return seen;
    };
    EXPECT_EQ(traceAfter(0ms), "0");
    EXPECT_EQ(traceAfter(9999999ns), "0");
    EXPECT_EQ(traceAfter(1ns), "0ab");
    EXPECT_EQ(traceAfter(10ms), "0ab");
    EXPECT_EQ(clock.waitingCount(), 1u);
    EXPECT_EQ(traceAfter(1h), "0abc");
    EXPECT_EQ(clock.now(), 1h + 20ms);
}

TEST(SystemClock, NeverRunsEarlyAndKeepsTheOrder) {
    const ClockRef clock = systemClock();
    const QueueRef queue = Queue::serial();
    Group group;
    std::string trace;
    const auto begin = clock->now();
    std::chrono::nanoseconds late{};
    for (int i = 0; i < 2; ++i)
        group.enter();
    clock->after(20ms, queue, [&] {
        trace += "late";
        late = clock->now() - begin;
        group.leave();
    });
    clock->after(1ms, queue, [&] {
        trace += "early ";
        group.leave();
    });
    group.wait();
    EXPECT_EQ(trace, "early late");
    EXPECT_GE(late, 20ms);
    clock->after(std::chrono::nanoseconds::max(), queue, [] { FAIL(); });
}

} // namespace
