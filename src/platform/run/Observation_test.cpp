#include "platform/run/Observation.h"
#include "platform/run/Progress.h"

#include "platform/run/Group.h"

#include <atomic>
#include <gtest/gtest.h>

using namespace platform::run;

namespace {

TEST(Observable, BracketsChangesOfTheKeyAlone) {
    Observable observable;
    std::string trace;
    int value = 0;
    const Observation token = observable.observe(
        "jobs", [&] { trace += "did" + std::to_string(value) + ";"; },
        [&] { trace += "will" + std::to_string(value) + ";"; });
    observable.change("jobs", [&] { value = 1; });
    observable.didChange("others");
    EXPECT_EQ(trace, "will0;did1;");
}

TEST(Observation, EndsWithItsToken) {
    int calls = 0;
    auto observable = std::make_unique<Observable>();
    const auto count = [&] { ++calls; };
    Observation kept = observable->observe("key", count);
    { const Observation dropped = observable->observe("key", count); }
    observable->didChange("key");
    EXPECT_EQ(calls, 1);

    Observation moved = std::move(kept);
    EXPECT_FALSE(kept);
    observable->didChange("key");
    EXPECT_EQ(calls, 2);

    moved = observable->observe("key", count); // ends the one before
    observable->didChange("key");
    EXPECT_EQ(calls, 3);

    observable.reset();
    moved.end(); // outlived the observable
    EXPECT_FALSE(moved);
}

TEST(Observation, MayEndItselfAndOthersInACallback) {
    Observable observable;
    std::string trace;
    Observation first, second;
    first = observable.observe("key", [&] {
        trace += "first;";
        second.end();
        first.end();
    });
    second = observable.observe("key", [&] { trace += "second;"; });
    observable.didChange("key");
    observable.didChange("key");
    EXPECT_EQ(trace, "first;");
}

TEST(Observable, ServesManyThreads) {
    Observable observable;
    std::atomic<int> calls = 0;
    const Observation always = observable.observe("key", [&] { ++calls; });
    Group group;
    for (int i = 0; i < 4; ++i)
        group.async(Queue::global(), [&] {
            for (int j = 0; j < 200; ++j) {
                const Observation passing = observable.observe("key", [] {});
                observable.didChange("key");
            }
        });
    group.wait();
    EXPECT_EQ(calls, 800);
}

TEST(Progress, CountsAFinishedChildAsItsUnits) {
    const auto job = Progress::create(100);
    EXPECT_EQ(job->fractionCompleted(), 0);
    const auto parsing = Progress::child(1, job, 10);
    parsing->setCompletedUnitCount(1);
    EXPECT_EQ(job->completedUnitCount(), 10);

    const auto package = Progress::child(10, job, 45);
    package->setCompletedUnitCount(5);
    EXPECT_EQ(job->completedUnitCount(), 10);
    EXPECT_DOUBLE_EQ(job->fractionCompleted(), 0.325);
    package->setCompletedUnitCount(10);
    package->setCompletedUnitCount(10);
    EXPECT_EQ(job->completedUnitCount(), 55);

    job->becomeCurrentWithPendingUnitCount(45);
    EXPECT_EQ(job->completedUnitCount(), 55);
    job->resignCurrent();
    EXPECT_TRUE(job->isFinished());
    EXPECT_EQ(job->fractionCompleted(), 1);
}

TEST(Progress, TellsAllAncestorsFromAnyThread) {
    const auto job = Progress::create(40);
    std::atomic<int> calls = 0;
    const Observation token = job->observe([&] { ++calls; });
    Group group;
    for (int i = 0; i < 4; ++i)
        group.async(Queue::global(), [&] {
            const auto package = Progress::child(2, job, 10);
            for (int part = 0; part < 2; ++part) {
                const auto output = Progress::child(5, package, 1);
                for (int unit = 1; unit <= 5; ++unit)
                    output->setCompletedUnitCount(unit);
            }
        });
    group.wait();
    EXPECT_TRUE(job->isFinished());
    EXPECT_EQ(job->completedUnitCount(), 40);
    EXPECT_EQ(calls, 40);
    const auto empty = Progress::create(0);
    EXPECT_FALSE(empty->isFinished());
    EXPECT_EQ(empty->fractionCompleted(), 0);
}

} // namespace
