// Raster: a finished rectangle of samples: red, green, blue, alpha in this order, rows from the top. What a page hands
// to its printer, to a file or to the screen. A value; copies share the samples, which nobody changes once it is made.
#pragma once

#include "base/Error.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/Image.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace platform::draw {

struct Raster {
    int width = 0;
    int height = 0;
    std::size_t bytesPerRow = 0;                       ///< At least width x 4 x bitsPerComponent / 8.
    int bitsPerComponent = 8;                          ///< 8, or 16 in the machine's order of bytes.
    AlphaInfo alphaInfo = AlphaInfo::noneSkipLast;     ///< noneSkipLast when opaque, else premultipliedLast.
    ColorSpaceRef colorSpace;                          ///< RGB; or monochrome, whose level then stands in all three.
    std::shared_ptr<std::vector<std::uint8_t>> pixels; ///< bytesPerRow x height bytes.

    const std::uint8_t* row(int y) const { return pixels->data() + static_cast<std::size_t>(y) * bytesPerRow; }
};

/// An image of the raster, of as many bits; it takes a copy of the samples. For a monochrome space the image is in
/// sRGB, into which its levels are converted. Fails for sizes beyond those of a Bitmap.
base::Result<ImageRef> imageOfRaster(const Raster& raster);

} // namespace platform::draw
