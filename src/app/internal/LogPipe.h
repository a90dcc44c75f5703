// A pipe whose far end is a log file. Whoever writes into it never waits for the file: one thread always empties the
// pipe into memory, another one brings that to the file and tries again where it can't. What memory may hold is
// limited; what had to be dropped, whole lines always, is told in a line as soon as the file can be written again.
#pragma once

#include "LogFile.h"
#include "base/Error.h"
#include "platform/run/Queue.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace app {

class LogPipe {
public:
    struct Limits {
        std::size_t inMemory = 4 << 20; ///< Bytes that wait for the file.
        std::size_t file = LogFile::standardLimit;
    };
    /// Told on a thread of the pipe's own when the file can't be written: once, until it could be again. `isOver` when
    /// the pipe can't be read any more: then whoever writes into it must stop, or would wait for ever.
    using Failed = std::function<void(const base::Error& error, bool isOver)>;

    /// Null, with errno set, when there can be no pipe or no thread. The pipe is read on `queueForReading` from now on
    /// till all its inputs are closed: nothing else can run there.
    static std::unique_ptr<LogPipe> start(std::string path, Limits limits, platform::run::QueueRef queueForReading,
                                          Failed failed);
    ~LogPipe();
    LogPipe(const LogPipe&) = delete;
    LogPipe& operator=(const LogPipe&) = delete;

    /// The end to write to; closed by closeInput() or with the object. Copies of it keep the pipe going.
    int input() const { return input_; }
    void closeInput();

    /// Waits until the file holds all that was written before the call; false when the file can't be written or takes
    /// nothing for as long as the limit. Ends after ten times the limit in any case. May be called in a signal handler.
    bool drain(std::chrono::nanoseconds limit) const noexcept;
    /// Of the log file, -1 while it is not open. May be called in a signal handler.
    int fileDescriptor() const noexcept;
    /// Whether the caller is one of the pipe's own threads, which can't wait for themselves.
    bool isOwnThread() const noexcept;

private:
    struct State;
    LogPipe(std::shared_ptr<State> state, int input) : state_(std::move(state)), input_(input) {}

    const std::shared_ptr<State> state_;
    int input_;
};

} // namespace app
