// What colour filters do, reduced to three kinds of step, all in linear light with sRGB's primaries, not premultiplied.
// Filters in a row become a list of steps; neighbouring matrices become one. Values; any thread.
#pragma once

#include <array>
#include <variant>
#include <vector>

namespace platform::filter {

/// The luminance of linear light with sRGB's primaries.
inline constexpr std::array<double, 3> luminanceWeights{0.2126, 0.7152, 0.0722};

/// Each component becomes a sum of red, green, blue, alpha and 1, weighted by its row.
struct MatrixStep {
    std::array<std::array<double, 5>, 4> rows{{{1, 0, 0, 0, 0}, {0, 1, 0, 0, 0}, {0, 0, 1, 0, 0}, {0, 0, 0, 1, 0}}};

    /// The step that does `first` and then this one.
    MatrixStep after(const MatrixStep& first) const;
    bool touchesAlpha() const;
    friend bool operator==(const MatrixStep&, const MatrixStep&) = default;
};

/// Each colour is raised to the power; below zero it counts as zero.
struct PowerStep {
    double power = 1;
};

/// Luminance moves away from its Gaussian mean, colours along with it, so that only lightness changes.
struct SharpenStep {
    double sharpness = 0; ///< How much of the difference is added.
    double radius = 0;    ///< The standard deviation in pixels.

    /// Pixels on each side that take part.
    int reach() const;
    /// Weights of 2 reach() + 1 neighbours, whose sum is 1.
    std::vector<float> weights() const;
};

using ColorStep = std::variant<MatrixStep, PowerStep, SharpenStep>;
using ColorSteps = std::vector<ColorStep>;

/// Whether the step leaves every pixel as it is.
bool changesNothing(const ColorStep& step);
/// Appends, joined with the last one when both are matrices.
void append(ColorSteps& steps, const ColorStep& step);

} // namespace platform::filter
