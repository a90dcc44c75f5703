// A colour: components in a colour space, alpha last. An immutable value; any thread.
#pragma once

#include "platform/draw/ColorSpace.h"

#include <vector>

namespace platform::draw {

class Color {
public:
    /// Opaque black in sRGB.
    Color();
    /// sRGB components and alpha, each 0 to 1, not premultiplied.
    Color(double red, double green, double blue, double alpha = 1);
    /// Components of `space` with alpha as the last one. They are kept as given, whatever the space expects.
    Color(ColorSpaceRef space, std::vector<double> componentsAndAlpha);

    const ColorSpaceRef& colorSpace() const { return space_; }
    const std::vector<double>& components() const { return components_; }
    double alpha() const { return components_.empty() ? 1 : components_.back(); }

    /// Red, green, blue and alpha in `target`, an RGB space, clamped to 0 to 1. Missing components count as 0.
    struct RGBA {
        double red, green, blue, alpha;
    };
    RGBA inSpace(const ColorSpaceRef& target) const;

    friend bool operator==(const Color&, const Color&) = default;

private:
    ColorSpaceRef space_;
    std::vector<double> components_;
};

} // namespace platform::draw
