// What the tests of this module share: places of their own, a clock of their own, the log lines, ready-made tickets.
#pragma once

#include "base/Log.h"
#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/Clock.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace jobs::testing {

/// One for the process, since the user defaults are found once.
inline support::TemporaryDirectory& home() {
    static support::TemporaryDirectory directory;
    return directory;
}

/// Likewise: timers of an earlier test must be able to fall due.
inline const std::shared_ptr<platform::run::ManualClock>& manualClock() {
    static const auto clock = std::make_shared<platform::run::ManualClock>();
    return clock;
}

/// Before anything asks for the places.
inline const bool placesAreSet = [] {
    base::setPlaces(base::Places::below(home().path().string()));
    return true;
}();

inline platform::data::UserDefaults& defaults() {
    return platform::data::UserDefaults::standard();
}

/// Receives the log lines while it lives.
class LogCapture {
public:
    LogCapture()
        : previous_(base::setLogSink([lines = lines_](std::string_view line) {
              std::lock_guard lock(lines->mutex);
              lines->texts.emplace_back(line);
          })) {}
    ~LogCapture() { base::setLogSink(previous_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::size_t count(std::string_view part) const {
        std::lock_guard lock(lines_->mutex);
        return static_cast<std::size_t>(
            std::count_if(lines_->texts.begin(), lines_->texts.end(),
                          [part](const std::string& line) { return line.find(part) != std::string::npos; }));
    }
    bool has(std::string_view part) const { return count(part) > 0; }

private:
    struct Lines {
        std::mutex mutex;
        std::vector<std::string> texts;
    };
    std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
    base::LogSink previous_;
};

/// A native ticket around the given elements.
inline std::string nativeTicket(std::string_view elements) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<data type=\"velm_job\" version=\"1.0\">\n" +
           std::string(elements) + "\n</data>\n";
}

/// A package file with the given root attributes and elements.
inline std::string packageFile(std::string_view attributes, std::string_view elements = {}) {
    return "<?xml version=\"1.0\"?>\n<data " + std::string(attributes) + ">" + std::string(elements) + "</data>\n";
}

} // namespace jobs::testing
