#include "platform/draw/Image.h"

#include "internal/BitmapSource.h"
#include "internal/PixelSource.h"
#include "internal/ScaledPixels.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {

Image::Image(std::shared_ptr<const PixelSource> source, int x, int y, int width, int height)
    : source_(std::move(source)), x_(x), y_(y), width_(width), height_(height) {}

ImageRef Image::fromBitmap(Bitmap bitmap) {
    const int width = bitmap.width();
    const int height = bitmap.height();
    return std::make_shared<Image>(std::make_shared<BitmapSource>(std::move(bitmap)), 0, 0, width, height);
}

const ColorSpaceRef& Image::colorSpace() const {
    return source_->colorSpace();
}

bool Image::isOpaque() const {
    return source_->isOpaque();
}

ImageRef Image::cropped(const base::Rect& rectangle) const {
    const base::Rect whole{0, 0, static_cast<double>(width_), static_cast<double>(height_)};
    const base::Rect standard{std::min(rectangle.x, rectangle.maxX()), std::min(rectangle.y, rectangle.maxY()),
                              std::abs(rectangle.width), std::abs(rectangle.height)};
    const base::Rect part = standard.integral().intersection(whole);
    // A comparison that also refuses what is not a number.
    if (!(part.width >= 1) || !(part.height >= 1)) return nullptr;
    return std::make_shared<Image>(source_, x_ + static_cast<int>(part.x), y_ + static_cast<int>(part.y),
                                   static_cast<int>(part.width), static_cast<int>(part.height));
}

base::Result<Bitmap> Image::bitmap(const ColorSpaceRef& wanted) const {
    const bool isRGB = colorSpace()->model() == ColorModel::rgb;
    const ColorSpaceRef& space = wanted ? wanted : isRGB ? colorSpace() : ColorSpace::sRGB();
    return scaledBitmap(*this, width_, height_, Quality::final, space);
}

} // namespace platform::draw
