// The inner loops of resampling, in the widest vector instructions of the processor at hand. Between the two passes
// and after them samples are 16-bit integers with 6 binary places (64 is one step of an 8-bit component), so that
// overshoots fit and rounding shows nowhere. Pure functions; any thread.
#pragma once

#include "ResampleWeights.h"

#include <cstddef>
#include <cstdint>

namespace platform::draw {

inline constexpr int sampleFractionBits = 6;

/// Every buffer of samples that these functions read may be read this many bytes beyond its end.
inline constexpr std::size_t kernelSlack = 128;

/// out[i] = sum over t of rows[t][i] x weights[t], for i below samples. `weights` is followed by a zero when count is
/// odd.
void filterColumns(const std::uint8_t* const* rows, const std::int16_t* weights, int count, std::size_t samples,
                   std::int16_t* out);

/// One output sample for each position of the axis. `in` is the sample of index 0; weights as axisWeights makes them.
void filterRow(const std::int16_t* in, const AxisWeights& axis, std::int16_t* out);
/// The same for pixels of four interleaved samples.
void filterRow4(const std::int16_t* in, const AxisWeights& axis, std::int16_t* out);

/// Samples with 6 binary places to bytes, in the order of a Bitmap where they are pixels.
void storeYCbCr(const std::int16_t* y, const std::int16_t* cb, const std::int16_t* cr, std::size_t pixels,
                std::uint8_t* out);
void storeRGB(const std::int16_t* red, const std::int16_t* green, const std::int16_t* blue, std::size_t pixels,
              std::uint8_t* out);
void storePlain(const std::int16_t* in, std::size_t samples, std::uint8_t* out);

/// The same as half pixels: red, green, blue, alpha; full is 1. Overshoots stay, save those of alpha.
void storeHalfYCbCr(const std::int16_t* y, const std::int16_t* cb, const std::int16_t* cr, std::size_t pixels,
                    std::uint16_t* out);
void storeHalfRGB(const std::int16_t* red, const std::int16_t* green, const std::int16_t* blue, std::size_t pixels,
                  std::uint16_t* out);
/// Of pixels of four samples, blue first; reads up to twice the slack beyond the end.
void storeHalfPlain(const std::int16_t* in, bool opaque, std::size_t pixels, std::uint16_t* out);

} // namespace platform::draw
