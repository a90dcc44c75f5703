// The main queue: a serial queue whose work runs on one particular thread, the main thread. The queue is one object
// for the life of the process; what changes is the loop that serves it: a RunLoop (command line, tests) or the window
// system's own event loop through the MainLoop interface. Work that arrives while no loop is there waits for one.
#pragma once

#include "platform/run/Queue.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace platform::run {

/// What serves the main queue.
class MainLoop {
public:
    virtual ~MainLoop() = default;
    /// Asks the loop to call drainMainQueue() on its thread soon. Called on any thread; must not wait.
    virtual void wake() = 0;
};

QueueRef mainQueue();

/// Makes `loop` serve the main queue and the calling thread the main thread; answers the loop so far. Null: no loop,
/// and the main thread is the one that started the process. The loop is not owned and must be taken away before it
/// ends.
MainLoop* setMainLoop(MainLoop* loop);

/// Whether this is the main thread.
bool isMainThread();

/// On the main thread: runs the work that is waiting now, not what arrives meanwhile.
void drainMainQueue();

/// The plain loop. It serves the main queue from its construction to its destruction, always on the thread that made
/// it; the loop that served before takes over again after it.
class RunLoop final : public MainLoop {
public:
    RunLoop();
    ~RunLoop() override;
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Serves the queue until stop() is called; a stop that came before counts.
    void run();
    /// Ends run() after the work at hand. Any thread, but not a signal handler.
    void stop();
    /// Runs what is waiting and returns.
    void drain();
    /// Serves the queue until `done` answers true or `limit` has passed by the real clock; answers what `done` said
    /// last. `done` is asked on this thread, after each round of work and every few milliseconds.
    bool runUntil(const std::function<bool()>& done, std::chrono::nanoseconds limit);

    void wake() override;

private:
    std::mutex mutex_;
    std::condition_variable wakened_;
    bool hasWork_ = true;
    bool stopped_ = false;
    MainLoop* const previous_; // last: as soon as it is known this loop may be wakened
};

} // namespace platform::run
