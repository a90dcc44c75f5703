#include "UniqueTime.h"

#include "platform/data/Dates.h"

#include <chrono>
#include <mutex>

namespace output {

namespace {

using Milliseconds = std::chrono::sys_time<std::chrono::milliseconds>;

// A clock that was set back further than this has really been set back: its time is then used as it is.
constexpr std::chrono::seconds largestLead{10};

Milliseconds nextUniqueTime(Milliseconds now) {
    static std::mutex mutex;
    static Milliseconds last{};
    const std::lock_guard lock(mutex);
    const bool isTaken = now <= last && last - now < largestLead;
    last = isTaken ? last + std::chrono::milliseconds(1) : now;
    return last;
}

} // namespace

std::string uniqueTimeStamp() {
    const auto now = std::chrono::floor<std::chrono::milliseconds>(platform::data::now());
    return platform::data::stringWithUTSFormat(nextUniqueTime(now), "yyyy-MM-dd_HH-mm-ss.SSS");
}

} // namespace output
