// The plane images that a DNP printer takes, one for each ribbon: BMP files of 8 bits a pixel, as wide as the thermal
// head, whose falling palette shows a pixel's byte as the density of ink: 255 is no ink and 0 all of it. A pixel's byte
// is also the colour value that the ink takes away: yellow holds the blue, magenta the green, cyan the red. Pure
// functions, any thread.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "base/Value.h"
#include "platform/draw/Bitmap.h"
#include "print/KLARON_PrintPage.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// Bytes before the pixels: headers, a palette of 256 entries and ten zeros.
inline constexpr std::size_t dnpPlaneHeaderSize = 1088;

/// A whole plane without ink. `resolution` in dots per inch.
base::Data dnpBlankPlane(int width, int height, base::Size resolution);

/// Copies the raster into three blank planes of one size in one pass over it. It is centred on the head: narrower ones
/// leave margins without ink, wider ones lose columns at both sides, which is logged (`pageWidth` is told there). The
/// first row of the raster comes to lie `rows - 1` rows above the bottom, where `rows` is the smaller of both heights;
/// the bottom row stays without ink, so the last row that would fit is lost. Nothing is copied of less than two rows.
/// False for pixels that are not of 8 bits a component and three or four bytes.
bool dnpCopyRaster(const RasterData& raster, std::size_t pageWidth, base::Data& yellow, base::Data& magenta,
                   base::Data& cyan);

/// What stands in a plane file.
struct DNPPlane {
    int width = 0;
    int height = 0;
    std::uint32_t horizontalPixelsPerMetre = 0;
    std::uint32_t verticalPixelsPerMetre = 0;
    std::span<const std::uint8_t> pixels; ///< Of the file's bytes; the bottom row first.
};

/// Reads a plane. An error tells the first thing in which the bytes differ from a plane that the printer takes.
base::Result<DNPPlane> dnpReadPlane(std::string_view bytes);

/// The picture that three planes print: all dots of the head, its margins and the bottom row white as the paper, the
/// top row first. The planes don't tell the printer's colours; the picture is taken for sRGB. Fails when they differ in
/// size or resolution.
base::Result<platform::draw::Bitmap> dnpPictureOfPlanes(const DNPPlane& yellow, const DNPPlane& magenta,
                                                        const DNPPlane& cyan);
