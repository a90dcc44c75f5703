// Standard output and standard error of the program, line by line: results on the one, diagnostics on the other, and on
// a terminal a line that shows how far the work is. Standard error is the one that the program was started with, also
// when the log has taken its place. One for each process; any thread.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace platform::run {
class Progress;
}

namespace velmctl {

class Console {
public:
    static Console& shared();

    /// A result: one line on standard output, there at once. The first that can't be written is told on standard error.
    void result(std::string_view line);
    bool resultsAreLost();
    /// One line on standard error.
    void diagnostic(std::string_view line);
    /// The same without waiting for anybody who speaks, for a process that ends at once.
    static void lastWord(std::string_view line);
    /// Shows how far the named work is, in place of what was shown before. Only on a terminal.
    void progress(std::string_view name, double fraction);
    void endProgress();

private:
    Console();
    void clearProgressLine();

    std::mutex mutex_;
    std::FILE* terminal_;
    const bool showsProgress_;
    std::string shown_;
    bool resultsAreLost_ = false;
};

/// Keeps the console's progress line up to date with a progress, for as long as it lives. The progress may go on
/// changing on other threads when it ends.
class ProgressDisplay {
public:
    ProgressDisplay(std::string name, std::shared_ptr<platform::run::Progress> progress);
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

private:
    struct Observed;
    std::shared_ptr<Observed> observed_;
};

} // namespace velmctl
