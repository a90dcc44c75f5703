#include "folders/DefaultsKeys.h"
#include "folders/KLARON_FileEvent.h"
#include "folders/QueueHelpers.h"

#include "base/Places.h"
#include "platform/data/UserDefaults.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

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
    FileEvent() {
        base::setPlaces(base::Places::below(directory_ / "home"));
        fs::create_directories(folder_);
    }

    KLARON_FileEvent::Ref make(const std::string& path) {
        const auto event = KLARON_FileEvent::initWithObservedPaths({path}, 0.005);
        event->setEventBlock([delivered = delivered_](const auto& paths, const auto& flags) {
            std::lock_guard lock(delivered->mutex);
            delivered->queueLabels.insert(platform::run::currentQueueLabel());
            if (flags.empty())
                ++delivered->starts;
            else
                EXPECT_EQ(paths.size(), flags.size());
            EXPECT_EQ(std::set(paths.begin(), paths.end()).size(), paths.size()) << "a path was named twice";
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
    // Waits for an event that names the path, and forgets all there were.
    std::set<std::string> takeWith(const std::string& path) {
        waitUntil([&] { return delivered_->paths.contains(path); });
        std::lock_guard lock(delivered_->mutex);
        return std::exchange(delivered_->paths, {});
    }
    bool take(const std::string& path) { return takeWith(path).contains(path); }

    support::TemporaryDirectory directory_;
    const std::string folder_ = directory_ / "in";
    const std::shared_ptr<Delivered> delivered_ = std::make_shared<Delivered>();
};

TEST_F(FileEvent, DeliversOneEventAtEachStart) {
    const auto event = make(folder_);
    EXPECT_FALSE(event->isRunning());
    int starts = 0;
    // Started, stopped and started again, moved to another queue.
    for (const bool isMoved : {false, false, true}) {
        if (isMoved)
            event->setEventQueue(folders::dispatchQueueSerialWithDebugLabel("other"));
        else
            event->setRun(true);
        EXPECT_TRUE(waitForStarts(++starts));
        event->eventQueue()->sync([&] { EXPECT_TRUE(event->isRunning()); });
        take(folder_);
        directory_.write("in/" + std::to_string(starts), "");
        EXPECT_TRUE(take(folder_));
        if (starts > 1) continue;
        event->setRun(false);
        event->eventQueue()->sync([] {});
        EXPECT_FALSE(event->isRunning());
    }
    std::lock_guard lock(delivered_->mutex);
    EXPECT_EQ(delivered_->queueLabels, (std::set<std::string>{"KLARON_FileEvent." + folder_, "other"}));
}

TEST_F(FileEvent, LooksAgainAtAFolderWhenADocumentInsideItChanges) {
    fs::create_directories(folder_ + "/plain");
    fs::create_directories(folder_ + "/order7.velm_job");
    const auto event = make(folder_);
    event->setRun(true);
    EXPECT_TRUE(take(folder_));
    directory_.write("in/plain/file", "");
    EXPECT_EQ(takeWith(folder_ + "/plain"), std::set<std::string>{folder_ + "/plain"});
    directory_.write("in/order7.velm_job/job.xml", "<job/>");
    EXPECT_EQ(takeWith(folder_), (std::set<std::string>{folder_, folder_ + "/order7.velm_job"}));
}

TEST_F(FileEvent, NamesAFolderOnceForManyDocumentsInsideIt) {
    constexpr int count = 300;
    for (int i = 0; i < count; ++i)
        fs::create_directories(folder_ + "/" + std::to_string(i) + ".velm_job");
    const auto event = make(folder_);
    event->setRun(true);
    EXPECT_TRUE(take(folder_));
    for (int i = 0; i < count; ++i)
        directory_.write("in/" + std::to_string(i) + ".velm_job/job.xml", "<job/>");
    EXPECT_TRUE(waitUntil([&] { return delivered_->paths.size() == count + 1; }));
}

TEST_F(FileEvent, LooksAsOftenAsTheSettingsSay) {
    const auto clock = std::make_shared<platform::run::ManualClock>();
    platform::run::setClock(clock);
    auto& defaults = platform::data::UserDefaults::standard();
    ASSERT_TRUE(defaults.setObject(true, key_velmAlwaysPoll) && defaults.setObject(7.5, key_velmPollInterval));
    const auto event = make(folder_);
    event->setRun(true);
    EXPECT_TRUE(take(folder_));
    EXPECT_EQ(clock->waitingCount(), 1u);
    directory_.write("in/a.xml", "1");
    clock->advance(7499ms);
    EXPECT_EQ(clock->waitingCount(), 1u);
    clock->advance(1s); // the looking itself takes time, too
    EXPECT_TRUE(take(folder_));
    event->eventQueue()->sync([] {});
    platform::run::setClock(nullptr);
}

TEST_F(FileEvent, LogsAStartThatFails) {
    const support::LogCapture log;
    const auto event = KLARON_FileEvent::initWithObservedPaths({});
    event->setRun(true);
    event->eventQueue()->sync([] {});
    EXPECT_TRUE(log.has("FAILED to start monitoring "));
    EXPECT_TRUE(event->isRunning());
}

TEST_F(FileEvent, MayEndAtAnyTime) {
    for (int i = 0; i < 50; ++i) {
        const auto event = make(folder_);
        event->setRun(true);
        directory_.write("in/" + std::to_string(i), "");
        if (i % 3 == 0) event->eventQueue()->sync([] {});
    }
    auto last = make(folder_);
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
