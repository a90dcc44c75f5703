// Resampling of a reading, row by row: rows as they come out of the decoder are filtered down their columns into one
// row, that row filtered along, and the result turned into pixels of the target's colours: of a Bitmap, or half ones,
// which keep what the filter knows beyond 8 bits. An object of one thread.
#pragma once

#include "ColorTransform.h"
#include "PictureRows.h"
#include "PlaneRows.h"
#include "ResampleWeights.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace platform::draw {

class Resampler final : public PictureRows {
public:
    /// Rows as `reader` delivers them. `source` is the space of its samples, `target` an RGB space: of half rows the
    /// source itself, or sRGB when that is no RGB space.
    static base::Result<std::unique_ptr<Resampler>> create(std::unique_ptr<BandReader> reader,
                                                           const ResampledSize& size, const ColorSpaceRef& source,
                                                           const ColorSpaceRef& target,
                                                           RowDepth depth = RowDepth::bits8);
    /// As above, with all rows kept in `rows`, which has room for them and is still empty. `region` takes the place of
    /// the reading's own.
    static base::Result<std::unique_ptr<Resampler>> create(std::unique_ptr<BandReader> reader,
                                                           std::shared_ptr<PlaneRows> rows, const base::Rect& region,
                                                           const ResampledSize& size, const ColorSpaceRef& source,
                                                           const ColorSpaceRef& target,
                                                           RowDepth depth = RowDepth::bits8);
    /// Out of rows that are all there.
    static base::Result<std::unique_ptr<Resampler>> create(std::shared_ptr<const PlaneRows> rows,
                                                           const base::Rect& region, const ResampledSize& size,
                                                           const ColorSpaceRef& source, const ColorSpaceRef& target,
                                                           RowDepth depth = RowDepth::bits8);

    base::Result<void> readRow(std::uint8_t* pixels) override;
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
                                                         const ColorSpaceRef& target, RowDepth depth = RowDepth::bits8);
    void makeWeights(const ReadingFormat& format, const base::Rect& region, const ResampledSize& size);
    std::vector<int> ringSizes(const ReadingFormat& format) const;
    bool needsBand() const;
    base::Result<void> skipToFirst();
    void filter(std::size_t index);
    void store(std::uint8_t* pixels);
    void convert(std::uint8_t* pixels);
    bool keepsFractions() const;
    void storeHalf(std::uint16_t* pixels);

    std::unique_ptr<BandReader> reader_; // null when all rows are there
    std::shared_ptr<PlaneRows> filled_;  // the same rows, while the reader fills them
    std::shared_ptr<const PlaneRows> rows_;
    bool keepsAll_ = false;
    SampleKind kind_ = SampleKind::bgrx;
    RowDepth depth_ = RowDepth::bits8;
    std::vector<Plane> planes_;
    std::shared_ptr<const ColorTransform> transform_;
    std::vector<std::uint8_t> unconverted_; // a row of samples before its colour conversion
    std::vector<std::uint8_t> bytes_;       // a converted row before it is widened
    std::size_t outputWidth_ = 0;
    int next_ = 0; // output row
};

} // namespace platform::draw
