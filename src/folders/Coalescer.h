// A keyed debounce: of a burst of requests under one key the first callback runs at its start, or the last one at its
// end, or both. A burst ends when no request has come for the time that the requests name.
//
// Keys are shared by the whole process: two callers that use one key coalesce with each other. Any thread. Callbacks
// run on the queue of their own request.
#pragma once

#include "platform/run/Clock.h"
#include "platform/run/Queue.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace folders {

class Coalescer {
public:
    enum class When {
        first = 1,        ///< Run the first callback at once, then hold off.
        last = 2,         ///< Run the last callback after the burst.
        firstAndLast = 3, ///< Both; a single request runs its callback twice.
    };

    /// `clock`: null for the clock that is in force at each request.
    explicit Coalescer(platform::run::ClockRef clock = nullptr);

    /// The one of the process, which the functions below use.
    static Coalescer& shared();

    /// `queue`: null for the main queue.
    void runOnceForKey(std::string_view key, const platform::run::QueueRef& queue, double afterWaitingSeconds,
                       When when, platform::run::Work work);

    /// "com.brindlewoods.coalescing", which owns the state. Waiting on it (`sync([] {})`) waits for the bookkeeping of
    /// all requests so far.
    const platform::run::QueueRef& queue() const;

private:
    struct State;
    std::shared_ptr<State> state_;
    platform::run::ClockRef clock_;
};

/// Runs first, then holds off until `seconds` have passed since the last request.
void runOnceForKeyCollectingFor(std::string_view key, const platform::run::QueueRef& queue, double seconds,
                                platform::run::Work work);
/// Runs `seconds` after the last request of a burst.
void runOnceForKeyAfterWaiting(std::string_view key, const platform::run::QueueRef& queue, double seconds,
                               platform::run::Work work);
/// Runs at the start and at the end of a burst.
void runOnceForKeyBeforeAndAfter(std::string_view key, const platform::run::QueueRef& queue, double seconds,
                                 platform::run::Work work);

} // namespace folders
