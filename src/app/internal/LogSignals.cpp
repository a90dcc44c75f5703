#include "LogSignals.h"

#include "app/Logger.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

// Of the sanitizers' runtime, where there is one.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the runtime's own names
__attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);
__attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());
// NOLINTEND(bugprone-reserved-identifier)
}

namespace app {

namespace {

using namespace std::chrono_literals;

constexpr std::array faults = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS};
constexpr std::array endings = {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGXCPU};
constexpr auto drainTime = 1s;

// Read by handlers.
std::atomic<const LogPipe*> currentPipe = nullptr;
std::atomic<const std::atomic<std::size_t>*> currentLines = nullptr;
std::array<char, PATH_MAX> currentPath{};
int standardError = -1;

// What follows runs in signal handlers: system calls and plain memory only.

void say(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(standardError, text.data(), text.size());
        if (count <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

bool drainNow() {
    const LogPipe* pipe = currentPipe;
    if (!pipe || pipe->isOwnThread()) return false;
    // The thread that should bring them may be the one that this handler holds up.
    constexpr timespec pause = {0, 1'000'000};
    constexpr int pauses = 1000;
    for (int count = 0; count<pauses&& * currentLines.load()> 0; ++count)
        nanosleep(&pause, nullptr);
    return pipe->drain(drainTime);
}

void showLastLines() {
    constexpr std::size_t size = 2048;
    std::array<char, size + 1> bytes{}; // one more, to see whether it begins with a line
    const int file = open(currentPath.data(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return;
    struct stat state {};
    if (fstat(file, &state) == 0 && S_ISREG(state.st_mode)) {
        const off_t start = std::max<off_t>(0, state.st_size - static_cast<off_t>(bytes.size()));
        const ssize_t count = pread(file, bytes.data(), bytes.size(), start);
        std::string_view text(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (start > 0) text.remove_prefix(std::min(text.find('\n') + 1, text.size()));
        say("The process ends by a fault. The last lines of its log:\n");
        say(text);
    }
    close(file);
}

void handle(int signal) {
    const int errorNumber = errno;
    const bool isDrained = drainNow();
    if (isDrained && std::find(faults.begin(), faults.end(), signal) != faults.end()) showLastLines();
    std::signal(signal, SIG_DFL);
    errno = errorNumber;
    raise(signal); // held back until this handler ends
}

void takeOver(int signal) {
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) != 0 || (present.sa_flags & SA_SIGINFO) != 0 ||
        present.sa_handler != SIG_DFL)
        return;
    struct sigaction ours {};
    ours.sa_handler = handle;
    sigfillset(&ours.sa_mask);
    ours.sa_flags = SA_ONSTACK;
    sigaction(signal, &ours, nullptr);
}

} // namespace

void setPipeOfSignals(const LogPipe& pipe, const std::string& path, const std::atomic<std::size_t>& linesOnTheirWay) {
    standardError = Logger::firstStandardError();
    currentPath = {};
    path.copy(currentPath.data(), currentPath.size() - 1);
    currentLines = &linesOnTheirWay;
    currentPipe = &pipe;
    if (__sanitizer_set_report_fd) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a number in a pointer is what the runtime takes
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(standardError)));
    }
    if (__sanitizer_set_death_callback) __sanitizer_set_death_callback([] { drainNow(); });
    std::for_each(faults.begin(), faults.end(), takeOver);
    std::for_each(endings.begin(), endings.end(), takeOver);
}

} // namespace app
