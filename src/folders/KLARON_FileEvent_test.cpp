#include "folders/KLARON_FileEvent.h"
#include "folders/QueueHelpers.h"

#include "base/Log.h"
#include "support/TemporaryDirectory.h"

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>
#include <set>

using namespace std::chrono_literals;

namespace fs = std::filesystem;

namespace {

constexpr auto limit = 60s; // never reached unless something is broken

class FileEvent : public ::testing::Test {
protected:
    KLARON_FileEvent::Ref make(const std::string& path) {
        const auto event = KLARON_FileEvent::initWithObservedPaths({path}, 0.005);
        event->setEventBlock([this](const auto& paths, const auto& flags) {
            std::lock_guard lock(mutex_);
            labels_.insert(platform::run::currentQueueLabel());
            if (flags.empty()) ++starts_;
            seen_.insert(paths.begin(), paths.end());
            changed_.notify_all();
        });
        return event;
    }
    template <class Condition>
    bool waitUntil(Condition condition) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, condition);
    }
    bool take(const std::string& path) {
        const bool found = waitUntil([&] { return seen_.contains(path); });
        std::lock_guard lock(mutex_);
        seen_.clear();
        return found;
    }

    support::TemporaryDirectory directory_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<std::string> seen_;
    std::set<std::string> labels_;
    int starts_ = 0;
};

TEST_F(FileEvent, DeliversOneEventAtEachStart) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    const auto event = make(folder);
    EXPECT_FALSE(event->isRunning());
    event->setRun(true);
    EXPECT_TRUE(waitUntil([&] { return starts_ == 1; }));
    event->eventQueue()->sync([&] { EXPECT_TRUE(event->isRunning()); });
    EXPECT_EQ(event->eventQueue()->label(), "KLARON_FileEvent." + folder);
    EXPECT_EQ(labels_, std::set<std::string>{"KLARON_FileEvent." + folder});

    event->setRun(false);
    event->eventQueue()->sync([] {});
    EXPECT_FALSE(event->isRunning());
    event->setRun(true);
    EXPECT_TRUE(waitUntil([&] { return starts_ == 2; }));
    take(folder);
    directory_.write("in/a", "");
    EXPECT_TRUE(take(folder));
}

TEST_F(FileEvent, GoesOnOnAnotherQueue) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    const auto event = make(folder);
    event->setRun(true);
    EXPECT_TRUE(waitUntil([&] { return starts_ == 1; }));
    event->eventQueue()->sync([] {});
    event->setEventQueue(folders::dispatchQueueSerialWithDebugLabel("other"));
    EXPECT_TRUE(waitUntil([&] { return starts_ == 2; }));
    take(folder);
    directory_.write("in/a", "");
    EXPECT_TRUE(take(folder));
    EXPECT_TRUE(labels_.contains("other"));
}

TEST_F(FileEvent, LooksAgainAtAFolderWhenADocumentInsideItChanges) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder + "/plain");
    fs::create_directories(folder + "/order7.velm_job");
    const auto event = make(folder);
    event->setRun(true);
    EXPECT_TRUE(take(folder));
    directory_.write("in/plain/file", "");
    EXPECT_TRUE(waitUntil([&] { return seen_.contains(folder + "/plain"); }));
    {
        std::lock_guard lock(mutex_);
        EXPECT_EQ(seen_, std::set<std::string>{folder + "/plain"});
        seen_.clear();
    }
    directory_.write("in/order7.velm_job/job.xml", "<job/>");
    EXPECT_TRUE(waitUntil([&] { return seen_.contains(folder); }));
    std::lock_guard lock(mutex_);
    EXPECT_EQ(seen_, (std::set<std::string>{folder, folder + "/order7.velm_job"}));
}

TEST_F(FileEvent, ReportsTheFileThatItObserves) {
    const std::string file = directory_.write("a.xml", "1");
    const auto event = make(file);
    event->setRun(true);
    EXPECT_TRUE(take(file));
    directory_.write("a.xml", "2");
    EXPECT_TRUE(take(file));
}

TEST_F(FileEvent, LogsAStartThatFails) {
    std::string logged;
    const base::LogSink previous = base::setLogSink([&](std::string_view message) { logged += message; });
    const auto event = KLARON_FileEvent::initWithObservedPaths({});
    event->setRun(true);
    event->eventQueue()->sync([] {});
    base::setLogSink(previous);
    EXPECT_TRUE(logged.starts_with("FAILED to start monitoring ")) << logged;
    EXPECT_TRUE(event->isRunning());
}

TEST_F(FileEvent, MayEndAtAnyTime) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    for (int i = 0; i < 50; ++i) {
        const auto event = make(folder);
        event->setRun(true);
        directory_.write("in/" + std::to_string(i), "");
        if (i % 3 == 0) event->eventQueue()->sync([] {});
    }
    auto last = make(folder);
    std::atomic<bool> hasEnded = false;
    last->setEventBlock([&](const auto&, const auto&) {
        last.reset(); // inside its own callback
        hasEnded = true;
        std::lock_guard lock(mutex_);
        changed_.notify_all();
    });
    last->eventQueue()->async([&] { last->setRun(true); }); // from here on `last` belongs to the queue
    EXPECT_TRUE(waitUntil([&] { return hasEnded.load(); }));
}

} // namespace
