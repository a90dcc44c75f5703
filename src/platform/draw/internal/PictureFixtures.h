// Pictures for tests, made by the formats' own libraries from a formula, and a plain full-precision reduction to judge
// ours by.
#pragma once

#include "base/Value.h"
#include "platform/draw/Bitmap.h"

#include <array>
#include <cstdint>
#include <functional>
#include <lcms2.h>
#include <vector>

namespace fixtures {

using Color = std::array<double, 3>;                  ///< Red, green, blue, 0 to 255.
using Formula = std::function<Color(double, double)>; ///< Of the position in pixels.

/// Red, green and blue bytes, rows from the top.
struct Pixels {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bytes;

    static Pixels of(int width, int height, const Formula& formula);
    const std::uint8_t* at(int x, int y) const { return &bytes[3 * (static_cast<std::size_t>(y) * width + x)]; }
    std::uint8_t* at(int x, int y) { return &bytes[3 * (static_cast<std::size_t>(y) * width + x)]; }
};

/// Gradients, an edge, and fine detail that is different in every row and column.
Color photographLike(double x, double y);

enum class JpegColors { yCbCr, rgb, gray, cmyk, ycck };

struct JpegOptions {
    JpegColors colors = JpegColors::yCbCr;
    int horizontalSampling = 2; ///< Of the first component; the others have 1.
    int verticalSampling = 2;
    int quality = 95;
    bool progressive = false;
    bool adobeMarker = true; ///< Of CMYK files, whose values it inverts.
    int restartInterval = 0;
    std::vector<std::uint8_t> profile;
    std::vector<std::uint8_t> exif; ///< With its "Exif" mark.
};
base::Data jpegOf(const Pixels& pixels, const JpegOptions& options = {});
/// The whole picture at full size by the library alone.
Pixels decodedJpeg(const base::Data& jpeg);

enum class PngColors { rgb, rgba, gray };
struct PngOptions {
    PngColors colors = PngColors::rgb;
    int bits = 8;
    bool interlaced = false;
};
/// The alpha of a pixel is its red component.
base::Data pngOf(const Pixels& pixels, const PngOptions& options = {});

struct TiffOptions {
    bool tiled = false;
    int pages = 1; ///< All the same.
};
/// RGB of 8 bits with orientation 6.
base::Data tiffOf(const Pixels& pixels, const TiffOptions& options = {});

/// The bytes of a profile, which is closed.
std::vector<std::uint8_t> bytesOfProfile(cmsHPROFILE profile);
/// With the white of sRGB, a gamma of 2.2 and these primaries.
std::vector<std::uint8_t> profileOf(cmsCIExyY red, cmsCIExyY green, cmsCIExyY blue);

/// The part of `pixels` reduced or enlarged by Lanczos-3 in full precision, unrounded: red, green, blue in turn.
std::vector<double> reference(const Pixels& pixels, int x, int y, int width, int height, int newWidth, int newHeight);

/// Cut off at each hundredth of its length and before its last byte, a file must fail with a message, save where each
/// of its pictures is what it is in the whole one.
void expectCutOffFilesFail(const base::Data& file);

/// The ratio of the largest value to the mean error, in decibels.
double likeness(const platform::draw::Bitmap& bitmap, const std::vector<double>& wanted);

} // namespace fixtures
