#include "LibraryCalls.h"

#include <cstdio>
#include <memory>

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

namespace bench {

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File open(const std::string& path, const char* mode) {
    return {std::fopen(path.c_str(), mode), std::fclose};
}

/// A decoder behind its header. Its errors end the process.
struct Decoder {
    explicit Decoder(const std::string& path) : file(open(path, "rb")) {
        jpeg.err = jpeg_std_error(&errors);
        jpeg_create_decompress(&jpeg);
        jpeg_stdio_src(&jpeg, file.get());
        jpeg_save_markers(&jpeg, JPEG_APP0 + 1, 0xFFFF);
        jpeg_save_markers(&jpeg, JPEG_APP0 + 2, 0xFFFF);
        jpeg_read_header(&jpeg, TRUE);
    }
    ~Decoder() { jpeg_destroy_decompress(&jpeg); }

    void readRows(unsigned count) {
        std::vector<JSAMPLE> row(static_cast<std::size_t>(jpeg.output_width) * 4);
        JSAMPROW rows[] = {row.data()};
        for (unsigned y = 0; y < count; ++y)
            jpeg_read_scanlines(&jpeg, rows, 1);
    }

    File file;
    jpeg_decompress_struct jpeg{};
    jpeg_error_mgr errors{};
};

} // namespace

bool readJpegHeader(const std::string& path) {
    return Decoder(path).jpeg.image_width > 0;
}

bool decodeJpeg(const std::string& path, int width, int height) {
    Decoder decoder(path);
    jpeg_decompress_struct& jpeg = decoder.jpeg;
    jpeg.scale_num = 1;
    jpeg.scale_denom = 8;
    while (jpeg.scale_denom > 1 && (jpeg.image_width / jpeg.scale_denom < static_cast<unsigned>(width) ||
                                    jpeg.image_height / jpeg.scale_denom < static_cast<unsigned>(height)))
        jpeg.scale_denom /= 2;
    jpeg.out_color_space = JCS_EXT_BGRX;
    jpeg_start_decompress(&jpeg);
    decoder.readRows(jpeg.output_height);
    return jpeg_finish_decompress(&jpeg);
}

bool decodeJpegPart(const std::string& path, int x, int y, int width, int height) {
    Decoder decoder(path);
    jpeg_decompress_struct& jpeg = decoder.jpeg;
    jpeg.out_color_space = JCS_EXT_BGRX;
    jpeg_start_decompress(&jpeg);
    auto left = static_cast<JDIMENSION>(x);
    auto columns = static_cast<JDIMENSION>(width);
    jpeg_crop_scanline(&jpeg, &left, &columns);
    jpeg_skip_scanlines(&jpeg, static_cast<JDIMENSION>(y));
    decoder.readRows(static_cast<unsigned>(height));
    jpeg_abort_decompress(&jpeg);
    return true;
}

bool encodeJpeg(const Pixels& pixels, const std::string& path) {
    const File file = open(path, "wb");
    if (!file) return false;
    jpeg_compress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    jpeg_stdio_dest(&jpeg, file.get());
    jpeg.image_width = static_cast<JDIMENSION>(pixels.width);
    jpeg.image_height = static_cast<JDIMENSION>(pixels.height);
    jpeg.input_components = 4;
    jpeg.in_color_space = JCS_EXT_BGRX;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, 90, TRUE);
    jpeg.comp_info[0].h_samp_factor = jpeg.comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(&jpeg, TRUE);
    for (int y = 0; y < pixels.height; ++y) {
        JSAMPROW row = const_cast<JSAMPROW>(pixels.row(y));
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    return true;
}

bool encodePng(const Pixels& pixels, const std::string& path) {
    const File file = open(path, "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (!file || setjmp(png_jmpbuf(png))) return false;
    png_init_io(png, file.get());
    png_set_IHDR(png, info, static_cast<png_uint_32>(pixels.width), static_cast<png_uint_32>(pixels.height), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_filler(png, 0, PNG_FILLER_AFTER);
    png_set_bgr(png);
    for (int y = 0; y < pixels.height; ++y)
        png_write_row(png, pixels.row(y));
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool encodeTiff(const Pixels& pixels, const std::string& path) {
    TIFF* tiff = TIFFOpen(path.c_str(), "w");
    if (!tiff) return false;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(pixels.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(pixels.height));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 16);
    std::vector<std::uint8_t> row(3 * static_cast<std::size_t>(pixels.width));
    for (int y = 0; y < pixels.height; ++y) {
        const std::uint8_t* source = pixels.row(y);
        for (std::size_t x = 0; x < static_cast<std::size_t>(pixels.width); ++x)
            for (std::size_t k = 0; k < 3; ++k)
                row[3 * x + k] = source[4 * x + 2 - k];
        TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y));
    }
    TIFFClose(tiff);
    return true;
}

bool makeProgressive(const std::string& path, const std::string& output) {
    Decoder decoder(path);
    jvirt_barray_ptr* coefficients = jpeg_read_coefficients(&decoder.jpeg);
    const File file = open(output, "wb");
    if (!file) return false;
    jpeg_compress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    jpeg_stdio_dest(&jpeg, file.get());
    jpeg_copy_critical_parameters(&decoder.jpeg, &jpeg);
    jpeg_simple_progression(&jpeg);
    jpeg_write_coefficients(&jpeg, coefficients);
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    return true;
}

} // namespace bench
