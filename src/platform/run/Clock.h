// Time that passes, and work that waits for it. Whatever waits in the system takes its time from a Clock, so that tests
// run it on a ManualClock without sleeping. For dates see the data module. Any thread.
#pragma once

#include "platform/run/Queue.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace platform::run {

class Clock {
public:
    virtual ~Clock() = default;
    /// Nanoseconds since an arbitrary moment; never goes back.
    virtual std::chrono::nanoseconds now() const = 0;
    /// Hands the work to the queue once the delay has passed, never before. Equal moments keep the order of the calls.
    virtual void after(std::chrono::nanoseconds delay, QueueRef queue, Work work) = 0;
};

using ClockRef = std::shared_ptr<Clock>;

/// The clock in force: the system's until another one is set.
ClockRef clock();
/// The real one.
ClockRef systemClock();
/// Puts a clock in force for the whole process; null restores the system's.
void setClock(ClockRef clock);

/// Stands still until it is told to advance.
class ManualClock final : public Clock {
public:
    std::chrono::nanoseconds now() const override;
    void after(std::chrono::nanoseconds delay, QueueRef queue, Work work) override;

    /// Moves the time on. Work that falls due on the way is handed to its queue in order, each at its own moment; its
    /// run is not waited for (`queue->sync([] {})` waits for a serial queue).
    void advance(std::chrono::nanoseconds by);
    /// How much work still waits for its time.
    std::size_t waitingCount() const;

private:
    mutable std::mutex mutex_;
    std::chrono::nanoseconds now_{0};
    std::multimap<std::chrono::nanoseconds, std::pair<QueueRef, Work>> waiting_;
};

} // namespace platform::run
