// Where an image lands on the canvas: axis-aligned (the straight way from decoder to canvas) or at any other angle.
// Device coordinates: pixels, y down. Pure functions.
#pragma once

#include "ScaledPixels.h"
#include "base/Geometry.h"

#include <optional>

namespace platform::draw {

/// The corners of a drawn image as its top left and the vectors along its upper and left edges.
struct ImageQuad {
    base::Point topLeft;
    base::Point right;
    base::Point down;

    /// `rect` is y up in the user space that `deviceTransform` maps to device pixels; the image stands upright in it.
    static ImageQuad from(const base::Rect& rect, const base::AffineTransform& deviceTransform);
    base::Rect bounds() const;
};

/// The placement of a quad whose sides run along the pixel grid, to a twentieth of a pixel; nothing for all others.
/// Edges within a thousandth of a pixel boundary are put on it.
std::optional<Placement> axisAlignedPlacement(const ImageQuad& quad);

} // namespace platform::draw
