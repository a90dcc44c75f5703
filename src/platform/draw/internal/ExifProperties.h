// EXIF metadata as property dictionaries. Pure functions; any thread.
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <vector>

namespace platform::draw {

/// The dictionaries "{TIFF}" and "{Exif}" of a TIFF structure, and "Orientation" when it states one of 1 to 8. Numbers
/// as numbers, several of them as an array, texts without their padding, other bytes as data. Empty for bytes that are
/// none; a broken part is left out.
base::Dictionary exifProperties(const std::vector<std::uint8_t>& exif);

} // namespace platform::draw
