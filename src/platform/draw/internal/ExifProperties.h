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

/// What "{IPTC}" holds of IPTC data sets: texts by their names, several of one name as an array. Of the application
/// record only; a broken part is left out.
base::Dictionary iptcProperties(const std::vector<std::uint8_t>& dataSets);
/// The IPTC data sets among Photoshop's image resources ("8BIM"...); empty for none.
std::vector<std::uint8_t> iptcInPhotoshopResources(const std::vector<std::uint8_t>& resources);

/// The text of a comment, whose first eight bytes name its encoding; data for one in an encoding that is not read.
base::Value exifComment(const std::vector<std::uint8_t>& bytes, bool bigEndian);

} // namespace platform::draw
