#include "base/Log.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fmt/format.h>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace base {

namespace {

struct Sink {
    std::mutex mutex;
    LogSink receive;
};

// Never destroyed: threads may log until the very end of the process.
Sink& sink() {
    static Sink& instance = *new Sink;
    return instance;
}

} // namespace

LogSink setLogSink(LogSink receive) {
    const std::lock_guard lock(sink().mutex);
    return std::exchange(sink().receive, std::move(receive));
}

void logMessage(std::string_view message) {
    const std::lock_guard lock(sink().mutex);
    if (sink().receive) {
        sink().receive(message);
        return;
    }
    writeToStandardError(logLine(message));
}

void writeToStandardError(std::string_view text) {
    // The stream's own lock keeps texts apart that are too long to enter a pipe at once.
    std::fwrite(text.data(), 1, text.size(), stderr);
}

std::string logLine(std::string_view message) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts{};
    localtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}.{:03} {}[{}:{}] {}\n", parts.tm_year + 1900,
                       parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, milliseconds,
                       program_invocation_short_name, getpid(), gettid(), message);
}

} // namespace base
