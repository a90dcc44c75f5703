#include "Session.h"

#include "Console.h"
#include "app/VELM.h"
#include "base/Log.h"
#include "base/Path.h"
#include "base/Places.h"
#include "platform/run/MainQueue.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace velmctl {

std::string logFilePath() {
    return base::appendingPathComponent(base::places().logs, base::appendingPathExtension("velmctl", "log"));
}

namespace {

/// The log file, opened for adding: several processes may write to one file, a line each at a time.
class LogFile {
public:
    explicit LogFile(bool verbose) : verbose_(verbose) {
        const std::string path = logFilePath();
        const auto report = [&](std::string_view reason) {
            Console::shared().diagnostic("cannot write the log " + path + ": " + std::string(reason));
        };
        std::string reason;
        if (!VELM::makeDirectory(base::URL::fileURLWithPath(base::places().logs),
                                 [&](const base::Error& error) { reason = error.localizedDescription; }))
            report(reason);
        else if (descriptor_ = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644); descriptor_ < 0)
            report(std::strerror(errno));
    }

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void receive(std::string_view message) const {
        const std::string line = base::logLine(message);
        // A log that can't be written must not stop the work: there is nobody to tell.
        if (descriptor_ >= 0) static_cast<void>(!write(descriptor_, line.data(), line.size()));
        if (verbose_) Console::shared().diagnostic(std::string_view(line).substr(0, line.size() - 1));
    }

private:
    const bool verbose_;
    int descriptor_ = -1;
};

} // namespace

Session::Session(const Options& options) {
    if (!options.home.empty()) base::setPlaces(base::Places::below(options.home));
    // The sink keeps the file: the engine's threads may log until the very end of the process.
    const auto logFile = std::make_shared<LogFile>(options.verbose);
    base::setLogSink([logFile](std::string_view message) { logFile->receive(message); });
}

Session::~Session() = default;

void Session::launch() {
    appDelegate_ = std::make_unique<AppDelegate>();
    appDelegate_->applicationDidFinishLaunching();
}

int Session::runBesideMainQueue(const std::function<int()>& work) {
    platform::run::RunLoop loop;
    int result = exitFailure;
    platform::run::Queue::global(platform::run::QualityOfService::userInitiated)->async([&] {
        result = work();
        // On the main queue, so that whatever the work left there is done first.
        platform::run::mainQueue()->async([&loop] { loop.stop(); });
    });
    loop.run();
    return result;
}

void Session::endProcess(int status) {
    std::fflush(nullptr);
    _exit(status);
}

} // namespace velmctl
