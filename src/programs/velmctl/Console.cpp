#include "Console.h"

#include "app/Logger.h"
#include "base/Error.h"
#include "platform/run/Observation.h"
#include "platform/run/Progress.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace velmctl {

namespace {

bool writeLine(std::FILE* stream, std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stream);
    std::fputc('\n', stream);
    return std::fflush(stream) == 0 && std::ferror(stream) == 0;
}

} // namespace

// Never destroyed: threads may speak until the very end of the process.
Console& Console::shared() {
    static Console& instance = *new Console;
    return instance;
}

Console::Console()
    : terminal_(fdopen(Logger::firstStandardError(), "w")), showsProgress_(isatty(Logger::firstStandardError()) == 1) {
    // Without the memory for a stream there is still the log.
    if (!terminal_) terminal_ = stderr;
    setvbuf(terminal_, nullptr, _IOLBF, BUFSIZ);
}

void Console::result(std::string_view line) {
    const std::lock_guard lock(mutex_);
    clearProgressLine();
    if (writeLine(stdout, line) || resultsAreLost_) return;
    resultsAreLost_ = true;
    writeLine(terminal_, base::systemError(errno, "FAILED: cannot write the results").localizedDescription);
}

bool Console::resultsAreLost() {
    const std::lock_guard lock(mutex_);
    return resultsAreLost_;
}

void Console::diagnostic(std::string_view line) {
    const std::lock_guard lock(mutex_);
    clearProgressLine();
    writeLine(terminal_, line);
}

void Console::lastWord(std::string_view line) {
    const std::string whole = std::string(line) + "\n";
    static_cast<void>(!write(Logger::firstStandardError(), whole.data(), whole.size()));
}

void Console::progress(std::string_view name, double fraction) {
    if (!showsProgress_) return;
    std::string line = std::string(name) + ": " + std::to_string(static_cast<int>(fraction * 100)) + " %";
    const std::lock_guard lock(mutex_);
    if (line == shown_) return;
    clearProgressLine();
    std::fputs(line.c_str(), terminal_);
    std::fflush(terminal_);
    shown_ = std::move(line);
}

void Console::endProgress() {
    const std::lock_guard lock(mutex_);
    clearProgressLine();
}

void Console::clearProgressLine() {
    if (shown_.empty()) return;
    // To the line's start, and clear to its end.
    std::fputs("\r\033[K", terminal_);
    std::fflush(terminal_);
    shown_.clear();
}

/// Shared with callbacks that may still run when the display has ended.
struct ProgressDisplay::Observed {
    std::string name;
    std::shared_ptr<platform::run::Progress> progress;
    platform::run::Observation observation;
    std::mutex mutex;
    bool ended = false;

    void show() {
        const std::lock_guard lock(mutex);
        if (!ended) Console::shared().progress(name, progress->fractionCompleted());
    }
};

ProgressDisplay::ProgressDisplay(std::string name, std::shared_ptr<platform::run::Progress> progress)
    : observed_(std::make_shared<Observed>()) {
    observed_->name = std::move(name);
    observed_->progress = std::move(progress);
    observed_->observation = observed_->progress->observe([weak = std::weak_ptr(observed_)] {
        if (const auto observed = weak.lock()) observed->show();
    });
    observed_->show();
}

ProgressDisplay::~ProgressDisplay() {
    observed_->observation.end();
    const std::lock_guard lock(observed_->mutex);
    observed_->ended = true;
    Console::shared().endProgress();
}

} // namespace velmctl
