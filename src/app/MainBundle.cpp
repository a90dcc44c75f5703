#include "app/MainBundle.h"

#include "base/Log.h"
#include "base/MessageTemplate.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>

namespace app {

namespace {

constexpr std::string_view bundleName = "Velm";
constexpr std::string_view shortVersion = VELM_VERSION;

#if defined(__clang__)
constexpr std::string_view compiler = "clang " __clang_version__;
#else
constexpr std::string_view compiler = "gcc " __VERSION__;
#endif

} // namespace

std::string longDescription() {
    return longDescriptionWithLabel("");
}

std::string longDescriptionWithLabel(std::string_view label) {
    const std::string library = base::message("glibc %d.%d", __GLIBC__, __GLIBC_MINOR__);
    return base::message("%@ %@%s- v%@ (xc-%@ sdk-%@)", bundleName, label, label.empty() ? "" : " ", shortVersion,
                         compiler, library);
}

std::optional<SingleInstance> checkForDuplicateRunningInstances(const DuplicateHandling& handling) {
    constexpr std::string_view className = "NSBundle";
    constexpr std::string_view operation = "checkForDuplicateRunningInstances";
    base::log("%@-%@...", className, operation);
    base::Result<SingleInstance> instance = SingleInstance::take();
    if (instance) return std::move(*instance);
    if (instance.error().code != EWOULDBLOCK) {
        base::log("%@", instance.error());
        return std::nullopt;
    }
    base::log("already running an instance of our app bundleIdentifier...");
    if (handling.beep) handling.beep();
    base::log("Inside %@ => %@...Another Instance of this app is already running...", className, operation);
    if (handling.bringOtherForward) handling.bringOtherForward();
    if (handling.endProcess)
        handling.endProcess(EXIT_SUCCESS);
    else
        std::exit(EXIT_SUCCESS);
    return std::nullopt;
}

} // namespace app
