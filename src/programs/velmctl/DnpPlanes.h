// What `velmctl dnp planes` and `velmctl dnp picture` do: the planes of a page as files, and the picture that such
// files print.
#pragma once

#include "base/Error.h"

#include <string>

namespace velmctl {

/// Writes the planes of a page's file to `folder`, which is made when it is missing: Y.bmp, M.bmp, C.bmp, and of pages
/// with a back BackY.bmp, BackM.bmp, BackC.bmp. Prints the path of each.
base::Result<void> writePlanes(const std::string& pageFile, const std::string& folder);

/// Writes the picture that Y.bmp, M.bmp and C.bmp of `folder` print, the whole width of the head, to a file of the
/// type that its extension names, and prints its path.
base::Result<void> writePictureOfPlanes(const std::string& folder, const std::string& output);

} // namespace velmctl
