#include "internal/JobDisposal.h"
#include "internal/TestBed.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/data/Dates.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/FileTypes.h"
#include "platform/run/MainQueue.h"

#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <future>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

using namespace jobs::testing;
using base::URL;

namespace {

namespace fs = std::filesystem;

/// The engine on one watched folder, with real files, the test's thread as the main queue and a clock that is told to
/// advance.
class JobFolders : public ::testing::Test {
protected:
    void SetUp() override {
        platform::run::setClock(manualClock());
        fs::remove_all(home() / "engine");
        for (const char* folder : {"Watched", "Completed", "Failed", "Packages"})
            fs::create_directories(home() / ("engine/" + std::string(folder)));
        for (const auto key : {key_savedJobFolders, key_velmProcessorIsRunning, key_velmProcessorJobsCompleted,
                               key_velmProcessorJobsFailed})
            ASSERT_TRUE(defaults().removeObject(key));
        ASSERT_TRUE(defaults().setObject(home() / "engine/Completed", key_velmFolderJobsCompleted));
        ASSERT_TRUE(defaults().setObject(home() / "engine/Failed", key_velmFolderJobsFailed));
        ASSERT_TRUE(defaults().setObject(home() / "engine/Packages", key_velmFolderPackages));
        home().write("engine/Packages/good.xml", packageFile("type='VELM_Package' version='1.0' name='GoodLS'"));
        VELM_JobFolders::startOver();
    }
    void TearDown() override {
        platform::data::setDateSource(nullptr);
        finishedToken_.end();
        pump([] { return !VELM_JobFolders::isProcessing(); });
        VELM_JobFolders::startOver();
        platform::run::setClock(nullptr);
    }

    /// Makes this folder the only one and starts the engine.
    void watch(std::string_view type = platform::data::kUTType_VELM_Job) {
        folder_ = VELM_JobFolders::initWithName("Test", URL::fileURLWithPath(home() / "engine/Watched"));
        folder_->setJobFileUTType(type);
        VELM_JobFolders::classObject().setFolderSets({folder_});
        finishedToken_ = VELM_JobFolders::observeFinishedJobs([this](const VELM_JobFolders::FinishedJob& finished) {
            std::unique_lock lock(mutex_);
            finished_.push_back(finished);
            if (whenFinished_) whenFinished_(finished_.size());
            released_.wait(lock, [this] { return !isHeld_; });
        });
        ASSERT_TRUE(pump([this] { return folder_->fileEvent() && folder_->fileEvent()->isRunning(); }));
    }

    /// Lets time pass, and the main queue run, until the condition holds.
    template <class Condition>
    bool pump(const Condition& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            manualClock()->advance(std::chrono::milliseconds(100));
            loop_.runUntil(condition, std::chrono::milliseconds(5));
        }
        return true;
    }
    /// Long enough for what must not happen to happen.
    void settle() {
        for (int round = 0; round < 30; ++round) {
            manualClock()->advance(std::chrono::milliseconds(200));
            loop_.runUntil([] { return false; }, std::chrono::milliseconds(5));
        }
    }
    bool listed(std::size_t count) {
        return pump([count] { return VELM_JobFolders::jobsPending().size() == count; });
    }
    bool finished(std::size_t count) {
        return pump([this, count] { return finishedJobs().size() == count && !VELM_JobFolders::isProcessing(); });
    }
    std::vector<VELM_JobFolders::FinishedJob> finishedJobs() {
        std::lock_guard lock(mutex_);
        return finished_;
    }
    /// While held, a job that has ended keeps its slot.
    void holdJobs(bool held) {
        {
            std::lock_guard lock(mutex_);
            isHeld_ = held;
        }
        released_.notify_all();
    }
    static void setRunning(bool running) { ASSERT_TRUE(defaults().setObject(running, key_velmProcessorIsRunning)); }
    /// Made aside and moved in whole. `age` makes the ticket older, in seconds.
    static void drop(const std::string& name, std::string_view elements, int age = 0) {
        const std::string aside = "engine/Aside/" + name;
        const std::string ticket = home().write(aside + "/job.xml", nativeTicket(elements));
        ASSERT_TRUE(platform::data::setDateModified(URL::fileURLWithPath(ticket),
                                                    platform::data::now() - std::chrono::seconds(age)));
        fs::rename(home() / aside, home() / ("engine/Watched/" + name));
    }
    static std::vector<std::string> namesIn(std::string_view folder) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(home() / ("engine/" + std::string(folder))))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    platform::run::RunLoop loop_;
    VELM_JobFolders::Ref folder_;
    std::mutex mutex_;
    std::condition_variable released_;
    bool isHeld_ = false;
    std::vector<VELM_JobFolders::FinishedJob> finished_;
    std::function<void(std::size_t count)> whenFinished_; ///< Called on the job's thread once its file is moved.
    platform::run::Observation finishedToken_;
};

constexpr const char* goodOrder = "<package name='Good'/>";

} // namespace

TEST_F(JobFolders, PauseLetsTheRunningJobEnd) {
    watch();
    holdJobs(true);
    setRunning(true);
    drop("a.velm_job", goodOrder, 20);
    drop("b.velm_job", goodOrder, 10);
    ASSERT_TRUE(pump([this] { return finishedJobs().size() == 1; }));
    EXPECT_TRUE(VELM_JobFolders::isProcessing());
    setRunning(false);
    holdJobs(false);
    ASSERT_TRUE(pump([] { return !VELM_JobFolders::isProcessing(); }));
    ASSERT_TRUE(listed(1));
    settle();
    EXPECT_EQ(finishedJobs().size(), 1U);
    setRunning(true);
    EXPECT_TRUE(finished(2));
}

TEST_F(JobFolders, RunsAnOrderThatComesUnderTheNameOfOneThatHasJustEnded) {
    watch();
    whenFinished_ = [](std::size_t count) {
        if (count == 2) { // or the third would have the first one's name, if all end within one second
            fs::rename(home() / "engine/Completed", home() / "engine/CompletedBefore");
            fs::create_directories(home() / "engine/Completed");
        }
        if (count < 3) drop("same.velm_job", count == 1 ? "<package name='Nowhere'/>" : goodOrder);
    };
    setRunning(true);
    drop("same.velm_job", goodOrder);
    ASSERT_TRUE(finished(3));
    const auto ended = finishedJobs();
    EXPECT_TRUE(ended[0].success);
    EXPECT_FALSE(ended[1].success); // read anew, not the ticket before it again
    EXPECT_TRUE(ended[2].success);
    ASSERT_TRUE(listed(0));
    EXPECT_TRUE(namesIn("Watched").empty());

    VELM_JobFolders::processJob(ended[0].job); // its file is another's now, or nobody's
    settle();
    EXPECT_EQ(finishedJobs().size(), 3U);
}

TEST_F(JobFolders, MovesNothingToAPlaceThatIsNoPath) {
    watch();
    LogCapture log;
    ASSERT_TRUE(defaults().setObject("", key_velmFolderJobsCompleted));
    ASSERT_TRUE(defaults().setObject("relative/folder", key_velmFolderJobsFailed));
    setRunning(true);
    drop("good.velm_job", goodOrder);
    ASSERT_TRUE(finished(1));
    EXPECT_TRUE(log.has("Failed to get (null) for jobfile:file://"));
    EXPECT_EQ(defaults().integerForKey(key_velmProcessorJobsCompleted), 0);
    fs::remove_all(home() / "engine/Watched/good.velm_job");
    drop("bad.velm_job", "<package name='Nowhere'/>");
    ASSERT_TRUE(finished(2));
    EXPECT_EQ(namesIn("Watched"), std::vector<std::string>{"bad.velm_job"});
    for (const auto& ended : finishedJobs()) {
        EXPECT_TRUE(ended.moveError);
        EXPECT_FALSE(ended.destination);
    }
}

TEST_F(JobFolders, OneThreadOfManyWinsTheSlot) {
    watch();
    drop("a.velm_job", goodOrder);
    ASSERT_TRUE(listed(1));
    const auto job = VELM_JobFolders::jobsPending()[0];
    std::atomic<int> returned = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back([&] {
            job->processToCompletion(); // whatever the run flag says
            ++returned;
        });
    EXPECT_TRUE(pump([&] { return returned == 8; }));
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(finishedJobs().size(), 1U);
    EXPECT_EQ(namesIn("Completed").size(), 1U);
}

TEST_F(JobFolders, AWaitingJobWhoseFileGoesGivesUp) {
    watch();
    holdJobs(true);
    drop("a.velm_job", goodOrder, 20);
    drop("b.velm_job", goodOrder, 10);
    ASSERT_TRUE(listed(2));
    const auto pending = VELM_JobFolders::jobsPending();
    std::thread first([&] { VELM_JobFolders::processJob(pending[0]); });
    ASSERT_TRUE(pump([this] { return finishedJobs().size() == 1; }));
    std::atomic<bool> secondReturned = false;
    std::thread second([&] {
        VELM_JobFolders::processJob(pending[1]);
        secondReturned = true;
    });
    settle();
    EXPECT_FALSE(secondReturned);
    fs::remove_all(home() / "engine/Watched/b.velm_job");
    ASSERT_TRUE(listed(0));
    holdJobs(false);
    EXPECT_TRUE(pump([&] { return secondReturned.load(); }));
    first.join();
    second.join();
    EXPECT_EQ(finishedJobs().size(), 1U);
    EXPECT_EQ(VELM_JobFolders::currentJob(), pending[0]);
}

TEST_F(JobFolders, ReadsSingleTicketsAndCopiesForeignOnes) {
    watch(platform::data::kUTTypeXML);
    LogCapture log;
    const std::string foreign = "<o><plucode>Good</plucode><imagepath>/p/a.jpg</imagepath></o>";
    home().write("engine/Watched/order.xml", foreign.substr(0, 30));
    home().write("engine/Watched/receipt-order.xml", foreign);
    settle();
    EXPECT_TRUE(VELM_JobFolders::jobsPending().empty());
    home().write("engine/Watched/order.xml", foreign);
    ASSERT_TRUE(listed(1));
    EXPECT_EQ(VELM_JobFolders::jobsPending()[0]->graphicPath(), "/p/a.jpg");
    EXPECT_TRUE(log.has("DID write job(null)"));
    const auto copy = VELM_Job::instanceWithXMLObject("/tmp/test.velm_job");
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->jobType(), "velm_job");
    setRunning(true);
    ASSERT_TRUE(finished(1));
    EXPECT_TRUE(finishedJobs()[0].success);
    EXPECT_TRUE(log.has("Job completed successfully? Yes (error:(null))"));
    EXPECT_EQ(finishedJobs()[0].destination->pathExtension(), "xml");
    EXPECT_EQ(namesIn("Watched"), (std::vector<std::string>{"receipt-order.xml"}));
}

TEST_F(JobFolders, ADisabledFolderHasNoJobs) {
    watch();
    drop("a.velm_job", goodOrder);
    ASSERT_TRUE(listed(1));
    EXPECT_NE(folder_->description().find(">{ENabled;"), std::string::npos);
    int changes = 0;
    const auto token = VELM_JobFolders::classObject().observable().observe(VELM_JobFolders::key_enabledFolders,
                                                                           [&changes] { ++changes; });
    folder_->setEnabled(false);
    EXPECT_TRUE(VELM_JobFolders::jobsPending().empty());
    EXPECT_FALSE(folder_->fileEvent());
    EXPECT_FALSE(VELM_JobFolders::defaultJobFolder());
    folder_->setEnabled(true);
    EXPECT_TRUE(listed(1));
    EXPECT_EQ(changes, 2);
    VELM_JobFolders::classObject().removeFolderSet(folder_);
    EXPECT_TRUE(listed(0)) << "nor has one that was taken out of the list";
    VELM_JobFolders::classObject().addFolderSet(folder_);
    EXPECT_TRUE(listed(1));

    folder_->setAddJobsPendingPathComponents(true);
    folder_->configureJobsFolder();
    EXPECT_TRUE(VELM_JobFolders::jobsPending().empty());
    EXPECT_TRUE(fs::is_directory(home() / "engine/Watched/Jobs/Pending"));
}

TEST_F(JobFolders, AFolderThatCannotBeMadeIsNotWatchedAndNeitherIsTheOneBefore) {
    watch();
    LogCapture log;
    drop("a.velm_job", goodOrder);
    ASSERT_TRUE(listed(1));
    auto stream = folder_->fileEvent();
    std::promise<void> held; // a scan that is still to come when its stream has gone
    stream->eventQueue()->async([future = held.get_future().share()] { future.wait(); });
    stream->handleFileEventpaths(stream->observedPaths(), {});
    stream.reset();
    folder_->setURL(URL::fileURLWithPath(home().write("engine/File", "") + "/inside"));
    held.set_value();
    EXPECT_FALSE(folder_->fileEvent());
    EXPECT_TRUE(log.has("ERROR: "));
    drop("b.velm_job", goodOrder);
    settle();
    EXPECT_TRUE(VELM_JobFolders::jobsPending().empty());
}

TEST_F(JobFolders, AnOrderThatCannotBeMovedSaysWhyAndIsNotLost) {
    watch();
    LogCapture log;
    platform::data::setDateSource([date = platform::data::now()] { return date; }); // all within one second
    setRunning(true);
    drop("same.velm_job", "<package name='Good'><image1>first</image1></package>");
    ASSERT_TRUE(finished(1) && listed(0));
    drop("same.velm_job", goodOrder);
    ASSERT_TRUE(finished(2));
    drop("waits.velm_job", goodOrder, 1000);
    ASSERT_TRUE(listed(2));
    settle();
    EXPECT_EQ(finishedJobs().size(), 2U) << "the one that is stuck blocks an older one too, and runs once";
    const std::string destination = finishedJobs()[0].destination->path();
    EXPECT_EQ(finishedJobs()[1].destination->path(), destination);
    const std::string words = finishedJobs()[1].moveError->localizedDescription;
    EXPECT_TRUE(words.starts_with("cannot move " + home() / "engine/Watched/same.velm_job to " + destination + ": "))
        << words;
    EXPECT_TRUE(log.has("Failed to move completed job to file://"));
    EXPECT_NE(support::readFile(destination + "/job.xml").find("first"), std::string::npos) << "overwritten";

    // Out of the way under another name it runs again.
    fs::rename(home() / "engine/Watched/same.velm_job", home() / "engine/Watched/same2.velm_job");
    ASSERT_TRUE(finished(4) && listed(0));
    // A folder that leaves the list takes what blocks along.
    drop("same.velm_job", goodOrder);
    ASSERT_TRUE(finished(5));
    const auto other = VELM_JobFolders::initWithName("Other", URL::fileURLWithPath(home() / "engine/Other"));
    VELM_JobFolders::classObject().addFolderSet(other);
    other->configureJobsFolder();
    home().write("engine/Other/next.velm_job/job.xml", nativeTicket(goodOrder));
    ASSERT_TRUE(listed(2));
    VELM_JobFolders::classObject().removeFolderSet(folder_);
    EXPECT_TRUE(finished(6));
}

TEST_F(JobFolders, AnOrderThatIsRemovedWhileItRunsBlocksNothing) {
    watch();
    const auto token = VELM_JobFolders::classObject().observable().observe(VELM_JobFolders::key_isProcessing, [] {
        if (VELM_JobFolders::isProcessing()) fs::remove_all(home() / "engine/Watched/gone.velm_job");
    });
    setRunning(true);
    drop("gone.velm_job", goodOrder, 20);
    ASSERT_TRUE(finished(1));
    EXPECT_TRUE(finishedJobs()[0].moveError->localizedDescription.ends_with(": it is not there any more"));
    drop("next.velm_job", goodOrder, 30);
    EXPECT_TRUE(finished(2));
    EXPECT_TRUE(listed(0));
}

TEST_F(JobFolders, StartsTheOldestJobThatHasBeenStill) {
    constexpr auto stillness = std::chrono::seconds(1000); // by the test's clock
    watch();
    folder_->setSettleSeconds(1000);
    std::atomic<int> told = 0;
    const auto token = VELM_JobFolders::observeSettlingJobs([&told](const VELM_Job::Ref&, double) { ++told; });
    setRunning(true);
    drop("touched.velm_job", goodOrder, 30);
    drop("removed.velm_job", goodOrder, 20);
    drop("future.velm_job", goodOrder, -1'000'000);
    drop("hasty.velm_job", goodOrder, 10);
    ASSERT_TRUE(listed(4));
    settle();
    const auto pending = VELM_JobFolders::jobsPending();
    EXPECT_EQ(pending[0]->name() + pending[3]->name(), "touchedfuture") << "the order is by date all the same";
    EXPECT_TRUE(finishedJobs().empty());
    EXPECT_TRUE(VELM_JobFolders::isSettling(pending[0]));
    EXPECT_EQ(told, 4);

    std::thread byHand([&] { pending[2]->processToCompletion(); });
    ASSERT_TRUE(finished(1) && listed(3)) << "asked for by hand it does not wait";
    byHand.join();
    EXPECT_EQ(finishedJobs()[0].job->name(), "hasty");

    // The system's clock jumps ahead, which makes nothing older.
    platform::data::setDateSource([] { return base::Date(std::chrono::system_clock::now() + std::chrono::hours(24)); });
    home().write("engine/Watched/touched.velm_job/Images/more.jpg", "more");
    fs::remove_all(home() / "engine/Watched/removed.velm_job");
    ASSERT_TRUE(listed(2));
    manualClock()->advance(stillness);
    ASSERT_TRUE(finished(2));
    EXPECT_EQ(finishedJobs()[1].job->name(), "future") << "a younger one that is still goes first";
    settle();
    EXPECT_EQ(finishedJobs().size(), 2U);
    manualClock()->advance(stillness);
    ASSERT_TRUE(finished(3));
    EXPECT_EQ(finishedJobs()[2].job->name(), "touched");
    EXPECT_EQ(told, 4) << "each is told of once";

    // What has been still before the engine sees it need not wait again.
    setRunning(false);
    drop("lay.velm_job", goodOrder);
    ASSERT_TRUE(listed(1));
    platform::data::setDateSource([] { return base::Date(std::chrono::system_clock::now() + std::chrono::hours(48)); });
    setRunning(true);
    EXPECT_TRUE(finished(4));
}

TEST_F(JobFolders, AnythingButAPositiveNumberAsksForNoStillness) {
    watch();
    const std::pair<base::Value, double> cases[] = {{{}, 0},  {0, 0},    {-5, 0}, {std::nan(""), 0},
                                                    {"5", 0}, {true, 0}, {3, 3},  {2.5, 2.5}};
    for (const auto& [value, expected] : cases) {
        folder_->setProperty("settleSeconds", value);
        EXPECT_EQ(folder_->settleSeconds(), expected);
    }
    folder_->setProperty("settleSeconds", std::numeric_limits<double>::infinity());
    drop("a.velm_job", goodOrder);
    ASSERT_TRUE(listed(1));
    EXPECT_TRUE(VELM_JobFolders::isSettling(VELM_JobFolders::jobsPending()[0]));
}

TEST_F(JobFolders, ListsWhatAFolderHoldsWithoutTheEngine) {
    home().write("engine/Watched/empty.velm_job/Images/a.jpg", "x");
    const VELM_JobFolders folder("Test", URL::fileURLWithPath(home() / "engine/Watched"));
    ASSERT_EQ(folder.listing().unreadable.size(), 1U);
    EXPECT_EQ(folder.listing().unreadable[0].second.code, ENOENT);
    const VELM_JobFolders missing("Missing", URL::fileURLWithPath(home() / "engine/Nowhere"));
    EXPECT_EQ(missing.listing().unreadable.size(), 1U);
    EXPECT_FALSE(fs::exists(home() / "engine/Nowhere"));
}

TEST_F(JobFolders, TakesJobFilesFromOutside) {
    watch();
    LogCapture log;
    const std::string order = home().write("engine/Outside/o.velm_job/job.xml", nativeTicket(goodOrder));
    const std::string text = home().write("engine/Outside/o.txt", "x");
    VELM_JobFolders::addJobFiles(
        {URL::fileURLWithPath(base::deletingLastPathComponent(order)), URL::fileURLWithPath(text)});
    EXPECT_TRUE(listed(1));
    EXPECT_TRUE(log.has("request to open unsupported file type public.plain-text at file://"));
    EXPECT_TRUE(fs::exists(text));
    folder_->setJobFileUTType(platform::data::kUTTypeXML);
    VELM_JobFolders::addJobFiles({URL::fileURLWithPath(text)});
    EXPECT_TRUE(log.has("Failed to find job folder at (null)"));
}

TEST_F(JobFolders, LoadsDefaultAndSavedFolders) {
    auto sets = VELM_JobFolders::classObject().folderSets();
    ASSERT_EQ(sets.size(), 2U);
    const auto processor = std::dynamic_pointer_cast<VELM_JobFolders>(sets[0]);
    const auto foreign = std::dynamic_pointer_cast<VELM_JobFolders>(sets[1]);
    ASSERT_TRUE(processor && foreign);
    EXPECT_EQ(processor->name() + "|" + foreign->name(), "Old VELM Processor Folder ƒ|Sorrel Prints Folder");
    EXPECT_EQ(processor->urlOfJobs().path(),
              (home() / "Applications/VELM OS X Share Folder/Velm-Processor Folder ƒ/Jobs/Pending"));
    EXPECT_TRUE(processor->enabled() && processor->hasFixedName());
    EXPECT_EQ(foreign->urlOfJobs().path(), home() / "Sorrel/Prints");
    EXPECT_EQ(VELM_JobFolders::defaultJobFolder(), processor);

    // What is saved comes back, and other sets than the first of these take XML files whatever was saved.
    foreign->setJobFileUTType("public.image");
    processor->setAddJobsPendingPathComponents(false);
    ASSERT_TRUE(pump([] { return defaults().dataForKey(key_savedJobFolders).has_value(); }));
    VELM_JobFolders::startOver();
    sets = VELM_JobFolders::classObject().folderSets();
    ASSERT_EQ(sets.size(), 2U);
    EXPECT_NE(sets[0], processor);
    EXPECT_TRUE(std::dynamic_pointer_cast<VELM_JobFolders>(sets[0])->addJobsPendingPathComponents());
    EXPECT_EQ(std::dynamic_pointer_cast<VELM_JobFolders>(sets[1])->jobFileUTType(), platform::data::kUTTypeXML);
    EXPECT_EQ(sets[1]->URL().path(), home() / "Sorrel/Prints");
}

TEST(JobDisposal, StampsNamesOnce) {
    const base::Date date = platform::data::now();
    const std::string stamp = platform::data::stringWithUTSFormat(date, "yyyyMMdd-HHmmss");
    const struct {
        const char* name;
        const char* expected; ///< With an @ for the stamp.
    } cases[] = {
        {"order7.velm_job", "order7.@.velm_job"},
        {"order7.20260315-101112.velm_job", "order7.@.velm_job"},
        {"order7.20260315-101112.21991231-235959.xml", "order7.@.xml"},
        {"order7.19991231-235959.xml", "order7.19991231-235959.@.xml"},
        {"order7.20260315-101112x.xml", "order7.20260315-101112x.@.xml"},
        {"order.7.xml", "order.7.@.xml"},
        {"order7", "order7.@"},
    };
    for (const auto& c : cases) {
        std::string expected = c.expected;
        expected.replace(expected.find('@'), 1, stamp);
        EXPECT_EQ(jobs::stampedFileName(c.name, date), expected);
    }
}
