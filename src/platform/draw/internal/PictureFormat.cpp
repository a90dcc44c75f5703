#include "PictureFormat.h"

#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <span>
#include <string>

namespace platform::draw {

base::Result<void> checkPictureSize(const ByteSource& bytes, std::uint64_t width, std::uint64_t height) {
    if (width == 0 || height == 0) return pictureFailure(bytes, "it has no pixels");
    constexpr auto side = static_cast<std::uint64_t>(maximumBitmapSide);
    if (width > side || height > side || width * height > static_cast<std::uint64_t>(maximumBitmapPixels))
        return pictureFailure(bytes, "its " + std::to_string(width) + " x " + std::to_string(height) +
                                         " pixels are more than the limit of " +
                                         std::to_string(maximumBitmapPixels / 1'000'000) + " million, or of " +
                                         std::to_string(maximumBitmapSide) + " a side");
    return {};
}

ColorSpaceRef colorSpaceOfProfile(const std::uint8_t* profile, std::size_t size, int components,
                                  const ColorSpaceRef& otherwise) {
    if (!profile || size == 0) return otherwise;
    auto space = ColorSpace::fromICC(std::span(profile, size));
    return space && (*space)->componentCount() == components ? *space : otherwise;
}

void premultiply(std::uint8_t* row, std::size_t pixels) {
    for (std::size_t i = 0; i < 4 * pixels; i += 4) {
        const unsigned alpha = row[i + 3];
        if (alpha == 255) continue;
        for (std::size_t k = 0; k < 3; ++k)
            row[i + k] = static_cast<std::uint8_t>((row[i + k] * alpha + 127) / 255);
    }
}

void unpremultiply(std::uint8_t* row, std::size_t pixels) {
    for (std::size_t i = 0; i < 4 * pixels; i += 4) {
        const unsigned alpha = row[i + 3];
        if (alpha == 255 || alpha == 0) continue;
        for (std::size_t k = 0; k < 3; ++k)
            row[i + k] = static_cast<std::uint8_t>(std::min(255u, (row[i + k] * 255u + alpha / 2) / alpha));
    }
}

} // namespace platform::draw
