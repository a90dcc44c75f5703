// The engine over a soak home: in this process, or in a child that can be killed. The child is the program itself, so
// its main() begins with `if (const auto status = soak::runAsEngine(count, arguments)) return *status;`.
#pragma once

#include "app/AppDelegate.h"
#include "jobs/VELM_JobFolders.h"
#include "platform/run/MainQueue.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace soak {

struct EngineOptions {
    std::string home; ///< Absolute.
    int haste = 50;   ///< How many times as fast as the real one its clock runs.
    bool isPaused = false;
    std::string logFile; ///< Added to, a line each at a time; none: nothing is logged.
};

/// The engine of this process: places, clock, log, launch and run flag. One for a process, on its main thread, living
/// till the end of it (Engine::endProcess).
class Engine {
public:
    explicit Engine(const EngineOptions& options);

    /// Serves the main queue until the condition holds or the limit has passed by the real clock.
    bool runUntil(const std::function<bool()>& done, std::chrono::seconds limit) { return loop_.runUntil(done, limit); }
    bool isIdle() const { return VELM_JobFolders::jobsPending().empty() && !VELM_JobFolders::isProcessing(); }
    /// Lets orders run or not, as the operator's switch does.
    static void setRunning(bool isRunning);
    /// Until each enabled folder has its stream of events.
    bool awaitWatching(std::chrono::seconds limit);
    std::int64_t completedCount() const;
    std::int64_t failedCount() const;

    /// The engine's threads go on until here, and would meet the end of what they use if main() returned.
    [[noreturn]] static void endProcess(int status);

private:
    /// First of all: nothing of the engine may be used before.
    struct Preparation {
        explicit Preparation(const EngineOptions& options);
    };
    const Preparation preparation_;
    AppDelegate application_;
    platform::run::RunLoop loop_;
};

/// An engine in a process of its own. It ends when this object does, or this process.
class EngineProcess {
public:
    explicit EngineProcess(const EngineOptions& options);
    ~EngineProcess();
    EngineProcess(const EngineProcess&) = delete;
    EngineProcess& operator=(const EngineProcess&) = delete;

    pid_t pid() const { return pid_; }
    bool isRunning();
    /// Ends it where it stands (SIGKILL).
    void kill();
    /// Asks it to end after the running order and waits for that. Answers its exit status; 128 and the number of the
    /// signal that ended it.
    int finish();

private:
    int wait();

    pid_t pid_ = -1;
    int lifeline_ = -1; // the child ends when this is closed
    std::optional<int> status_;
};

/// The child's part: runs the engine and answers its exit status. None when this process is no such child.
std::optional<int> runAsEngine(int count, char** arguments);

/// Looks every few milliseconds until the condition holds, up to the limit; answers what it said last.
bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit);

} // namespace soak
