#include "ScaledPixels.h"

#include "Blit.h"
#include "PictureRows.h"
#include "RasterCache.h"
#include "Resampler.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <vector>

namespace platform::draw {

namespace {

std::int64_t fixed(double value) {
    return std::llround(value * 512);
}

RasterKey keyOf(const Drawing& drawing) {
    const ResampledSize& size = drawing.size;
    return {drawing.source().identity(), drawing.source().index(), drawing.region,     fixed(size.width),
            fixed(size.height),          fixed(size.phaseX),       fixed(size.phaseY), size.visible,
            drawing.reduction,           drawing.colorSpace};
}

base::Result<Bitmap> rasterBy(PictureRows& rows, const Drawing& drawing) {
    auto bitmap = Bitmap::createUninitialized(drawing.size.visible.width, drawing.size.visible.height,
                                              drawing.colorSpace, drawing.image.isOpaque());
    if (!bitmap) return bitmap;
    std::uint8_t* pixels = bitmap->mutablePixels();
    for (int y = 0; y < bitmap->height(); ++y)
        if (auto read = rows.readRow(pixels + static_cast<std::size_t>(y) * bitmap->stride()); !read)
            return base::failure(read.error());
    return bitmap;
}

base::Result<Bitmap> streamed(const Drawing& drawing) {
    auto rows = openPictureRows(drawing);
    if (!rows) return base::failure(rows.error());
    return rasterBy(**rows, drawing);
}

/// Out of the rows of the whole picture, which are kept for drawings at other sizes.
base::Result<Bitmap> shared(const Drawing& drawing) {
    // Who decodes draws while the rows come in.
    std::optional<base::Result<Bitmap>> own;
    const auto decode = [&]() -> base::Result<RasterCache::Rows> {
        RasterCache::shared().countDecoding();
        const PixelSource& source = drawing.source();
        auto reader = source.open({0, 0, source.width(), source.height()}, drawing.reduction);
        if (!reader) return base::failure(reader.error());
        const auto rows = std::make_shared<PlaneRows>((*reader)->format(), PlaneRows::allRows((*reader)->format()));
        auto resampler = Resampler::create(std::move(*reader), rows, drawing.regionOn(rows->format()), drawing.size,
                                           drawing.image.colorSpace(), drawing.colorSpace);
        if (!resampler) return base::failure(resampler.error());
        own = rasterBy(**resampler, drawing);
        if (!*own) return base::failure(own->error());
        if (auto rest = (*resampler)->readRest(); !rest) return base::failure(rest.error());
        return rows;
    };
    const auto rows = RasterCache::shared().rowsFor(keyOfRows(drawing), [&] { return withMemory(decode); });
    if (own) return *own;
    // The picture may be broken elsewhere, or memory short.
    if (!rows) return streamed(drawing);
    auto resampler = Resampler::create(*rows, drawing.regionOn((*rows)->format()), drawing.size,
                                       drawing.image.colorSpace(), drawing.colorSpace);
    if (!resampler) return base::failure(resampler.error());
    return rasterBy(**resampler, drawing);
}

/// The region at this size, out of the cache or into it.
base::Result<Bitmap> rasterOf(const Image& image, const ResampledSize& size, Quality quality,
                              const ColorSpaceRef& colorSpace) {
    const Drawing drawing = Drawing::of(image, size, quality, colorSpace);
    return RasterCache::shared().rasterFor(keyOf(drawing), [&] {
        return withMemory([&] { return goesByRows(drawing) ? shared(drawing) : streamed(drawing); });
    });
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
