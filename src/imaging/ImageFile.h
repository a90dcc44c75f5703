// What can be asked of an image file and changed in it, in place or to another one, without encoding its pixels anew.
// Its dates and size, which any file has, are platform/data/FileAttributes.h; its type and extension FileTypes.h. Each
// operation reads the file anew and holds no state; any thread. What fails is logged.
#pragma once

#include "base/Geometry.h"
#include "base/Path.h"
#include "base/Value.h"
#include "platform/draw/Image.h"

#include <functional>
#include <optional>

namespace ImageFile {

/// Takes the properties of a picture and answers those that it shall have.
using ChangeProperties = std::function<base::Dictionary(base::Dictionary properties)>;

/// Passes the properties of the first picture through `change` and writes a copy of the file with the answer to
/// `destination`, or over the file itself when there is none, whole or not at all; the dates of the file go with it.
/// What `change` takes out of the properties that it got, or sets to nothing, is removed; of a dictionary of its own
/// making only what it names changes. False for a file that is no image by its type, and for what
/// platform::draw::copyOfImageFile can't copy.
bool changeImageProperties(const base::URL& url, const ChangeProperties& change,
                           const std::optional<base::URL>& savingToDestination = std::nullopt);

/// Sets the orientation, 1 to 8; any other number does nothing and answers false.
bool setImageOrientation(const base::URL& url, const std::optional<int>& orientation,
                         const std::optional<base::URL>& savingToDestination = std::nullopt);

/// Whether the file ends as a JPEG file does. The first one reads it whole.
bool isValidJPEGFile(const base::URL& url);
bool isValidJPEGFileFaster(const base::URL& url);

/// An upright picture of which the longer side is at most the greater of the two sides; null when there is none.
platform::draw::ImageRef thumbnailImageWithMaxSize(const base::URL& url, base::Size size);

} // namespace ImageFile
