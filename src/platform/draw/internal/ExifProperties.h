// EXIF metadata as property dictionaries. Pure functions; any thread.
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <vector>

namespace platform::draw {

/// The dictionaries "{TIFF}", "{Exif}", "{GPS}" and, when the block holds such data, "{IPTC}" of a TIFF structure;
/// "Orientation" when it states one of 1 to 8, "DPIWidth" and "DPIHeight" when it states them. Numbers as numbers,
/// several of them as an array, texts without their padding, other bytes as data; geographic positions in degrees,
/// their time as "HH:MM:SS". Empty for bytes that are none; a broken part is left out.
base::Dictionary exifProperties(const std::vector<std::uint8_t>& exif);

/// The text of a comment, whose first eight bytes name its encoding; data for one in an encoding that is not read.
base::Value exifComment(const std::vector<std::uint8_t>& bytes, bool bigEndian);

} // namespace platform::draw
