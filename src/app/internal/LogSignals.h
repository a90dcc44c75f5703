// The log's part in a violent end: signals that end the process let the log's pipe run empty first. A signal that
// means a fault (an abort, a bad access) also shows the log's last lines, which may hold its reason, on the first
// standard error. The sanitizers' reports go there as a whole. Signals that somebody ignores or handles already are
// left to them.
#pragma once

#include "LogPipe.h"

#include <string>

namespace app {

/// From now on the pipe that matters, which must stay for ever, and the file it leads to.
void setPipeOfSignals(const LogPipe& pipe, const std::string& path);

} // namespace app
