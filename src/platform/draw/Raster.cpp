#include "platform/draw/Raster.h"

#include "platform/draw/DeepPixels.h"

#include <cstring>

namespace platform::draw {

base::Result<ImageRef> imageOfRaster(const Raster& raster) {
    const bool opaque = raster.alphaInfo == AlphaInfo::noneSkipLast;
    // Grey's levels, all three the same, are sRGB's grey in the plain curve; others are converted with their rows.
    const ColorSpaceRef& space = raster.colorSpace->model() == ColorModel::rgb ? raster.colorSpace : ColorSpace::sRGB();
    if (raster.bitsPerComponent == 16) {
        const std::size_t rowSize = 4 * static_cast<std::size_t>(raster.width);
        std::vector<std::uint16_t> samples(rowSize * static_cast<std::size_t>(raster.height));
        for (int y = 0; y < raster.height; ++y)
            std::memcpy(samples.data() + rowSize * static_cast<std::size_t>(y), raster.row(y), 2 * rowSize);
        return imageOfDeepPixels(std::move(samples), raster.width, raster.height, space, opaque);
    }
    auto bitmap = Bitmap::createUninitialized(raster.width, raster.height, space, opaque);
    if (!bitmap) return base::failure(bitmap.error());
    std::uint8_t* pixels = bitmap->mutablePixels();
    for (int y = 0; y < raster.height; ++y, pixels += bitmap->stride()) {
        const std::uint8_t* row = raster.row(y);
        for (std::size_t i = 0; i < 4 * static_cast<std::size_t>(raster.width); i += 4) {
            for (std::size_t k = 0; k < 3; ++k)
                pixels[i + 2 - k] = row[i + k];
            pixels[i + 3] = opaque ? 255 : row[i + 3];
        }
    }
    return Image::fromBitmap(std::move(*bitmap));
}

} // namespace platform::draw
