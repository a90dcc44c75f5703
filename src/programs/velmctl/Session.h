// What every command begins with: the places, the log file, and for those that need the engine its launch. One object
// in main's thread for as long as a command runs.
#pragma once

#include "Command.h"
#include "app/AppDelegate.h"

#include <functional>
#include <memory>
#include <string_view>

namespace velmctl {

class Session {
public:
    /// Decides the places and turns the log to its file (with --verbose also to standard error), for the rest of the
    /// process. Must come before any other thread runs.
    explicit Session(const Options& options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Makes the folder tree and points the settings to it.
    void launch();

    /// Runs the work on a queue of its own while this thread serves the main queue, and answers what the work answers.
    /// An engine that waits for the main queue is never kept waiting by a command.
    static int runBesideMainQueue(const std::function<int()>& work);

    /// What a command hands to `Chosen` that needs the engine: a session, its launch, and the work as above.
    static Run withEngine(std::function<int()> work);

    /// Flushes what was written and ends the process. The engine's threads go on until then, and would meet the
    /// destruction of what they use if the process left by way of main().
    [[noreturn]] static void endProcess(int status);
    /// Ends the process with exitFailure and waits for none of its threads: somebody may be stuck for good.
    [[noreturn]] static void abandonProcess(std::string_view lastWord);

private:
    std::unique_ptr<AppDelegate> appDelegate_;
};

} // namespace velmctl
