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
};

/// Decodes the rows of one region from the top, a band of rows of every plane at a time.
class BandReader {
public:
    virtual ~BandReader() = default;
    const ReadingFormat& format() const { return format_; }
    /// Fills rows[plane][0 to rowsPerBand]; rows behind a plane's last one are left as they are.
    virtual base::Result<void> readBand(std::uint8_t** const* rows) = 0;

protected:
    ReadingFormat format_;
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

    /// The pixels when they are in memory, else null.
    virtual const Bitmap* bitmap() const { return nullptr; }

protected:
    int width_ = 0;
    int height_ = 0;
    bool opaque_ = true;
    ColorSpaceRef colorSpace_;
    ContentIdentity identity_;
    std::size_t index_ = 0;
};

} // namespace platform::draw
