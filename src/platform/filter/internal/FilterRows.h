// Rows that colour filters have been applied to: read into linear light, taken through all steps as floats, written as
// sRGB once.
#pragma once

#include "ColorSteps.h"
#include "platform/draw/RowReader.h"

namespace platform::filter {

/// A rectangle of whole pixels; the right and lower edges lie outside of it.
struct PixelRect {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    int width() const { return right - left; }
    int height() const { return bottom - top; }
    PixelRect grown(int pixels) const { return {left - pixels, top - pixels, right + pixels, bottom + pixels}; }
    PixelRect intersection(const PixelRect& other) const;
    friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

/// The pixels that the rows of `wanted` are computed from, cut to `bounds`, outside of which there is nothing.
PixelRect pixelsNeeded(const ColorSteps& steps, const PixelRect& wanted, const PixelRect& bounds);

/// `source` delivers pixelsNeeded(steps, wanted, bounds); the answer the rows of `wanted`, in its depth, in sRGB.
base::Result<draw::RowReaderRef> filteredRows(draw::RowReaderRef source, const ColorSteps& steps,
                                              const PixelRect& wanted, const PixelRect& bounds);

} // namespace platform::filter
