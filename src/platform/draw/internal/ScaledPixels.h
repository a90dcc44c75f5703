// Pictures at the size of a drawing: decoded at the smallest scale that serves it, resampled once (Lanczos-3), turned
// by quarter turns, converted to the target's colours, and put in place. The way from an Image to pixels for
// BitmapContext and ImageDestination. Coordinates are pixels of the target, y down. Any thread; one target belongs to
// one thread at a time.
#pragma once

#include "PixelRect.h"
#include "base/Error.h"
#include "base/Geometry.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/Image.h"

#include <cstddef>
#include <cstdint>

namespace platform::draw {

/// Where and how an axis-aligned picture stands in its target. `rectangle` may have fractions: its edges are then
/// blended by their coverage. The picture is first mirrored left to right when `mirrored`, then turned clockwise by
/// `quarterTurns` (0 to 3), then stretched over `rectangle`.
struct Placement {
    base::Rect rectangle;
    int quarterTurns = 0;
    bool mirrored = false;
};

/// Pixels to draw into: as in Bitmap. `pixels` is the top left one.
struct PixelTarget {
    std::uint8_t* pixels = nullptr;
    std::size_t stride = 0;
    int width = 0;
    int height = 0;
    ColorSpaceRef colorSpace;
};

/// Draws the image over what is there (source over), multiplied by `alpha` (0 to 1), within `clip`. Draws nothing for
/// an empty or null rectangle. On failure (a broken or cut-off file) the target is as it was before.
base::Result<void> drawScaled(const Image& image, const Placement& placement, Quality quality, double alpha,
                              const PixelRect& clip, const PixelTarget& target);

/// The whole image reduced or enlarged to width x height pixels, shared with the cache: for drawings that need the
/// pixels themselves (turned by an angle, shadowed). In `colorSpace`, which has the RGB model.
base::Result<Bitmap> scaledBitmap(const Image& image, int width, int height, Quality quality,
                                  const ColorSpaceRef& colorSpace);

} // namespace platform::draw
