#include "Resampler.h"

#include "PictureFormat.h"
#include "ResampleKernels.h"

#include <algorithm>
#include <cstring>

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

base::Result<std::unique_ptr<Resampler>> Resampler::create(std::unique_ptr<BandReader> reader,
                                                           const ResampledSize& size, const ColorSpaceRef& source,
                                                           const ColorSpaceRef& target) {
    const SampleKind kind = reader->format().kind;
    auto transform = ColorTransform::between(source, layoutOf(kind), target);
    if (!transform) return base::failure(transform.error());

    auto resampler = std::unique_ptr<Resampler>(new Resampler);
    resampler->reader_ = std::move(reader);
    resampler->transform_ = std::move(*transform);
    resampler->outputWidth_ = static_cast<std::size_t>(size.visible.width);
    if (layoutOf(kind) != PixelLayout::bgra8) resampler->unconverted_.resize(resampler->outputWidth_ * 4);
    resampler->makeWeights(size);
    resampler->sizeRings();
    return resampler;
}

void Resampler::makeWeights(const ResampledSize& size) {
    const ReadingFormat& format = reader_->format();
    const AxisMapping horizontal{format.region.x, format.region.width, size.width,      size.phaseX,
                                 size.visible.x,  size.visible.width,  format.gridWidth};
    const AxisMapping vertical{format.region.y, format.region.height, size.height,      size.phaseY,
                               size.visible.y,  size.visible.height,  format.gridHeight};
    for (const PlaneFormat& planeFormat : format.planes) {
        Plane plane;
        plane.format = planeFormat;
        // The two planes of colour have the same geometry as a rule.
        for (const Plane& other : planes_) {
            if (other.format.width == planeFormat.width && other.format.horizontal == planeFormat.horizontal)
                plane.horizontal = other.horizontal;
            if (other.format.height == planeFormat.height && other.format.vertical == planeFormat.vertical)
                plane.vertical = other.vertical;
        }
        if (!plane.horizontal)
            plane.horizontal =
                std::make_shared<AxisWeights>(axisWeights(horizontal, planeFormat.horizontal, planeFormat.width));
        if (!plane.vertical)
            plane.vertical =
                std::make_shared<AxisWeights>(axisWeights(vertical, planeFormat.vertical, planeFormat.height));
        planes_.push_back(std::move(plane));
    }
}

/// Goes through the whole reading without reading, to see how many rows of each plane are held at once at most: one
/// plane runs ahead while another waits for its rows.
void Resampler::sizeRings() {
    std::vector<int> available(planes_.size(), 0);
    for (std::size_t y = 0; y < planes_.front().vertical->positions.size(); ++y) {
        int bands = 0;
        for (std::size_t i = 0; i < planes_.size(); ++i) {
            const AxisWeights::Position& position = planes_[i].vertical->positions[y];
            const int missing = position.start + position.count - available[i];
            const int perBand = planes_[i].format.rowsPerBand;
            if (missing > 0) bands = std::max(bands, (missing + perBand - 1) / perBand);
        }
        for (std::size_t i = 0; i < planes_.size(); ++i) {
            available[i] += bands * planes_[i].format.rowsPerBand;
            planes_[i].ringRows = std::max(planes_[i].ringRows, available[i] - planes_[i].vertical->positions[y].start);
        }
    }
    for (Plane& plane : planes_) {
        const auto samples = static_cast<std::size_t>(plane.format.width * plane.format.samplesPerPixel);
        plane.ringRows = std::max(plane.ringRows, plane.format.rowsPerBand);
        plane.rowStride = (std::max(plane.format.rowBytes, samples) + kernelSlack + 63) / 64 * 64;
        plane.ring.resize(plane.rowStride * static_cast<std::size_t>(plane.ringRows));
        plane.column.resize(samples + kernelSlack);
        plane.row.resize(outputWidth_ * static_cast<std::size_t>(plane.format.samplesPerPixel) + kernelSlack);
        plane.band.resize(static_cast<std::size_t>(plane.format.rowsPerBand));
    }
    for (Plane& plane : planes_)
        bands_.push_back(plane.band.data());
}

bool Resampler::needsBand() const {
    return std::any_of(planes_.begin(), planes_.end(), [this](const Plane& plane) {
        const AxisWeights::Position& position = plane.vertical->positions[static_cast<std::size_t>(next_)];
        return plane.available < position.start + position.count;
    });
}

base::Result<void> Resampler::readBand() {
    for (Plane& plane : planes_) {
        for (std::size_t i = 0; i < plane.band.size(); ++i) {
            const int slot = (plane.available + static_cast<int>(i)) % plane.ringRows;
            plane.band[i] = plane.ring.data() + plane.rowStride * static_cast<std::size_t>(slot);
        }
        plane.available += plane.format.rowsPerBand;
    }
    return reader_->readBand(bands_.data());
}

void Resampler::filter(Plane& plane) {
    const AxisWeights& horizontal = *plane.horizontal;
    const AxisWeights::Position& position = plane.vertical->positions[static_cast<std::size_t>(next_)];
    const auto samplesPerPixel = static_cast<std::size_t>(plane.format.samplesPerPixel);
    const std::size_t begin = static_cast<std::size_t>(horizontal.begin) * samplesPerPixel;
    const std::size_t end = static_cast<std::size_t>(horizontal.end) * samplesPerPixel;
    plane.taps.clear();
    for (int i = 0; i < position.count; ++i) {
        const auto slot = static_cast<std::size_t>((position.start + i) % plane.ringRows);
        plane.taps.push_back(plane.ring.data() + plane.rowStride * slot + begin);
    }
    filterColumns(plane.taps.data(), plane.vertical->weights.data() + position.offset, position.count, end - begin,
                  plane.column.data() + begin);
    if (samplesPerPixel == 4)
        filterRow4(plane.column.data(), horizontal, plane.row.data());
    else
        filterRow(plane.column.data(), horizontal, plane.row.data());
}

void Resampler::store(std::uint8_t* pixels) {
    const auto row = [this](std::size_t plane) { return planes_[plane].row.data(); };
    switch (reader_->format().kind) {
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
        const SampleKind kind = reader_->format().kind;
        const bool yccK = kind == SampleKind::yccK || kind == SampleKind::yccKInverted;
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
    while (needsBand())
        if (auto read = readBand(); !read) return read;
    for (Plane& plane : planes_)
        filter(plane);
    store(pixels);
    ++next_;
    if (!transform_) return {};
    const bool premultiplied = reader_->format().kind == SampleKind::bgra;
    if (premultiplied) unpremultiply(pixels, outputWidth_);
    transform_->convert(unconverted_.empty() ? pixels : unconverted_.data(), pixels, outputWidth_);
    if (premultiplied) premultiply(pixels, outputWidth_);
    return {};
}

} // namespace platform::draw
