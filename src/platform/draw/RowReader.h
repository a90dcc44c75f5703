// Rows of pixels that come one after the other: what a page is rendered from without ever being in memory as a whole.
// A reader delivers each row once, from the top; it belongs to one thread at a time.
#pragma once

#include "base/Error.h"
#include "platform/draw/ColorSpace.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform::draw {

/// What a row of pixels holds: four components a pixel, premultiplied, in the coded values of its space.
enum class RowDepth {
    bits8, ///< Blue, green, red, alpha bytes, as in a Bitmap.
    half,  ///< Red, green, blue, alpha as 16-bit floats (their bits in std::uint16_t). 0 to 1 is black to full; colours
           ///< may lie outside of that, alpha does not.
};

inline std::size_t bytesPerPixel(RowDepth depth) {
    return depth == RowDepth::bits8 ? 4 : 8;
}

struct RowFormat {
    int width = 0;
    int height = 0;
    RowDepth depth = RowDepth::bits8;
    bool opaque = false; ///< Every pixel's alpha is full.
    ColorSpaceRef colorSpace;

    std::size_t rowBytes() const { return bytesPerPixel(depth) * static_cast<std::size_t>(width); }
};

class RowReader {
public:
    virtual ~RowReader() = default;
    const RowFormat& format() const { return format_; }
    /// Writes the next row, rowBytes() bytes; half rows need a buffer that is aligned for std::uint16_t. There are
    /// format().height of them: calling more often is a fault of the caller. Fails when a picture is broken or cut off;
    /// the reader has then come to its end.
    virtual base::Result<void> readRow(std::uint8_t* row) = 0;

protected:
    RowFormat format_;
};

using RowReaderRef = std::unique_ptr<RowReader>;

} // namespace platform::draw
