// Where the system keeps its things: by the XDG base directories, or all below one folder. Decided once by the program
// at its start, before any other thread runs, and read everywhere after that.
#pragma once

#include "base/Path.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace base {

/// Absolute paths without a trailing slash. Nothing here is made by asking for it.
struct Places {
    std::string home;                       ///< What a leading tilde stands for.
    std::string velmDirectory;              ///< Root of the folder tree (Templates, Packages, Jobs...).
    std::string settings;                   ///< One property list for each suite of user defaults.
    std::string logs;                       ///< One log file for each program.
    std::string applications;               ///< Holds the folder of the first default job folder.
    std::vector<std::string> colorProfiles; ///< Searched in this order for ICC profiles.
    std::vector<std::string> resources;     ///< Searched in this order for what comes with the program.

    /// By the environment: XDG_DATA_HOME, XDG_CONFIG_HOME, XDG_STATE_HOME, XDG_DATA_DIRS and HOME with their usual
    /// defaults. Resources stand in share/velm beside the folder of the running program, or in the system's data
    /// folders.
    static Places standard();
    /// VELM, Settings, Logs and Applications below `directory`, which is also the home folder.
    static Places below(const std::string& directory);
};

/// The places in force; the standard ones until set.
const Places& places();
void setPlaces(Places places);

/// A file that comes with the program ("CPD70_SF", "icc"); nothing when it isn't there.
std::optional<URL> resourceURL(std::string_view name, std::string_view extension);

} // namespace base
