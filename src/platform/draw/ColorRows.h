// Conversion of rows of pixels (RowReader.h) between colour spaces: into the samples of a finished raster, and into
// linear light and back for what computes with colours. What is costly to make is made once for each pair of spaces and
// kept. Immutable; any thread, also the same object by several at once. The rendering intent is told in ColorSpace.h.
#pragma once

#include "base/Error.h"
#include "platform/draw/RowReader.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform::draw {

class ColorRows {
public:
    virtual ~ColorRows() = default;

    /// From rows of `source` (an RGB space) and `depth` to red, green, blue, alpha of 8 or 16 bits (in the machine's
    /// order of bytes), premultiplied, in `target`: an RGB space, or a monochrome one, whose level then stands in all
    /// three. Values are rounded; when the spaces are the same, nothing else happens to them. Fails when `target` does
    /// not support output, and for a profile that can't be converted.
    static base::Result<std::shared_ptr<const ColorRows>> between(const ColorSpaceRef& source, RowDepth depth,
                                                                  const ColorSpaceRef& target, int bits);

    /// Converts `count` pixels: 4 x `count` components of `bits` bits. `row` and `samples` do not overlap.
    virtual void convert(const std::uint8_t* row, std::uint8_t* samples, std::size_t count) const = 0;
};

/// Rows of an RGB space in linear light with sRGB's primaries: red, green, blue, alpha as floats, not premultiplied.
/// Colours outside of sRGB have components below 0 or above 1. A pixel without alpha is four zeros.
class LightRows {
public:
    virtual ~LightRows() = default;

    static base::Result<std::shared_ptr<const LightRows>> of(const ColorSpaceRef& space, RowDepth depth);

    /// Reads `count` pixels of a row: writes 4 x `count` floats.
    virtual void read(const std::uint8_t* row, float* rgba, std::size_t count) const = 0;

    /// Writes `count` such pixels as a row in sRGB: bits8 rounds and cuts to 0 to 1, half keeps what lies outside (to
    /// 64 of full; below zero the curve is mirrored). Alpha outside of 0 to 1 is cut.
    static void write(const float* rgba, RowDepth depth, std::uint8_t* row, std::size_t count);
};

/// 16-bit floats, by their bits.
float floatOfHalf(std::uint16_t half);
std::uint16_t halfOfFloat(float value);

} // namespace platform::draw
