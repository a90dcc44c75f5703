// Resampling of a reading, row by row: rows as they come out of the decoder are filtered down their columns into one
// row, that row filtered along, and the result turned into pixels of the target's colours. An object of one thread.
#pragma once

#include "ColorTransform.h"
#include "PixelSource.h"
#include "PlaneRows.h"
#include "ResampleWeights.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace platform::draw {

/// The size that a reading's region gets, in pixels of the output grid, and the part of that which is wanted. The
/// region begins at (phaseX, phaseY), each from 0 to below 1, of the grid's pixel (0, 0).
struct ResampledSize {
    double width = 0;
    double height = 0;
    double phaseX = 0;
    double phaseY = 0;
    PixelRect visible; ///< Within the pixels that the region touches.
};

class Resampler {
public:
    /// Rows as `reader` delivers them. `source` is the space of its samples, `target` an RGB space.
    static base::Result<std::unique_ptr<Resampler>> create(std::unique_ptr<BandReader> reader,
                                                           const ResampledSize& size, const ColorSpaceRef& source,
                                                           const ColorSpaceRef& target);
    /// As above, with all rows kept in `rows`, which has room for them and is still empty. `region` takes the place of
    /// the reading's own.
    static base::Result<std::unique_ptr<Resampler>> create(std::unique_ptr<BandReader> reader,
                                                           std::shared_ptr<PlaneRows> rows, const base::Rect& region,
                                                           const ResampledSize& size, const ColorSpaceRef& source,
                                                           const ColorSpaceRef& target);
    /// Out of rows that are all there.
    static base::Result<std::unique_ptr<Resampler>> create(std::shared_ptr<const PlaneRows> rows,
                                                           const base::Rect& region, const ResampledSize& size,
                                                           const ColorSpaceRef& source, const ColorSpaceRef& target);

    /// The next of visible.height rows, as visible.width pixels in the form of a Bitmap.
    base::Result<void> readRow(std::uint8_t* pixels);
    /// Reads the rest of the bands into the rows that are kept.
    base::Result<void> readRest();

private:
    struct Plane {
        int samplesPerPixel = 1;
        std::shared_ptr<const AxisWeights> horizontal;
        std::shared_ptr<const AxisWeights> vertical;
        std::vector<std::int16_t> column;
        std::vector<std::int16_t> row;
        std::vector<const std::uint8_t*> taps;
    };

    Resampler() = default;
    static base::Result<std::unique_ptr<Resampler>> make(const ReadingFormat& format, const base::Rect& region,
                                                         const ResampledSize& size, const ColorSpaceRef& source,
                                                         const ColorSpaceRef& target);
    void makeWeights(const ReadingFormat& format, const base::Rect& region, const ResampledSize& size);
    std::vector<int> ringSizes(const ReadingFormat& format) const;
    bool needsBand() const;
    base::Result<void> skipToFirst();
    void filter(std::size_t index);
    void store(std::uint8_t* pixels);

    std::unique_ptr<BandReader> reader_; // null when all rows are there
    std::shared_ptr<PlaneRows> filled_;  // the same rows, while the reader fills them
    std::shared_ptr<const PlaneRows> rows_;
    bool keepsAll_ = false;
    SampleKind kind_ = SampleKind::bgrx;
    std::vector<Plane> planes_;
    std::shared_ptr<const ColorTransform> transform_;
    std::vector<std::uint8_t> unconverted_; // a row of samples before its colour conversion
    std::size_t outputWidth_ = 0;
    int next_ = 0; // output row
};

} // namespace platform::draw
