#include "Floor.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include <jpeglib.h>

namespace bench {

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File open(const std::string& path, const char* mode) {
    return {std::fopen(path.c_str(), mode), std::fclose};
}

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
    const File file = open(photograph.path, "rb");
    if (!file) return false;
    jpeg_decompress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&jpeg);
    jpeg_stdio_src(&jpeg, file.get());
    jpeg_read_header(&jpeg, TRUE);
    jpeg.scale_num = 1;
    jpeg.scale_denom = 8;
    while (jpeg.scale_denom > 1 && (jpeg.image_width / jpeg.scale_denom < static_cast<unsigned>(photograph.width) ||
                                    jpeg.image_height / jpeg.scale_denom < static_cast<unsigned>(photograph.height)))
        jpeg.scale_denom /= 2;
    jpeg.out_color_space = JCS_RGB;
    jpeg_start_decompress(&jpeg);
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
    jpeg_destroy_decompress(&jpeg);
    return true;
}

bool encode(Canvas& canvas, const std::string& output) {
    const File file = open(output, "wb");
    if (!file) return false;
    jpeg_compress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    jpeg_stdio_dest(&jpeg, file.get());
    jpeg.image_width = static_cast<JDIMENSION>(canvas.width);
    jpeg.image_height = static_cast<JDIMENSION>(canvas.height);
    jpeg.input_components = 3;
    jpeg.in_color_space = JCS_RGB;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, 90, TRUE);
    jpeg_start_compress(&jpeg, TRUE);
    while (jpeg.next_scanline < jpeg.image_height) {
        JSAMPROW row = canvas.at(0, static_cast<int>(jpeg.next_scanline));
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
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
