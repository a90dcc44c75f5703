// Rows of half pixels (RowReader.h): resampled in floats by the same weights as bytes, read from pictures of more than
// 8 bits, and converted to other spaces. Readers of one thread.
#pragma once

#include "PictureRows.h"
#include "base/Error.h"
#include "platform/draw/Image.h"
#include "platform/draw/RowReader.h"

#include <cstddef>
#include <cstdint>

namespace platform::draw {

/// The rows of a picture that holds more than 8 bits, at its own size in deepColorSpace(); null for one of 8 bits.
base::Result<RowReaderRef> deepRows(const ImageRef& image);

/// Half rows at a size.
base::Result<RowReaderRef> resampledHalfRows(RowReaderRef rows, const ResampledSize& size);

/// Half rows in another RGB space that supports output; the same reader when they are in it.
base::Result<RowReaderRef> convertedHalfRows(RowReaderRef rows, const ColorSpaceRef& target);

/// Multiplies `count` pixels by `share`.
void fadeHalf(std::uint16_t* pixels, float share, std::size_t count);

} // namespace platform::draw
