#include "PictureRows.h"

#include "ColorTransform.h"
#include "PictureFormat.h"
#include "Resampler.h"
#include "platform/draw/ColorRows.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace platform::draw {

namespace {

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

/// A reading whose pixels are those of the drawing.
class UnscaledRows final : public PictureRows {
public:
    UnscaledRows(std::unique_ptr<BandReader> reader, const Drawing& drawing,
                 std::shared_ptr<const ColorTransform> transform)
        : reader_(std::move(reader)), transform_(std::move(transform)), kind_(reader_->format().kind),
          depth_(drawing.depth), width_(static_cast<std::size_t>(drawing.size.visible.width)) {
        const ReadingFormat& format = reader_->format();
        const PlaneFormat& plane = format.planes.front();
        left_ = static_cast<std::size_t>(format.region.x) + static_cast<std::size_t>(drawing.size.visible.x);
        top_ = static_cast<int>(format.region.y) + drawing.size.visible.y;
        buffer_.resize(std::max(plane.rowBytes, 4 * static_cast<std::size_t>(plane.width)));
    }

    base::Result<void> readRow(std::uint8_t* pixels) override {
        std::uint8_t* row = buffer_.data();
        std::uint8_t** rows[] = {&row};
        if (top_ > 0) {
            if (auto skipped = reader_->skipBands(top_, rows); !skipped) return skipped;
            top_ = 0;
        }
        if (auto read = reader_->readBand(rows); !read) return read;
        std::uint8_t* part = row + 4 * left_;
        if (kind_ == SampleKind::bgrx)
            for (std::size_t x = 0; x < width_; ++x)
                part[4 * x + 3] = 255;
        if (transform_) {
            const bool premultiplied = kind_ == SampleKind::bgra;
            if (premultiplied) unpremultiply(part, width_);
            transform_->convert(part, part, width_);
            if (premultiplied) premultiply(part, width_);
        }
        if (depth_ == RowDepth::half)
            widenToHalf(part, reinterpret_cast<std::uint16_t*>(pixels), width_);
        else
            std::memcpy(pixels, part, 4 * width_);
        return {};
    }

private:
    std::unique_ptr<BandReader> reader_;
    std::shared_ptr<const ColorTransform> transform_;
    SampleKind kind_;
    RowDepth depth_;
    std::size_t width_;
    std::size_t left_ = 0;
    int top_ = 0;
    std::vector<std::uint8_t> buffer_;
};

} // namespace

Drawing Drawing::of(const Image& image, const ResampledSize& size, Quality quality, ColorSpaceRef colorSpace,
                    RowDepth depth) {
    const PixelRect region{image.x(), image.y(), image.width(), image.height()};
    const int reduction =
        std::min(reductionFor(region, size.width, size.height, quality), image.source().largestReduction());
    return {image, region, size, reduction, std::move(colorSpace), depth};
}

base::Rect Drawing::regionOn(const ReadingFormat& format) const {
    const double scaleX = format.region.width / source().width();
    const double scaleY = format.region.height / source().height();
    return {format.region.x + region.x * scaleX, format.region.y + region.y * scaleY, region.width * scaleX,
            region.height * scaleY};
}

base::Result<std::unique_ptr<PictureRows>> openPictureRows(const Drawing& drawing) {
    RasterCache::shared().countDecoding();
    auto reader = drawing.isAtOwnSize() ? drawing.source().openAtOwnSize(drawing.region)
                                        : drawing.source().open(drawing.region, drawing.reduction);
    if (!reader) return base::failure(reader.error());
    const PlaneFormat& plane = (*reader)->format().planes.front();
    if (drawing.isAtOwnSize() && plane.samplesPerPixel == 4 && plane.rowsPerBand == 1) {
        auto transform = ColorTransform::between(drawing.image.colorSpace(), PixelLayout::bgra8, drawing.colorSpace);
        if (!transform) return base::failure(transform.error());
        return std::make_unique<UnscaledRows>(std::move(*reader), drawing, std::move(*transform));
    }
    return Resampler::create(std::move(*reader), drawing.size, drawing.image.colorSpace(), drawing.colorSpace,
                             drawing.depth);
}

bool goesByRows(const Drawing& drawing) {
    const PixelSource& source = drawing.source();
    if (source.bitmap() || drawing.isAtOwnSize()) return false;
    return RasterCache::shared().wantsRows(keyOfRows(drawing), source.planeBytes(drawing.reduction),
                                           static_cast<double>(drawing.region.height) / source.height());
}

RasterKey keyOfRows(const Drawing& drawing) {
    return {drawing.source().identity(), drawing.source().index(), {}, 0, 0, 0, 0, {}, drawing.reduction, nullptr};
}

base::Result<std::unique_ptr<PictureRows>> openSharedPictureRows(const Drawing& drawing) {
    const auto decode = [&]() -> base::Result<RasterCache::Rows> {
        RasterCache::shared().countDecoding();
        const PixelSource& source = drawing.source();
        auto reader = source.open({0, 0, source.width(), source.height()}, drawing.reduction);
        if (!reader) return base::failure(reader.error());
        const auto rows = std::make_shared<PlaneRows>((*reader)->format(), PlaneRows::allRows((*reader)->format()));
        const PlaneFormat& first = rows->format().planes.front();
        while (rows->available(0) < first.height)
            if (auto read = rows->readBand(**reader); !read) return base::failure(read.error());
        return rows;
    };
    const auto rows = RasterCache::shared().rowsFor(keyOfRows(drawing), [&] { return withMemory(decode); });
    if (!rows) return openPictureRows(drawing);
    return Resampler::create(*rows, drawing.regionOn((*rows)->format()), drawing.size, drawing.image.colorSpace(),
                             drawing.colorSpace, drawing.depth);
}

void widenToHalf(const std::uint8_t* row, std::uint16_t* half, std::size_t pixels) {
    static const auto table = [] {
        std::array<std::uint16_t, 256> values;
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = halfOfFloat(static_cast<float>(i) / 255);
        return values;
    }();
    for (std::size_t i = 0; i < 4 * pixels; i += 4) {
        for (std::size_t k = 0; k < 3; ++k)
            half[i + k] = table[row[i + 2 - k]];
        half[i + 3] = table[row[i + 3]];
    }
}

} // namespace platform::draw
