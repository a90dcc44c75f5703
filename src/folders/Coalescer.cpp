#include "folders/Coalescer.h"

#include "folders/QueueHelpers.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace folders {

namespace {

// Seconds as nanoseconds, cut off; a wait that is no number, or too long to be one, stays within bounds.
std::chrono::nanoseconds nanoseconds(double seconds) {
    constexpr double longest = 1e9; // seconds
    if (!(seconds > 0)) return std::chrono::nanoseconds(0);
    return std::chrono::nanoseconds(static_cast<std::int64_t>(std::min(seconds, longest) * 1e9));
}

bool runs(Coalescer::When when, Coalescer::When which) {
    return (static_cast<int>(when) & static_cast<int>(which)) != 0;
}

} // namespace

struct Coalescer::State {
    const QueueRef wait_queue = dispatchQueueSerialWithDebugLabel("com.brindlewoods.coalescing");
    std::map<std::string, int, std::less<>> waiting_m; // key -> open timers; used on wait_queue only
};

Coalescer::Coalescer(platform::run::ClockRef clock) : state_(std::make_shared<State>()), clock_(std::move(clock)) {}

Coalescer& Coalescer::shared() {
    static auto& coalescer = *new Coalescer;
    return coalescer;
}

const QueueRef& Coalescer::queue() const {
    return state_->wait_queue;
}

void Coalescer::runOnceForKey(std::string_view key, const QueueRef& queue, double afterWaitingSeconds, When when,
                              Work work) {
    const QueueRef target = queue ? queue : platform::run::mainQueue();
    state_->wait_queue->async([state = state_, key = std::string(key), target, when, work] {
        int& count = state->waiting_m[key];
        if (count == 0 && runs(when, When::first)) target->async(work);
        ++count;
    });
    const platform::run::ClockRef clock = clock_ ? clock_ : platform::run::clock();
    clock->after(nanoseconds(afterWaitingSeconds), state_->wait_queue,
                 [state = state_, key = std::string(key), target, when, work = std::move(work)] {
                     const auto waiting = state->waiting_m.find(key);
                     if (--waiting->second > 0) return;
                     state->waiting_m.erase(waiting);
                     if (runs(when, When::last)) target->async(work);
                 });
}

void runOnceForKeyCollectingFor(std::string_view key, const QueueRef& queue, double seconds, Work work) {
    Coalescer::shared().runOnceForKey(key, queue, seconds, Coalescer::When::first, std::move(work));
}

void runOnceForKeyAfterWaiting(std::string_view key, const QueueRef& queue, double seconds, Work work) {
    Coalescer::shared().runOnceForKey(key, queue, seconds, Coalescer::When::last, std::move(work));
}

void runOnceForKeyBeforeAndAfter(std::string_view key, const QueueRef& queue, double seconds, Work work) {
    Coalescer::shared().runOnceForKey(key, queue, seconds, Coalescer::When::firstAndLast, std::move(work));
}

} // namespace folders
