#include "Resampler.h"

#include "PictureFormat.h"
#include "ResampleKernels.h"

#include <algorithm>
#include <limits>

namespace platform::draw {

namespace {

PixelLayout layoutOf(SampleKind kind) {
    switch (kind) {
    case SampleKind::gray:
        return PixelLayout::gray8;
    case SampleKind::cmyk:
    case SampleKind::yccK:
        return PixelLayout::cmyk8;
    case SampleKind::cmykInverted:
    case SampleKind::yccKInverted:
        return PixelLayout::cmykInverted8;
    default:
        return PixelLayout::bgra8;
    }
}

/// Overshoots of the filter may lift a colour above its alpha; such a pixel has no meaning.
void limitToAlpha(std::uint8_t* row, std::size_t pixels) {
    for (std::size_t i = 0; i < 4 * pixels; i += 4)
        for (std::size_t k = 0; k < 3; ++k)
            row[i + k] = std::min(row[i + k], row[i + 3]);
}

void setOpaque(std::uint8_t* row, std::size_t pixels) {
    for (std::size_t i = 0; i < pixels; ++i)
        row[4 * i + 3] = 255;
}

} // namespace

base::Result<std::unique_ptr<Resampler>> Resampler::make(const ReadingFormat& format, const base::Rect& region,
                                                         const ResampledSize& size, const ColorSpaceRef& source,
                                                         const ColorSpaceRef& target, RowDepth depth) {
    auto transform = ColorTransform::between(source, layoutOf(format.kind), target);
    if (!transform) return base::failure(transform.error());
    auto resampler = std::unique_ptr<Resampler>(new Resampler);
    resampler->transform_ = std::move(*transform);
    resampler->kind_ = format.kind;
    resampler->depth_ = depth;
    resampler->outputWidth_ = static_cast<std::size_t>(size.visible.width);
    if (layoutOf(format.kind) != PixelLayout::bgra8) resampler->unconverted_.resize(resampler->outputWidth_ * 4);
    // Grey levels of sRGB's curve are sRGB's own, so that they need no conversion.
    if (depth == RowDepth::half && format.kind == SampleKind::gray && source == ColorSpace::gray() && target->isSRGB())
        resampler->transform_ = nullptr;
    if (depth == RowDepth::half && !resampler->keepsFractions()) resampler->bytes_.resize(resampler->outputWidth_ * 4);
    resampler->makeWeights(format, region, size);
    return resampler;
}

base::Result<std::unique_ptr<Resampler>> Resampler::create(std::unique_ptr<BandReader> reader,
                                                           const ResampledSize& size, const ColorSpaceRef& source,
                                                           const ColorSpaceRef& target, RowDepth depth) {
    const ReadingFormat& format = reader->format();
    auto resampler = make(format, format.region, size, source, target, depth);
    if (!resampler) return resampler;
    (*resampler)->filled_ = std::make_shared<PlaneRows>(format, (*resampler)->ringSizes(format));
    (*resampler)->rows_ = (*resampler)->filled_;
    (*resampler)->reader_ = std::move(reader);
    return resampler;
}

base::Result<std::unique_ptr<Resampler>> Resampler::create(std::unique_ptr<BandReader> reader,
                                                           std::shared_ptr<PlaneRows> rows, const base::Rect& region,
                                                           const ResampledSize& size, const ColorSpaceRef& source,
                                                           const ColorSpaceRef& target, RowDepth depth) {
    auto resampler = make(rows->format(), region, size, source, target, depth);
    if (!resampler) return resampler;
    (*resampler)->reader_ = std::move(reader);
    (*resampler)->keepsAll_ = true;
    (*resampler)->filled_ = std::move(rows);
    (*resampler)->rows_ = (*resampler)->filled_;
    return resampler;
}

base::Result<std::unique_ptr<Resampler>> Resampler::create(std::shared_ptr<const PlaneRows> rows,
                                                           const base::Rect& region, const ResampledSize& size,
                                                           const ColorSpaceRef& source, const ColorSpaceRef& target,
                                                           RowDepth depth) {
    auto resampler = make(rows->format(), region, size, source, target, depth);
    if (resampler) (*resampler)->rows_ = std::move(rows);
    return resampler;
}

void Resampler::makeWeights(const ReadingFormat& format, const base::Rect& region, const ResampledSize& size) {
    const AxisMapping horizontal{region.x,       region.width,       size.width,      size.phaseX,
                                 size.visible.x, size.visible.width, format.gridWidth};
    const AxisMapping vertical{region.y,       region.height,       size.height,      size.phaseY,
                               size.visible.y, size.visible.height, format.gridHeight};
    for (const PlaneFormat& planeFormat : format.planes) {
        Plane plane;
        plane.samplesPerPixel = planeFormat.samplesPerPixel;
        // The two planes of colour have the same geometry as a rule.
        for (std::size_t i = 0; i < planes_.size(); ++i) {
            const PlaneFormat& other = format.planes[i];
            if (other.width == planeFormat.width && other.horizontal == planeFormat.horizontal)
                plane.horizontal = planes_[i].horizontal;
            if (other.height == planeFormat.height && other.vertical == planeFormat.vertical)
                plane.vertical = planes_[i].vertical;
        }
        if (!plane.horizontal)
            plane.horizontal =
                std::make_shared<AxisWeights>(axisWeights(horizontal, planeFormat.horizontal, planeFormat.width));
        if (!plane.vertical)
            plane.vertical =
                std::make_shared<AxisWeights>(axisWeights(vertical, planeFormat.vertical, planeFormat.height));
        const auto samples = static_cast<std::size_t>(planeFormat.width * planeFormat.samplesPerPixel);
        plane.column.resize(samples + kernelSlack);
        plane.row.resize(outputWidth_ * static_cast<std::size_t>(plane.samplesPerPixel) + kernelSlack);
        planes_.push_back(std::move(plane));
    }
}

/// Goes through the whole reading without reading, to see how many rows of each plane are held at once at most: one
/// plane runs ahead while another waits for its rows.
std::vector<int> Resampler::ringSizes(const ReadingFormat& format) const {
    std::vector<int> available(planes_.size(), 0);
    std::vector<int> sizes(planes_.size(), 0);
    for (std::size_t y = 0; y < planes_.front().vertical->positions.size(); ++y) {
        int bands = 0;
        for (std::size_t i = 0; i < planes_.size(); ++i) {
            const AxisWeights::Position& position = planes_[i].vertical->positions[y];
            const int missing = position.start + position.count - available[i];
            const int perBand = format.planes[i].rowsPerBand;
            if (missing > 0) bands = std::max(bands, (missing + perBand - 1) / perBand);
        }
        for (std::size_t i = 0; i < planes_.size(); ++i) {
            available[i] += bands * format.planes[i].rowsPerBand;
            sizes[i] = std::max(sizes[i], available[i] - planes_[i].vertical->positions[y].start);
        }
    }
    return sizes;
}

bool Resampler::needsBand() const {
    for (std::size_t i = 0; i < planes_.size(); ++i) {
        const AxisWeights::Position& position = planes_[i].vertical->positions[static_cast<std::size_t>(next_)];
        if (rows_->available(i) < position.start + position.count) return true;
    }
    return false;
}

/// Bands that lie wholly above the first row used need not be put together.
base::Result<void> Resampler::skipToFirst() {
    int bands = std::numeric_limits<int>::max();
    for (std::size_t i = 0; i < planes_.size(); ++i) {
        int first = std::numeric_limits<int>::max();
        for (const AxisWeights::Position& position : planes_[i].vertical->positions)
            first = std::min(first, position.start);
        bands = std::min(bands, first / rows_->format().planes[i].rowsPerBand);
    }
    return bands > 0 ? filled_->skipBands(*reader_, bands) : base::Result<void>();
}

void Resampler::filter(std::size_t index) {
    Plane& plane = planes_[index];
    const AxisWeights& horizontal = *plane.horizontal;
    const AxisWeights::Position& position = plane.vertical->positions[static_cast<std::size_t>(next_)];
    const auto samplesPerPixel = static_cast<std::size_t>(plane.samplesPerPixel);
    const std::size_t begin = static_cast<std::size_t>(horizontal.begin) * samplesPerPixel;
    const std::size_t end = static_cast<std::size_t>(horizontal.end) * samplesPerPixel;
    plane.taps.clear();
    for (int i = 0; i < position.count; ++i)
        plane.taps.push_back(rows_->row(index, position.start + i) + begin);
    filterColumns(plane.taps.data(), plane.vertical->weights.data() + position.offset, position.count, end - begin,
                  plane.column.data() + begin);
    if (samplesPerPixel == 4)
        filterRow4(plane.column.data(), horizontal, plane.row.data());
    else
        filterRow(plane.column.data(), horizontal, plane.row.data());
}

void Resampler::store(std::uint8_t* pixels) {
    const auto row = [this](std::size_t plane) { return planes_[plane].row.data(); };
    switch (kind_) {
    case SampleKind::bgrx:
        storePlain(row(0), 4 * outputWidth_, pixels);
        setOpaque(pixels, outputWidth_);
        break;
    case SampleKind::bgra:
        storePlain(row(0), 4 * outputWidth_, pixels);
        limitToAlpha(pixels, outputWidth_);
        break;
    case SampleKind::gray:
        storePlain(row(0), outputWidth_, unconverted_.data());
        break;
    case SampleKind::yCbCr:
        storeYCbCr(row(0), row(1), row(2), outputWidth_, pixels);
        break;
    case SampleKind::rgb:
        storeRGB(row(0), row(1), row(2), outputWidth_, pixels);
        break;
    case SampleKind::cmyk:
    case SampleKind::cmykInverted:
    case SampleKind::yccK:
    case SampleKind::yccKInverted: {
        // The kernels write blue, green, red: yellow, magenta, cyan. The fourth byte takes the black.
        const bool yccK = kind_ == SampleKind::yccK || kind_ == SampleKind::yccKInverted;
        if (yccK)
            storeYCbCr(row(0), row(1), row(2), outputWidth_, pixels);
        else
            storeRGB(row(0), row(1), row(2), outputWidth_, pixels);
        std::vector<std::uint8_t> black(outputWidth_);
        storePlain(row(3), outputWidth_, black.data());
        for (std::size_t i = 0; i < outputWidth_; ++i) {
            for (std::size_t k = 0; k < 3; ++k) {
                const std::uint8_t value = pixels[4 * i + 2 - k];
                unconverted_[4 * i + k] = yccK ? static_cast<std::uint8_t>(255 - value) : value;
            }
            unconverted_[4 * i + 3] = black[i];
        }
        break;
    }
    }
}

base::Result<void> Resampler::readRow(std::uint8_t* pixels) {
    if (reader_) {
        if (next_ == 0 && !keepsAll_)
            if (auto skipped = skipToFirst(); !skipped) return skipped;
        while (needsBand())
            if (auto read = filled_->readBand(*reader_); !read) return read;
    }
    for (std::size_t i = 0; i < planes_.size(); ++i)
        filter(i);
    ++next_;
    if (depth_ == RowDepth::bits8) {
        store(pixels);
        convert(pixels);
    } else if (keepsFractions()) {
        storeHalf(reinterpret_cast<std::uint16_t*>(pixels));
    } else {
        store(bytes_.data());
        convert(bytes_.data());
        widenToHalf(bytes_.data(), reinterpret_cast<std::uint16_t*>(pixels), outputWidth_);
    }
    return {};
}

void Resampler::convert(std::uint8_t* pixels) {
    if (!transform_) return;
    const bool premultiplied = kind_ == SampleKind::bgra;
    if (premultiplied) unpremultiply(pixels, outputWidth_);
    transform_->convert(unconverted_.empty() ? pixels : unconverted_.data(), pixels, outputWidth_);
    if (premultiplied) premultiply(pixels, outputWidth_);
}

/// Whether half pixels come straight from the filter's samples; else from bytes, which the conversion makes.
bool Resampler::keepsFractions() const {
    return !transform_ && planeCount(kind_) != 4;
}

void Resampler::storeHalf(std::uint16_t* pixels) {
    const auto row = [this](std::size_t plane) { return planes_[plane].row.data(); };
    switch (kind_) {
    case SampleKind::bgrx:
    case SampleKind::bgra:
        storeHalfPlain(row(0), kind_ == SampleKind::bgrx, outputWidth_, pixels);
        break;
    case SampleKind::yCbCr:
        storeHalfYCbCr(row(0), row(1), row(2), outputWidth_, pixels);
        break;
    case SampleKind::gray:
        storeHalfRGB(row(0), row(0), row(0), outputWidth_, pixels);
        break;
    default:
        storeHalfRGB(row(0), row(1), row(2), outputWidth_, pixels);
    }
}

base::Result<void> Resampler::readRest() {
    const PlaneFormat& first = rows_->format().planes.front();
    while (rows_->available(0) < first.height)
        if (auto read = filled_->readBand(*reader_); !read) return read;
    return {};
}

} // namespace platform::draw
