#include "platform/run/Clock.h"

#include <algorithm>
#include <condition_variable>
#include <thread>
#include <utility>

namespace platform::run {

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

class SystemClock final : public Clock {
public:
    nanoseconds now() const override { return std::chrono::steady_clock::now().time_since_epoch(); }

    void after(nanoseconds delay, QueueRef queue, Work work) override {
        std::lock_guard lock(mutex_);
        waiting_.emplace(saturatingSum(now(), delay), std::pair(std::move(queue), std::move(work)));
        if (!std::exchange(isStarted_, true)) std::thread([this] { deliver(); }).detach();
        changed_.notify_one();
    }

private:
    // A moment that std::condition_variable can still be asked to wait for.
    static nanoseconds saturatingSum(nanoseconds now, nanoseconds delay) {
        constexpr nanoseconds forever = std::chrono::hours(24 * 365 * 50);
        return now + std::min(std::max(delay, 0ns), forever);
    }

    void deliver() {
        std::unique_lock lock(mutex_);
        for (;;) {
            if (waiting_.empty()) {
                changed_.wait(lock);
                continue;
            }
            const auto due = waiting_.begin()->first;
            if (due > now()) {
                changed_.wait_until(lock, std::chrono::steady_clock::time_point(due));
                continue;
            }
            const auto next = waiting_.extract(waiting_.begin());
            lock.unlock();
            next.mapped().first->async(std::move(next.mapped().second));
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<nanoseconds, std::pair<QueueRef, Work>> waiting_;
    bool isStarted_ = false;
};

struct ClockInForce {
    std::mutex mutex;
    ClockRef clock = systemClock();
};

ClockInForce& clockInForce() {
    static auto& inForce = *new ClockInForce;
    return inForce;
}

} // namespace

ClockRef systemClock() {
    static const auto& clock = *new ClockRef(std::make_shared<SystemClock>());
    return clock;
}

ClockRef clock() {
    std::lock_guard lock(clockInForce().mutex);
    return clockInForce().clock;
}

void setClock(ClockRef clock) {
    std::lock_guard lock(clockInForce().mutex);
    clockInForce().clock = clock ? std::move(clock) : systemClock();
}

nanoseconds ManualClock::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

void ManualClock::after(nanoseconds delay, QueueRef queue, Work work) {
    std::lock_guard lock(mutex_);
    waiting_.emplace(now_ + std::max(delay, 0ns), std::pair(std::move(queue), std::move(work)));
}

void ManualClock::advance(nanoseconds by) {
    std::unique_lock lock(mutex_);
    const nanoseconds end = now_ + by;
    while (!waiting_.empty() && waiting_.begin()->first <= end) {
        const auto next = waiting_.extract(waiting_.begin());
        now_ = std::max(now_, next.key());
        lock.unlock();
        next.mapped().first->async(std::move(next.mapped().second));
        lock.lock();
    }
    now_ = std::max(now_, end);
}

std::size_t ManualClock::waitingCount() const {
    std::lock_guard lock(mutex_);
    return waiting_.size();
}

} // namespace platform::run
