// Putting finished pixels in place: turned by quarter turns, mirrored, over what is there, with the edges blended by
// their coverage. Pure functions on the caller's memory.
#pragma once

#include "PixelRect.h"
#include "ScaledPixels.h"

#include <cstddef>
#include <cstdint>

namespace platform::draw {

/// One axis of a placement: a stretch of the target, and the picture's own axis that runs along it.
struct PlacedAxis {
    double from = 0; ///< The edges in target pixels, made whole where they are whole to 1/512.
    double to = 0;
    int low = 0; ///< The whole pixels that the stretch touches.
    int high = 0;
    int clipLow = 0; ///< The part of them that is drawn.
    int clipHigh = 0;
    bool reversed = false; ///< The picture's axis runs against the target's.

    PlacedAxis(double from, double length, int clipLow, int clipHigh, bool reversed);
    bool isEmpty() const { return clipHigh <= clipLow; }
    double length() const { return to - from; }
    /// Where the picture begins in its own grid of whole pixels.
    double phase() const { return reversed ? high - to : from - low; }
    /// The picture's own pixels that are drawn.
    int first() const { return reversed ? high - clipHigh : clipLow - low; }
    int count() const { return clipHigh - clipLow; }
    /// The share of a target pixel that the stretch covers, 0 to 1.
    double coverage(int pixel) const;
};

struct PlacedPicture {
    PlacedAxis x; ///< Along the target's rows...
    PlacedAxis y;
    bool turned = false; ///< ...which are the picture's columns when turned.

    /// `picture` stretched over placement.rectangle within the target's `clip`.
    PlacedPicture(const Placement& placement, const PixelRect& clip);
    const PlacedAxis& columns() const { return turned ? y : x; } ///< The axis along the picture's own rows.
    const PlacedAxis& rows() const { return turned ? x : y; }
};

/// Draws the picture's drawn part, whose first pixel (in the picture's own sense) is at `pixels`.
void blit(const PlacedPicture& placed, const std::uint8_t* pixels, std::size_t stride, bool opaque, double alpha,
          const PixelTarget& target);

} // namespace platform::draw
