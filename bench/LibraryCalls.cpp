#include "LibraryCalls.h"

#include "JpegFiles.h"

#include <png.h>
#include <tiffio.h>

namespace bench {

namespace {

void readRows(JpegInput& input, unsigned count) {
    std::vector<JSAMPLE> row(static_cast<std::size_t>(input.jpeg.output_width) * 4);
    JSAMPROW rows[] = {row.data()};
    for (unsigned y = 0; y < count; ++y)
        jpeg_read_scanlines(&input.jpeg, rows, 1);
}

} // namespace

bool readJpegHeader(const std::string& path) {
    const JpegInput input(path);
    return input.file && input.jpeg.image_width > 0;
}

bool decodeJpeg(const std::string& path, int width, int height) {
    JpegInput input(path);
    if (!input.file) return false;
    input.start(width, height, JCS_EXT_BGRX);
    readRows(input, input.jpeg.output_height);
    return jpeg_finish_decompress(&input.jpeg);
}

bool decodeJpegPart(const std::string& path, int x, int y, int width, int height) {
    JpegInput input(path);
    if (!input.file) return false;
    jpeg_decompress_struct& jpeg = input.jpeg;
    jpeg.out_color_space = JCS_EXT_BGRX;
    jpeg_start_decompress(&jpeg);
    auto left = static_cast<JDIMENSION>(x);
    auto columns = static_cast<JDIMENSION>(width);
    jpeg_crop_scanline(&jpeg, &left, &columns);
    jpeg_skip_scanlines(&jpeg, static_cast<JDIMENSION>(y));
    readRows(input, static_cast<unsigned>(height));
    jpeg_abort_decompress(&jpeg);
    return true;
}

bool encodeJpeg(const Pixels& pixels, const std::string& path) {
    JpegOutput output(path);
    if (!output.file) return false;
    jpeg_compress_struct& jpeg = output.jpeg;
    output.describe(pixels.width, pixels.height, 4, JCS_EXT_BGRX);
    jpeg.comp_info[0].h_samp_factor = jpeg.comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(&jpeg, TRUE);
    for (int y = 0; y < pixels.height; ++y) {
        JSAMPROW row = const_cast<JSAMPROW>(pixels.row(y));
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    return true;
}

bool encodePng(const Pixels& pixels, const std::string& path) {
    const File file(std::fopen(path.c_str(), "wb"));
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
    JpegInput input(path);
    JpegOutput written(output);
    if (!input.file || !written.file) return false;
    jvirt_barray_ptr* coefficients = jpeg_read_coefficients(&input.jpeg);
    jpeg_copy_critical_parameters(&input.jpeg, &written.jpeg);
    jpeg_simple_progression(&written.jpeg);
    jpeg_write_coefficients(&written.jpeg, coefficients);
    jpeg_finish_compress(&written.jpeg);
    return true;
}

} // namespace bench
