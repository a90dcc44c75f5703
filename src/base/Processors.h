// How many logical processors this process may use. Any thread.
#pragma once

#include <algorithm>
#include <thread>

namespace base {

inline unsigned logicalProcessors() {
    return std::max(1U, std::thread::hardware_concurrency());
}

} // namespace base
