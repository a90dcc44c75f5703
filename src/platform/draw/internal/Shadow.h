// The coverage masks that shadows are painted through. A shadow is the shape's coverage under a Gaussian blur. For
// rectangles, filled or as frames, turned or not, the blurred coverage is a product of two profiles and is computed
// where it stands; every other shape is drawn into a mask and blurred there. Coordinates are pixels, y down.
#pragma once

#include "PixelRect.h"
#include "base/Geometry.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace platform::draw {

/// One byte of coverage a pixel; rows lie `stride` bytes apart (a multiple of 4, as Cairo wants it).
struct CoverageMask {
    CoverageMask(int maskWidth, int maskHeight)
        : width(maskWidth), height(maskHeight), stride((maskWidth + 3) & ~3),
          bytes(static_cast<std::size_t>(stride) * static_cast<std::size_t>(maskHeight)) {}
    int width;
    int height;
    int stride;
    std::vector<std::uint8_t> bytes;

    std::uint8_t* row(int y) { return bytes.data() + static_cast<std::size_t>(y) * stride; }
};

/// A rectangle in device pixels, turned by any angle.
struct TurnedRectangle {
    base::Point center;
    base::Point axis;      ///< unit vector along the first side
    double halfWidth = 0;  ///< along the axis
    double halfHeight = 0; ///< across it

    /// The image of `rect` under `transform`; nothing when it is no rectangle (sheared) or has no area.
    static std::optional<TurnedRectangle> from(const base::Rect& rect, const base::AffineTransform& transform);
    /// Grown by `amount` on each side.
    TurnedRectangle grown(double amount) const;
    base::Rect bounds() const;
    /// The pixels of row `y` that lie whole inside, from first to last exclusive; empty as first >= last.
    struct Span {
        int first = 0;
        int last = 0;
    };
    Span coveredPixels(int y) const;
};

/// A filled rectangle, or with `hole` the frame between two.
struct RectangleShape {
    TurnedRectangle outer;
    std::optional<TurnedRectangle> hole;
};

/// The coverage of the blurred shape over the pixels of `area`. Sigma in pixels, above 0.
CoverageMask blurredRectangle(const RectangleShape& shape, double sigma, const PixelRect& area);

/// Blurs the mask in place; what comes from beyond its edges is empty. Sigma in pixels.
void blur(CoverageMask& mask, double sigma);

/// How far a blur of this sigma reaches, in pixels.
int blurReach(double sigma);

} // namespace platform::draw
