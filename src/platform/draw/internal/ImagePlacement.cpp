#include "ImagePlacement.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {
namespace {

double onGrid(double value) {
    const double nearest = std::round(value);
    return std::abs(value - nearest) < 1e-3 ? nearest : value;
}

} // namespace

ImageQuad ImageQuad::from(const base::Rect& rect, const base::AffineTransform& deviceTransform) {
    const base::Point topLeft = deviceTransform.apply(base::Point{rect.x, rect.maxY()});
    return {topLeft,
            {deviceTransform.a * rect.width, deviceTransform.b * rect.width},
            {-deviceTransform.c * rect.height, -deviceTransform.d * rect.height}};
}

base::Rect ImageQuad::bounds() const {
    const double left = topLeft.x + std::min(0.0, right.x) + std::min(0.0, down.x);
    const double top = topLeft.y + std::min(0.0, right.y) + std::min(0.0, down.y);
    return {left, top, std::abs(right.x) + std::abs(down.x), std::abs(right.y) + std::abs(down.y)};
}

std::optional<Placement> axisAlignedPlacement(const ImageQuad& quad) {
    constexpr double tolerance = 0.05;
    const bool upright = std::abs(quad.right.y) < tolerance && std::abs(quad.down.x) < tolerance;
    const bool onItsSide = std::abs(quad.right.x) < tolerance && std::abs(quad.down.y) < tolerance;
    if (!upright && !onItsSide) return std::nullopt;

    Placement placement;
    // A picture that keeps its hands has a positive turn from its upper edge to its left one.
    placement.mirrored = quad.right.x * quad.down.y - quad.right.y * quad.down.x < 0;
    if (upright)
        placement.quarterTurns = quad.down.y > 0 ? 0 : 2;
    else
        placement.quarterTurns = quad.down.x < 0 ? 1 : 3;

    const base::Rect bounds = quad.bounds();
    // The sides that ought to be of no length would make the box wider by their slant.
    const double slantX = upright ? std::abs(quad.down.x) : std::abs(quad.right.x);
    const double slantY = upright ? std::abs(quad.right.y) : std::abs(quad.down.y);
    const double left = onGrid(bounds.x + slantX / 2);
    const double top = onGrid(bounds.y + slantY / 2);
    placement.rectangle = {left, top, onGrid(bounds.maxX() - slantX / 2) - left,
                           onGrid(bounds.maxY() - slantY / 2) - top};
    return placement;
}

} // namespace platform::draw
