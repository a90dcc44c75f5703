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
struct Node;

class FilterImage : public std::enable_shared_from_this<FilterImage> {
public:
    /// Opens a picture file and reads its headers; with `applyOrientation` it stands upright by its EXIF orientation.
    /// The extent begins at the origin. Fails for what is no readable picture.
    static base::Result<FilterImageRef> imageWithContentsOfURL(const base::URL& url, bool applyOrientation);
    static FilterImageRef imageWithImage(platform::draw::ImageRef image);
    /// One colour everywhere: sRGB components from 0 to 1, not premultiplied. Its extent is infinite.
    static FilterImageRef imageWithColor(double red, double green, double blue, double alpha = 1);

    /// What can be other than transparent. Edges that are whole numbers but for 1e-6 are whole; others may have
    /// fractions: such an edge covers its pixels in part.
    const base::Rect& extent() const;
    /// Without bounds, as a colour is. Its extent is then a finite rectangle beyond all sense.
    bool isInfinite() const;

    /// As EXIF numbers them, 2 to 8; the extent then begins at the origin. Other numbers change nothing.
    FilterImageRef imageByApplyingOrientation(int orientation) const;
    /// Lanczos, by the same factor in both directions, about the origin. A scale that is not positive and finite gives
    /// an empty image. Scales and transforms in a row become one resampling.
    FilterImageRef imageByApplyingLanczosScale(double scale) const;
    /// Scale along the axes (negative ones mirror), quarter turns and translation; other turns and shears are not
    /// offered and give an empty image.
    FilterImageRef imageByApplyingTransform(const base::AffineTransform& transform) const;
    /// The part within the rectangle; an empty image when there is none.
    FilterImageRef imageByCroppingToRect(const base::Rect& rect) const;
    /// This image over the other one.
    FilterImageRef imageByCompositingOverImage(const FilterImageRef& background) const;

    /// For the code of this module.
    explicit FilterImage(std::shared_ptr<const Node> node);
    const std::shared_ptr<const Node>& node() const { return node_; }

private:
    std::shared_ptr<const Node> node_;
};

} // namespace platform::filter
