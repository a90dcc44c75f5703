#include "FilterImage.h"

#include "internal/Node.h"
#include "platform/draw/ImageSource.h"

#include <algorithm>
#include <cmath>

namespace platform::filter {

using base::AffineTransform;
using base::Rect;

namespace {

/// Sums of scales and halves leave residues; they are not to make an edge that covers a pixel in part.
constexpr double wholeNumberTolerance = 1e-6;

FilterImageRef imageOf(const Rect& extent, decltype(Node::content) content) {
    return std::make_shared<FilterImage>(std::make_shared<const Node>(Node{extent, std::move(content)}));
}

FilterImageRef emptyImage() {
    return imageOf({}, EmptyNode{});
}

bool isFinite(const AffineTransform& t) {
    const std::array numbers{t.a, t.b, t.c, t.d, t.tx, t.ty};
    return std::ranges::all_of(numbers, [](double number) { return std::isfinite(number); });
}

/// Mirrored, turned by quarters and scaled, but not crushed.
bool keepsAxes(const AffineTransform& t) {
    return (t.b == 0 && t.c == 0 && t.a != 0 && t.d != 0) || (t.a == 0 && t.d == 0 && t.b != 0 && t.c != 0);
}

FilterImageRef placed(const NodeRef& node, const AffineTransform& transform) {
    if (!isFinite(transform) || !keepsAxes(transform)) return emptyImage();
    const Rect extent = snapped(transformed(node->extent, transform), wholeNumberTolerance);
    if (!std::isfinite(extent.maxX()) || !std::isfinite(extent.maxY())) return emptyImage();
    if (const auto* inner = std::get_if<PlacedNode>(&node->content)) {
        const AffineTransform both = transform.after(inner->transform);
        if (isFinite(both) && keepsAxes(both)) return imageOf(extent, PlacedNode{inner->source, both});
    }
    return imageOf(extent, PlacedNode{node, transform});
}

/// The part of EXIF's orientations that is no translation, y up.
constexpr std::array<AffineTransform, 9> orientations{{{},
                                                       {},
                                                       {-1, 0, 0, 1, 0, 0},
                                                       {-1, 0, 0, -1, 0, 0},
                                                       {1, 0, 0, -1, 0, 0},
                                                       {0, -1, -1, 0, 0, 0},
                                                       {0, -1, 1, 0, 0, 0},
                                                       {0, 1, 1, 0, 0, 0},
                                                       {0, 1, -1, 0, 0, 0}}};

} // namespace

FilterImage::FilterImage(std::shared_ptr<const Node> node) : node_(std::move(node)) {}

const Rect& FilterImage::extent() const {
    return node_->extent;
}

bool FilterImage::isInfinite() const {
    return filter::isInfinite(node_->extent);
}

base::Result<FilterImageRef> FilterImage::imageWithContentsOfURL(const base::URL& url, bool applyOrientation) {
    auto source = draw::ImageSource::createWithURL(url);
    if (!source) return base::failure(std::move(source.error()));
    FilterImageRef image = imageWithImage((*source)->imageAtIndex(0));
    if (!applyOrientation) return image;
    const std::int64_t orientation = base::valueForKey((*source)->propertiesAtIndex(0), "Orientation").integerValue();
    return image->imageByApplyingOrientation(static_cast<int>(std::clamp<std::int64_t>(orientation, 0, 9)));
}

FilterImageRef FilterImage::imageWithImage(draw::ImageRef image) {
    if (!image) return emptyImage();
    const Rect extent{0, 0, static_cast<double>(image->width()), static_cast<double>(image->height())};
    return imageOf(extent, PictureNode{std::move(image)});
}

FilterImageRef FilterImage::imageWithColor(double red, double green, double blue, double alpha) {
    const auto component = [](double value) {
        return std::isfinite(value) ? static_cast<float>(std::clamp(value, 0.0, 1.0)) : 0.0F;
    };
    return imageOf(infiniteExtent, ConstantNode{{component(red), component(green), component(blue), component(alpha)}});
}

FilterImageRef FilterImage::imageByApplyingOrientation(int orientation) const {
    if (orientation < 2 || orientation > 8 || isInfinite()) return shared_from_this();
    AffineTransform turn = orientations.at(static_cast<std::size_t>(orientation));
    const Rect turned = turn.apply(extent());
    turn.tx = -turned.x;
    turn.ty = -turned.y;
    return placed(node_, turn);
}

FilterImageRef FilterImage::imageByApplyingLanczosScale(double scale) const {
    if (!(scale > 0)) return emptyImage();
    return imageByApplyingTransform(AffineTransform::scaling(scale, scale));
}

FilterImageRef FilterImage::imageByApplyingTransform(const AffineTransform& transform) const {
    if (transform == AffineTransform()) return shared_from_this();
    return placed(node_, transform);
}

FilterImageRef FilterImage::imageByCroppingToRect(const Rect& rect) const {
    if (!std::isfinite(rect.maxX()) || !std::isfinite(rect.maxY())) return emptyImage(); // the null rectangle too
    const Rect common = snapped(extent().intersection(rect), wholeNumberTolerance);
    if (common.isEmpty() || rect.width < 0 || rect.height < 0) return emptyImage();
    if (common == extent()) return shared_from_this();
    return imageOf(common, CroppedNode{node_});
}

FilterImageRef FilterImage::imageByCompositingOverImage(const FilterImageRef& background) const {
    if (!background || background->extent().isEmpty()) return shared_from_this();
    if (extent().isEmpty()) return background;
    const Rect& other = background->extent();
    const double left = std::min(extent().x, other.x);
    const double low = std::min(extent().y, other.y);
    const Rect both{left, low, std::max(extent().maxX(), other.maxX()) - left,
                    std::max(extent().maxY(), other.maxY()) - low};
    return imageOf(both, OverNode{node_, background->node_});
}

} // namespace platform::filter
