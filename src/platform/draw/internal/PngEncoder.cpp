#include "PictureEncoder.h"

#include "platform/draw/ColorSpace.h"
#include "platform/draw/DeepPixels.h"

#include <algorithm>
#include <bit>
#include <csetjmp>
#include <cstdio>
#include <functional>
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

struct Pixels {
    int width;
    int height;
    int bits;
    bool opaque;
    const ColorSpace& colorSpace;
    /// Writes the next row: red, green, blue, and alpha when not opaque, not premultiplied. False: there is none.
    std::function<bool(std::uint8_t* target)> nextRow;
};

bool compress(Compression& compression, png_structp png, png_infop info, const Pixels& pixels, Bytes& exif,
              std::uint8_t* target) {
    if (setjmp(compression.onError)) return false;
    png_set_write_fn(png, &compression, writeBytes, flushNothing);
    png_set_IHDR(png, info, static_cast<png_uint_32>(pixels.width), static_cast<png_uint_32>(pixels.height),
                 pixels.bits, pixels.opaque ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    const base::Data& profile = pixels.colorSpace.iccData();
    if (!profile.empty())
        png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, profile.bytes.data(),
                     static_cast<png_uint_32>(profile.size()));
    if (!exif.empty()) png_set_eXIf_1(png, info, static_cast<png_uint_32>(exif.size()), exif.data());
    png_write_info(png, info);
    if (pixels.bits == 16 && std::endian::native == std::endian::little) png_set_swap(png);
    for (int y = 0; y < pixels.height; ++y) {
        if (!pixels.nextRow(target)) return false;
        png_write_row(png, target);
    }
    png_write_end(png, nullptr); // given the chunks' description, it writes the EXIF one again
    return true;
}

base::Result<void> encode(const Pixels& pixels, const EncodingOptions& options, ByteSink& sink) {
    Compression compression{&sink, {}, {}};
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &compression, jumpOut, keepQuiet);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    bool done = false;
    if (info) {
        Bytes exif = options.exif;
        std::vector<std::uint8_t> target(4 * static_cast<std::size_t>(pixels.width * (pixels.bits / 8)));
        done = compress(compression, png, info, pixels, exif, target.data());
    }
    png_destroy_write_struct(&png, &info);
    if (!done) return base::failure(base::cocoaErrorDomain, 0, std::string("PNG: ") + compression.message);
    return {};
}

} // namespace

base::Result<void> encodePNG(const Bitmap& bitmap, const EncodingOptions& options, ByteSink& sink) {
    const auto fill = bitmap.isOpaque() ? opaqueRGBRow : straightRGBARow;
    int y = 0;
    const auto nextRow = [&](std::uint8_t* target) {
        fill(bitmap.row(y++), static_cast<std::size_t>(bitmap.width()), target);
        return true;
    };
    return encode({bitmap.width(), bitmap.height(), 8, bitmap.isOpaque(), *bitmap.colorSpace(), nextRow}, options,
                  sink);
}

base::Result<void> encodeDeepPNG(const Image& image, DeepPixelReader& rows, const EncodingOptions& options,
                                 ByteSink& sink) {
    const std::size_t components = image.isOpaque() ? 3 : 4;
    std::vector<std::uint16_t> rgba(4 * static_cast<std::size_t>(image.width()));
    base::Result<void> read;
    const auto nextRow = [&](std::uint8_t* target) {
        read = rows.readRow(rgba.data());
        auto* samples = reinterpret_cast<std::uint16_t*>(target);
        for (std::size_t i = 0; i < rgba.size(); i += 4, samples += components) {
            std::copy_n(&rgba[i], components, samples);
            for (std::size_t k = 0; components == 4 && k < 3; ++k)
                samples[k] = unpremultiplied(rgba[i + k], rgba[i + 3]);
        }
        return read.has_value();
    };
    const auto encoded =
        encode({image.width(), image.height(), 16, image.isOpaque(), *deepColorSpace(image), nextRow}, options, sink);
    return read ? encoded : read;
}

void opaqueRGBRow(const std::uint8_t* row, std::size_t count, std::uint8_t* target) {
    for (std::size_t pixel = 0; pixel < count; ++pixel, row += 4, target += 3) {
        const int light = 255 - row[3];
        for (int channel = 0; channel < 3; ++channel)
            target[channel] = static_cast<std::uint8_t>(std::min(row[2 - channel] + light, 255));
    }
}

} // namespace platform::draw
