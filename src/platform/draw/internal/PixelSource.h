// What delivers the pixels of an image: a picture file of some format, or a bitmap. A source is immutable and used by
// any thread; a BandReader belongs to one.
#pragma once

#include "ByteSource.h"
#include "PixelRect.h"
#include "ResampleWeights.h"
#include "base/Error.h"
#include "base/Geometry.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/ColorSpace.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace platform::draw {

/// What the samples of a reading mean.
enum class SampleKind {
    bgrx,         ///< One plane, four samples a pixel, the last one without meaning.
    bgra,         ///< One plane, four samples a pixel, premultiplied.
    gray,         ///< One plane.
    yCbCr,        ///< Three planes, as JPEG files define them.
    rgb,          ///< Three planes.
    cmyk,         ///< Four planes; 255 is full ink.
    cmykInverted, ///< Four planes; 0 is full ink.
    yccK,         ///< Four planes; the first three become cmy as YCbCr becomes RGB.
    yccKInverted,
};

/// In how many planes they come.
inline int planeCount(SampleKind kind) {
    switch (kind) {
    case SampleKind::bgrx:
    case SampleKind::bgra:
    case SampleKind::gray:
        return 1;
    case SampleKind::yCbCr:
    case SampleKind::rgb:
        return 3;
    default:
        return 4;
    }
}

struct PlaneFormat {
    int samplesPerPixel = 1; ///< 1 or 4.
    int width = 0;           ///< Pixels in a row.
    int height = 0;          ///< Rows in all, the first of which is delivered first.
    int rowsPerBand = 1;
    std::size_t rowBytes = 0; ///< What a row's buffer must hold at least.
    Subsampling horizontal;
    Subsampling vertical;
};

struct ReadingFormat {
    SampleKind kind = SampleKind::bgrx;
    std::vector<PlaneFormat> planes;
    int gridWidth = 0; ///< The grid of pixels that the planes cover.
    int gridHeight = 0;
    base::Rect region; ///< Where the wanted region lies on the grid; may have fractions.

    /// A row a band, all of the grid in each plane and all of it wanted.
    static ReadingFormat ofRows(SampleKind kind, int width, int height) {
        PlaneFormat plane;
        plane.samplesPerPixel = kind == SampleKind::bgrx || kind == SampleKind::bgra ? 4 : 1;
        plane.width = width;
        plane.height = height;
        plane.rowBytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(plane.samplesPerPixel);
        return {kind,
                std::vector(static_cast<std::size_t>(planeCount(kind)), plane),
                width,
                height,
                {0, 0, static_cast<double>(width), static_cast<double>(height)}};
    }
    /// The same for a picture whose rows come in their whole width, from the wanted region's first one on.
    static ReadingFormat ofWholeRows(SampleKind kind, int width, int height, const PixelRect& wanted) {
        ReadingFormat format = ofRows(kind, width, height - wanted.y);
        format.region = {static_cast<double>(wanted.x), 0, static_cast<double>(wanted.width),
                         static_cast<double>(wanted.height)};
        return format;
    }
};

/// Decodes the rows of one region from the top, a band of rows of every plane at a time.
class BandReader {
public:
    virtual ~BandReader() = default;
    const ReadingFormat& format() const { return format_; }
    /// Fills rows[plane][0 to rowsPerBand]; rows behind a plane's last one are left as they are.
    virtual base::Result<void> readBand(std::uint8_t** const* rows) = 0;
    /// Passes over bands whose rows nobody wants; `rows` may be written to all the same.
    virtual base::Result<void> skipBands(int count, std::uint8_t** const* rows) {
        for (int i = 0; i < count; ++i)
            if (auto read = readBand(rows); !read) return read;
        return {};
    }

protected:
    ReadingFormat format_;
};

/// What the 16-bit samples of a deep row mean: the components of the source's colour space in their order (65535 is
/// full ink), then alpha when there is one, pixel after pixel.
struct DeepFormat {
    int colors = 3; ///< 1, 3 or 4.
    bool hasAlpha = false;
    bool premultiplied = false;
    std::size_t samplesPerPixel() const { return static_cast<std::size_t>(colors) + (hasAlpha ? 1 : 0); }
};

/// Delivers a whole picture with 16 bits a sample, a row at a time from the top.
class DeepReader {
public:
    virtual ~DeepReader() = default;
    const DeepFormat& format() const { return format_; }
    /// Fills a row of width x samplesPerPixel samples.
    virtual base::Result<void> readRow(std::uint16_t* row) = 0;

protected:
    DeepFormat format_;
};

class PixelSource {
public:
    virtual ~PixelSource() = default;

    int width() const { return width_; }
    int height() const { return height_; }
    bool isOpaque() const { return opaque_; }
    const ColorSpaceRef& colorSpace() const { return colorSpace_; }
    const ContentIdentity& identity() const { return identity_; }
    /// The place of the picture within its file.
    std::size_t index() const { return index_; }

    /// Opens a reading of `region`. The picture may be reduced by a power of two up to `reduction` on the way, where
    /// the format makes that cheaper than reading all of it.
    virtual base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int reduction) const = 0;

    /// Opens a reading that keeps more than 8 bits a sample; null for a picture that has no more.
    virtual base::Result<std::unique_ptr<DeepReader>> openDeep() const { return nullptr; }

    /// Opens a reading for a drawing at the picture's own size: where the format leaves open how colour of a lower
    /// resolution is enlarged, as its own library does it.
    virtual base::Result<std::unique_ptr<BandReader>> openAtOwnSize(const PixelRect& region) const {
        return open(region, 1);
    }

    /// The largest reduction that open() makes use of.
    int largestReduction() const { return largestReduction_; }
    /// About how many bytes the planes of the whole picture take.
    virtual std::int64_t planeBytes(int reduction) const {
        return std::int64_t{4} * (width_ / reduction) * (height_ / reduction);
    }

    /// The pixels when they are in memory, else null.
    virtual const Bitmap* bitmap() const { return nullptr; }

protected:
    int width_ = 0;
    int height_ = 0;
    bool opaque_ = true;
    ColorSpaceRef colorSpace_;
    ContentIdentity identity_;
    std::size_t index_ = 0;
    int largestReduction_ = 1;
};

} // namespace platform::draw
