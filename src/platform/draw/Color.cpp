#include "platform/draw/Color.h"

#include "internal/ColorTransform.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {

Color::Color() : Color(0, 0, 0, 1) {}

Color::Color(double red, double green, double blue, double alpha)
    : space_(ColorSpace::sRGB()), components_{red, green, blue, alpha} {}

Color::Color(ColorSpaceRef space, std::vector<double> componentsAndAlpha)
    : space_(space ? std::move(space) : ColorSpace::sRGB()), components_(std::move(componentsAndAlpha)) {}

Color::RGBA Color::inSpace(const ColorSpaceRef& target) const {
    const auto component = [&](std::size_t index) {
        return index < components_.size() ? std::clamp(components_[index], 0.0, 1.0) : 0.0;
    };
    const double opacity = std::clamp(alpha(), 0.0, 1.0);
    const PixelLayout layout = space_->model() == ColorModel::monochrome ? PixelLayout::gray8
                               : space_->model() == ColorModel::cmyk     ? PixelLayout::cmyk8
                                                                         : PixelLayout::bgra8;
    const auto transform = ColorTransform::between(space_, layout, target);
    if (!transform) return {0, 0, 0, opacity};
    if (!*transform) return {component(0), component(1), component(2), opacity};
    const auto byte = [&](std::size_t index) { return static_cast<std::uint8_t>(std::lround(component(index) * 255)); };
    std::uint8_t source[4] = {byte(0), byte(1), byte(2), byte(3)};
    if (layout == PixelLayout::bgra8) {
        std::swap(source[0], source[2]);
        source[3] = 255;
    }
    std::uint8_t converted[4];
    (*transform)->convert(source, converted, 1);
    return {converted[2] / 255.0, converted[1] / 255.0, converted[0] / 255.0, opacity};
}

} // namespace platform::draw
