#include "Node.h"

#include <cmath>

namespace platform::filter {

using base::Rect;

Rect snapped(const Rect& rect, double tolerance) {
    if (rect.isNull() || isInfinite(rect)) return rect;
    const auto snap = [&](double edge) {
        const double whole = std::round(edge);
        return std::abs(edge - whole) <= tolerance ? whole : edge;
    };
    const double left = snap(rect.x);
    const double low = snap(rect.y);
    return {left, low, snap(rect.maxX()) - left, snap(rect.maxY()) - low};
}

Rect transformed(const Rect& rect, const base::AffineTransform& transform) {
    return isInfinite(rect) ? rect : transform.apply(rect);
}

NodeRef filteredNode(const NodeRef& source, const ColorStep& step) {
    if (changesNothing(step) || source->extent.isEmpty()) return source;
    FilteredNode filtered{source, {}};
    if (const auto* inner = std::get_if<FilteredNode>(&source->content)) filtered = *inner;
    append(filtered.steps, step);
    return std::make_shared<const Node>(Node{source->extent, std::move(filtered)});
}

bool hasFilters(const Node& node) {
    if (std::holds_alternative<FilteredNode>(node.content)) return true;
    if (const auto* placed = std::get_if<PlacedNode>(&node.content)) return hasFilters(*placed->source);
    if (const auto* cropped = std::get_if<CroppedNode>(&node.content)) return hasFilters(*cropped->source);
    if (const auto* over = std::get_if<OverNode>(&node.content))
        return hasFilters(*over->top) || hasFilters(*over->bottom);
    return false;
}

} // namespace platform::filter
