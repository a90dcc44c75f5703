// Very many orders dropped at once, tickets and then bundles, while the kernel's queue of events runs over: all must be
// listed in the order of their dates, each read once, and one more must cost no second reading of the others.
//   velm_soak_flood [--short] [--tickets N] [--bundles N] [--orders N]   (orders: how many are run then)
//
// The engine and its judge are a child of the program. The parent stops the child while it drops the orders, so that
// nobody reads the kernel's queue meanwhile; the records of all orders are lost behind those that filled it.
#include "soak/support/Engine.h"
#include "soak/support/Figures.h"
#include "soak/support/SoakHome.h"

#include "base/Log.h"
#include "base/Path.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <mutex>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using soak::SoakHome;
using Clock = std::chrono::steady_clock;
using Names = std::vector<std::string>;

constexpr std::chrono::seconds limit(900);

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Orders of one kind: their numbers, and where they are made and dropped.
struct Crowd {
    const char* name;
    bool areBundles;
    int first;
    int count;
    fs::path folder;
};

/// The time of a number's ticket: scattered, so that neither names nor the disk give the order away, and even.
std::time_t dateOf(int number, int total) {
    constexpr std::int64_t stride = 1'000'003; // a prime above any count
    constexpr std::time_t begin = 1'600'000'000;
    return begin + 2 * static_cast<std::time_t>((number * stride) % total);
}

/// An order that makes nothing; each reading of its ticket leaves a line in the log.
fs::path makeOrder(const SoakHome& home, const Crowd& crowd, int number, std::time_t date) {
    constexpr const char* text = "<data type=\"VELM_Job\" version=\"1.0\"><parsed/><package "
                                 "name=\"Nothing\"><image1>a.jpg</image1></package></data>";
    const fs::path item =
        home.path() / "Arriving" / (SoakHome::pictureName(number) + (crowd.areBundles ? ".velm_job" : ".xml"));
    const fs::path ticket = crowd.areBundles ? item / "job.xml" : item;
    if (crowd.areBundles) SoakHome::write(item / "Images/a.jpg", "no picture");
    SoakHome::write(ticket, text);
    const timespec times[2] = {{date, 0}, {date, 0}};
    utimensat(AT_FDCWD, ticket.c_str(), times, 0);
    return item;
}

// The parent --------------------------------------------------------------------------------------------------------

std::size_t lengthOfKernelQueue() {
    std::size_t length = 16384;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> length;
    return length;
}

/// Fills the kernel's queue for whoever watches the folder, then moves the crowd in.
void drop(const SoakHome& home, const Crowd& crowd) {
    const fs::path names[] = {crowd.folder / "one", crowd.folder / "other"};
    SoakHome::write(names[0], "");
    for (std::size_t i = 0; i < lengthOfKernelQueue(); ++i)
        fs::rename(names[i % 2], names[1 - i % 2]);
    fs::remove(names[lengthOfKernelQueue() % 2]);
    for (const auto& entry : fs::directory_iterator(home.path() / "Arriving"))
        fs::rename(entry.path(), crowd.folder / entry.path().filename());
}

/// Drops a crowd for each byte that the engine's process writes, while that stands still.
int serve(const SoakHome& home, const std::vector<Crowd>& crowds, pid_t engine, int requests, int replies) {
    int status = 0;
    unsigned char index = 0;
    while (read(requests, &index, 1) == 1) {
        kill(engine, SIGSTOP);
        waitpid(engine, &status, WUNTRACED);
        drop(home, crowds[index]);
        kill(engine, SIGCONT);
        static_cast<void>(!write(replies, &index, 1));
    }
    waitpid(engine, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

// The child ---------------------------------------------------------------------------------------------------------

struct LogCounts {
    std::atomic<std::int64_t> readings{0};
    std::atomic<std::int64_t> scansOfAll{0}; ///< Reports that events were lost.
};

class Judge {
public:
    Judge(const SoakHome& home, int requests, int replies)
        : home_(home), requests_(requests), replies_(replies),
          engine_({.home = home.path().string(), .isPaused = true}) {
        base::setLogSink([this](std::string_view line) {
            if (line.find("unrecognized element parsed") != line.npos) ++counts_.readings;
            if (line.find("handleFileEventpaths") != line.npos && line.find("(\n    1\n") != line.npos)
                ++counts_.scansOfAll;
        });
        finished_ = VELM_JobFolders::observeFinishedJobs([this](const VELM_JobFolders::FinishedJob& finished) {
            const std::lock_guard lock(mutex_);
            finishedNames_.push_back(finished.job->name());
        });
        figures_.promise("both folders are watched", engine_.awaitWatching(limit));
    }

    void flood(const Crowd& crowd, unsigned char index, int total) {
        const std::string name = crowd.name;
        const auto before = soak::Footprint::ofThisProcess();
        const std::int64_t readings = counts_.readings, scans = counts_.scansOfAll;
        unsigned char reply = 0;
        static_cast<void>(!write(requests_, &index, 1));
        static_cast<void>(!read(replies_, &reply, 1));
        const auto start = Clock::now();
        for (int number = crowd.first; number < crowd.first + crowd.count; ++number)
            expected_.emplace_back(dateOf(number, total), SoakHome::pictureName(number));
        expectList(name);
        const double seconds = secondsSince(start);
        const auto after = soak::Footprint::ofThisProcess();

        figures_.promise(name + ": the kernel's queue ran over", counts_.scansOfAll > scans);
        figures_.promise(name + ": each is read once", counts_.readings - readings == crowd.count,
                         std::to_string(counts_.readings - readings) + " readings");
        figures_.add(name, std::int64_t{crowd.count});
        figures_.add(name + ": listed in", seconds, "s");
        figures_.add(name + ": time of one", seconds / crowd.count * 1e6, "us");
        figures_.add(name + ": memory of one",
                     static_cast<double>(after.anonymousKilobytes - before.anonymousKilobytes) / crowd.count, "KB");
        figures_.add(name + ": watches", after.watches - before.watches);
    }

    /// Drops an order among those that are pending.
    void addOne(const Crowd& crowd, int number, std::time_t date) {
        const std::string name = std::string(crowd.name) + ": one more";
        const std::int64_t readings = counts_.readings;
        const fs::path made = makeOrder(home_, crowd, number, date);
        expected_.emplace_back(date, SoakHome::pictureName(number));
        const auto start = Clock::now();
        fs::rename(made, crowd.folder / made.filename());
        expectList(name);
        figures_.add(name + " is listed in", secondsSince(start) * 1e3, "ms");
        figures_.promise(name + ": it alone is read", counts_.readings - readings == 1,
                         std::to_string(counts_.readings - readings) + " readings");
    }

    /// Runs the oldest ones; one that is older than all comes while they run.
    void run(const Crowd& crowd, std::size_t count, int numberOfLate) {
        const std::string late = SoakHome::pictureName(numberOfLate);
        const fs::path made = makeOrder(home_, crowd, numberOfLate, 1);
        Names order = sortedNames();
        const std::int64_t readings = counts_.readings;
        const auto start = Clock::now();
        soak::Engine::setRunning(true);
        const bool hasBegun = engine_.runUntil([&] { return finishedNames().size() >= count / 2; }, limit);
        fs::rename(made, crowd.folder / made.filename());
        const bool areRun = engine_.runUntil([&] { return finishedNames().size() >= count; }, limit);
        soak::Engine::setRunning(false);
        engine_.runUntil([] { return !VELM_JobFolders::isProcessing(); }, limit);
        const double seconds = secondsSince(start);

        Names names = finishedNames();
        figures_.promise("orders run on", hasBegun && areRun, std::to_string(names.size()) + " were run");
        const auto found = std::find(names.begin(), names.end(), late);
        figures_.promise("an older one that comes late is run before the others", found != names.end());
        if (found != names.end()) names.erase(found);
        order.resize(std::min(order.size(), names.size()));
        figures_.promise("orders are run in the order of their dates", order == names);
        figures_.promise("none is read again while they run", counts_.readings - readings == 1,
                         std::to_string(counts_.readings - readings) + " readings");
        figures_.add("orders run", static_cast<std::int64_t>(finishedNames().size()));
        figures_.add("time of one", seconds / static_cast<double>(finishedNames().size()) * 1e3, "ms");
        const auto inCompleted = static_cast<std::size_t>(
            std::distance(fs::directory_iterator(home_.completed()), fs::directory_iterator()));
        figures_.promise("each stands in Completed", inCompleted == finishedNames().size(),
                         std::to_string(inCompleted) + " items");
    }

    int conclude() {
        const auto footprint = soak::Footprint::ofThisProcess();
        figures_.add("peak of memory", static_cast<double>(footprint.peakKilobytes) / 1024, "MB");
        figures_.add("threads", footprint.threads);
        return figures_.conclude("flood");
    }

private:
    Names sortedNames() {
        std::sort(expected_.begin(), expected_.end());
        Names names;
        for (const auto& [date, name] : expected_)
            names.push_back(name);
        return names;
    }

    Names finishedNames() {
        const std::lock_guard lock(mutex_);
        return finishedNames_;
    }

    static Names pendingNames() {
        Names names;
        for (const VELM_Job::Ref& job : VELM_JobFolders::jobsPending())
            names.push_back(job->name());
        return names;
    }

    void expectList(const std::string& name) {
        const bool areListed =
            engine_.runUntil([this] { return VELM_JobFolders::jobsPending().size() == expected_.size(); }, limit);
        const Names pending = pendingNames();
        figures_.promise(name + ": all are listed", areListed,
                         std::to_string(pending.size()) + " of " + std::to_string(expected_.size()));
        figures_.promise(name + ": in the order of their dates", pending == sortedNames());
    }

    const SoakHome& home_;
    const int requests_;
    const int replies_;
    soak::Figures figures_;
    LogCounts counts_;
    std::vector<std::pair<std::time_t, std::string>> expected_;
    std::mutex mutex_;
    Names finishedNames_;
    soak::Engine engine_;
    platform::run::Observation finished_;
};

} // namespace

int main(int count, char** arguments) {
    const soak::Knobs knobs(count, arguments);
    const auto tickets = static_cast<int>(knobs.number("tickets", 3000, 50'000));
    const auto bundles = static_cast<int>(knobs.number("bundles", 500, 10'000));
    const auto orders = static_cast<std::size_t>(knobs.number("orders", 30, 300));
    const int total = tickets + bundles;
    const SoakHome home;
    home.addIdlePackage();
    const std::vector<Crowd> crowds{{"tickets", false, 0, tickets, home.tickets()},
                                    {"bundles", true, tickets, bundles, home.bundles()}};

    int requests[2], replies[2];
    if (pipe(requests) != 0 || pipe(replies) != 0) {
        std::perror("cannot make a pipe");
        return 2;
    }
    const pid_t engine = fork();
    if (engine != 0) {
        close(requests[1]);
        close(replies[0]);
        return serve(home, crowds, engine, requests[0], replies[1]);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(requests[0]);
    close(replies[1]);

    auto& judge = *new Judge(home, requests[1], replies[0]); // the engine's threads use it to the end
    for (std::size_t index = 0; index < crowds.size(); ++index) {
        const Crowd& crowd = crowds[index];
        for (int number = crowd.first; number < crowd.first + crowd.count; ++number)
            makeOrder(home, crowd, number, dateOf(number, total));
        judge.flood(crowd, static_cast<unsigned char>(index), total);
        judge.addOne(crowd, total + static_cast<int>(index), dateOf(crowd.first + crowd.count / 2, total) + 1);
    }
    judge.run(crowds.front(), orders, total + 2);
    soak::Engine::endProcess(judge.conclude());
}
