// The nodes of a filter image's graph: what its public face (FilterImage.h) hides. Immutable and shared.
#pragma once

#include "ColorSteps.h"
#include "base/Geometry.h"
#include "platform/draw/Image.h"

#include <array>
#include <memory>
#include <variant>

namespace platform::filter {

struct Node;
using NodeRef = std::shared_ptr<const Node>;

/// Nothing at all.
struct EmptyNode {};
/// A picture whose lower left corner is the origin.
struct PictureNode {
    draw::ImageRef image;
};
/// Red, green, blue, alpha of sRGB, not premultiplied, everywhere.
struct ConstantNode {
    std::array<float, 4> color;
};
/// The source mirrored, turned by quarters, scaled along the axes and moved.
struct PlacedNode {
    NodeRef source;
    base::AffineTransform transform;
};
/// What of the source lies within the node's extent.
struct CroppedNode {
    NodeRef source;
};
struct OverNode {
    NodeRef top;
    NodeRef bottom;
};
struct FilteredNode {
    NodeRef source;
    ColorSteps steps;
};

struct Node {
    base::Rect extent;
    std::variant<EmptyNode, PictureNode, ConstantNode, PlacedNode, CroppedNode, OverNode, FilteredNode> content;
};

/// The extent of what has no bounds. Finite numbers, so that it can be reckoned with.
inline constexpr base::Rect infiniteExtent{-1e300, -1e300, 2e300, 2e300};
inline bool isInfinite(const base::Rect& rect) {
    return rect.width >= infiniteExtent.width;
}

/// The rectangle with those edges that are whole numbers to within `tolerance` put on them.
base::Rect snapped(const base::Rect& rect, double tolerance);
/// The transformed rectangle; what is infinite stays so.
base::Rect transformed(const base::Rect& rect, const base::AffineTransform& transform);

/// The source with steps after it; the source itself when they change nothing.
NodeRef filteredNode(const NodeRef& source, const ColorStep& step);
/// Whether colours are computed anywhere in the graph.
bool hasFilters(const Node& node);

} // namespace platform::filter
