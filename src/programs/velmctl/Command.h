// One command of velmctl: it declares itself to the command line and runs when it was chosen. Each stands in a file of
// its own and is listed in main.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace velmctl {

/// How a command ends. 2, wrong usage, is decided before any command runs.
inline constexpr int exitSuccess = 0;
inline constexpr int exitFailure = 1; ///< An order or a file failed; the reason stands on standard error.
inline constexpr int exitUsage = 2;

/// What stands before the command's name.
struct Options {
    std::string home; ///< Absolute; empty for the places of the system.
    bool verbose = false;
};

/// The chosen command's work; main() runs it once the command line has proved right.
using Run = std::function<int(const Options& options)>;
using Chosen = std::function<void(Run run)>;

void declareProcess(CLI::App& app, const Chosen& chosen);
void declareWatch(CLI::App& app, const Chosen& chosen);
void declareInit(CLI::App& app, const Chosen& chosen);
void declareRender(CLI::App& app, const Chosen& chosen);
void declareTemplate(CLI::App& app, const Chosen& chosen);
void declarePackage(CLI::App& app, const Chosen& chosen);
void declareJobs(CLI::App& app, const Chosen& chosen);
void declareFolders(CLI::App& app, const Chosen& chosen);
void declareDefaults(CLI::App& app, const Chosen& chosen);
void declareImage(CLI::App& app, const Chosen& chosen);
void declareCode(CLI::App& app, const Chosen& chosen);
void declareOrder(CLI::App& app, const Chosen& chosen);
void declarePage(CLI::App& app, const Chosen& chosen);
void declareDnp(CLI::App& app, const Chosen& chosen);

} // namespace velmctl
