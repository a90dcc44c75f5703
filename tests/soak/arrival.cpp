// Orders that come slowly, in pieces, under other names first, as hard links, by several writers at once, with events
// and by looking: each runs exactly once, and none before it is whole. Then orders that are removed or replaced while
// they are listed, and orders that pause longer than the engine waits, in folders that are told to let them settle.
//   velm_soak_arrival [--short] [--rounds N] [--home FOLDER] [--log FILE]   (FOLDER: on a volume to be tried; made
//   anew, kept)
#include "soak/arrival_manners.h"
#include "soak/support/Engine.h"
#include "soak/support/Figures.h"

#include "folders/DefaultsKeys.h"
#include "platform/data/UserDefaults.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace {

namespace fs = std::filesystem;
using soak::Change;
using soak::Manner;
using soak::Pace;
using soak::SoakHome;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr int haste = 5;
// What changes inside a bundle is left alone until it has been quiet for the latency of a second.
constexpr Milliseconds quietTime(1000 / haste);
constexpr Milliseconds pauseOfWriters = quietTime / 10;
constexpr std::chrono::seconds limit(60); // for anything that is waited for

/// What was found out of one order.
struct Order {
    std::string manner;
    bool isToRun = true;
    Milliseconds longestPause{0};
    Clock::time_point lastStep{};
    int runs = 0;
    int failures = 0;
    Clock::time_point finished{};
};

class Trial {
public:
    Trial(const SoakHome& home, const std::string& logFile)
        : home_(home), engine_({.home = home.path().string(), .haste = haste, .logFile = logFile}) {
        finished_ = VELM_JobFolders::observeFinishedJobs([this](const VELM_JobFolders::FinishedJob& finished) {
            const std::lock_guard lock(mutex_);
            Order& order = orders_[finished.job->name()];
            ++order.runs;
            order.failures += !finished.success || finished.moveError;
            order.finished = Clock::now();
        });
        awaitWatching();
    }

    /// Several writers at once, each manner several times.
    void arrive(const std::string& title, int rounds, Milliseconds pause, Milliseconds heldUp, bool bundlesOnly) {
        const auto all = soak::manners();
        std::vector<std::pair<const Manner*, int>> arrivals;
        for (int round = 0; round < rounds; ++round)
            for (const Manner& manner : all)
                if (manner.isBundle || !bundlesOnly) arrivals.emplace_back(&manner, ++lastNumber_);
        std::atomic<std::size_t> next{0};
        const auto write = [&] {
            for (std::size_t index; (index = next++) < arrivals.size();) {
                const auto& [manner, number] = arrivals[index];
                Pace steps(pause);
                manner->arrive(home_, number, steps);
                const std::lock_guard lock(mutex_);
                Order& order = orders_[SoakHome::pictureName(number)];
                order.manner = manner->name;
                order.longestPause = steps.longest();
                order.lastStep = steps.lastStep();
            }
            ++writersDone_;
        };
        constexpr int writerCount = 4;
        writersDone_ = 0;
        std::vector<std::thread> writers;
        for (int writer = 0; writer < writerCount; ++writer)
            writers.emplace_back(write);
        const auto start = Clock::now();
        engine_.runUntil([this] { return writersDone_ == writerCount; }, limit);
        for (std::thread& writer : writers)
            writer.join();
        awaitRuns(title);
        figures_.add(title + ": seconds", std::chrono::duration<double>(Clock::now() - start).count(), "s");
        judge(title, heldUp);
    }

    /// Each change to an order that is listed and not run yet.
    void change(const std::string& title) {
        soak::Engine::setRunning(false);
        std::map<int, const Change*> changed;
        for (const Change& change : soak::changes()) {
            const int number = ++lastNumber_;
            home_.addOrder(number, change.isBundle ? soak::OrderKind::bundle : soak::OrderKind::ticket);
            Order& order = orderOf(number);
            order.manner = change.name;
            order.isToRun = change.isToRun;
            changed.emplace(number, &change);
        }
        engine_.runUntil([&] { return VELM_JobFolders::jobsPending().size() == changed.size(); }, limit);
        figures_.promise(title + ": all are listed", VELM_JobFolders::jobsPending().size() == changed.size());
        std::size_t staying = 0;
        for (const auto& [number, change] : changed) {
            change->make(home_, number);
            staying += change->isToRun;
        }
        engine_.runUntil([&] { return VELM_JobFolders::jobsPending().size() == staying; }, limit);
        figures_.promise(title + ": what was removed leaves the list",
                         VELM_JobFolders::jobsPending().size() == staying);
        soak::Engine::setRunning(true);
        awaitRuns(title);
        const auto completed = SoakHome::ordersIn(home_.completed());
        for (const auto& [number, change] : changed)
            if (change->isToRun) // the new one's file is what stands there now
                figures_.promise(title + ": " + change->name + ", nothing is lost",
                                 completed.count(soak::numberOfReplacement(number)) == 1 &&
                                     completed.count(number) == 0);
        judge(title, Milliseconds::max());
    }

    /// Looks at the folders, or listens to their events, from now on.
    void setAlwaysPoll(bool alwaysPoll) {
        auto& defaults = platform::data::UserDefaults::standard();
        static_cast<void>(defaults.setObject(alwaysPoll, key_velmAlwaysPoll));
        static_cast<void>(defaults.setObject(1.0, key_velmPollInterval));
        for (const auto& folder : VELM_JobFolders::enabledFolders())
            folder->configureJobsFolder();
        awaitWatching();
    }

    void setSettleSeconds(double seconds) {
        settleTime_ = Milliseconds(static_cast<int>(seconds * 1000 / haste));
        for (const auto& folder : VELM_JobFolders::enabledFolders())
            folder->setSettleSeconds(seconds);
    }

    int conclude() { return figures_.conclude("arrival"); }

private:
    Order& orderOf(int number) {
        const std::lock_guard lock(mutex_);
        return orders_[SoakHome::pictureName(number)];
    }

    void awaitWatching() {
        if (!engine_.awaitWatching(limit)) figures_.promise("the folders are watched", false);
    }

    /// Until each order has run, and then one more: by then a second run of any would have begun.
    void awaitRuns(const std::string& title) {
        const auto allHaveRun = [this] {
            const std::lock_guard lock(mutex_);
            for (const auto& [name, order] : orders_)
                if (order.isToRun && order.runs == 0) return false;
            return true;
        };
        figures_.promise(title + ": all are run", engine_.runUntil(allHaveRun, limit));
        const int last = ++lastNumber_;
        home_.addOrder(last, soak::OrderKind::bundle);
        orderOf(last).manner = "the last one";
        const bool isDone = engine_.runUntil([&] { return allHaveRun() && engine_.isIdle(); }, limit);
        std::string pending;
        for (const VELM_Job::Ref& job : VELM_JobFolders::jobsPending())
            pending += " " + job->name();
        figures_.promise(title + ": nothing is pending then", isDone, pending);
    }

    /// What is wrong with the order now that all is quiet; empty when nothing is.
    std::string faultOf(const std::string& name, const Order& order) const {
        if (order.runs != (order.isToRun ? 1 : 0)) return "ran " + std::to_string(order.runs) + " times";
        if (order.failures != 0) return "failed";
        if (!order.isToRun) return {};
        if (order.finished - order.lastStep < settleTime_ && order.longestPause > Milliseconds(0))
            return "ran before it had settled";
        const std::size_t products = wholeProducts(name);
        if (products != SoakHome::productFolders().size())
            return "made " + std::to_string(products) + " whole pictures";
        return {};
    }

    /// Of an order: their names go on with the time of making.
    std::size_t wholeProducts(const std::string& name) const {
        std::size_t count = 0;
        for (const std::string& folder : SoakHome::productFolders())
            for (const auto& entry : fs::directory_iterator(home_.products() / folder))
                count += entry.path().filename().string().starts_with(name) &&
                         soak::contentsOf(entry.path()).ends_with("\xFF\xD9");
        return count;
    }

    void judge(const std::string& title, Milliseconds heldUp) {
        const std::lock_guard lock(mutex_);
        std::vector<std::string> faults;
        std::map<std::string, int> tries;
        std::int64_t unjudged = 0;
        for (const auto& [name, order] : orders_) {
            const std::string fault = faultOf(name, order);
            ++tries[order.manner];
            if (!fault.empty() && order.longestPause >= heldUp)
                ++unjudged;
            else if (!fault.empty())
                faults.push_back(order.manner + " (" + name + ") " + fault);
        }
        for (const fs::path& watched : {home_.bundles(), home_.tickets()})
            for (const auto& [number, path] : SoakHome::ordersIn(watched))
                faults.push_back(path.filename().string() + " is left");
        for (const auto& [manner, count] : tries)
            figures_.add(title + ": " + manner, std::int64_t{count});
        if (unjudged > 0) figures_.add(title + ": not judged, as this machine held the writer up", unjudged);
        figures_.promise(title + ": each ran once, and whole", faults);
        orders_.clear();
    }

    const SoakHome& home_;
    soak::Figures figures_;
    int lastNumber_ = 0;
    Milliseconds settleTime_{0};
    std::atomic<int> writersDone_{0};
    std::mutex mutex_; // guards the orders
    std::map<std::string, Order> orders_;
    soak::Engine engine_;
    platform::run::Observation finished_;
};

} // namespace

int main(int count, char** arguments) {
    const soak::Knobs knobs(count, arguments);
    const auto rounds = static_cast<int>(knobs.number("rounds", 2, 60));
    const SoakHome home(knobs.text("home"));
    auto& trial = *new Trial(home, knobs.text("log")); // the engine's threads use it to the end
    trial.arrive("by events", rounds, pauseOfWriters, quietTime, false);
    trial.change("by events");
    trial.setAlwaysPoll(true);
    trial.arrive("by looking", rounds, pauseOfWriters, quietTime, false);
    trial.change("by looking");
    trial.setAlwaysPoll(false);
    // Pauses that the engine would take for the end, were it not told to wait longer.
    constexpr double settleSeconds = 10;
    constexpr Milliseconds settleTime(static_cast<int>(settleSeconds * 1000) / haste);
    trial.setSettleSeconds(settleSeconds);
    trial.arrive("settling", (rounds + 9) / 10, quietTime * 2, settleTime, true);
    const int status = trial.conclude();
    home.removeUnlessKept();
    soak::Engine::endProcess(status);
}
