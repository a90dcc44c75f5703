// The metadata of a TIFF file as property dictionaries. Belongs to the thread that reads the file.
#pragma once

#include "base/Value.h"

struct tiff;

namespace platform::draw {

/// The dictionaries "{TIFF}" and "{Exif}" of the present page, as far as they have content: who made the picture, with
/// what and when, and the comment. The EXIF directory is read and the present page left: go to a page anew after this.
base::Dictionary tiffProperties(struct tiff* file);

} // namespace platform::draw
