// The inner loops of colour filters, in the widest vector instructions of the processor at hand, over rows of
// interleaved red, green, blue, alpha as floats. Pure functions; any thread. Rows may be read and written up to
// kernelSlackPixels pixels beyond their end.
#pragma once

#include "ColorSteps.h"

#include <cstddef>

namespace platform::filter {

inline constexpr std::size_t kernelSlackPixels = 16;

void applyMatrix(const MatrixStep& matrix, float* rgba, std::size_t count);

/// Colours are raised to the power, alpha stays. Results beyond 65504 are cut to it.
void applyPower(float power, float* rgba, std::size_t count);

/// out[x] = scales[x] x sum over t of in[x + t] x weights[t], for t below taps.
void blurRow(const float* in, const float* weights, std::size_t taps, const float* scales, float* out,
             std::size_t count);

/// out[x] = sum over t of rows[t][x] x weights[t].
void blurColumns(const float* const* rows, const float* weights, std::size_t taps, float* out, std::size_t count);

} // namespace platform::filter
