// Rows of a reading's planes in memory, as the decoder delivers them: a ring of the last few while they stream by, or
// all of them, from which further drawings are made without decoding again. Filled by one thread; once filled, read by
// any.
#pragma once

#include "PixelSource.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace platform::draw {

class PlaneRows {
public:
    /// Room for the last rowCounts[i] rows of plane i. Throws std::bad_alloc.
    PlaneRows(ReadingFormat format, const std::vector<int>& rowCounts);
    /// Room for all rows.
    static std::vector<int> allRows(const ReadingFormat& format);

    const ReadingFormat& format() const { return format_; }
    std::size_t byteCount() const;
    /// Rows of the plane that have been read so far.
    int available(std::size_t plane) const { return planes_[plane].available; }
    /// One of the last rows; may be read kernelSlack bytes beyond its end.
    const std::uint8_t* row(std::size_t plane, int index) const { return planes_[plane].at(index); }

    base::Result<void> readBand(BandReader& reader);
    /// Passes over bands, the rows of which are then undefined.
    base::Result<void> skipBands(BandReader& reader, int count);

private:
    struct Plane {
        std::unique_ptr<std::uint8_t[]> bytes;
        std::size_t stride = 0;
        int count = 0;
        int available = 0;
        std::vector<std::uint8_t*> band; // where the next band goes
        std::uint8_t* at(int index) const { return bytes.get() + stride * static_cast<std::size_t>(index % count); }
    };
    void aimAtNextBand();

    ReadingFormat format_;
    std::vector<Plane> planes_;
    std::vector<std::uint8_t**> bands_;
};

} // namespace platform::draw
