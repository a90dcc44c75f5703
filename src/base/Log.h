// The plain log line: a message template and what fills it, one line on standard error with the time in front. A
// program may put another sink in its place (a log file). Any thread; lines never mix.
#pragma once

#include "base/MessageTemplate.h"

#include <functional>
#include <string_view>

namespace base {

/// Receives each finished message, without a time and without a line feed at its end. Called on the logging thread,
/// one call at a time.
using LogSink = std::function<void(std::string_view message)>;

/// Puts a sink in the place of the present one and answers that. An empty one restores standard error.
LogSink setLogSink(LogSink sink);

/// Hands a finished message to the sink.
void logMessage(std::string_view message);

template <class... Arguments>
void log(std::string_view messageTemplate, const Arguments&... arguments) {
    logMessage(messageFromTemplate(messageTemplate, {Argument(arguments)...}));
}

/// Writes a text to standard error, whole: no other text of this process that goes there by the language's streams, or
/// through here, comes in between.
void writeToStandardError(std::string_view text);

/// The line as it is written: "2026-03-15 10:11:12.345 velmctl[4711:12] message\n".
std::string logLine(std::string_view message);

} // namespace base
