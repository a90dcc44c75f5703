// EXIF metadata as files hold it: a TIFF structure, without the "Exif" that introduces it in JPEG. Pure functions; any
// thread.
#pragma once

#include "base/Error.h"
#include "base/Value.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace platform::draw {

using Bytes = std::vector<std::uint8_t>;

/// Whether a property of a property dictionary ("{Exif}", "UserComment") can be written.
bool isWritableProperty(std::string_view dictionary, std::string_view property);

/// What is stored of a new image: the properties that can be written, its size in pixels and whether its colours are
/// sRGB.
struct ExifOfImage {
    base::Dictionary properties; ///< as given to ImageDestination::addImage
    int width = 0;
    int height = 0;
    bool isSRGB = true;
};
base::Result<Bytes> exifBlock(const ExifOfImage& image);

/// The block with the properties of `dictionaries` ({ "{Exif}": { "UserComment": ... } }) set, or removed where their
/// value is an empty text; all else stays. An empty block counts as one without tags. One that can't be read fails with
/// the code `unreadableExifBlock`.
inline constexpr int unreadableExifBlock = 1;
base::Result<Bytes> exifBlockMerging(std::span<const std::uint8_t> block, const base::Dictionary& dictionaries);

} // namespace platform::draw
