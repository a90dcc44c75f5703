#include "ScaledPixels.h"

#include "Blit.h"
#include "ColorTransform.h"
#include "PictureFormat.h"
#include "PixelSource.h"
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

/// By how much the decoder may reduce the picture so that enough is left for the filter. Its own way of reducing lets
/// finer detail through as false detail, which vanishes among six pixels along for each one drawn.
int reductionFor(const PixelRect& region, double width, double height, Quality quality) {
    const double spare = std::min(region.width / width, region.height / height) / (quality == Quality::final ? 6 : 1);
    int reduction = 1;
    // An output size is often a rounded one; a millionth more or less must not double the work.
    while (reduction < 8 && spare >= reduction * 2 * (1 - 1e-6))
        reduction *= 2;
    return reduction;
}

/// A region of a picture at a size.
struct Drawing {
    const Image& image;
    PixelRect region;
    ResampledSize size;
    int reduction = 1;
    ColorSpaceRef colorSpace;

    const PixelSource& source() const { return image.source(); }
    bool isAtOwnSize() const {
        return size.width == region.width && size.height == region.height && size.phaseX == 0 && size.phaseY == 0;
    }
    RasterKey key() const {
        return {source().identity(), source().index(),   region,       fixed(size.width), fixed(size.height),
                fixed(size.phaseX),  fixed(size.phaseY), size.visible, reduction,         colorSpace};
    }
    RasterKey keyOfRows() const {
        return {source().identity(), source().index(), {}, 0, 0, 0, 0, {}, reduction, nullptr};
    }
    base::Result<Bitmap> emptyRaster() const {
        return Bitmap::createUninitialized(size.visible.width, size.visible.height, colorSpace, image.isOpaque());
    }
};

template <class Make>
auto withMemory(Make make) -> decltype(make()) {
    try {
        return make();
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    return base::failure(base::posixErrorDomain, ENOMEM, "no memory to draw a picture");
}

base::Result<Bitmap> rasterBy(base::Result<std::unique_ptr<Resampler>>& resampler, const Drawing& drawing) {
    if (!resampler) return base::failure(resampler.error());
    auto bitmap = drawing.emptyRaster();
    if (!bitmap) return bitmap;
    std::uint8_t* pixels = bitmap->mutablePixels();
    for (int y = 0; y < bitmap->height(); ++y)
        if (auto read = (*resampler)->readRow(pixels + static_cast<std::size_t>(y) * bitmap->stride()); !read)
            return base::failure(read.error());
    return bitmap;
}

/// At its own size: the decoder's pixels as they are. Nothing when the reading is in planes of other samples.
std::optional<base::Result<Bitmap>> unscaled(const Drawing& drawing, BandReader& reader) {
    const ReadingFormat& format = reader.format();
    const PlaneFormat& plane = format.planes.front();
    if (plane.samplesPerPixel != 4 || plane.rowsPerBand != 1) return std::nullopt;
    auto transform = ColorTransform::between(drawing.image.colorSpace(), PixelLayout::bgra8, drawing.colorSpace);
    if (!transform) return base::failure(transform.error());
    auto bitmap = drawing.emptyRaster();
    if (!bitmap) return bitmap;
    const auto width = static_cast<std::size_t>(bitmap->width());
    const auto left = static_cast<std::size_t>(format.region.x) + static_cast<std::size_t>(drawing.size.visible.x);
    const int top = static_cast<int>(format.region.y) + drawing.size.visible.y;
    std::vector<std::uint8_t> buffer(std::max(plane.rowBytes, 4 * static_cast<std::size_t>(plane.width)));
    std::uint8_t* row = buffer.data();
    std::uint8_t** rows[] = {&row};
    if (auto skipped = reader.skipBands(top, rows); !skipped) return base::failure(skipped.error());
    std::uint8_t* pixels = bitmap->mutablePixels();
    for (int y = 0; y < bitmap->height(); ++y, pixels += bitmap->stride()) {
        if (auto read = reader.readBand(rows); !read) return base::failure(read.error());
        std::memcpy(pixels, row + 4 * left, 4 * width);
        if (format.kind == SampleKind::bgrx) {
            for (std::size_t x = 0; x < width; ++x)
                pixels[4 * x + 3] = 255;
        }
        if (!*transform) continue;
        const bool premultiplied = format.kind == SampleKind::bgra;
        if (premultiplied) unpremultiply(pixels, width);
        (*transform)->convert(pixels, pixels, width);
        if (premultiplied) premultiply(pixels, width);
    }
    return bitmap;
}

/// Decodes no more than the drawing needs, and keeps none of it.
base::Result<Bitmap> streamed(const Drawing& drawing) {
    RasterCache::shared().countDecoding();
    auto reader = drawing.isAtOwnSize() ? drawing.source().openAtOwnSize(drawing.region)
                                        : drawing.source().open(drawing.region, drawing.reduction);
    if (!reader) return base::failure(reader.error());
    if (drawing.isAtOwnSize())
        if (auto bitmap = unscaled(drawing, **reader)) return *bitmap;
    auto resampler =
        Resampler::create(std::move(*reader), drawing.size, drawing.image.colorSpace(), drawing.colorSpace);
    return rasterBy(resampler, drawing);
}

/// Out of the rows of the whole picture, which are kept for drawings at other sizes.
base::Result<Bitmap> shared(const Drawing& drawing) {
    const PixelSource& source = drawing.source();
    const auto regionOn = [&](const ReadingFormat& format) -> base::Rect {
        const double scaleX = format.region.width / source.width();
        const double scaleY = format.region.height / source.height();
        const PixelRect& region = drawing.region;
        return {format.region.x + region.x * scaleX, format.region.y + region.y * scaleY, region.width * scaleX,
                region.height * scaleY};
    };
    // Who decodes draws while the rows come in.
    std::optional<base::Result<Bitmap>> own;
    const auto decode = [&]() -> base::Result<RasterCache::Rows> {
        RasterCache::shared().countDecoding();
        auto reader = source.open({0, 0, source.width(), source.height()}, drawing.reduction);
        if (!reader) return base::failure(reader.error());
        const auto rows = std::make_shared<PlaneRows>((*reader)->format(), PlaneRows::allRows((*reader)->format()));
        auto resampler = Resampler::create(std::move(*reader), rows, regionOn(rows->format()), drawing.size,
                                           drawing.image.colorSpace(), drawing.colorSpace);
        own = rasterBy(resampler, drawing);
        if (!*own) return base::failure(own->error());
        if (auto rest = (*resampler)->readRest(); !rest) return base::failure(rest.error());
        return rows;
    };
    const auto rows = RasterCache::shared().rowsFor(drawing.keyOfRows(), [&] { return withMemory(decode); });
    if (own) return *own;
    // The picture may be broken elsewhere, or memory short.
    if (!rows) return streamed(drawing);
    auto resampler = Resampler::create(*rows, regionOn((*rows)->format()), drawing.size, drawing.image.colorSpace(),
                                       drawing.colorSpace);
    return rasterBy(resampler, drawing);
}

bool goesByRows(const Drawing& drawing) {
    const PixelSource& source = drawing.source();
    if (source.bitmap() || drawing.isAtOwnSize()) return false;
    return RasterCache::shared().wantsRows(drawing.keyOfRows(), source.planeBytes(drawing.reduction),
                                           static_cast<double>(drawing.region.height) / source.height());
}

/// The region at this size, out of the cache or into it.
base::Result<Bitmap> rasterOf(const Image& image, const ResampledSize& size, Quality quality,
                              const ColorSpaceRef& colorSpace) {
    const PixelRect region{image.x(), image.y(), image.width(), image.height()};
    const int reduction =
        std::min(reductionFor(region, size.width, size.height, quality), image.source().largestReduction());
    const Drawing drawing{image, region, size, reduction, colorSpace};
    return RasterCache::shared().rasterFor(drawing.key(), [&] {
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
