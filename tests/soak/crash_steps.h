// Ends the process by SIGKILL just before the nth change that it makes to the file system (a rename, a folder made, an
// item removed, contents brought to the disk), so that each step of a move or a write is met, not only the long ones.
#pragma once

#include <cstdint>

namespace soak {

inline constexpr const char* stepVariable = "VELM_SOAK_LAST_STEP";

/// Read from the environment at the first step; 0: the process goes on.
std::int64_t lastStep();

} // namespace soak
