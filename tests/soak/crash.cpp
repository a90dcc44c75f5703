// velm_soak_crash [--short] [--kills N] [--seed N] [--home DIR]: an engine that is killed again and again while orders
// come in. First before each single change that it makes to the file system, for each kind of order, with the Completed
// folder on the same volume and on another one; then at random moments. After each part it is left to finish, and what
// stands on the disk is held against what was put in.
#include "crash_steps.h"

#include "platform/data/PropertyList.h"
#include "platform/draw/ImageSource.h"
#include "soak/support/Engine.h"
#include "soak/support/Figures.h"
#include "soak/support/SoakHome.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <random>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using soak::EngineProcess;
using soak::Figures;
using soak::OrderKind;
using soak::SoakHome;
using Faults = std::vector<std::string>;

constexpr auto generous = 120s;
constexpr OrderKind allKinds[] = {OrderKind::bundle, OrderKind::ticket, OrderKind::noPackage, OrderKind::brokenPicture};

/// A home whose orders are accounted for.
class Ledger {
public:
    explicit Ledger(const fs::path& folder) : home_(folder), log_(home_.path() / "engine.log") {}
    ~Ledger() {
        std::error_code ignored;
        if (!otherVolume_.empty()) fs::remove_all(otherVolume_, ignored);
    }

    /// Puts the folders of finished orders on another volume; false when there is none.
    bool useOtherVolume() {
        char pattern[] = "/dev/shm/velm-soak-XXXXXX";
        struct stat here {};
        struct stat there {};
        if (!mkdtemp(pattern)) return false;
        otherVolume_ = pattern;
        if (stat(home_.path().c_str(), &here) != 0 || stat(pattern, &there) != 0 || here.st_dev == there.st_dev)
            return false;
        for (const fs::path& folder : {home_.completed(), home_.failed()}) {
            fs::create_directory(otherVolume_ / folder.filename());
            fs::remove(folder);
            fs::create_directory_symlink(otherVolume_ / folder.filename(), folder);
        }
        return true;
    }

    void add(OrderKind kind) {
        kinds_.push_back(kind);
        home_.addOrder(static_cast<int>(kinds_.size()) - 1, kind);
    }
    std::size_t added() const { return kinds_.size(); }

    soak::EngineOptions options() const {
        soak::EngineOptions engine;
        engine.home = home_.path();
        engine.logFile = log_;
        return engine;
    }
    std::size_t waiting() const {
        return soak::SoakHome::ordersIn(home_.bundles()).size() + soak::SoakHome::ordersIn(home_.tickets()).size();
    }

    /// Lets an engine run until nothing waits and nothing runs.
    bool finish() {
        EngineProcess engine(options());
        const bool isDone = soak::waitUntil([&] { return waiting() == 0 || !engine.isRunning(); }, generous);
        return engine.finish() == 0 && isDone;
    }

    /// After each kill: the settings read, and what was left aside is as old as it would be at the next start on
    /// another day.
    void lookAfterKill(Faults& settings) {
        ++kills_;
        const fs::path file = home_.path() / "Settings/com.kestrune.VELM.plist";
        const bool isThere = fs::exists(file);
        const auto parsed = platform::data::parsePropertyList(soak::contentsOf(file));
        if (isThere ? !parsed || !parsed->as<base::Dictionary>() : hadSettings_) settings.push_back(file);
        hadSettings_ = hadSettings_ || isThere;
        for (const fs::path& left : leftovers()) {
            const timespec longAgo[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
            utimensat(AT_FDCWD, left.c_str(), longAgo, AT_SYMLINK_NOFOLLOW);
        }
    }

    /// What writers that were killed left aside.
    std::vector<fs::path> leftovers() const {
        std::vector<fs::path> found;
        std::vector<fs::path> folders{home_.completed(), home_.failed(), home_.bundles(), home_.tickets(),
                                      home_.path() / "Settings"};
        for (const std::string& name : SoakHome::productFolders())
            folders.push_back(home_.products() / name);
        std::error_code error;
        for (const fs::path& folder : folders)
            for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
                if (entry->path().filename().string().starts_with(".") && entry->path().extension() != ".lock")
                    found.push_back(entry->path());
        return found;
    }

    void check(Figures& figures, const std::string& part, const Faults& settings);

private:
    void checkPlaces(Figures& figures);
    void checkProducts(Figures& figures);
    void checkLog(Figures& figures);

    SoakHome home_;
    const fs::path log_;
    fs::path otherVolume_;
    std::vector<OrderKind> kinds_; // by the order's number
    int kills_ = 0;
    bool hadSettings_ = false;
};

void Ledger::check(Figures& figures, const std::string& part, const Faults& settings) {
    figures.add(part + ": orders, kills", std::to_string(kinds_.size()) + ", " + std::to_string(kills_));
    checkPlaces(figures);
    checkProducts(figures);
    figures.promise("  the settings always read", settings);
    checkLog(figures);
    Faults left;
    for (const fs::path& path : leftovers())
        left.push_back(path);
    figures.promise("  nothing is left aside", left);
}

void Ledger::checkPlaces(Figures& figures) {
    Faults lost;
    Faults doubled;
    Faults misjudged;
    const auto completed = SoakHome::ordersIn(home_.completed());
    const auto failed = SoakHome::ordersIn(home_.failed());
    std::multimap<int, fs::path> watched = SoakHome::ordersIn(home_.bundles());
    watched.merge(SoakHome::ordersIn(home_.tickets()));
    for (int number = 0; number < static_cast<int>(kinds_.size()); ++number) {
        const std::size_t places = completed.count(number) + failed.count(number) + watched.count(number);
        const std::string name = SoakHome::pictureName(number);
        if (places == 0) lost.push_back(name);
        if (places > 1) doubled.push_back(name);
        if (!watched.contains(number) && places == 1 &&
            failed.contains(number) != SoakHome::isToFail(kinds_[static_cast<std::size_t>(number)]))
            misjudged.push_back(name);
    }
    figures.promise("  no order is lost", lost);
    figures.promise("  no order stands in two places", doubled);
    figures.promise("  none is left waiting", watched.empty(), std::to_string(watched.size()) + " wait");
    figures.promise("  each stands where it belongs", misjudged);
    const auto parsed =
        platform::data::parsePropertyList(soak::contentsOf(home_.path() / "Settings/com.kestrune.VELM.plist"));
    const auto* settings = parsed ? parsed->as<base::Dictionary>() : nullptr;
    const auto missed = [&](std::string_view key, std::size_t files) {
        const base::Value stored = settings ? base::valueForKey(*settings, key) : base::Value();
        return static_cast<std::int64_t>(files) - stored.integerValue();
    };
    const std::int64_t missedOrders =
        missed("velmProcessorJobsCompleted", completed.size()) + missed("velmProcessorJobsFailed", failed.size());
    figures.add("  orders that the counters missed", missedOrders);
    figures.promise("  the counters miss none but a killed one", missedOrders >= 0 && missedOrders <= kills_,
                    std::to_string(missedOrders));
}

void Ledger::checkProducts(Figures& figures) {
    Faults broken;
    Faults missing;
    std::int64_t count = 0;
    std::map<std::string, std::set<std::string>> made; // pictures by folder
    for (const std::string& folder : SoakHome::productFolders()) {
        std::error_code error;
        for (fs::directory_iterator entry(home_.products() / folder, error), end; !error && entry != end;
             entry.increment(error)) {
            const std::string name = entry->path().filename();
            if (name.starts_with(".")) continue;
            ++count;
            made[folder].insert(name.substr(0, SoakHome::pictureName(0).size()));
            const std::string bytes = soak::contentsOf(entry->path());
            const bool hasMarks = bytes.starts_with("\xff\xd8") && bytes.ends_with("\xff\xd9");
            const auto source =
                platform::draw::ImageSource::createWithURL(base::URL::fileURLWithPath(entry->path().string()));
            constexpr int larger = 1000;
            if (!hasMarks || !source || !(*source)->thumbnailAtIndex(0, larger, false)) broken.push_back(name);
        }
    }
    for (const auto& [number, path] : SoakHome::ordersIn(home_.completed()))
        for (const std::string& folder : SoakHome::productFolders())
            if (!made[folder].contains(SoakHome::pictureName(number)))
                missing.push_back(folder + " of " + path.filename().string());
    figures.add("  products", count);
    figures.promise("  no product is cut off", broken);
    figures.promise("  each completed order has its products", missing);
}

void Ledger::checkLog(Figures& figures) {
    const std::string log = soak::contentsOf(log_);
    Faults torn;
    // A line that was cut off would have the next one's date in its middle.
    const std::string date = log.substr(0, std::min(log.size(), log.find('-') + 1));
    for (std::size_t at = log.find(date, 1); !date.empty() && at != std::string::npos; at = log.find(date, at + 1)) {
        const bool isDate = log.size() > at + 13 && log[at + 7] == '-' && log[at + 10] == ' ' && log[at + 13] == ':';
        if (isDate && log[at - 1] != '\n') torn.push_back(log.substr(at > 40 ? at - 40 : 0, 80));
    }
    if (!log.empty() && log.back() != '\n') torn.push_back("the end");
    figures.promise("  the log holds whole lines", torn);
}

// The parts -------------------------------------------------------------------------------------------------------

/// Kills the engine before its 1st, 1 + stride-th ... step over one order, until it gets through.
void killAtEachStep(Ledger& ledger, OrderKind kind, int stride, Faults& settings, Faults& stuck) {
    constexpr int noMoreSteps = 1000;
    for (int step = 1; step < noMoreSteps; step += stride) {
        ledger.add(kind);
        setenv(soak::stepVariable, std::to_string(step).c_str(), 1);
        bool wasKilled = false;
        {
            EngineProcess engine(ledger.options());
            soak::waitUntil([&] { return !engine.isRunning() || ledger.waiting() == 0; }, generous);
            // What comes after the move has its steps too; the ending lets them be made.
            wasKilled = engine.finish() != 0;
        }
        unsetenv(soak::stepVariable);
        if (wasKilled) ledger.lookAfterKill(settings);
        if (!ledger.finish()) stuck.push_back("step " + std::to_string(step));
        if (!wasKilled) return;
    }
    stuck.push_back("the steps have no end");
}

void steps(Figures& figures, const fs::path& folder, bool onOtherVolume, int stride) {
    Ledger ledger(folder);
    Faults settings;
    Faults stuck;
    const std::string part = onOtherVolume ? "each step, another volume" : "each step, one volume";
    if (onOtherVolume && !ledger.useOtherVolume()) return figures.add(part, "there is no other volume here");
    for (const OrderKind kind : allKinds)
        killAtEachStep(ledger, kind, stride, settings, stuck);
    ledger.check(figures, part, settings);
    figures.promise("  every next engine gets through", stuck);
}

void randomMoments(Figures& figures, const fs::path& folder, bool onOtherVolume, std::int64_t kills, unsigned seed) {
    Ledger ledger(folder);
    Faults settings;
    const std::string part = onOtherVolume ? "random moments, another volume" : "random moments, one volume";
    if (onOtherVolume && !ledger.useOtherVolume()) return figures.add(part, "there is no other volume here");
    std::mt19937 random(seed);
    const auto below = [&random](unsigned limit) { return static_cast<int>(random() % limit); };
    constexpr unsigned longestLife = 200; // milliseconds
    constexpr std::size_t fewOrders = 8;
    for (std::int64_t kill = 0; kill < kills; ++kill) {
        while (ledger.waiting() < fewOrders)
            ledger.add(allKinds[below(10) < 7 ? below(2) : below(4)]);
        EngineProcess engine(ledger.options());
        const auto life = std::chrono::milliseconds(below(longestLife));
        std::this_thread::sleep_for(life / 2);
        if (below(2) == 0) ledger.add(allKinds[below(4)]);
        std::this_thread::sleep_for(life / 2);
        engine.kill();
        ledger.lookAfterKill(settings);
    }
    // What the last kill left goes with the next write into its folder.
    for (const OrderKind kind : allKinds)
        ledger.add(kind);
    const bool isFinished = ledger.finish();
    ledger.check(figures, part, settings);
    figures.promise("  the last engine gets through", isFinished);
}

} // namespace

int main(int count, char** arguments) {
    if (const auto status = soak::runAsEngine(count, arguments)) return *status;
    const soak::Knobs knobs(count, arguments);
    const auto kills = knobs.number("kills", 60, 4000);
    const auto seed = static_cast<unsigned>(knobs.number("seed", std::random_device()(), std::random_device()()));
    const int stride = static_cast<int>(knobs.number("stride", 9, 1));
    std::printf("seed %u\n", seed);
    std::fflush(stdout);
    const fs::path home = knobs.text("home");
    const auto folder = [&home](const std::string& part) { return home.empty() ? fs::path() : home / part; };
    Figures figures;
    for (const bool onOtherVolume : {false, true}) {
        const std::string name = onOtherVolume ? "other" : "same";
        steps(figures, folder("steps-" + name), onOtherVolume, stride);
        randomMoments(figures, folder("random-" + name), onOtherVolume, kills / 2, seed);
    }
    return figures.conclude("An engine that is killed");
}
