// Pixels of 16 bits a component: red, green, blue and alpha, premultiplied, in the machine's order of bytes, 8 bytes a
// pixel, rows from the top without gaps. A picture file that holds 16 bits keeps them on this road; one of 8 bits is
// widened (x 257). Any thread.
#pragma once

#include "base/Error.h"
#include "platform/draw/Image.h"

#include <cstdint>
#include <vector>

namespace platform::draw {

/// The space of the pixels that readDeepPixels delivers: the image's own when it is RGB, else sRGB.
const ColorSpaceRef& deepColorSpace(const Image& image);

/// Writes the whole image, turned clockwise by `quarterTurns` (0 to 3) without resampling, to `target`: 8 x width x
/// height bytes. Fails when the picture is broken, cut off, or too large; the target's content is then undefined.
base::Result<void> readDeepPixels(const Image& image, int quarterTurns, std::uint8_t* target);

/// An image of such pixels in memory, 4 x width x height values. With `opaque` their alpha has no meaning. Fails for
/// sizes beyond those of a Bitmap. `colorSpace` has the RGB model.
base::Result<ImageRef> imageOfDeepPixels(std::vector<std::uint16_t> pixels, std::int64_t width, std::int64_t height,
                                         ColorSpaceRef colorSpace, bool opaque);

} // namespace platform::draw
