#include "PictureEncoder.h"

#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <png.h>

namespace platform::draw {
namespace {

struct Compression {
    ByteSink* sink;
    std::jmp_buf onError;
    char message[128];
};

// The library's errors jump: nothing with a destructor may live between.
[[noreturn]] void jumpOut(png_structp png, png_const_charp message) {
    auto& compression = *static_cast<Compression*>(png_get_error_ptr(png));
    std::snprintf(compression.message, sizeof compression.message, "%s", message);
    std::longjmp(compression.onError, 1);
}
void keepQuiet(png_structp, png_const_charp) {}

void writeBytes(png_structp png, png_bytep bytes, std::size_t count) {
    static_cast<Compression*>(png_get_io_ptr(png))->sink->write(bytes, count);
}
void flushNothing(png_structp) {}

void straightRGBARow(const std::uint8_t* row, std::size_t count, std::uint8_t* target) {
    for (std::size_t pixel = 0; pixel < count; ++pixel, row += 4, target += 4) {
        const int alpha = row[3];
        for (int channel = 0; channel < 3; ++channel)
            target[channel] =
                alpha == 0 ? 0 : static_cast<std::uint8_t>(std::min((row[2 - channel] * 255 + alpha / 2) / alpha, 255));
        target[3] = static_cast<std::uint8_t>(alpha);
    }
}

bool compress(Compression& compression, png_structp png, png_infop info, const Bitmap& bitmap, Bytes& exif,
              std::uint8_t* target) {
    if (setjmp(compression.onError)) return false;
    const bool opaque = bitmap.isOpaque();
    const auto width = static_cast<png_uint_32>(bitmap.width());
    png_set_write_fn(png, &compression, writeBytes, flushNothing);
    png_set_IHDR(png, info, width, static_cast<png_uint_32>(bitmap.height()), 8,
                 opaque ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    const base::Data& profile = bitmap.colorSpace()->iccData();
    if (!profile.empty())
        png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, profile.bytes.data(),
                     static_cast<png_uint_32>(profile.size()));
    if (!exif.empty()) png_set_eXIf_1(png, info, static_cast<png_uint_32>(exif.size()), exif.data());
    png_write_info(png, info);
    for (int y = 0; y < bitmap.height(); ++y) {
        if (opaque)
            opaqueRGBRow(bitmap.row(y), width, target);
        else
            straightRGBARow(bitmap.row(y), width, target);
        png_write_row(png, target);
    }
    png_write_end(png, nullptr); // given the chunks' description, it writes the EXIF one again
    return true;
}

} // namespace

base::Result<void> encodePNG(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    Compression compression{&sink, {}, {}};
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &compression, jumpOut, keepQuiet);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    bool done = false;
    if (info) {
        Bytes exif = options.exif;
        std::vector<std::uint8_t> target(4 * static_cast<std::size_t>(bitmap.width()));
        done = compress(compression, png, info, bitmap, exif, target.data());
    }
    png_destroy_write_struct(&png, &info);
    if (!done) return base::failure(base::cocoaErrorDomain, 0, std::string("PNG: ") + compression.message);
    return {};
}

void opaqueRGBRow(const std::uint8_t* row, std::size_t count, std::uint8_t* target) {
    for (std::size_t pixel = 0; pixel < count; ++pixel, row += 4, target += 3) {
        const int light = 255 - row[3];
        for (int channel = 0; channel < 3; ++channel)
            target[channel] = static_cast<std::uint8_t>(std::min(row[2 - channel] + light, 255));
    }
}

} // namespace platform::draw
