// Image: the description of a picture, not its pixels. From a file it knows size, colour space and alpha; pixels come
// into being when a context draws it, at the size and of the region that the drawing needs. Immutable and shared:
// any thread may use one. Coordinates count pixels from the top left, y down.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "platform/draw/Bitmap.h"

#include <memory>

namespace platform::draw {

class Image;
class PixelSource;
using ImageRef = std::shared_ptr<const Image>;

/// Where a picture's or a context's alpha stands. The numbers are those in which the system stores and compares it.
enum class AlphaInfo {
    none = 0,
    premultipliedLast = 1,
    premultipliedFirst = 2,
    last = 3,
    first = 4,
    noneSkipLast = 5,
    noneSkipFirst = 6,
};

/// How well a reduced picture is made. Both are free of aliasing.
enum class Quality {
    final,   ///< For products: nothing but the filter reduces, or what the decoder reduced has six pixels for each one
             ///< drawn.
    preview, ///< For the screen: the least decoding that gives enough pixels.
};

class Image {
public:
    /// An image of pixels in memory; it shares them with `bitmap` (copy on write).
    static ImageRef fromBitmap(Bitmap bitmap);

    int width() const { return width_; }
    int height() const { return height_; }
    /// The space of its colours; never null. A picture without a profile is taken for sRGB.
    const ColorSpaceRef& colorSpace() const;
    /// premultipliedLast for a picture with transparency, noneSkipLast for one without.
    AlphaInfo alphaInfo() const { return isOpaque() ? AlphaInfo::noneSkipLast : AlphaInfo::premultipliedLast; }
    bool isOpaque() const;

    /// The view of a part: the rectangle, whose sides may be negative, made integral and cut to the image. Null when
    /// they don't meet. Decodes nothing and copies nothing.
    ImageRef cropped(const base::Rect& rectangle) const;

    /// The pixels at full size, converted to `colorSpace` (the image's own when null, sRGB when that is no RGB space).
    /// An image in memory that needs no conversion shares its pixels. Fails when the picture is broken, cut off or too
    /// large.
    base::Result<Bitmap> bitmap(const ColorSpaceRef& colorSpace = nullptr) const;

    /// For the drawing code of this module: what delivers the pixels, and where this view begins in it.
    Image(std::shared_ptr<const PixelSource> source, int x, int y, int width, int height);
    const PixelSource& source() const { return *source_; }
    int x() const { return x_; }
    int y() const { return y_; }

private:
    std::shared_ptr<const PixelSource> source_;
    int x_ = 0;
    int y_ = 0;
    int width_ = 0;
    int height_ = 0;
};

} // namespace platform::draw
