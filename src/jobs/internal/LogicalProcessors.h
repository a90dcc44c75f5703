// How many logical processors this process may use.
#pragma once

#include <algorithm>
#include <thread>

namespace jobs {

inline unsigned cpuCountLogical() {
    return std::max(1U, std::thread::hardware_concurrency());
}

} // namespace jobs
