// The inner loops of what computes with pixels in floats: resampling of half rows, and colours in linear light. In the
// widest vector instructions of the processor at hand. Pure functions; any thread. Sizes count floats or pixels of
// four.
#pragma once

#include "ResampleWeights.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform::draw {

void floatsOfHalves(const std::uint16_t* halves, std::size_t count, float* out);
void halvesOfFloats(const float* floats, std::size_t count, std::uint16_t* out);

/// out[i] = sum over t of rows[t][i] x weights[t] / weightOne.
void filterFloatColumns(const float* const* rows, const std::int16_t* weights, int taps, std::size_t count, float* out);
/// One output pixel for each position of the axis. `in` is the pixel of index 0.
void filterFloatRow4(const float* in, const AxisWeights& axis, float* out);

/// A curve from linear light to coded values, as a table whose steps are a 256th of a binade. Straight below the first
/// entry, mirrored below zero, constant beyond the last one.
struct CodeCurve {
    static constexpr int lowestExponent = -24;
    static constexpr int highestExponent = 6;
    static constexpr int stepsPerBinade = 256;
    static constexpr std::size_t size = (highestExponent - lowestExponent) * stepsPerBinade + 1;
    /// The light of an entry.
    static double lightAt(std::size_t index);
    std::vector<float> values; ///< `size` of them, and one more that repeats the last.
};

using Matrix3 = std::array<float, 9>; ///< By rows.

/// Colours times the matrix, alpha as it is. `in` and `out` may be the same.
void applyMatrix(const float* in, const Matrix3& matrix, std::size_t pixels, float* out);
/// Each colour by its curve, alpha as it is. `in` and `out` may be the same.
void codeLight(const float* in, const CodeCurve* const (&curves)[3], std::size_t pixels, float* out);

/// Colours over a cube of points, the last axis varying first: red, green, blue and a fourth without meaning.
struct ColorTable {
    std::array<int, 3> points{}; ///< Along each axis, at least 2.
    std::vector<float> nodes;
};

/// Each colour looked up, its components as places along the axes, 0 to 1 (cut to that), between the eight points about
/// it; alpha as it is. `in` and `out` may be the same.
void interpolate(const float* in, const ColorTable& table, std::size_t pixels, float* out);

/// Pixels that are not premultiplied as samples that are. Whole numbers are rounded and cut to their range; of half
/// ones only alpha is cut.
void storeBytes(const float* in, bool blueFirst, std::size_t pixels, std::uint8_t* out);
void storeWords(const float* in, std::size_t pixels, std::uint16_t* out);
void storeHalves(const float* in, std::size_t pixels, std::uint16_t* out);

} // namespace platform::draw
