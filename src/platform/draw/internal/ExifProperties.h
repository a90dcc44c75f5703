// EXIF metadata as property dictionaries. Pure functions; any thread.
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <string>
#include <vector>

namespace platform::draw {

/// The dictionaries "{TIFF}" and "{Exif}" of a TIFF structure, and "Orientation" when it states one of 1 to 8. Numbers
/// as numbers, several of them as an array, texts without their padding, other bytes as data. Empty for bytes that are
/// none; a broken part is left out.
base::Dictionary exifProperties(const std::vector<std::uint8_t>& exif);

/// The text of a comment, whose first eight bytes name its encoding.
std::string exifComment(const std::vector<std::uint8_t>& bytes, bool bigEndian);

/// Bytes of no particular meaning: a text when they can be read as one, else data.
base::Value exifBytes(std::vector<std::uint8_t> bytes);

} // namespace platform::draw
