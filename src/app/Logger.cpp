#include "app/Logger.h"

#include "base/Log.h"
#include "base/Places.h"
#include "internal/LogPipe.h"
#include "internal/LogSignals.h"
#include "platform/data/Dates.h"
#include "platform/run/MainQueue.h"
#include "platform/run/Queue.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using platform::run::Queue;
using platform::run::QueueRef;

namespace {

using namespace std::chrono_literals;

constexpr const char* setLogFileName = "+[Logger setLogFile:]";

// Never destroyed: threads may log until the very end of the process.
struct Shared {
    std::atomic<long> logLevel = 0;
    const QueueRef queueForWriting = Queue::serial("Logger-Writing");
    std::atomic<std::size_t> levelLines = 0; ///< Built, and not on standard error yet.
    std::mutex mutex;
    std::optional<base::URL> logFile;
    std::function<void(std::string_view)> failureBlock;
    std::vector<std::unique_ptr<app::LogPipe>> pipes; ///< The last one is in force; signal handlers may look at any.
};

Shared& shared() {
    static Shared& instance = *new Shared;
    return instance;
}

std::string processName() {
    return program_invocation_short_name;
}

void writeLine(std::string_view message) {
    std::string label = platform::run::currentQueueLabel();
    if (label.empty() && platform::run::isMainThread()) label = platform::run::mainQueue()->label();
    const std::string date = platform::data::stringWithUTSFormat(platform::data::now(), "yyyy-MM-dd HH:mm:ss.SSS");
    ++shared().levelLines;
    shared().queueForWriting->async([line = base::message("%@[Q %s] %@", date, label, message) + "\n"] {
        base::writeToStandardError(line);
        --shared().levelLines;
    });
}

void reportFailure(const base::Error& error, bool isOver) {
    if (isOver) dup2(Logger::firstStandardError(), STDERR_FILENO);
    base::log("an io error has occurred: %@", error);
    std::function<void(std::string_view)> block;
    {
        const std::lock_guard lock(shared().mutex);
        block = std::exchange(shared().failureBlock, nullptr);
    }
    if (block) block(std::strerror(error.code));
}

/// At the end by exit(): what is logged after this goes straight to the file, as nothing may bring it there any more.
void drainAtExit() {
    if (!Logger::drain()) return;
    const std::lock_guard lock(shared().mutex);
    if (const int file = shared().pipes.back()->fileDescriptor(); file >= 0) dup2(file, STDERR_FILENO);
}

} // namespace

void Logger::setError(std::string_view message) {
    writeLine(message);
}

void Logger::setDebug(std::string_view message) {
    if (logLevel() > 0) writeLine(message);
}

void Logger::setVerbose(std::string_view message) {
    if (logLevel() >= 2) writeLine(message);
}

long Logger::logLevel() {
    return shared().logLevel;
}

void Logger::setLogLevel(long level) {
    shared().logLevel = level;
}

base::URL Logger::defaultLogFileWithinSubdirectory(std::string_view subdirectory) {
    const std::string folder =
        base::appendingPathComponent(base::deletingLastPathComponent(base::places().logs), subdirectory);
    return base::URL::fileURLWithPath(
        base::appendingPathComponent(folder, base::appendingPathExtension(processName(), "log")));
}

base::URL Logger::defaultLogFile() {
    return defaultLogFileWithinSubdirectory("");
}

base::URL Logger::defaultLogFileVELM() {
    // The folder of logs may have another name, below a home of one's own.
    return defaultLogFileWithinSubdirectory(base::lastPathComponent(base::places().logs));
}

std::optional<base::URL> Logger::logFile() {
    const std::lock_guard lock(shared().mutex);
    return shared().logFile;
}

int Logger::firstStandardError() {
    // A process that was started without one has nobody to tell: then it is the null device.
    static const int descriptor = [] {
        const int copy = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
        return copy >= 0 ? copy : open("/dev/null", O_WRONLY | O_CLOEXEC);
    }();
    return descriptor;
}

void Logger::setFailureBlock(std::function<void(std::string_view)> block) {
    const std::lock_guard lock(shared().mutex);
    shared().failureBlock = std::move(block);
}

void Logger::setLogFile(std::optional<base::URL> url) {
    firstStandardError();
    base::log("%s %@", setLogFileName, url);
    if (!url) {
        std::fflush(stderr);
        url = defaultLogFile();
        base::log("%s %@", setLogFileName, url);
    }
    if (url->path().empty()) {
        base::log("Failed to pass (or make) a URL %s: (%@)", setLogFileName, url);
        return;
    }
    std::unique_ptr<app::LogPipe> pipe =
        app::LogPipe::start(url->path(), {}, Queue::serial("Logger-Reading"), reportFailure);
    if (!pipe) {
        base::log("Error making pipes");
        return;
    }
    drain(); // what was logged before belongs to the file before
    {
        const std::lock_guard lock(shared().mutex);
        dup2(pipe->input(), STDERR_FILENO);
        pipe->closeInput(); // standard error, and what is started with it, keep the pipe going
        shared().logFile = url;
        app::setPipeOfSignals(*pipe, url->path(), shared().levelLines);
        shared().pipes.push_back(std::move(pipe));
    }
    static const bool isRegistered = std::atexit(drainAtExit) == 0;
    static_cast<void>(isRegistered);
}

bool Logger::drain(std::chrono::nanoseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (shared().levelLines > 0 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(50us);
    std::fflush(stderr);
    const app::LogPipe* pipe = nullptr;
    {
        const std::lock_guard lock(shared().mutex);
        if (!shared().pipes.empty()) pipe = shared().pipes.back().get();
    }
    return pipe && pipe->drain(limit);
}
