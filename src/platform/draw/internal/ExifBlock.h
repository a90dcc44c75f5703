// EXIF metadata as files hold it: a TIFF structure, without the "Exif" that introduces it in JPEG; and the table of the
// properties that can be written into one. Pure functions; any thread.
#pragma once

#include "TiffStructure.h"
#include "base/Error.h"
#include "base/Value.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace platform::draw {

/// What introduces a block in JPEG files, and by some programs in others too.
inline constexpr std::string_view exifMark("Exif\0\0", 6);

/// Whether a property of a property dictionary ("{Exif}", "UserComment") can be written; `dictionary` is empty for
/// those of the top level ("Orientation").
bool isWritableProperty(std::string_view dictionary, std::string_view property);

/// The tags for the writable ones among `properties` ({ "Orientation": 6, "{Exif}": { "UserComment": ... } }), as this
/// structure needs them. An empty text, empty data and nothing remove the tag. An error for a value that the tag can't
/// hold.
base::Result<std::vector<TiffChange>> tagsForProperties(const base::Dictionary& properties,
                                                        const TiffStructure& structure);

/// What is stored of a new image: the properties that can be written, its size in pixels and whether its colours are
/// sRGB.
struct ExifOfImage {
    base::Dictionary properties; ///< as given to ImageDestination::addImage
    int width = 0;
    int height = 0;
    bool isSRGB = true;
};
base::Result<Bytes> exifBlock(const ExifOfImage& image);

/// The block with these properties set or removed as in tagsForProperties; all else stays where it is. An empty block
/// counts as one without tags. One that can't be read fails with the code `unreadableExifBlock`.
inline constexpr int unreadableExifBlock = 1;
base::Result<Bytes> exifBlockMerging(std::span<const std::uint8_t> block, const base::Dictionary& properties);

} // namespace platform::draw
