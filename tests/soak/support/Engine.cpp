#include "soak/support/Engine.h"

#include "base/Log.h"
#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/UserDefaults.h"
#include "soak/support/HurriedClock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace soak {

namespace run = platform::run;
using platform::data::UserDefaults;

namespace {

constexpr std::string_view engineWord = "--engine";

int exitStatus(int waited) {
    return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited);
}

} // namespace

Engine::Preparation::Preparation(const EngineOptions& options) {
    base::setPlaces(base::Places::below(options.home));
    const int log =
        options.logFile.empty() ? -1 : open(options.logFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    base::setLogSink([log](std::string_view message) {
        if (log < 0) return;
        const std::string line = base::logLine(message);
        static_cast<void>(!write(log, line.data(), line.size()));
    });
    if (options.haste > 1) run::setClock(std::make_shared<HurriedClock>(options.haste));
}

Engine::Engine(const EngineOptions& options) : preparation_(options) {
    application_.applicationDidFinishLaunching();
    setRunning(!options.isPaused);
    VELM_JobFolders::jobsPending(); // the first use starts the engine
    VELM_JobFolders::enabledFolders();
}

void Engine::setRunning(bool isRunning) {
    static_cast<void>(UserDefaults::standard().setObject(isRunning, key_velmProcessorIsRunning));
}

bool Engine::awaitWatching(std::chrono::seconds limit) {
    return runUntil(
        [] {
            const auto folders = VELM_JobFolders::enabledFolders();
            return std::all_of(folders.begin(), folders.end(), [](const VELM_JobFolders::Ref& folder) {
                const auto stream = folder->fileEvent();
                return stream && stream->isRunning();
            });
        },
        limit);
}

std::int64_t Engine::completedCount() const {
    return UserDefaults::standard().integerForKey(key_velmProcessorJobsCompleted);
}

std::int64_t Engine::failedCount() const {
    return UserDefaults::standard().integerForKey(key_velmProcessorJobsFailed);
}

void Engine::endProcess(int status) {
    std::fflush(nullptr);
    _exit(status);
}

// A process of its own ----------------------------------------------------------------------------------------------

EngineProcess::EngineProcess(const EngineOptions& options) {
    int lifeline[2];
    if (pipe2(lifeline, O_CLOEXEC) != 0) {
        std::perror("cannot make a pipe");
        std::exit(2);
    }
    const std::string haste = std::to_string(options.haste);
    const char* const words[] = {"/proc/self/exe",
                                 engineWord.data(),
                                 options.home.c_str(),
                                 haste.c_str(),
                                 options.isPaused ? "paused" : "running",
                                 options.logFile.c_str(),
                                 nullptr};
    pid_ = fork();
    if (pid_ == 0) {
        dup2(lifeline[0], STDIN_FILENO);
        execv(words[0], const_cast<char**>(words));
        _exit(127);
    }
    close(lifeline[0]);
    lifeline_ = lifeline[1];
}

EngineProcess::~EngineProcess() {
    kill();
}

bool EngineProcess::isRunning() {
    if (status_) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) return true;
    status_ = exitStatus(status);
    return false;
}

void EngineProcess::kill() {
    if (!status_) ::kill(pid_, SIGKILL);
    wait();
}

int EngineProcess::finish() {
    if (lifeline_ >= 0) close(std::exchange(lifeline_, -1));
    return wait();
}

int EngineProcess::wait() {
    if (!status_) {
        int status = 0;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        status_ = exitStatus(status);
    }
    if (lifeline_ >= 0) close(std::exchange(lifeline_, -1));
    return *status_;
}

std::optional<int> runAsEngine(int count, char** arguments) {
    if (count != 6 || arguments[1] != engineWord) return std::nullopt;
    EngineOptions options;
    options.home = arguments[2];
    options.haste = std::atoi(arguments[3]);
    options.isPaused = std::string_view(arguments[4]) == "paused";
    options.logFile = arguments[5];
    Engine engine(options);
    std::atomic<bool> isToEnd = false;
    std::thread([&isToEnd] {
        char byte;
        while (read(STDIN_FILENO, &byte, 1) > 0) {
        }
        VELM_JobFolders::stopStartingJobs();
        isToEnd = true;
    }).detach();
    constexpr std::chrono::hours never(24 * 365);
    engine.runUntil([&isToEnd] { return isToEnd && !VELM_JobFolders::isProcessing(); }, never);
    // One that is told to end at once has its start nevertheless, which clears away what a killed one left.
    engine.awaitWatching(std::chrono::seconds(10));
    Engine::endProcess(0);
}

bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
    constexpr std::chrono::milliseconds pause(5);
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

} // namespace soak
