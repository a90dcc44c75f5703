// The bare library calls that opening, reducing and writing a picture can't do without: what velm_bench_image measures
// against. Pixels are blue, green, red and a byte without meaning, rows from the top.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct Pixels {
    int width = 0;
    int height = 0;
    std::size_t stride = 0;
    const std::uint8_t* first = nullptr;
    const std::uint8_t* row(int y) const { return first + stride * static_cast<std::size_t>(y); }
};

/// Reads the header of a JPEG file with its metadata.
bool readJpegHeader(const std::string& path);

/// The rows of a JPEG file at the smallest power of two of its size that covers width x height, one after another.
bool decodeJpeg(const std::string& path, int width, int height);
/// As many rows and columns of the middle, at full size.
bool decodeJpegPart(const std::string& path, int x, int y, int width, int height);

/// Quality 90, all colour; the library's own compression; none.
bool encodeJpeg(const Pixels& pixels, const std::string& path);
bool encodePng(const Pixels& pixels, const std::string& path);
bool encodeTiff(const Pixels& pixels, const std::string& path);

/// The same picture with its data in progressive scans.
bool makeProgressive(const std::string& path, const std::string& output);

} // namespace bench
