// Conversion of rows with 16 bits a sample to sRGB by Little CMS, and the arithmetic of such samples. Any thread, also
// the same transform by several at once.
#pragma once

#include "base/Error.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace platform::draw {

class DeepTransform {
public:
    virtual ~DeepTransform() = default;

    /// From a grey or CMYK space (65535 is full ink).
    static base::Result<std::shared_ptr<const DeepTransform>> toSRGB(const ColorSpaceRef& source);
    /// From CIE Lab: 65535 is L = 100; a and b are 257 for a step, 32896 for 0. The white is that of D50 unless another
    /// one's chromaticities are told.
    static base::Result<std::shared_ptr<const DeepTransform>>
    labToSRGB(std::optional<std::pair<double, double>> white = std::nullopt);

    /// From `count` pixels without alpha to red, green and blue.
    virtual void convert(const std::uint16_t* source, std::uint16_t* rgb, std::size_t count) const = 0;
};

inline std::uint8_t reducedTo8Bits(std::uint16_t value) {
    return static_cast<std::uint8_t>((value * 255u + 32895u) >> 16); // rounded
}
inline std::uint16_t widenedTo16Bits(std::uint8_t value) {
    return static_cast<std::uint16_t>(value * 257u);
}
inline std::uint16_t premultiplied(std::uint16_t value, std::uint16_t alpha) {
    return static_cast<std::uint16_t>((static_cast<std::uint64_t>(value) * alpha + 32767) / 65535);
}
inline std::uint16_t unpremultiplied(std::uint16_t value, std::uint16_t alpha) {
    if (alpha == 0) return 0;
    return static_cast<std::uint16_t>(
        std::min<std::uint64_t>(65535, (static_cast<std::uint64_t>(value) * 65535 + alpha / 2) / alpha));
}

} // namespace platform::draw
