// Resampling of a reading, row by row: the rows of a few bands are held as they come out of the decoder, filtered down
// their columns into one row, that row filtered along, and the result turned into pixels of the target's colours. An
// object of one thread.
#pragma once

#include "ColorTransform.h"
#include "PixelSource.h"
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
    /// `source` is the space of the reading's samples, `target` an RGB space.
    static base::Result<std::unique_ptr<Resampler>> create(std::unique_ptr<BandReader> reader,
                                                           const ResampledSize& size, const ColorSpaceRef& source,
                                                           const ColorSpaceRef& target);

    /// The next of visible.height rows, as visible.width pixels in the form of a Bitmap.
    base::Result<void> readRow(std::uint8_t* pixels);

private:
    struct Plane {
        PlaneFormat format;
        std::shared_ptr<const AxisWeights> horizontal;
        std::shared_ptr<const AxisWeights> vertical;
        std::vector<std::uint8_t> ring; // the last ringRows rows that were decoded
        std::size_t rowStride = 0;
        int ringRows = 0;
        int available = 0; // rows decoded so far
        std::vector<std::int16_t> column;
        std::vector<std::int16_t> row;
        std::vector<std::uint8_t*> band; // where the next band goes
        std::vector<const std::uint8_t*> taps;
    };

    Resampler() = default;
    void makeWeights(const ResampledSize& size);
    void sizeRings();
    bool needsBand() const;
    base::Result<void> readBand();
    void filter(Plane& plane);
    void store(std::uint8_t* pixels);

    std::unique_ptr<BandReader> reader_;
    std::vector<Plane> planes_;
    std::vector<std::uint8_t**> bands_;
    std::shared_ptr<const ColorTransform> transform_;
    std::vector<std::uint8_t> unconverted_; // a row of samples before its colour conversion
    std::size_t outputWidth_ = 0;
    int next_ = 0; // output row
};

} // namespace platform::draw
