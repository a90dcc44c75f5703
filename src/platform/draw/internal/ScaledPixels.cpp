#include "ScaledPixels.h"

#include "Blit.h"
#include "PixelSource.h"
#include "RasterCache.h"
#include "Resampler.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <stdexcept>

namespace platform::draw {

namespace {

std::int64_t fixed(double value) {
    return std::llround(value * 512);
}

/// By how much the decoder may reduce the picture so that enough is left for the filter.
int reductionFor(const PixelRect& region, double width, double height, Quality quality) {
    const double spare = std::min(region.width / width, region.height / height) / (quality == Quality::final ? 2 : 1);
    int reduction = 1;
    // An output size is often a rounded one; a millionth more or less must not double the work.
    while (reduction < 8 && spare >= reduction * 2 * (1 - 1e-6))
        reduction *= 2;
    return reduction;
}

base::Result<Bitmap> resampled(const Image& image, const PixelRect& region, const ResampledSize& size, int reduction,
                               const ColorSpaceRef& colorSpace) {
    try {
        auto reader = image.source().open(region, reduction);
        if (!reader) return base::failure(reader.error());
        auto bitmap =
            Bitmap::createUninitialized(size.visible.width, size.visible.height, colorSpace, image.isOpaque());
        if (!bitmap) return bitmap;
        auto resampler = Resampler::create(std::move(*reader), size, image.colorSpace(), colorSpace);
        if (!resampler) return base::failure(resampler.error());
        std::uint8_t* pixels = bitmap->mutablePixels();
        for (int y = 0; y < bitmap->height(); ++y)
            if (auto read = (*resampler)->readRow(pixels + static_cast<std::size_t>(y) * bitmap->stride()); !read)
                return base::failure(read.error());
        return bitmap;
    } catch (const std::bad_alloc&) {
        return base::failure(base::posixErrorDomain, ENOMEM, "no memory to draw a picture");
    } catch (const std::length_error&) {
        return base::failure(base::posixErrorDomain, ENOMEM, "no memory to draw a picture");
    }
}

/// The region at this size, out of the cache or into it.
base::Result<Bitmap> rasterOf(const Image& image, const ResampledSize& size, Quality quality,
                              const ColorSpaceRef& colorSpace) {
    const PixelRect region{image.x(), image.y(), image.width(), image.height()};
    const int reduction = reductionFor(region, size.width, size.height, quality);
    const RasterKey key{
        image.source().identity(), image.source().index(), region,       fixed(size.width), fixed(size.height),
        fixed(size.phaseX),        fixed(size.phaseY),     size.visible, reduction,         colorSpace};
    return RasterCache::shared().rasterFor(key, [&] { return resampled(image, region, size, reduction, colorSpace); });
}

bool needsConversion(const ColorSpaceRef& from, const ColorSpaceRef& to) {
    return from != to && !(from->isSRGB() && to->isSRGB());
}

} // namespace

base::Result<void> drawScaled(const Image& image, const Placement& placement, Quality quality, double alpha,
                              const PixelRect& clip, const PixelTarget& target) {
    const base::Rect& rectangle = placement.rectangle;
    if (rectangle.isNull() || !std::isfinite(rectangle.maxX()) || !std::isfinite(rectangle.maxY()) ||
        !(rectangle.width > 0) || !(rectangle.height > 0) || !(alpha > 0))
        return {};
    const PlacedPicture placed(placement, clip.intersection({0, 0, target.width, target.height}));
    if (placed.x.isEmpty() || placed.y.isEmpty()) return {};
    const PlacedAxis& columns = placed.columns();
    const PlacedAxis& rows = placed.rows();
    if (!(columns.length() > 0) || !(rows.length() > 0)) return {};

    const Bitmap* pixels = image.source().bitmap();
    if (pixels && columns.length() == image.width() && rows.length() == image.height() && columns.phase() == 0 &&
        rows.phase() == 0 && !needsConversion(image.colorSpace(), target.colorSpace)) {
        const std::uint8_t* first =
            pixels->row(image.y() + rows.first()) + 4 * (static_cast<std::ptrdiff_t>(image.x()) + columns.first());
        blit(placed, first, pixels->stride(), pixels->isOpaque(), alpha, target);
        return {};
    }
    const ResampledSize size{columns.length(),
                             rows.length(),
                             columns.phase(),
                             rows.phase(),
                             {columns.first(), rows.first(), columns.count(), rows.count()}};
    const auto raster = rasterOf(image, size, quality, target.colorSpace);
    if (!raster) return base::failure(raster.error());
    blit(placed, raster->pixels(), raster->stride(), raster->isOpaque(), alpha, target);
    return {};
}

base::Result<Bitmap> scaledBitmap(const Image& image, int width, int height, Quality quality,
                                  const ColorSpaceRef& colorSpace) {
    if (width <= 0 || height <= 0 || width > maximumBitmapSide || height > maximumBitmapSide)
        return base::failure(base::posixErrorDomain, EINVAL,
                             "no picture of " + std::to_string(width) + " x " + std::to_string(height) + " pixels");
    const Bitmap* pixels = image.source().bitmap();
    if (pixels && image.width() == width && image.height() == height && pixels->width() == width &&
        pixels->height() == height && !needsConversion(image.colorSpace(), colorSpace))
        return *pixels;
    const ResampledSize size{static_cast<double>(width), static_cast<double>(height), 0, 0, {0, 0, width, height}};
    return rasterOf(image, size, quality, colorSpace);
}

} // namespace platform::draw
