// An image that is told, not computed: a picture and what is to be done with it, as a graph of immutable nodes. Nothing
// is decoded or computed before a FilterContext renders a rectangle of it. Coordinates are pixels, y up, the extent may
// begin anywhere, have fractions, and be infinite. Any thread.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "base/Path.h"
#include "platform/draw/Image.h"

#include <memory>

namespace platform::filter {

class FilterImage;
using FilterImageRef = std::shared_ptr<const FilterImage>;
class Node;

class FilterImage {
public:
    /// Opens a picture file and reads its headers; with `applyOrientation` it stands upright by its EXIF orientation.
    /// The extent begins at the origin. Fails for what is no readable picture.
    static base::Result<FilterImageRef> imageWithContentsOfURL(const base::URL& url, bool applyOrientation);
    static FilterImageRef imageWithImage(platform::draw::ImageRef image);
    /// One colour everywhere: sRGB components from 0 to 1, not premultiplied. Its extent is infinite.
    static FilterImageRef imageWithColor(double red, double green, double blue, double alpha = 1);

    const base::Rect& extent() const;

    /// As EXIF numbers them, 1 to 8; the extent then begins at the origin. Other numbers change nothing.
    FilterImageRef imageByApplyingOrientation(int orientation) const;
    /// Lanczos, by the same factor in both directions, about the origin. A scale that is not positive gives an empty
    /// image.
    FilterImageRef imageByApplyingLanczosScale(double scale) const;
    /// Scale along the axes and translation; rotations and shears are not offered and give an empty image.
    FilterImageRef imageByApplyingTransform(const base::AffineTransform& transform) const;
    FilterImageRef imageByCroppingToRect(const base::Rect& rect) const;
    /// This image over the other one.
    FilterImageRef imageByCompositingOverImage(const FilterImageRef& background) const;

    explicit FilterImage(std::shared_ptr<const Node> node);
    const Node& node() const { return *node_; }
    const std::shared_ptr<const Node>& sharedNode() const { return node_; }

private:
    std::shared_ptr<const Node> node_;
};

} // namespace platform::filter
