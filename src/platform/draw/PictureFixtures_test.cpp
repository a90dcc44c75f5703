#include "internal/PictureFixtures.h"

#include "platform/draw/ImageSource.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <numbers>
#include <stdexcept>

#include <jpeglib.h>

#include <png.h>
#include <tiffio.h>

namespace fixtures {

namespace {

std::uint8_t byteOf(double value) {
    return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

std::uint8_t grayOf(const std::uint8_t* pixel) {
    return byteOf(0.299 * pixel[0] + 0.587 * pixel[1] + 0.114 * pixel[2]);
}

/// Ink by the plain formula with full black removal; 255 is full ink.
std::array<std::uint8_t, 4> inkOf(const std::uint8_t* pixel) {
    const int light = std::max({pixel[0], pixel[1], pixel[2]});
    std::array<std::uint8_t, 4> ink{0, 0, 0, static_cast<std::uint8_t>(255 - light)};
    for (std::size_t k = 0; k < 3 && light > 0; ++k)
        ink[k] = byteOf(255.0 * (light - pixel[k]) / light);
    return ink;
}

double lanczos(double x) {
    x = std::abs(x);
    if (x < 1e-12) return 1;
    if (x >= 3) return 0;
    const double angle = std::numbers::pi * x;
    return 3 * std::sin(angle) * std::sin(angle / 3) / (angle * angle);
}

/// The samples first, first + 1... with these weights make one output.
struct Taps {
    int first = 0;
    std::vector<double> weights;
};

std::vector<Taps> referenceTaps(int size, int newSize) {
    const double step = static_cast<double>(size) / newSize;
    const double stretch = std::max(1.0, step);
    std::vector<Taps> all;
    for (int i = 0; i < newSize; ++i) {
        const double center = (i + 0.5) * step;
        Taps taps;
        taps.first = std::max(0, static_cast<int>(center - 3 * stretch) - 1);
        double sum = 0;
        for (int j = taps.first; j < std::min(size, static_cast<int>(center + 3 * stretch) + 2); ++j) {
            taps.weights.push_back(lanczos((j + 0.5 - center) / stretch));
            sum += taps.weights.back();
        }
        for (double& weight : taps.weights)
            weight /= sum;
        all.push_back(std::move(taps));
    }
    return all;
}

} // namespace

Pixels Pixels::of(int width, int height, const Formula& formula) {
    Pixels pixels{width, height, std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 3)};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Color color = formula(x, y);
            for (std::size_t k = 0; k < 3; ++k)
                pixels.at(x, y)[k] = byteOf(color[k]);
        }
    return pixels;
}

Color photographLike(double x, double y) {
    const double detail = 20 * std::sin(x * 0.9 + y * 0.3) * std::cos(y * 0.7 - x * 0.1);
    const double slope = 90 + 60 * std::sin(x / 41) + 40 * std::cos(y / 29);
    const double edge = std::hypot(x - 80, y - 60) < 40 ? 45 : 0;
    return {slope + edge + detail, 128 + 50 * std::sin((x + y) / 37) + detail * 0.8 - edge,
            110 + 60 * std::cos(x / 53 - y / 31) + detail * 0.6};
}

base::Data jpegOf(const Pixels& pixels, const JpegOptions& options) {
    jpeg_compress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_compress(&jpeg);
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&jpeg, &memory, &size);
    jpeg.image_width = static_cast<JDIMENSION>(pixels.width);
    jpeg.image_height = static_cast<JDIMENSION>(pixels.height);
    const bool ink = options.colors == JpegColors::cmyk || options.colors == JpegColors::ycck;
    jpeg.input_components = ink ? 4 : 3;
    jpeg.in_color_space = ink ? JCS_CMYK : JCS_RGB;
    jpeg_set_defaults(&jpeg);
    constexpr std::array spaces{JCS_YCbCr, JCS_RGB, JCS_GRAYSCALE, JCS_CMYK, JCS_YCCK};
    jpeg_set_colorspace(&jpeg, spaces[static_cast<std::size_t>(options.colors)]);
    jpeg_set_quality(&jpeg, options.quality, TRUE);
    if (options.colors == JpegColors::yCbCr || options.colors == JpegColors::ycck) {
        jpeg.comp_info[0].h_samp_factor = options.horizontalSampling;
        jpeg.comp_info[0].v_samp_factor = options.verticalSampling;
        if (ink) {
            jpeg.comp_info[3].h_samp_factor = options.horizontalSampling;
            jpeg.comp_info[3].v_samp_factor = options.verticalSampling;
        }
    }
    jpeg.restart_interval = static_cast<unsigned>(options.restartInterval);
    if (ink && !options.adobeMarker) jpeg.write_Adobe_marker = FALSE;
    if (options.progressive) jpeg_simple_progression(&jpeg);
    jpeg_start_compress(&jpeg, TRUE);
    if (!options.exif.empty())
        jpeg_write_marker(&jpeg, JPEG_APP0 + 1, options.exif.data(), static_cast<unsigned>(options.exif.size()));
    if (!options.profile.empty())
        jpeg_write_icc_profile(&jpeg, options.profile.data(), static_cast<unsigned>(options.profile.size()));
    std::vector<std::uint8_t> row(static_cast<std::size_t>(pixels.width) * 4);
    for (int y = 0; y < pixels.height; ++y) {
        for (int x = 0; x < pixels.width && ink; ++x) {
            const auto colors = inkOf(pixels.at(x, y));
            for (std::size_t k = 0; k < 4; ++k)
                row[4 * static_cast<std::size_t>(x) + k] =
                    options.adobeMarker ? static_cast<std::uint8_t>(255 - colors[k]) : colors[k];
        }
        if (!ink) std::memcpy(row.data(), pixels.at(0, y), static_cast<std::size_t>(pixels.width) * 3);
        JSAMPROW pointer = row.data();
        jpeg_write_scanlines(&jpeg, &pointer, 1);
    }
    jpeg_finish_compress(&jpeg);
    jpeg_destroy_compress(&jpeg);
    base::Data data(std::vector<std::uint8_t>(memory, memory + size));
    std::free(memory);
    return data;
}

Pixels decodedJpeg(const base::Data& data) {
    jpeg_decompress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&jpeg);
    jpeg_mem_src(&jpeg, data.bytes.data(), data.size());
    jpeg_read_header(&jpeg, TRUE);
    jpeg.out_color_space = JCS_RGB;
    jpeg_start_decompress(&jpeg);
    Pixels pixels{static_cast<int>(jpeg.output_width), static_cast<int>(jpeg.output_height), {}};
    pixels.bytes.resize(static_cast<std::size_t>(pixels.width) * pixels.height * 3);
    while (jpeg.output_scanline < jpeg.output_height) {
        JSAMPROW row = pixels.at(0, static_cast<int>(jpeg.output_scanline));
        jpeg_read_scanlines(&jpeg, &row, 1);
    }
    jpeg_destroy_decompress(&jpeg);
    return pixels;
}

base::Data pngOf(const Pixels& pixels, const PngOptions& options) {
    base::Data data;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &data,
        [](png_structp writer, png_bytep bytes, std::size_t count) {
            auto& target = static_cast<base::Data*>(png_get_io_ptr(writer))->bytes;
            target.insert(target.end(), bytes, bytes + count);
        },
        [](png_structp) {});
    constexpr std::array types{PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGBA, PNG_COLOR_TYPE_GRAY};
    png_set_IHDR(png, info, static_cast<png_uint_32>(pixels.width), static_cast<png_uint_32>(pixels.height),
                 options.bits, types[static_cast<std::size_t>(options.colors)],
                 options.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    std::vector<std::vector<std::uint8_t>> rows;
    for (int y = 0; y < pixels.height; ++y) {
        std::vector<std::uint8_t> row;
        const auto put = [&](std::uint8_t value) {
            row.push_back(value);
            if (options.bits == 16) row.push_back(value); // 257 times the value
        };
        for (int x = 0; x < pixels.width; ++x) {
            const std::uint8_t* pixel = pixels.at(x, y);
            if (options.colors == PngColors::gray)
                put(grayOf(pixel));
            else
                for (int k = 0; k < 3; ++k)
                    put(pixel[k]);
            if (options.colors == PngColors::rgba) put(pixel[0]);
        }
        rows.push_back(std::move(row));
    }
    std::vector<png_bytep> pointers;
    for (auto& row : rows)
        pointers.push_back(row.data());
    png_write_image(png, pointers.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return data;
}

base::Data tiffOf(const Pixels& pixels, const TiffOptions& options) {
    const support::TemporaryDirectory folder;
    const std::string name = folder / "a.tiff";
    TIFF* tiff = TIFFOpen(name.c_str(), "w");
    for (int page = 0; page < options.pages; ++page) {
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, pixels.width);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, pixels.height);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
        TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_RIGHTTOP);
        if (options.tiled) {
            constexpr int side = 64;
            TIFFSetField(tiff, TIFFTAG_TILEWIDTH, side);
            TIFFSetField(tiff, TIFFTAG_TILELENGTH, side);
            for (int top = 0; top < pixels.height; top += side)
                for (int left = 0; left < pixels.width; left += side) {
                    std::vector<std::uint8_t> tile(std::size_t{3} * side * side);
                    for (int y = 0; y < std::min(side, pixels.height - top); ++y)
                        std::copy_n(pixels.at(left, top + y), 3 * std::min(side, pixels.width - left),
                                    &tile[std::size_t{3} * side * static_cast<std::size_t>(y)]);
                    TIFFWriteTile(tiff, tile.data(), left, top, 0, 0);
                }
        } else {
            TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 16);
            for (int y = 0; y < pixels.height; ++y) {
                std::vector<std::uint8_t> row(pixels.at(0, y), pixels.at(0, y) + std::size_t{3} * pixels.width);
                TIFFWriteScanline(tiff, row.data(), y, 0);
            }
        }
        TIFFWriteDirectory(tiff);
    }
    TIFFClose(tiff);
    return base::Data(support::readFile(name));
}

std::vector<std::uint8_t> bytesOfProfile(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<std::uint8_t> bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    return bytes;
}

std::vector<std::uint8_t> profileOf(cmsCIExyY red, cmsCIExyY green, cmsCIExyY blue) {
    const cmsCIExyY white{0.3127, 0.3290, 1};
    const cmsCIExyYTRIPLE primaries{red, green, blue};
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 2.2);
    cmsToneCurve* const curves[]{curve, curve, curve};
    auto bytes = bytesOfProfile(cmsCreateRGBProfile(&white, &primaries, curves));
    cmsFreeToneCurve(curve);
    return bytes;
}

std::vector<double> reference(const Pixels& pixels, int left, int top, int width, int height, int newWidth,
                              int newHeight) {
    const std::vector<Taps> across = referenceTaps(width, newWidth);
    const std::vector<Taps> down = referenceTaps(height, newHeight);
    const auto rowSize = static_cast<std::size_t>(newWidth) * 3;
    std::vector<double> rows;
    for (int y = 0; y < height; ++y)
        for (const Taps& taps : across)
            for (int k = 0; k < 3; ++k) {
                double sum = 0;
                const std::uint8_t* sample = pixels.at(left + taps.first, top + y) + k;
                for (const double weight : taps.weights) {
                    sum += weight * *sample;
                    sample += 3;
                }
                rows.push_back(sum);
            }
    std::vector<double> result;
    for (const Taps& taps : down)
        for (std::size_t i = 0; i < rowSize; ++i) {
            double sum = 0;
            const double* sample = rows.data() + static_cast<std::size_t>(taps.first) * rowSize + i;
            for (std::size_t t = 0; t < taps.weights.size(); ++t)
                sum += taps.weights[t] * sample[t * rowSize];
            result.push_back(sum);
        }
    return result;
}

void expectCutOffFilesFail(const base::Data& file) {
    const auto whole = platform::draw::ImageSource::createWithData(file);
    ASSERT_TRUE(whole) << whole.error().localizedDescription;
    int failures = 0;
    for (std::size_t percent = 0; percent <= 100; ++percent) {
        SCOPED_TRACE(std::string((*whole)->typeIdentifier()) + " " + std::to_string(percent) + " %");
        base::Data cut = file;
        cut.bytes.resize(percent == 100 ? file.size() - 1 : file.size() * percent / 100);
        const auto source = platform::draw::ImageSource::createWithData(cut);
        failures += !source;
        for (std::size_t i = 0; source && i < (*source)->count(); ++i) {
            const auto bitmap = (*source)->imageAtIndex(i)->bitmap();
            failures += i == 0 && !bitmap;
            if (!bitmap) {
                EXPECT_NE(bitmap.error().localizedDescription, "");
                continue;
            }
            const auto wanted = *(*whole)->imageAtIndex(i)->bitmap();
            ASSERT_TRUE(bitmap->width() == wanted.width() && bitmap->height() == wanted.height());
            for (int y = 0; y < wanted.height(); ++y)
                ASSERT_TRUE(std::equal(wanted.row(y), wanted.row(y) + 4 * wanted.width(), bitmap->row(y))) << i;
        }
    }
    EXPECT_GT(failures, 10) << (*whole)->typeIdentifier();
}

double likeness(const platform::draw::Bitmap& bitmap, const std::vector<double>& wanted) {
    if (wanted.size() != static_cast<std::size_t>(bitmap.width()) * bitmap.height() * 3)
        throw std::invalid_argument("pictures of different sizes");
    double sum = 0;
    std::size_t index = 0;
    for (int y = 0; y < bitmap.height(); ++y)
        for (int x = 0; x < bitmap.width(); ++x)
            for (int k = 0; k < 3; ++k) {
                const double error = bitmap.row(y)[4 * x + 2 - k] - std::clamp(wanted[index++], 0.0, 255.0);
                sum += error * error;
            }
    return 10 * std::log10(255.0 * 255.0 * static_cast<double>(wanted.size()) / std::max(sum, 1e-9));
}

} // namespace fixtures
