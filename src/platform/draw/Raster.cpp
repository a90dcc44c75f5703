#include "platform/draw/Raster.h"

#include "internal/ColorTransform.h"
#include "internal/DeepTransform.h"
#include "internal/PictureFormat.h"
#include "internal/PictureRows.h"
#include "platform/draw/DeepPixels.h"

#include <cstring>

namespace platform::draw {

namespace {

/// Samples of 16 bits of a grey space become sRGB's.
base::Result<void> convertGray(const ColorSpaceRef& gray, std::vector<std::uint16_t>& samples) {
    const auto transform = DeepTransform::toSRGB(gray);
    if (!transform) return base::failure(transform.error());
    std::vector<std::uint16_t> levels(samples.size() / 4);
    std::vector<std::uint16_t> colors(3 * levels.size());
    for (std::size_t i = 0; i < levels.size(); ++i)
        levels[i] = unpremultiplied(samples[4 * i], samples[4 * i + 3]);
    (*transform)->convert(levels.data(), colors.data(), levels.size());
    for (std::size_t i = 0; i < levels.size(); ++i)
        for (std::size_t k = 0; k < 3; ++k)
            samples[4 * i + k] = premultiplied(colors[3 * i + k], samples[4 * i + 3]);
    return {};
}

base::Result<ImageRef> deepImage(const Raster& raster, const ColorSpaceRef& space, bool opaque) {
    const std::size_t rowSize = 4 * static_cast<std::size_t>(raster.width);
    std::vector<std::uint16_t> samples(rowSize * static_cast<std::size_t>(raster.height));
    for (int y = 0; y < raster.height; ++y)
        std::memcpy(samples.data() + rowSize * static_cast<std::size_t>(y), raster.row(y), 2 * rowSize);
    for (std::size_t i = 3; opaque && i < samples.size(); i += 4)
        samples[i] = 65535;
    if (space != raster.colorSpace)
        if (auto converted = convertGray(raster.colorSpace, samples); !converted)
            return base::failure(converted.error());
    return imageOfDeepPixels(std::move(samples), raster.width, raster.height, space, opaque);
}

} // namespace

base::Result<ImageRef> imageOfRaster(const Raster& raster) {
    const bool opaque = raster.alphaInfo == AlphaInfo::noneSkipLast;
    const bool isGray = raster.colorSpace->model() != ColorModel::rgb;
    const ColorSpaceRef& space = isGray ? ColorSpace::sRGB() : raster.colorSpace;
    return withMemory([&]() -> base::Result<ImageRef> {
        if (raster.bitsPerComponent == 16) return deepImage(raster, space, opaque);
        auto transform = ColorTransform::between(raster.colorSpace, PixelLayout::bgra8, space);
        if (!transform) return base::failure(transform.error());
        auto bitmap = Bitmap::createUninitialized(raster.width, raster.height, space, opaque);
        if (!bitmap) return base::failure(bitmap.error());
        const auto width = static_cast<std::size_t>(raster.width);
        std::uint8_t* pixels = bitmap->mutablePixels();
        for (int y = 0; y < raster.height; ++y, pixels += bitmap->stride()) {
            const std::uint8_t* row = raster.row(y);
            for (std::size_t i = 0; i < 4 * width; i += 4) {
                for (std::size_t k = 0; k < 3; ++k)
                    pixels[i + 2 - k] = row[i + k];
                pixels[i + 3] = opaque ? 255 : row[i + 3];
            }
            if (!*transform) continue;
            unpremultiply(pixels, width);
            (*transform)->convert(pixels, pixels, width);
            premultiply(pixels, width);
        }
        return Image::fromBitmap(std::move(*bitmap));
    });
}

} // namespace platform::draw
