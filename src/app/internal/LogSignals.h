// The log's part in a violent end: signals that end the process let the log's pipe run empty first. A signal that
// means a fault (an abort, a bad access) also shows the log's last lines, which may hold its reason, on the first
// standard error. The sanitizers' reports go there as a whole. Signals that somebody ignores or handles already are
// left to them.
#pragma once

#include "LogPipe.h"

#include <atomic>
#include <cstddef>
#include <string>

namespace app {

/// From now on the pipe that matters, the file it leads to, and how many lines are on their way to the pipe: the pipe
/// and the count must stay for ever.
void setPipeOfSignals(const LogPipe& pipe, const std::string& path, const std::atomic<std::size_t>& linesOnTheirWay);

} // namespace app
