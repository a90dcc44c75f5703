// Pictures as rows at the size of a page: decoded at the smallest scale that serves, resampled once (Lanczos-3) while
// the rows stream by, in the coded values of the picture's space. The same resampling as that of a BitmapContext: a
// photograph looks the same by both roads. Any thread may make a reader; memory grows with the width of the picture,
// not with its height, save for one that must be turned.
#pragma once

#include "base/Geometry.h"
#include "platform/draw/Image.h"
#include "platform/draw/RowReader.h"

namespace platform::draw {

/// Where a picture's pixels go on a grid of output pixels, y down: the whole input covers `width` x `height` of them
/// from (x, y). Fractions are allowed, and each axis has its own scale. Of the grid, the pixels of `visible` (whole
/// numbers) are delivered; it may reach beyond the picture. A pixel that the picture covers in part gets that part of
/// its alpha; outside the picture pixels are transparent. Edges within 1/512 of a pixel boundary are put on it.
struct RowPlacement {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    base::Rect visible;
};

/// The rows of an image, which is first mirrored left to right when `mirrored`, then turned clockwise by
/// `quarterTurns`, then placed. Nothing is decoded before the first row is read, and rows and columns that are not
/// visible take no part where the format allows it. A picture whose rows do not come in their order (turned or upside
/// down) is kept in memory at the smaller of its two sizes. Not scaled is not filtered: the pixels pass unchanged.
///
/// `colorSpace` is an RGB space that supports output; null means deepColorSpace(image), the image's own when it is RGB.
/// Half rows keep what a picture has beyond 8 bits, and values beyond 0 to 1.
///
/// Fails for sizes that are not positive or not finite, for a visible part beyond the limits of a Bitmap's sides, and
/// when the colours can't be converted; a broken or cut-off file fails here or while its rows are read.
base::Result<RowReaderRef> scaledRows(const ImageRef& image, int quarterTurns, bool mirrored,
                                      const RowPlacement& placement, RowDepth depth, const ColorSpaceRef& colorSpace,
                                      Quality quality);

/// The rows of `rows`, which is at its first row, placed likewise; in their depth and space.
base::Result<RowReaderRef> scaledRows(RowReaderRef rows, const RowPlacement& placement, Quality quality);

} // namespace platform::draw
