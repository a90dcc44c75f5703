// What the commands that read print pages share: opening the files of pages, and the reasons of what fails.
#pragma once

#include "base/Error.h"
#include "print/KLARON_PrintPage.h"

#include <string>

namespace velmctl {

/// The page of a file: an archived page, or an old page when the name ends in ".plist" (its picture lies beside it).
/// The error names the file.
base::Result<KLARON_PrintPageRef> openPage(const std::string& path);

/// Why a page that was opened from `path` has no picture to print, as an error that names the file to blame.
base::Error whyNoRaster(KLARON_PrintPage& page, const std::string& path);

} // namespace velmctl
