// What is known of the program itself: its name, version and making, and the rule that one of it runs. Any thread.
#pragma once

#include "app/SingleInstance.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace app {

/// "Velm - v1.2.3 (xc-gcc 12.2.0 sdk-glibc 2.36)": name, label, version, and what it was compiled with and against.
std::string longDescription();
/// The same with a label behind the name: "Velm Server - v1.2.3 (...)".
std::string longDescriptionWithLabel(std::string_view label);

/// What a desktop does with a second start of the program.
struct DuplicateHandling {
    std::function<void()> beep;
    std::function<void()> bringOtherForward;
    std::function<void(int status)> endProcess; ///< Empty: exit().
};

/// Takes the right to run the engine. When another process has it, that one is brought forward and this one ends with
/// status 0. Nothing when `endProcess` came back, or when there can be no such rule here, which is logged.
std::optional<SingleInstance> checkForDuplicateRunningInstances(const DuplicateHandling& handling);

} // namespace app
