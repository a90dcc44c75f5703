// The weights of a Lanczos-3 filter along one axis, in 16-bit integers. Plain values, made once for each drawing.
#pragma once

#include <cstdint>
#include <vector>

namespace platform::draw {

/// The sum of the weights of each position is exactly this.
inline constexpr int weightOne = 1 << 14;

/// How the samples of a plane lie under the picture's grid: a chroma plane has fewer of them.
struct Subsampling {
    int numerator = 1; ///< Grid positions for each `denominator` samples.
    int denominator = 1;
    /// The decoder's smooth enlargement (3/4 of the near sample, 1/4 of the next one, for a factor of two) rather than
    /// plain repetition. It is made part of the weights, so that nothing is ever enlarged.
    bool triangle = false;
    friend bool operator==(const Subsampling&, const Subsampling&) = default;
};

/// A stretch of the grid, `from` to `from + length` in grid positions, spread over `outputLength` positions.
struct AxisMapping {
    double from = 0;
    double length = 0;
    double outputLength = 0; ///< May have fractions.
    double outputPhase = 0;  ///< Where the stretch begins in the output's own grid of whole positions, 0 to below 1.
    int first = 0;           ///< The whole output positions wanted.
    int count = 0;
    int gridSize = 0; ///< Samples outside the grid or outside the stretch are never used.
};

struct AxisWeights {
    struct Position {
        int start = 0; ///< The first sample used.
        int count = 0;
        int offset = 0; ///< Into `weights`; followed there by zeros up to a multiple of 8.
    };
    std::vector<Position> positions;
    std::vector<std::int16_t> weights;
    int begin = 0; ///< All samples used are in begin to below end.
    int end = 0;
};

/// `samples` is the number of samples of the plane that lie under the grid.
AxisWeights axisWeights(const AxisMapping& mapping, const Subsampling& subsampling, int samples);

} // namespace platform::draw
