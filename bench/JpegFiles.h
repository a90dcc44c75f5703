// The bare library at a JPEG file, for what the benchmarks measure against: a decoder behind its header, an encoder
// before its first row. The library ends the process at its errors. Objects of one thread.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include <jpeglib.h>

namespace bench {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// Not to be used when `file` is null.
struct JpegInput {
    explicit JpegInput(const std::string& path) : file(std::fopen(path.c_str(), "rb")) {
        jpeg.err = jpeg_std_error(&errors);
        jpeg_create_decompress(&jpeg);
        if (!file) return;
        jpeg_stdio_src(&jpeg, file.get());
        jpeg_save_markers(&jpeg, JPEG_APP0 + 1, 0xFFFF);
        jpeg_save_markers(&jpeg, JPEG_APP0 + 2, 0xFFFF);
        jpeg_read_header(&jpeg, TRUE);
    }
    ~JpegInput() { jpeg_destroy_decompress(&jpeg); }
    JpegInput(const JpegInput&) = delete;
    JpegInput& operator=(const JpegInput&) = delete;

    /// Begins at the smallest power of two of the size that covers width x height.
    void start(int width, int height, J_COLOR_SPACE space) {
        jpeg.scale_num = 1;
        jpeg.scale_denom = 8;
        while (jpeg.scale_denom > 1 && (jpeg.image_width / jpeg.scale_denom < static_cast<unsigned>(width) ||
                                        jpeg.image_height / jpeg.scale_denom < static_cast<unsigned>(height)))
            jpeg.scale_denom /= 2;
        jpeg.out_color_space = space;
        jpeg_start_decompress(&jpeg);
    }

    File file;
    jpeg_decompress_struct jpeg{};
    jpeg_error_mgr errors{};
};

struct JpegOutput {
    explicit JpegOutput(const std::string& path) : file(std::fopen(path.c_str(), "wb")) {
        jpeg.err = jpeg_std_error(&errors);
        jpeg_create_compress(&jpeg);
        if (file) jpeg_stdio_dest(&jpeg, file.get());
    }
    ~JpegOutput() { jpeg_destroy_compress(&jpeg); }
    JpegOutput(const JpegOutput&) = delete;
    JpegOutput& operator=(const JpegOutput&) = delete;

    /// Quality 90; the caller may change the parameters before jpeg_start_compress.
    void describe(int width, int height, int components, J_COLOR_SPACE space) {
        jpeg.image_width = static_cast<JDIMENSION>(width);
        jpeg.image_height = static_cast<JDIMENSION>(height);
        jpeg.input_components = components;
        jpeg.in_color_space = space;
        jpeg_set_defaults(&jpeg);
        jpeg_set_quality(&jpeg, 90, TRUE);
    }

    File file;
    jpeg_compress_struct jpeg{};
    jpeg_error_mgr errors{};
};

} // namespace bench
