// What the tests of this module share: places of their own, a clock of their own, the log lines, ready-made tickets.
#pragma once

#include "base/Places.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/Clock.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

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

using support::LogCapture;

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
