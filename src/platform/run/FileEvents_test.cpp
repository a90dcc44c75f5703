#include "platform/run/FileEvents.h"

#include "internal/EventCollector.h"
#include "internal/FileWatcherThread.h"
#include "internal/FolderSnapshot.h"
#include "internal/InotifyWatches.h"

#include "platform/run/Group.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

using namespace platform::run;
using namespace std::chrono_literals;
using ::testing::ElementsAre;

namespace fs = std::filesystem;

namespace {

constexpr auto limit = 60s; // never reached unless something is broken

// What a stream has reported, to wait for.
class Reports {
public:
    FileEventStream::Callback callback() {
        return [this](const std::vector<std::string>& paths, const std::vector<std::uint32_t>& flags) {
            std::lock_guard lock(mutex_);
            EXPECT_EQ(paths.size(), flags.size());
            for (std::size_t i = 0; i < paths.size(); ++i)
                seen_[paths[i]] |= flags[i];
            deliveries_.push_back(paths);
            changed_.notify_all();
        };
    }
    // Waits until the path was reported and forgets it; its flags.
    std::optional<std::uint32_t> take(const std::string& path) {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, limit, [&] { return seen_.contains(path); })) return std::nullopt;
        return seen_.extract(path).mapped();
    }
    bool hasSeen(const std::string& path) {
        std::lock_guard lock(mutex_);
        return seen_.contains(path);
    }
    void forget() {
        std::lock_guard lock(mutex_);
        seen_.clear();
        deliveries_.clear();
    }
    std::vector<std::vector<std::string>> deliveries() {
        std::lock_guard lock(mutex_);
        return deliveries_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, std::uint32_t> seen_;
    std::vector<std::vector<std::string>> deliveries_;
};

class FileEvents : public ::testing::Test {
protected:
    std::unique_ptr<FileEventStream> start(std::vector<std::string> paths, FileEventStream::Options options = {}) {
        options.latency = 5ms;
        options.pollInterval = 5ms;
        auto stream = std::make_unique<FileEventStream>(std::move(paths), options, reports_.callback());
        stream->setQueue(Queue::serial("stream"));
        EXPECT_TRUE(stream->start());
        return stream;
    }

    support::TemporaryDirectory directory_;
    Reports reports_;
};

TEST_F(FileEvents, ReportsFoldersUnderTheirOwnPath) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    fs::create_directories(folder + "/old.velm_job/images");
    const auto stream = start({folder + "/"});

    directory_.write("in/ticket.xml", "<job/>");
    EXPECT_EQ(reports_.take(folder), fileEventFlags::none);
    directory_.write("in/old.velm_job/job.xml", "<job/>");
    EXPECT_EQ(reports_.take(folder + "/old.velm_job"), fileEventFlags::none);

    // A new subfolder, what is put into it, and its renaming.
    fs::create_directory(folder + "/new.velm_job");
    EXPECT_TRUE(reports_.take(folder + "/new.velm_job"));
    directory_.write("in/new.velm_job/job.xml", "<job/>");
    EXPECT_TRUE(reports_.take(folder + "/new.velm_job"));
    reports_.forget();
    fs::rename(folder + "/new.velm_job", folder + "/other.velm_job");
    EXPECT_TRUE(reports_.take(folder + "/other.velm_job"));
    directory_.write("in/other.velm_job/job.xml", "<job></job>");
    EXPECT_TRUE(reports_.take(folder + "/other.velm_job"));
    EXPECT_FALSE(reports_.hasSeen(folder + "/new.velm_job"));

    // What is moved out is no longer followed, and neither is what is inside it.
    fs::rename(folder + "/old.velm_job", directory_ / "done.velm_job");
    EXPECT_TRUE(reports_.take(folder));
    reports_.forget();
    directory_.write("done.velm_job/job.xml", "<job/>");
    directory_.write("done.velm_job/images/b.jpg", "x");
    directory_.write("in/last.xml", "<job/>");
    EXPECT_TRUE(reports_.take(folder));
    EXPECT_FALSE(reports_.hasSeen(folder + "/old.velm_job"));
}

TEST_F(FileEvents, SaysNothingOfWhatLiesDeeperOrBeside) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder + "/sub/deep/deeper");
    const auto stream = start({folder});
    directory_.write("in/sub/deep/deeper/file", "x");
    directory_.write("beside/file", "x");
    directory_.write("in2", "x");
    directory_.write("in/last", "x");
    EXPECT_TRUE(reports_.take(folder));
    for (const auto& paths : reports_.deliveries())
        EXPECT_THAT(paths, ElementsAre(folder));
}

TEST_F(FileEvents, KnowsWhatIsStillBeingWritten) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder + "/old/Images");
    const auto clock = std::make_shared<ManualClock>();
    FileEventStream stream({folder}, {.latency = 1s, .clock = clock}, reports_.callback());
    const QueueRef queue = Queue::serial();
    stream.setQueue(queue);
    ASSERT_TRUE(stream.start());
    EXPECT_FALSE(stream.isSettling(folder + "/old"));
    fs::create_directories(folder + "/new/Images");
    EXPECT_TRUE(stream.isSettling(folder + "/new"));
    std::ofstream picture(folder + "/old/Images/a.jpg");
    // Ten seconds of writing into one file, with others coming and going beside it.
    for (int second = 0; second < 10; ++second) {
        fs::rename(directory_.write("ticket", ""), folder + "/ticket" + std::to_string(second));
        for (int step = 0; step < 11; ++step) {
            picture << "more" << std::flush;
            EXPECT_TRUE(stream.isSettling(folder + "/old")) << second;
            clock->advance(100ms);
            queue->sync([] {});
        }
        EXPECT_TRUE(reports_.take(folder)) << second;
        EXPECT_FALSE(reports_.hasSeen(folder + "/old")) << second;
        EXPECT_FALSE(stream.isSettling(folder + "/new")) << second;
    }
    picture.close();
    EXPECT_TRUE(stream.isSettling(folder + "/old"));
    clock->advance(1s);
    EXPECT_TRUE(reports_.take(folder + "/old"));
    EXPECT_FALSE(stream.isSettling(folder + "/old"));

    fs::create_directories(directory_ / "aside/Images");
    fs::rename(directory_ / "aside", folder + "/whole");
    EXPECT_FALSE(stream.isSettling(folder + "/whole")); // moved in

    FileEventStream polled({folder}, {.alwaysPoll = true, .clock = clock}, reports_.callback());
    polled.setQueue(queue);
    ASSERT_TRUE(polled.start());
    fs::create_directories(folder + "/unseen");
    EXPECT_TRUE(polled.isSettling(folder + "/unseen"));
    EXPECT_FALSE(polled.isSettling(folder + "/whole"));
}

TEST_F(FileEvents, ReportsAFileThatIsWrittenOrReplaced) {
    const std::string file = directory_.write("settings.plist", "1");
    const auto stream = start({file}, {.fileEvents = true});
    directory_.write("other.plist", "1");
    directory_.write("settings.plist", "2");
    EXPECT_TRUE(reports_.take(file));
    for (const char* content : {"3", "4"}) {
        fs::rename(directory_.write("temporary", content), file);
        EXPECT_TRUE(reports_.take(file));
        reports_.forget();
    }
    fs::remove(file);
    EXPECT_EQ(reports_.take(file), fileEventFlags::rootChanged);
    EXPECT_FALSE(reports_.hasSeen(directory_ / "other.plist"));
}

TEST_F(FileEvents, ReportsFilesOfFoldersOnRequest) {
    fs::create_directories(directory_ / "in");
    const auto stream = start({directory_ / "in"}, {.fileEvents = true});
    for (const char* file : {"in/a.xml", "in/sub/b.xml"})
        EXPECT_TRUE(reports_.take(directory_.write(file, "1"))) << file;
}

TEST_F(FileEvents, FollowsAFolderThatIsRemovedAndMadeAgain) {
    const std::string folder = directory_ / "a/in";
    fs::create_directories(folder);
    const auto stream = start({folder});
    for (int round = 0; round < 4; ++round) {
        // By itself; with what is above it; by moving what is above it away and back; by itself while it is held open.
        const std::string removed = round == 0 || round == 3 ? folder : directory_ / "a";
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> held(
            round == 3 ? std::fopen(folder.c_str(), "r") : nullptr, [](std::FILE* file) { return std::fclose(file); });
        if (round == 2)
            fs::rename(removed, directory_ / "away");
        else
            fs::remove_all(removed);
        // Removing may be told in steps (the contents, the folder): wait for the last one.
        std::optional<std::uint32_t> flags;
        while ((flags = reports_.take(folder)) && !(*flags & fileEventFlags::rootChanged)) {
        }
        ASSERT_TRUE(flags) << round;
        if (round == 2)
            fs::rename(directory_ / "away", removed);
        else
            fs::create_directories(folder);
        ASSERT_TRUE(reports_.take(folder)) << round;
        reports_.forget();
        directory_.write("a/in/file" + std::to_string(round), "x");
        ASSERT_TRUE(reports_.take(folder)) << round;
    }
}

struct Holder final : FileWatcherThread::Client {
    void descriptorIsReadable() override { held.wait(); }
    void mountsDidChange() override {}
    Group held;
};

TEST_F(FileEvents, RescansAfterAnOverflow) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    const auto stream = start({folder});
    std::size_t queueLength = 16384;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queueLength;
    if (queueLength > 100'000) GTEST_SKIP() << "the kernel's queue is too long to overflow";

    // The watching thread is held while the kernel's queue runs over. Different names, as equal records are merged.
    const auto holder = std::make_shared<Holder>();
    holder->held.enter();
    const int readable = eventfd(1, EFD_CLOEXEC);
    FileWatcherThread::shared().add(readable, holder);
    const std::string file = directory_.write("in/a", "");
    for (std::size_t i = 0; i < queueLength; ++i)
        fs::rename(folder + (i % 2 ? "/b" : "/a"), folder + (i % 2 ? "/a" : "/b"));
    fs::create_directory(folder + "/late.velm_job"); // its record is lost
    reports_.forget();
    holder->held.leave();
    FileWatcherThread::shared().remove(readable);
    close(readable);
    EXPECT_TRUE(reports_.take(folder).value_or(0) & fileEventFlags::mustScanSubDirs);
    directory_.write("in/late.velm_job/job.xml", "<job/>");
    EXPECT_TRUE(reports_.take(folder + "/late.velm_job"));
}

TEST_F(FileEvents, SeesWhatComesByWhicheverRoad) {
    const std::string folder = directory_ / "in";
    const auto prepared = [this](const std::string& name) {
        directory_.write("aside/" + name + "/job.xml", "<job/>");
        return directory_ / "aside/" + name;
    };
    const std::pair<const char*, FileEventStream::Options> modes[] = {
        {"listening", {}}, {"looking", {.alwaysPoll = true}}, {"listening at the top alone", {.mostWatches = 1}}};
    for (const auto& [mode, options] : modes) {
        const std::string order = prepared("order.velm_job");
        const auto stream = start({folder}, options);
        const auto sees = [&, what = mode](const std::string& path) {
            EXPECT_TRUE(reports_.take(path)) << what;
            reports_.forget();
        };
        fs::create_directories(folder);
        EXPECT_TRUE(reports_.take(folder).value_or(0) & fileEventFlags::rootChanged) << mode;
        fs::create_hard_link(order + "/job.xml", folder + "/linked.xml");
        sees(folder);
        fs::rename(order, folder + "/order.velm_job");
        sees(folder + "/order.velm_job");
        fs::create_hard_link(folder + "/linked.xml", folder + "/order.velm_job/b.xml");
        sees(folder + "/order.velm_job");
        directory_.write("in/order.velm_job/Images/a.jpg", "x");
        sees(folder + "/order.velm_job");
        fs::remove_all(folder + "/order.velm_job");
        sees(folder);
        fs::remove_all(folder);
        sees(folder);
    }
}

TEST_F(FileEvents, LooksInsteadWhenWatchesRunOutAndListensAgainLater) {
    const support::LogCapture log;
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    const auto clock = std::make_shared<ManualClock>();
    FileEventStream stream({folder}, {.latency = 1s, .mostWatches = 20, .clock = clock}, reports_.callback());
    const QueueRef queue = Queue::serial();
    stream.setQueue(queue);
    ASSERT_TRUE(stream.start());
    const auto passUntil = [&](const std::function<bool()>& condition) {
        for (const auto end = std::chrono::steady_clock::now() + limit; !condition();) {
            if (std::chrono::steady_clock::now() > end) return false;
            clock->advance(100ms);
            queue->sync([] {});
            std::this_thread::yield();
        }
        return true;
    };
    const auto sees = [&](const std::string& path) {
        EXPECT_TRUE(passUntil([&] { return reports_.hasSeen(path); })) << path;
    };
    for (int i = 0; i < 30; ++i)
        fs::create_directory(folder + "/" + std::to_string(i));
    EXPECT_TRUE(stream.isSettling(folder + "/29"));
    for (int i = 0; i < 30; ++i)
        sees(folder + "/" + std::to_string(i));
    reports_.forget();
    directory_.write("in/3/job.xml", "<job/>");
    sees(folder + "/3");
    const auto later = clock->now() + 150s; // two more tries
    EXPECT_TRUE(passUntil([&] { return clock->now() > later; }));
    const auto tells = [](const std::string& line) { return line.find("cannot watch") != std::string::npos; };
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), tells), 1);

    for (int i = 0; i < 25; ++i)
        fs::remove_all(folder + "/" + std::to_string(i));
    EXPECT_TRUE(passUntil([&] { return log.has("watching " + folder + " again"); }));
    directory_.write("in/29/job.xml", "<job/>");
    EXPECT_TRUE(stream.isSettling(folder + "/29")); // known without a look
}

TEST_F(FileEvents, ALookTellsAnotherFileOfTheSameSizeAndTime) {
    const std::string file = directory_.write("in/a.xml", "1");
    const auto before = FolderSnapshot::of(directory_ / "in", false);
    const auto time = fs::last_write_time(file);
    const auto isSeen = [&] {
        fs::rename(directory_.write("b.xml", "2"), file);
        fs::last_write_time(file, time);
        return !before.changesTo(FolderSnapshot::of(directory_ / "in", false)).empty();
    };
    // Until the clock of the volume has moved on.
    const auto end = std::chrono::steady_clock::now() + limit;
    bool seen = false;
    while (!(seen = isSeen()) && std::chrono::steady_clock::now() < end) {
    }
    EXPECT_TRUE(seen);
}

TEST_F(FileEvents, TellsOnlyWhileItRuns) {
    const std::string folder = directory_ / "in";
    const std::string other = directory_ / "other";
    fs::create_directories(folder);
    fs::create_directories(other);
    const auto stream = start({folder, other});
    stream->stop();
    directory_.write("other/stopped", "");
    EXPECT_TRUE(stream->start());
    directory_.write("in/started", "");
    EXPECT_TRUE(reports_.take(folder));
    EXPECT_FALSE(reports_.hasSeen(other));

    FileEventStream nothing({}, {}, reports_.callback());
    nothing.setQueue(Queue::serial());
    EXPECT_FALSE(nothing.start());
    FileEventStream withoutQueue({folder}, {}, reports_.callback());
    EXPECT_FALSE(withoutQueue.start());
}

TEST_F(FileEvents, CopesWithVeryManyFilesAndStreams) {
    const std::string folder = directory_ / "in";
    fs::create_directories(folder);
    std::vector<std::unique_ptr<FileEventStream>> streams;
    for (int i = 0; i < 8; ++i)
        streams.push_back(start({folder}));
    Group group;
    for (int writer = 0; writer < 4; ++writer)
        group.async(Queue::global(), [&, writer] {
            for (int i = 0; i < 300; ++i)
                directory_.write("in/" + std::to_string(writer) + "-" + std::to_string(i), "x");
        });
    EXPECT_TRUE(reports_.take(folder));
    streams.resize(4); // ended in the middle of it
    group.wait();
    reports_.forget();
    directory_.write("in/last", "x");
    EXPECT_TRUE(reports_.take(folder));
}

TEST(InotifyWatches, PassesOverRecordsThatAreCutOff) {
    InotifyWatches watches;
    for (std::size_t size = 0; size < 64; ++size)
        watches.parse(std::string(size, '\xff'), [](const InotifyWatches::Record& record) {
            EXPECT_TRUE(record.folder.empty()); // all bits set count as lost events
        });
}

// The grouping by the latency, with a clock of the test's own. A step is its time in milliseconds, a change ("-" for
// none; with "~" one that settles, with its quiet time behind that), and all that is delivered by then, each delivery
// in brackets.
struct GroupingCase {
    const char* name;
    bool noDefer;
    const char* steps;
};

void deliver(const GroupingCase& test) {
    const auto clock = std::make_shared<ManualClock>();
    clock->advance(1h);
    std::string delivered = "-";
    const auto collector = std::make_shared<EventCollector>(
        FileEventStream::Options{.latency = 1s, .noDefer = test.noDefer, .clock = clock},
        [&](const auto& paths, const auto&) {
            delivered += "[";
            for (const std::string& path : paths)
                delivered += path;
            delivered += "]";
        });
    const QueueRef queue = Queue::serial();
    collector->setQueue(queue);
    collector->start();
    const auto begin = clock->now();
    std::istringstream steps(test.steps);
    int milliseconds;
    std::string change, expected;
    while (steps >> milliseconds >> change >> expected) {
        // In small steps, since a look may ask for another one.
        while (clock->now() < begin + std::chrono::milliseconds(milliseconds)) {
            clock->advance(50ms);
            queue->sync([] {});
        }
        const std::size_t mark = change.find('~');
        const bool isSettling = mark != std::string::npos;
        const std::chrono::milliseconds quietTime(isSettling ? std::atoi(&change[mark + 1]) : 0);
        if (change != "-") collector->add({{change.substr(0, mark), 0, isSettling, quietTime}});
        queue->sync([&] { EXPECT_EQ(delivered, expected) << test.name << " at " << milliseconds; });
    }
}

TEST(EventGrouping, FollowsTheLatency) {
    const GroupingCase cases[] = {
        {"first at once, then grouped", true,
         "0 a -[a]  500 b -[a]  900 c -[a]  950 - -[a]  1000 - -[a][bc]  3000 d -[a][bc][d]"},
        {"all wait without no-defer", false, "0 a -  900 b -  1000 - -[ab]  2500 - -[ab]"},
        {"what is being made waits until it is quiet", true, "0 a~ -  800 a~ -  1600 a~ -  2550 - -  2600 - -[a]"},
        {"but not for ever", true,
         "0 a~ -  900 a~ -  1800 a~ -  2700 a~ -  3600 a~ -  4500 a~ -  4950 a~ -  5000 - -[a] "
         "5100 b~ -[a]  6050 - -[a]  6100 - -[a][b]"},
        {"what is finished takes along what is being made", true, "0 a~ -  300 b -[ab]  400 c~ -[ab]  1400 - -[ab][c]"},
        {"but not what changes inside a folder", true,
         "0 f~1000 -  300 b -[b]  900 f~1000 -[b]  1850 g~3000 -[b] "
         "1900 - -[b][f]  4800 - -[b][f]  4850 - -[b][f][g]"},
    };
    for (const GroupingCase& test : cases)
        deliver(test);
}

} // namespace
