// A clock that runs so many times as fast as the real one, so that an engine's latencies need not be waited for. Any
// thread.
#pragma once

#include "platform/run/Clock.h"

#include <chrono>
#include <utility>

namespace soak {

class HurriedClock final : public platform::run::Clock {
public:
    explicit HurriedClock(int haste) : haste_(haste) {}

    std::chrono::nanoseconds now() const override { return platform::run::systemClock()->now() * haste_; }
    void after(std::chrono::nanoseconds delay, platform::run::QueueRef queue, platform::run::Work work) override {
        // Rounded up: never before the delay has passed.
        platform::run::systemClock()->after(delay / haste_ + std::chrono::nanoseconds(1), std::move(queue),
                                            std::move(work));
    }

private:
    const int haste_;
};

} // namespace soak
