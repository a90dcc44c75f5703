#include "folders/KLARON_FileEvent.h"
#include "folders/QueueHelpers.h"

#include "base/Log.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace fs = std::filesystem;

namespace {

constexpr auto limit = 60s; // never reached unless something is broken

// What was delivered. Shared with the event blocks: those that are queued when their object ends still run.
struct Delivered {
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::string> paths;
    std::set<std::string> queueLabels;
    int starts = 0;
    bool hasEnded = false;
};

class FileEvent : public ::testing::Test {
protected:
    KLARON_FileEvent::Ref make(const std::string& path) {
        const auto event = KLARON_FileEvent::initWithObservedPaths({path}, 0.005);
        event->setEventBlock([delivered = delivered_](const auto& paths, const auto& flags) {
            std::lock_guard lock(delivered->mutex);
            delivered->queueLabels.insert(platform::run::currentQueueLabel());
            if (flags.empty()) ++delivered->starts;
            delivered->paths.insert(paths.begin(), paths.end());
            delivered->changed.notify_all();
        });
        return event;
    }
    // Waits until `condition` holds, which is asked with the lock.
    template <class Condition>
    bool waitUntil(Condition condition) {
        std::unique_lock lock(delivered_->mutex);
        return delivered_->changed.wait_for(lock, limit, condition);
    }
    bool waitForStarts(int count) {
        return waitUntil([&] { return delivered_->starts == count; });
    }
    bool waitFor(const std::string& path) {
        return waitUntil([&] { return delivered_->paths.contains(path); });
    }
    std::set<std::string> takePaths() {
        std::lock_guard lock(delivered_->mutex);
        return std::exchange(delivered_->paths, {});
    }
    bool take(const std::string& path) {
        const bool found = waitFor(path);
        takePaths();
        return found;
    }
    std::set<std::string> queueLabels() {
        std::lock_guard lock(delivered_->mutex);
        return delivered_->queueLabels;
    }

    support::TemporaryDirectory directory_;
    const std::shared_ptr<Delivered> delivered_ = std::make_shared<Delivered>();
};

TEST_F(FileEvent, DeliversOneEventAtEachStart) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    const auto event = make(folder);
    EXPECT_FALSE(event->isRunning());
    event->setRun(true);
    EXPECT_TRUE(waitForStarts(1));
    event->eventQueue()->sync([&] { EXPECT_TRUE(event->isRunning()); });
    EXPECT_EQ(event->eventQueue()->label(), "KLARON_FileEvent." + folder);
    EXPECT_EQ(queueLabels(), std::set<std::string>{"KLARON_FileEvent." + folder});

    event->setRun(false);
    event->eventQueue()->sync([] {});
    EXPECT_FALSE(event->isRunning());
    event->setRun(true);
    EXPECT_TRUE(waitForStarts(2));
    take(folder);
    directory_.write("in/a", "");
    EXPECT_TRUE(take(folder));
}

TEST_F(FileEvent, GoesOnOnAnotherQueue) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    const auto event = make(folder);
    event->setRun(true);
    EXPECT_TRUE(waitForStarts(1));
    event->eventQueue()->sync([] {});
    event->setEventQueue(folders::dispatchQueueSerialWithDebugLabel("other"));
    EXPECT_TRUE(waitForStarts(2));
    take(folder);
    directory_.write("in/a", "");
    EXPECT_TRUE(take(folder));
    EXPECT_TRUE(queueLabels().contains("other"));
}

TEST_F(FileEvent, LooksAgainAtAFolderWhenADocumentInsideItChanges) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder + "/plain");
    fs::create_directories(folder + "/order7.velm_job");
    const auto event = make(folder);
    event->setRun(true);
    EXPECT_TRUE(take(folder));
    directory_.write("in/plain/file", "");
    EXPECT_TRUE(waitFor(folder + "/plain"));
    EXPECT_EQ(takePaths(), std::set<std::string>{folder + "/plain"});
    directory_.write("in/order7.velm_job/job.xml", "<job/>");
    EXPECT_TRUE(waitFor(folder));
    EXPECT_EQ(takePaths(), (std::set<std::string>{folder, folder + "/order7.velm_job"}));
}

TEST_F(FileEvent, NamesAFolderOnceForManyDocumentsInsideIt) {
    const std::string folder = directory_ / "in";
    constexpr int count = 300;
    for (int i = 0; i < count; ++i)
        fs::create_directories(folder + "/" + std::to_string(i) + ".velm_job");
    const auto event = make(folder);
    struct Seen {
        std::mutex mutex;
        std::set<std::string> documents;
        std::vector<std::size_t> countsOfFolder; // in each event that names a document
    };
    const auto seen = std::make_shared<Seen>();
    event->setEventBlock([seen, folder](const auto& paths, const auto& flags) {
        std::lock_guard lock(seen->mutex);
        if (flags.empty()) return;
        EXPECT_EQ(paths.size(), flags.size());
        seen->documents.insert(paths.begin(), paths.end());
        seen->countsOfFolder.push_back(static_cast<std::size_t>(std::count(paths.begin(), paths.end(), folder)));
    });
    event->setRun(true);
    event->eventQueue()->sync([] {});
    for (int i = 0; i < count; ++i)
        directory_.write("in/" + std::to_string(i) + ".velm_job/job.xml", "<job/>");
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        {
            std::lock_guard lock(seen->mutex);
            if (seen->documents.size() == count + 1) break;
        }
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::sleep_for(1ms);
    }
    std::lock_guard lock(seen->mutex);
    for (const std::size_t countOfFolder : seen->countsOfFolder)
        EXPECT_EQ(countOfFolder, 1U);
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
    last->setEventBlock([&last, delivered = delivered_](const auto&, const auto&) {
        last.reset(); // inside its own callback
        std::lock_guard lock(delivered->mutex);
        delivered->hasEnded = true;
        delivered->changed.notify_all();
    });
    last->eventQueue()->async([&] { last->setRun(true); }); // from here on `last` belongs to the queue
    EXPECT_TRUE(waitUntil([&] { return delivered_->hasEnded; }));
}

} // namespace
