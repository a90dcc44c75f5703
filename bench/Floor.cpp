#include "Floor.h"

#include "JpegFiles.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace bench {

namespace {

/// Red, green and blue of the product, rows from the top.
struct Canvas {
    int width;
    int height;
    std::vector<JSAMPLE> bytes;
    JSAMPLE* at(int x, int y) { return bytes.data() + 3 * (static_cast<std::size_t>(y) * width + x); }
};

/// Decodes the photograph of the first place into all places.
bool decode(const std::vector<const Placed*>& places, Canvas& canvas) {
    const Placed& photograph = *places.front();
    JpegInput input(photograph.path);
    if (!input.file) return false;
    jpeg_decompress_struct& jpeg = input.jpeg;
    input.start(photograph.width, photograph.height, JCS_RGB);
    std::vector<JSAMPLE> line(static_cast<std::size_t>(jpeg.output_width) * 3);
    const auto count = std::min<std::size_t>(line.size(), static_cast<std::size_t>(photograph.width) * 3);
    while (jpeg.output_scanline < jpeg.output_height) {
        JSAMPROW row = line.data();
        const int y = static_cast<int>(jpeg.output_scanline);
        jpeg_read_scanlines(&jpeg, &row, 1);
        for (const Placed* place : places)
            if (y < place->height) std::memcpy(canvas.at(place->x, place->y + y), row, count);
    }
    jpeg_finish_decompress(&jpeg);
    return true;
}

bool encode(Canvas& canvas, const std::string& path) {
    JpegOutput output(path);
    if (!output.file) return false;
    jpeg_compress_struct& jpeg = output.jpeg;
    output.describe(canvas.width, canvas.height, 3, JCS_RGB);
    jpeg_start_compress(&jpeg, TRUE);
    while (jpeg.next_scanline < jpeg.image_height) {
        JSAMPROW row = canvas.at(0, static_cast<int>(jpeg.next_scanline));
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    return true;
}

} // namespace

bool renderFloor(const FloorTask& task, const std::string& output) {
    Canvas canvas{task.width, task.height, {}};
    canvas.bytes.resize(static_cast<std::size_t>(task.width) * static_cast<std::size_t>(task.height) * 3);
    std::map<std::string, std::vector<const Placed*>> placesOfPhotographs;
    for (const Placed& place : task.photographs)
        placesOfPhotographs[place.path].push_back(&place);
    for (const auto& [path, places] : placesOfPhotographs)
        if (!decode(places, canvas)) return false;
    return encode(canvas, output);
}

} // namespace bench
