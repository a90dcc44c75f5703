// What the search for a package and the list of a folder's packages say about one file.
#pragma once

#include "base/Error.h"

#include <optional>
#include <string>
#include <string_view>

class VELM_Package;

namespace jobs {

/// What a package's name ends in that is for standing, or for lying pictures.
inline constexpr std::string_view suffixPortrait = "PRT";
inline constexpr std::string_view suffixLandscape = "LS";

/// Why VELM_Package::instanceWithXMLObject made nothing of a file. Reads it again.
std::string whyUnreadable(const std::string& path);
/// Why a file that was read up to `readingError` is no package that can be found.
std::string whyNoPackage(VELM_Package& candidate, const std::optional<base::Error>& readingError);

} // namespace jobs
