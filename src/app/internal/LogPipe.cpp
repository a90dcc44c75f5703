#include "LogPipe.h"

#include "base/Log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace app {

namespace {

using namespace std::chrono_literals;
using platform::run::BlockingScope;

constexpr auto retryTime = 250ms;
/// How long the reader waits for space. Writers wait for it when the pipe is full, so this is what a file that hangs
/// can cost them.
constexpr auto burstTime = 500ms;
/// Between looks for somebody in a hurry, who may be a signal handler and unable to notify.
constexpr auto shortTime = 10ms;
/// How long the beginning of a line waits for its end, and how long it may be.
constexpr auto lineTime = 200ms;
constexpr std::size_t maximumLine = 1 << 20;

/// These threads must go on while another one ends the process: its signals are for others.
void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP})
        sigdelset(&all, fault);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

std::chrono::nanoseconds now() noexcept {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time); // allowed in signal handlers, unlike the language's clocks
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// Atomic for looks from a signal handler and from other threads.
struct Progress {
    std::atomic<bool> isReading = false;       ///< Bytes may be on their way between the pipe and `waiting`.
    std::atomic<std::size_t> waiting = 0;      ///< Bytes in memory.
    std::atomic<unsigned> attempts = 0;        ///< To write the file, ended.
    std::atomic<bool> isFailing = false;       ///< The last attempt failed.
    std::atomic<bool> isHurried = false;       ///< Somebody waits: the beginning of a line goes out as it is.
    std::atomic<int> descriptor = -1;          ///< Of the file.
    std::atomic<pid_t> reader = 0, writer = 0; ///< Thread numbers.
};

} // namespace

struct LogPipe::State {
    State(std::string path, Limits given) : limits(given), file(std::move(path), given.file) {}
    ~State() { close(output); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void read();
    void receive(std::string_view piece);
    void write();
    std::string_view takeable(bool isLate);
    bool isQuiet();
    void attempt(std::string_view part);
    void resume();

    const Limits limits;
    Failed failed;
    int output = -1;
    Progress progress;

    std::mutex mutex; // guards what follows
    std::condition_variable changed, written;
    std::string backlog;
    bool started = false;
    bool ended = false;
    struct Dropped {
        std::size_t lines = 0, bytes = 0;
    };
    Dropped dropped;
    bool isDropping = false;
    bool isInLine = false;           ///< What arrived last was no line's end.
    bool skipsLine = false;          ///< The rest of a line whose beginning was dropped is dropped too.
    std::string reason = "too slow"; ///< Why the file can't be written.

    // The writer's own.
    LogFile file;
    std::string text; ///< Taken, and not in the file yet.
};

std::unique_ptr<LogPipe> LogPipe::start(std::string path, Limits limits, platform::run::QueueRef queueForReading,
                                        Failed failed) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return nullptr;
    // Fewer turns for the reader in a burst of lines; the usual size serves too.
    static_cast<void>(fcntl(ends[1], F_SETPIPE_SZ, 1 << 20));
    const auto state = std::make_shared<State>(std::move(path), limits);
    state->failed = std::move(failed);
    state->output = ends[0];
    std::unique_ptr<LogPipe> pipe(new LogPipe(state, ends[1]));
    queueForReading->async([state] { state->read(); });
    platform::run::Queue::global(platform::run::QualityOfService::standard)->async([state] { state->write(); });
    // Nobody may write before there is a thread that reads.
    constexpr auto startTime = 10s;
    std::unique_lock lock(state->mutex);
    const BlockingScope blocking;
    if (state->changed.wait_for(lock, startTime, [&] { return state->started; })) return pipe;
    errno = EAGAIN;
    return nullptr;
}

LogPipe::~LogPipe() {
    closeInput();
}

void LogPipe::closeInput() {
    if (input_ >= 0) close(input_);
    input_ = -1;
}

int LogPipe::fileDescriptor() const noexcept {
    return state_->progress.descriptor;
}

bool LogPipe::isOwnThread() const noexcept {
    const pid_t self = gettid();
    return state_->progress.reader == self || state_->progress.writer == self;
}

bool LogPipe::drain(std::chrono::nanoseconds limit) const noexcept {
    Progress& progress = state_->progress;
    const unsigned attempts = progress.attempts;
    const auto start = now();
    auto moved = start;
    std::size_t before = 0;
    progress.isHurried = true;
    bool isDrained = false;
    for (;;) {
        // In this order: what leaves the pipe is counted as waiting before the reading ends.
        int inPipe = 0;
        const bool isEmpty = ioctl(state_->output, FIONREAD, &inPipe) == 0 && inPipe == 0 && !progress.isReading;
        const std::size_t waiting = progress.waiting;
        // The first attempt opens the file; who ends before it has may still be told that it can't be.
        isDrained = isEmpty && waiting == 0 && progress.attempts > 0;
        // One more attempt that fails is enough.
        if (isDrained || (progress.isFailing && progress.attempts > attempts)) break;
        const std::size_t there = waiting + static_cast<std::size_t>(inPipe);
        if (std::exchange(before, there) != there) moved = now();
        // A file that takes its time is not one that hangs; but others may go on writing for ever.
        constexpr int patience = 10;
        if (now() - moved >= limit || now() - start >= patience * limit) break;
        const timespec pause = {0, 50'000};
        nanosleep(&pause, nullptr);
    }
    progress.isHurried = false;
    return isDrained && !progress.isFailing;
}

void LogPipe::State::read() {
    blockSignals();
    progress.reader = gettid();
    {
        const std::lock_guard lock(mutex);
        started = true;
    }
    changed.notify_all();
    std::array<char, 65536> bytes; // NOLINT(cppcoreguidelines-pro-type-member-init): read() fills it
    for (;;) {
        {
            const BlockingScope blocking;
            pollfd look{output, POLLIN, 0};
            if (poll(&look, 1, -1) < 0 && errno != EINTR) break;
        }
        progress.isReading = true;
        const ssize_t count = ::read(output, bytes.data(), bytes.size());
        const int failedWith = errno;
        if (count > 0) receive({bytes.data(), static_cast<std::size_t>(count)});
        progress.isReading = false;
        if (count > 0 || (count < 0 && (failedWith == EINTR || failedWith == EAGAIN))) continue;
        if (count < 0)
            failed({std::string(base::posixErrorDomain), failedWith,
                    base::message("Read Error in %s: %s", "+[Logger setLogFile:]", std::strerror(failedWith))},
                   true);
        break; // every input is closed
    }
    progress.reader = 0;
    const std::lock_guard lock(mutex);
    ended = true;
    changed.notify_all();
}

void LogPipe::State::receive(std::string_view piece) {
    std::unique_lock lock(mutex);
    // A burst waits for a file that can be written, but not for one that hangs.
    const auto hasSpace = [&] { return progress.waiting + piece.size() <= limits.inMemory; };
    if (!isDropping && !hasSpace()) {
        const BlockingScope blocking;
        written.wait_for(lock, burstTime, [&] { return hasSpace() || progress.isFailing; });
    }
    resume();
    const std::size_t space = limits.inMemory - std::min<std::size_t>(limits.inMemory, progress.waiting);
    std::string_view kept = piece;
    const bool wasInLine = std::exchange(isInLine, piece.back() != '\n');
    if (!isDropping && skipsLine) {
        const std::size_t end = kept.find('\n');
        skipsLine = end == std::string_view::npos;
        kept.remove_prefix(skipsLine ? kept.size() : end + 1);
    }
    if (isDropping || kept.size() > space) {
        std::size_t keptSize = 0;
        if (!std::exchange(isDropping, true) && wasInLine) {
            // The line whose beginning was kept is kept whole, within reason.
            const std::size_t end = kept.find('\n');
            keptSize = end == std::string_view::npos ? kept.size() : end + 1;
        }
        const std::string_view rest = kept.substr(keptSize);
        kept = kept.substr(0, keptSize);
        dropped.lines += static_cast<std::size_t>(std::count(rest.begin(), rest.end(), '\n'));
        dropped.bytes += rest.size();
        if (kept.empty()) return;
    }
    backlog += kept;
    progress.waiting += kept.size();
    changed.notify_all();
}

/// Takes lines again after some were dropped, when there is space for a good many, with a word about those. With the
/// lock.
void LogPipe::State::resume() {
    if (!isDropping || progress.waiting > limits.inMemory / 2) return;
    isDropping = false;
    if (dropped.bytes > 0) {
        skipsLine = isInLine;
        const std::string line =
            base::logLine(base::message("%lu lines (%lu bytes) of the log were dropped: %@ could not be written (%@)",
                                        dropped.lines + (isInLine ? 1 : 0), dropped.bytes, file.path(), reason));
        if (!backlog.empty() && backlog.back() != '\n') backlog += '\n', ++progress.waiting;
        backlog += line;
        progress.waiting += line.size();
    }
    dropped = {};
}

void LogPipe::State::write() {
    blockSignals();
    progress.writer = gettid();
    attempt({}); // opens the file, so that a log that can't be written is told before the first line
    auto partSince = now();
    for (;;) {
        {
            const BlockingScope blocking;
            std::unique_lock lock(mutex);
            const auto hasNews = [&] { return ended || !backlog.empty() || (isDropping && text.empty()); };
            if (progress.isFailing)
                for (auto waited = 0ms; waited < retryTime && !ended && !progress.isHurried; waited += shortTime)
                    changed.wait_for(lock, shortTime, [&] { return ended; });
            else if (!text.empty()) // the beginning of a line
                changed.wait_for(lock, shortTime, hasNews);
            else
                changed.wait(lock, hasNews);
            resume();
            if (text.empty()) partSince = now();
            text += backlog;
            backlog.clear();
            if (ended && text.empty()) break;
        }
        const bool isLate = (progress.isHurried && isQuiet()) || now() - partSince > lineTime;
        const std::string_view part = takeable(isLate);
        if (part.empty()) continue;
        attempt(part);
        partSince = now();
        const std::lock_guard lock(mutex);
        if (ended && progress.isFailing) break;
    }
    progress.writer = 0;
}

/// Whether all that was written stands in `text`: somebody who waits gets the beginning of a line too, but no line is
/// torn whose rest is on its way.
bool LogPipe::State::isQuiet() {
    int inPipe = 0;
    if (ioctl(output, FIONREAD, &inPipe) != 0 || inPipe > 0 || progress.isReading) return false;
    const std::lock_guard lock(mutex);
    return backlog.empty();
}

/// What may go to the file: whole lines, and a line's beginning when its end does not come.
std::string_view LogPipe::State::takeable(bool isLate) {
    const std::size_t lines = text.rfind('\n') + 1;
    const std::size_t begun = text.size() - lines;
    if (begun == 0 || isLate || begun > maximumLine) return text;
    const std::lock_guard lock(mutex);
    return ended ? std::string_view(text) : std::string_view(text).substr(0, lines);
}

void LogPipe::State::attempt(std::string_view part) {
    LogFile::Written done;
    {
        const BlockingScope blocking;
        done = file.append(part);
    }
    progress.descriptor = file.descriptor();
    const std::string why = done.error != 0 ? std::strerror(done.error) : std::string();
    if (done.error != 0) {
        const std::lock_guard lock(mutex);
        reason = why;
    }
    text.erase(0, done.size);
    const bool wasFailing = progress.isFailing.exchange(done.error != 0);
    progress.waiting -= done.size;
    ++progress.attempts;
    {
        const std::lock_guard lock(mutex); // so that the reader is before its wait, or in it
    }
    written.notify_all();
    if (done.error != 0 && !wasFailing)
        failed({std::string(base::posixErrorDomain), done.error,
                base::message(done.messageTemplate, "+[Logger setLogFile:]", why)},
               false);
}

} // namespace app
