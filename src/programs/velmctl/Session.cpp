#include "Session.h"

#include "Console.h"
#include "app/KLARON_SystemInfo.h"
#include "app/Logger.h"
#include "base/Log.h"
#include "base/Places.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/MainQueue.h"

#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace velmctl {

Session::Session(const Options& options) {
    if (!options.home.empty()) base::setPlaces(base::Places::below(options.home));
    Console& console = Console::shared(); // takes standard error as it is now
    Logger::setFailureBlock([path = Logger::defaultLogFileVELM().path()](std::string_view reason) {
        Console::shared().diagnostic("cannot write the log " + path + ": " + std::string(reason));
    });
    // What is said while the log takes the place of standard error is for the log, not for the terminal.
    std::vector<std::string> early;
    base::setLogSink([&early](std::string_view message) { early.emplace_back(message); });
    Logger::setLogFile(Logger::defaultLogFileVELM());
    base::setLogSink([isVerbose = options.verbose, &console](std::string_view message) {
        const std::string line = base::logLine(message);
        base::writeToStandardError(line);
        if (isVerbose) console.diagnostic(std::string_view(line).substr(0, line.size() - 1));
    });
    for (const std::string& message : early)
        base::logMessage(message);
    if (const auto& error = platform::data::UserDefaults::standard().readingError())
        console.diagnostic("the settings can't be read and count as absent: " + error->localizedDescription);
}

Session::~Session() = default;

void Session::launch() {
    app::processInfo::logCurrentSystemInfo();
    appDelegate_ = std::make_unique<AppDelegate>();
    appDelegate_->awakeFromNib();
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

Run Session::withEngine(std::function<int()> work) {
    return [work = std::move(work)](const Options& options) {
        Session session(options);
        session.launch();
        return runBesideMainQueue(work);
    };
}

void Session::endProcess(int status) {
    std::fflush(nullptr);
    Logger::drain();
    _exit(status);
}

void Session::abandonProcess(std::string_view lastWord) {
    Console::lastWord(lastWord);
    Logger::drain();
    _exit(exitFailure);
}

} // namespace velmctl
