// Renders filter images: a rectangle of the graph, row by row, in the colours of an output space. Memory grows with the
// width of the rectangle and of the pictures times some rows, not with their area, but for the result itself and for a
// picture that lies turned against the largest one. Geometry becomes one resampling for each picture, in the coded
// values of its space; colour filters, and nothing else, are computed in linear light. Immutable; any thread.
#pragma once

#include "base/Error.h"
#include "base/Geometry.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/Raster.h"
#include "platform/filter/FilterImage.h"

#include <cstddef>
#include <cstdint>

namespace platform::filter {

/// What stages that need neighbouring pixels hand to each other.
enum class WorkingFormat {
    rgba8,    ///< 8 bits a component, coded
    rgbaHalf, ///< 16-bit floats, coded; values outside 0 to 1 survive
};

/// What a rendering did, to see that work is done on the smaller picture.
struct RenderStatistics {
    std::uint64_t filteredPixels = 0;  ///< Pixels that colour filters were computed for, once for each fused pass.
    std::uint64_t resampledPixels = 0; ///< Pixels that came out of a resampling.
};

class FilterContext {
public:
    /// `outputSpace`: RGB or monochrome (its level stands in all three colours); sRGB when null.
    explicit FilterContext(platform::draw::ColorSpaceRef outputSpace = nullptr,
                           WorkingFormat workingFormat = WorkingFormat::rgba8);

    /// `rect` has whole numbers, y up; the raster's first row is its top. What the image doesn't cover is transparent.
    /// Bits are 8 or 16. Fails for an empty, infinite or too large rectangle, and when a picture can't be decoded
    /// whole.
    base::Result<platform::draw::Raster> render(const FilterImageRef& image, const base::Rect& rect,
                                                int bitsPerComponent = 8, RenderStatistics* statistics = nullptr) const;

    /// The same into memory of the caller: rows of `bytesPerRow` bytes, from the top.
    base::Result<void> renderInto(std::uint8_t* pixels, std::size_t bytesPerRow, const FilterImageRef& image,
                                  const base::Rect& rect, int bitsPerComponent = 8,
                                  RenderStatistics* statistics = nullptr) const;

    const platform::draw::ColorSpaceRef& outputSpace() const { return outputSpace_; }
    WorkingFormat workingFormat() const { return workingFormat_; }

private:
    platform::draw::ColorSpaceRef outputSpace_;
    WorkingFormat workingFormat_;
};

} // namespace platform::filter
