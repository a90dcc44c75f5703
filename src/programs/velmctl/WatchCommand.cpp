// velmctl watch: the hot-folder engine until it is interrupted.
#include "Command.h"
#include "Console.h"
#include "Session.h"
#include "TextForms.h"
#include "app/SingleInstance.h"
#include "app/VELM.h"
#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/MainQueue.h"

#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <utility>

namespace velmctl {

namespace {

namespace run = platform::run;

void printFinishedJob(const VELM_JobFolders::FinishedJob& finished) {
    const std::string name = oneLine(finished.job->name());
    const std::string place = finished.moveError || !finished.destination
                                  ? finished.job->urlJobContainer().value_or(finished.job->documentURL()).path()
                                  : finished.destination->path();
    if (finished.success)
        Console::shared().result("completed " + name + " -> " + oneLine(place));
    else
        Console::shared().result(
            "failed " + name + " -> " + oneLine(place) + ": " +
            oneLine(finished.error ? finished.error->localizedDescription : "no reason was given"));
    if (!finished.moveError) return;
    std::error_code failed;
    const bool isGone = !std::filesystem::exists(place, failed) && !failed;
    Console::shared().diagnostic(oneLine(isGone ? "the order " + place + " was removed while it ran"
                                                : "the order " + place +
                                                      " stays where it is and blocks the queue until it is removed: " +
                                                      finished.moveError->localizedDescription));
}

void printSettlingJob(const VELM_Job::Ref& job, double) {
    Console::shared().result("waiting " + oneLine(job->name()) + " -> " +
                             oneLine(job->urlJobContainer().value_or(job->documentURL()).path()));
}

/// An order that can't be read is tried at each look at its folder; it is told of once, and again when the reason is
/// another.
class UnreadableOrders {
public:
    void print(const base::URL& item, const base::Error& error) {
        constexpr std::size_t mostTold = 10'000;
        {
            const std::lock_guard lock(mutex_);
            if (told_.size() >= mostTold) told_.clear();
            if (std::exchange(told_[item.path()], error) == error) return;
        }
        Console::shared().diagnostic("cannot read the order " + oneLine(item.path(), error));
    }

private:
    std::mutex mutex_;
    std::map<std::string, base::Error> told_;
};

/// The progress line of whatever job runs.
class RunningJobDisplay {
public:
    RunningJobDisplay()
        : observation_(VELM_JobFolders::classObject().observable().observe(VELM_JobFolders::key_isProcessing,
                                                                           [this] { update(); })) {}

private:
    void update() {
        const std::lock_guard lock(mutex_);
        display_.reset();
        const VELM_Job::Ref job = VELM_JobFolders::currentJob();
        if (VELM_JobFolders::isProcessing() && job)
            display_ = std::make_unique<ProgressDisplay>(job->name(), job->progress());
    }

    std::mutex mutex_;
    std::unique_ptr<ProgressDisplay> display_;
    run::Observation observation_;
};

/// Ends the loop at the first SIGINT or SIGTERM as soon as no job runs, and the process at the second. Made before any
/// other thread, which all inherit the blocked signals; this one takes them.
class Interruption {
public:
    Interruption() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        // A reader of the results that goes away must not end the engine.
        std::signal(SIGPIPE, SIG_IGN);
    }

    /// From now on a signal stops the loop. Both must stay till the end of the process.
    void obey(run::RunLoop& loop) {
        std::thread([this, &loop] { wait(loop); }).detach();
    }

private:
    void wait(run::RunLoop& loop) {
        receive();
        VELM_JobFolders::stopStartingJobs();
        // The flag changes on the main queue, so looked at from there it can't change between the two steps.
        run::mainQueue()->async([this, &loop] {
            ending_ = VELM_JobFolders::classObject().observable().observe(VELM_JobFolders::key_isProcessing, [&loop] {
                if (!VELM_JobFolders::isProcessing()) loop.stop();
            });
            if (!VELM_JobFolders::isProcessing())
                loop.stop();
            else
                Console::shared().diagnostic("ending after the running order; interrupt again to end at once");
        });
        receive();
        // The running order stands where it was and runs again at the next start. Nothing here may wait: the results'
        // reader may be what is stuck.
        Session::abandonProcess("ended in the middle of an order");
    }

    void receive() {
        int signal = 0;
        while (sigwait(&signals_, &signal) != 0) {
        }
    }

    sigset_t signals_{};
    run::Observation ending_;
};

int watch(const Options& options, bool paused) {
    Interruption interruption;
    Session session(options);
    const base::Result<app::SingleInstance> lock = app::SingleInstance::take();
    if (!lock) {
        Console::shared().diagnostic(lock.error().localizedDescription);
        return exitFailure;
    }
    session.launch();
    const base::Result<void> flag =
        platform::data::UserDefaults::standard().setObject(!paused, key_velmProcessorIsRunning);
    if (!flag) Console::shared().diagnostic(flag.error().localizedDescription);

    run::RunLoop loop;
    const auto finished = VELM_JobFolders::observeFinishedJobs(printFinishedJob);
    const auto settling = VELM_JobFolders::observeSettlingJobs(printSettlingJob);
    const auto unreadable = VELM_JobFolders::observeUnreadableItems(
        [orders = std::make_shared<UnreadableOrders>()](const base::URL& item, const base::Error& error) {
            orders->print(item, error);
        });
    const RunningJobDisplay display;
    VELM_JobFolders::jobsPending(); // the first use starts the engine
    const auto folders = VELM_JobFolders::enabledFolders();
    for (const VELM_JobFolders::Ref& folder : folders) {
        // The engine makes it too, some time later; who reads the line may put an order there at once.
        const base::URL url = folder->urlOfJobs();
        const auto report = [](const base::Error& error) { Console::shared().diagnostic(error.localizedDescription); };
        if (VELM::makeDirectory(url, report)) Console::shared().result("watching " + url.path());
    }
    if (folders.empty()) {
        Console::shared().diagnostic("no folder is enabled, so there is nothing to watch");
        Session::endProcess(exitFailure);
    }
    interruption.obey(loop);
    loop.run();
    Session::endProcess(exitSuccess);
}

} // namespace

void declareWatch(CLI::App& app, const Chosen& chosen) {
    CLI::App* command = app.add_subcommand("watch", "Watch the job folders and run every order that arrives");
    command->footer("Prints `watching FOLDER` for each folder, then one line for each order:\n"
                    "`completed NAME -> PATH` or `failed NAME -> PATH: reason`. Where a folder asks for orders to be\n"
                    "still for a time, `waiting NAME -> PATH` tells of one whose turn comes before that.\n"
                    "An order that can't be read is told of on standard error; it is tried again when it changes.\n\n"
                    "Move bundles in whole; one that is copied in is taken when it has been still for a second.\n"
                    "Pause and resume from elsewhere: velmctl defaults write velmProcessorIsRunning no (or yes).\n"
                    "SIGINT and SIGTERM end it after the running order, a second one at once.\n");
    const auto paused = std::make_shared<bool>(false);
    command->add_flag("--paused", *paused, "List what arrives, but run nothing until it is resumed");
    command->callback(
        [paused, chosen] { chosen([paused](const Options& options) { return watch(options, *paused); }); });
}

} // namespace velmctl
