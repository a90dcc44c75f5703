#include "PlaneRows.h"

#include "ResampleKernels.h"

#include <algorithm>

namespace platform::draw {

PlaneRows::PlaneRows(ReadingFormat format, const std::vector<int>& rowCounts) : format_(std::move(format)) {
    for (std::size_t i = 0; i < format_.planes.size(); ++i) {
        const PlaneFormat& planeFormat = format_.planes[i];
        Plane plane;
        const auto samples = static_cast<std::size_t>(planeFormat.width * planeFormat.samplesPerPixel);
        plane.stride = (std::max(planeFormat.rowBytes, samples) + kernelSlack + 63) / 64 * 64;
        plane.count = std::max(rowCounts[i], planeFormat.rowsPerBand);
        // Not cleared: the pages of a large picture come into being as they are filled.
        plane.bytes.reset(new std::uint8_t[plane.stride * static_cast<std::size_t>(plane.count)]);
        plane.band.resize(static_cast<std::size_t>(planeFormat.rowsPerBand));
        planes_.push_back(std::move(plane));
    }
    for (Plane& plane : planes_)
        bands_.push_back(plane.band.data());
}

std::vector<int> PlaneRows::allRows(const ReadingFormat& format) {
    int bands = 0;
    for (const PlaneFormat& plane : format.planes)
        bands = std::max(bands, (plane.height + plane.rowsPerBand - 1) / plane.rowsPerBand);
    std::vector<int> counts;
    for (const PlaneFormat& plane : format.planes)
        counts.push_back(bands * plane.rowsPerBand);
    return counts;
}

std::size_t PlaneRows::byteCount() const {
    std::size_t bytes = 0;
    for (const Plane& plane : planes_)
        bytes += plane.stride * static_cast<std::size_t>(plane.count);
    return bytes;
}

void PlaneRows::aimAtNextBand() {
    for (Plane& plane : planes_)
        for (std::size_t i = 0; i < plane.band.size(); ++i)
            plane.band[i] = plane.at(plane.available + static_cast<int>(i));
}

base::Result<void> PlaneRows::readBand(BandReader& reader) {
    aimAtNextBand();
    for (std::size_t i = 0; i < planes_.size(); ++i)
        planes_[i].available += format_.planes[i].rowsPerBand;
    return reader.readBand(bands_.data());
}

base::Result<void> PlaneRows::skipBands(BandReader& reader, int count) {
    aimAtNextBand();
    for (std::size_t i = 0; i < planes_.size(); ++i)
        planes_[i].available += count * format_.planes[i].rowsPerBand;
    return reader.skipBands(count, bands_.data());
}

} // namespace platform::draw
