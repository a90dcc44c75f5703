// A rectangle of whole pixels, y down. A value.
#pragma once

#include <algorithm>

namespace platform::draw {

struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    int maxX() const { return x + width; }
    int maxY() const { return y + height; }
    bool isEmpty() const { return width <= 0 || height <= 0; }
    /// The common part; empty when there is none.
    PixelRect intersection(const PixelRect& other) const {
        const int left = std::max(x, other.x);
        const int top = std::max(y, other.y);
        return {left, top, std::min(maxX(), other.maxX()) - left, std::min(maxY(), other.maxY()) - top};
    }
    friend auto operator<=>(const PixelRect&, const PixelRect&) = default;
};

} // namespace platform::draw
