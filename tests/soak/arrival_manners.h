// The ways in which orders come into a watched folder: whole, in pieces, under other names first. Each leaves the order
// of its number there, with the photograph of its home. On the calling thread, which waits between its steps.
#pragma once

#include "soak/support/SoakHome.h"

#include <chrono>
#include <span>
#include <string_view>

namespace soak {

/// The steps of a slow writer.
class Pace {
public:
    explicit Pace(std::chrono::milliseconds pause) : pause_(pause) {}
    /// Waits before the next step, which may take longer than was asked for.
    void wait();
    std::chrono::milliseconds longest() const { return longest_; }
    /// When the last wait ended.
    std::chrono::steady_clock::time_point lastStep() const { return lastStep_; }

private:
    const std::chrono::milliseconds pause_;
    std::chrono::milliseconds longest_{0};
    std::chrono::steady_clock::time_point lastStep_ = std::chrono::steady_clock::now();
};

struct Manner {
    const char* name;
    bool isBundle;
    void (*arrive)(const SoakHome& home, int number, Pace& pace);
};
std::span<const Manner> manners();

/// What may happen to an order that stands in the watched folder already, and is not run yet.
struct Change {
    const char* name;
    bool isBundle;
    void (*make)(const SoakHome& home, int number);
    bool isToRun; ///< Whether it is there after that.
};
std::span<const Change> changes();
/// The number of the order that takes another one's place.
int numberOfReplacement(int number);

} // namespace soak
