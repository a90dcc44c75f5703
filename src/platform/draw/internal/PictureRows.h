// The rows of a picture at the size of a drawing, as they stream out of its decoder. What ScaledPixels makes rasters
// of, and ScaledRows pages. An object of one thread.
#pragma once

#include "PixelRect.h"
#include "PixelSource.h"
#include "RasterCache.h"
#include "base/Error.h"
#include "platform/draw/Image.h"
#include "platform/draw/RowReader.h"

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

namespace platform::draw {

/// The size that a picture's region gets, in pixels of the output grid, and the part of that which is wanted. The
/// region begins at (phaseX, phaseY), each from 0 to below 1, of the grid's pixel (0, 0).
struct ResampledSize {
    double width = 0;
    double height = 0;
    double phaseX = 0;
    double phaseY = 0;
    PixelRect visible; ///< Within the pixels that the region touches.
};

/// Rows of visible.width pixels.
class PictureRows {
public:
    virtual ~PictureRows() = default;
    /// The next of visible.height rows.
    virtual base::Result<void> readRow(std::uint8_t* pixels) = 0;
};

/// A region of a picture at a size.
struct Drawing {
    const Image& image;
    PixelRect region;
    ResampledSize size;
    int reduction = 1;
    ColorSpaceRef colorSpace; ///< For half rows the image's own, deepColorSpace().
    RowDepth depth = RowDepth::bits8;

    /// The whole image, decoded at the smallest scale that serves.
    static Drawing of(const Image& image, const ResampledSize& size, Quality quality, ColorSpaceRef colorSpace,
                      RowDepth depth = RowDepth::bits8);
    const PixelSource& source() const { return image.source(); }
    bool isAtOwnSize() const {
        return size.width == region.width && size.height == region.height && size.phaseX == 0 && size.phaseY == 0;
    }
    /// Where the region lies on the grid of a reading of the whole picture.
    base::Rect regionOn(const ReadingFormat& format) const;
};

/// Whether the drawing should go by the decoded rows of the whole picture, and their name in the cache.
bool goesByRows(const Drawing& drawing);
RasterKey keyOfRows(const Drawing& drawing);

/// Decodes no more than the drawing needs, and keeps none of it. At its own size: the decoder's pixels as they are.
base::Result<std::unique_ptr<PictureRows>> openPictureRows(const Drawing& drawing);

/// Out of the decoded rows of the whole picture, which the cache holds or is given; as openPictureRows when the picture
/// can't be decoded as a whole.
base::Result<std::unique_ptr<PictureRows>> openSharedPictureRows(const Drawing& drawing);

/// A row of a Bitmap's pixels as half ones.
void widenToHalf(const std::uint8_t* row, std::uint16_t* half, std::size_t pixels);

/// What `make` answers, or a failure when there is no memory for it.
template <class Make>
auto withMemory(Make make) -> decltype(make()) {
    try {
        return make();
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    return base::failure(base::posixErrorDomain, ENOMEM, "no memory to draw a picture");
}

} // namespace platform::draw
