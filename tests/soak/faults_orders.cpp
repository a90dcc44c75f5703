// Faults of names and clocks, on an engine of this process: it can be told what time it is, and tells more.
#include "soak/faults_scene.h"

#include "base/Path.h"
#include "platform/data/Dates.h"

#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/stat.h>

namespace soak {

namespace fs = std::filesystem;

namespace {

constexpr int haste = 20;
constexpr std::chrono::seconds limit(30);

std::string bytesFrom(int first, int last) {
    std::string bytes;
    for (int byte = first; byte <= last; ++byte)
        if (byte != '/') bytes += static_cast<char>(byte);
    return bytes;
}

/// Names of orders without their extension.
std::vector<std::pair<const char*, std::string>> oddNames() {
    const std::string accented = "\xC3\xA9";
    std::string longAccented;
    while (longAccented.size() + accented.size() <= 246)
        longAccented += accented;
    return {{"bytes 1 to 127", bytesFrom(1, 127)},
            {"bytes 128 to 255, no UTF-8", bytesFrom(128, 255)},
            {"line ends", "two\nlines\r\n"},
            {"leading points", "..points"},
            {"leading dash", "-rf"},
            {"blanks", " blank "},
            {"escapes", "a%20b%2Fc?d#e&f;g\\h\"i'j$(k)`l`"},
            {"format", "%s%@%n%1000000d"},
            {"255 bytes", std::string(246, 'a')},
            {"254 bytes of accents", longAccented},
            {"a stamp", "20260315-101112"},
            {"ends in two stamps", "b.20260315-101112.20260316-101112"},
            {"nearly a stamp", "b.20260315-1011122"},
            {"two extensions", "c.xml"},
            {"its own extension twice", "d.velm_job"}};
}

/// An order that makes nothing, so that its name alone matters.
void dropOrder(const SoakHome& home, const std::string& fileName, int number, std::time_t date = 0) {
    const fs::path made = home.path() / "Arriving/made";
    SoakHome::write(made / "job.xml", "<data type=\"VELM_Job\" version=\"1.0\"><number>" + std::to_string(number) +
                                          "</number><package name=\"Nothing\"><image1>a.jpg</image1></package></data>");
    if (date != 0) {
        const timespec times[2] = {{date, 0}, {date, 0}};
        utimensat(AT_FDCWD, (made / "job.xml").c_str(), times, 0);
    }
    fs::rename(made, home.bundles() / fileName);
}

class Orders {
public:
    Orders(Figures& figures, const SoakHome& home)
        : figures_(figures), home_(home), engine_({.home = home.path().string(), .haste = haste}) {
        finished_ = VELM_JobFolders::observeFinishedJobs([this](const VELM_JobFolders::FinishedJob& finished) {
            const std::lock_guard lock(mutex_);
            ends_.push_back(finished);
        });
    }

    void playNames() {
        int number = 0;
        for (const auto& [title, name] : oddNames()) {
            const std::string row = std::string("names: ") + title;
            dropOrder(home_, name + ".velm_job", ++number);
            const auto end = nextEnd();
            if (!end) {
                figures_.promise(row, false, "never ran");
                continue;
            }
            const bool isMoved = end->destination && SoakHome::numberOfOrder(end->destination->path()) == number &&
                                 !fs::exists(end->job->urlJobContainer()->path());
            figures_.promise(row, isMoved && !end->moveError,
                             end->moveError ? end->moveError->localizedDescription : "");
            freeTheQueue();
        }
        // Nothing but an extension is no order.
        dropOrder(home_, ".velm_job", ++number);
        dropOrder(home_, "after.velm_job", ++number);
        figures_.promise("names: nothing but an extension is let be",
                         nextEnd().has_value() && fs::exists(home_.bundles() / ".velm_job"));
        fs::remove_all(home_.bundles() / ".velm_job");
    }

    /// What the system's clock says, going back and forth.
    void playClock() {
        clear(home_.completed());
        constexpr std::time_t future = 4'102'444'800, past = 1; // 2100 and 1970
        const std::vector<std::pair<const char*, std::time_t>> dates{{"future", future}, {"past", past}, {"now", 0}};
        Engine::setRunning(false);
        int number = 100;
        for (const auto& [name, date] : dates)
            dropOrder(home_, std::string(name) + ".velm_job", ++number, date);
        engine_.runUntil([&] { return VELM_JobFolders::jobsPending().size() == dates.size(); }, limit);
        Engine::setRunning(true);
        std::string order;
        for (std::size_t i = 0; i < dates.size(); ++i)
            if (const auto end = nextEnd()) order += end->job->name() + " ";
        figures_.promise("clock: orders dated 1970 and 2100 run by their dates", order == "past now future ", order);

        // Each order ends at another time, and two at one that has been already.
        std::vector<std::string> stamps;
        for (const double seconds : {0.0, 1e9, -1e9, 3600.0, 0.0}) {
            const base::Date now = platform::data::dateFromSecondsSinceReferenceDate(500'000'000 + seconds);
            platform::data::setDateSource([now] { return now; });
            dropOrder(home_, "jump" + std::to_string(stamps.size()) + ".velm_job", ++number);
            const auto end = nextEnd();
            stamps.push_back(end && end->destination && !end->moveError ? end->destination->lastPathComponent() : "");
            if (stamps.back().empty()) freeTheQueue();
        }
        figures_.promise("clock: orders are completed while it jumps",
                         std::count(stamps.begin(), stamps.end(), "") == 0);
        figures_.promise("clock: the stamp is what it says",
                         stamps[0].find(".20161105-") != std::string::npos &&
                             stamps[0].substr(stamps[0].find('.')) == stamps[4].substr(stamps[4].find('.')),
                         stamps[0] + " " + stamps[4]);
    }

    /// The clock stands still meanwhile, so they do end within one second.
    void playSameSecond() {
        clear(home_.completed());
        const base::Date now = platform::data::dateFromSecondsSinceReferenceDate(600'000'000);
        platform::data::setDateSource([now] { return now; });
        dropOrder(home_, "same.velm_job", 201);
        nextEnd();
        dropOrder(home_, "same.20260315-101112.velm_job", 202);
        dropOrder(home_, "other.velm_job", 203, 2'000'000'000);
        const auto second = nextEnd();
        figures_.promise("same name, same second: the second is not moved over the first",
                         second && second->moveError && SoakHome::ordersIn(home_.completed()).contains(201));
        figures_.promise("same name, same second: it stays where it is",
                         SoakHome::ordersIn(home_.bundles()).contains(202));
        if (second && second->moveError)
            figures_.add("same name, same second: told", second->moveError->localizedDescription);
        platform::data::setDateSource(nullptr);
        freeTheQueue();
        const auto third = nextEnd();
        figures_.promise("same name, same second: the next one runs when it is taken away",
                         third && third->job->name() == "other" && !third->moveError);
    }

    /// Settling must not last as long as the clock is wrong.
    void playSettling() {
        const auto folders = VELM_JobFolders::enabledFolders();
        for (const auto& folder : folders)
            folder->setSettleSeconds(haste);
        int number = 300;
        for (const double jump : {0.0, 1e6, -2e6}) {
            platform::data::setDateSource([jump] {
                return std::chrono::time_point_cast<base::Date::duration>(
                    std::chrono::system_clock::now() + std::chrono::seconds(static_cast<long>(jump)));
            });
            ++number;
            dropOrder(home_, "settling" + std::to_string(number) + ".velm_job", number, 4'102'444'800);
            const auto end = nextEnd();
            figures_.promise("clock " + std::to_string(static_cast<int>(jump)) + " s off: an order of 2100 settles",
                             end && !end->moveError);
        }
        platform::data::setDateSource(nullptr);
        for (const auto& folder : folders)
            folder->setSettleSeconds(0);
    }

private:
    using Ended = std::optional<VELM_JobFolders::FinishedJob>;

    Ended nextEnd() {
        Ended end;
        engine_.runUntil(
            [&] {
                const std::lock_guard lock(mutex_);
                if (ends_.size() <= seen_) return false;
                end = ends_[seen_++];
                return true;
            },
            limit);
        return end;
    }

    /// What could not be moved is taken away by hand.
    void freeTheQueue() {
        std::size_t count = 0;
        {
            const std::lock_guard lock(mutex_);
            count = ends_.size();
        }
        if (count == 0 || !ends_[count - 1].moveError) return;
        const auto& job = ends_[count - 1].job;
        fs::remove_all(job->urlJobContainer().value_or(job->documentURL()).path());
    }

    static void clear(const fs::path& folder) {
        for (const auto& entry : fs::directory_iterator(folder))
            fs::remove_all(entry.path());
    }

    Figures& figures_;
    const SoakHome& home_;
    std::mutex mutex_;
    std::vector<VELM_JobFolders::FinishedJob> ends_;
    std::size_t seen_ = 0;
    Engine engine_;
    platform::run::Observation finished_;
};

} // namespace

void playOrders(Figures& figures, const SoakHome& home) {
    home.addIdlePackage();
    auto& orders = *new Orders(figures, home); // the engine's threads use it to the end
    orders.playNames();
    orders.playClock();
    orders.playSameSecond();
    orders.playSettling();
}

} // namespace soak
