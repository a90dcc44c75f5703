#include "ColorSteps.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace platform::filter {

namespace {

/// Keeps products of absurd inputs finite, in float as well.
constexpr double largestCoefficient = 1e18;
constexpr double largestRadius = 20;
/// The Gaussian is cut where it has fallen to a hundredth.
constexpr double deviationsReached = 3;

} // namespace

MatrixStep MatrixStep::after(const MatrixStep& first) const {
    MatrixStep result;
    for (std::size_t row = 0; row < 4; ++row)
        for (std::size_t column = 0; column < 5; ++column) {
            double sum = column == 4 ? rows[row][4] : 0;
            for (std::size_t k = 0; k < 4; ++k)
                sum += rows[row][k] * first.rows[k][column];
            result.rows[row][column] = std::clamp(sum, -largestCoefficient, largestCoefficient);
        }
    return result;
}

bool MatrixStep::touchesAlpha() const {
    return rows[3] != MatrixStep().rows[3];
}

int SharpenStep::reach() const {
    return static_cast<int>(std::ceil(deviationsReached * std::min(radius, largestRadius)));
}

std::vector<float> SharpenStep::weights() const {
    const double deviation = std::min(radius, largestRadius);
    std::vector<float> weights;
    for (int at = -reach(); at <= reach(); ++at)
        weights.push_back(static_cast<float>(std::exp(-0.5 * at * at / (deviation * deviation))));
    const float sum = std::accumulate(weights.begin(), weights.end(), 0.0F);
    for (float& weight : weights)
        weight /= sum;
    return weights;
}

bool changesNothing(const ColorStep& step) {
    if (const auto* matrix = std::get_if<MatrixStep>(&step)) return *matrix == MatrixStep();
    if (const auto* power = std::get_if<PowerStep>(&step)) return power->power == 1;
    const auto& sharpen = std::get<SharpenStep>(step);
    return sharpen.sharpness == 0 || sharpen.radius <= 0;
}

void append(ColorSteps& steps, const ColorStep& step) {
    const auto* matrix = std::get_if<MatrixStep>(&step);
    auto* last = steps.empty() ? nullptr : std::get_if<MatrixStep>(&steps.back());
    if (matrix && last)
        *last = matrix->after(*last);
    else
        steps.push_back(step);
}

} // namespace platform::filter
