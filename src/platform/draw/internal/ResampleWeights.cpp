#include "ResampleWeights.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace platform::draw {

namespace {

constexpr double lobes = 3;

double exactLanczos(double x) {
    if (x < 1e-9) return 1;
    if (x >= lobes) return 0;
    const double angle = std::numbers::pi * x;
    return lobes * std::sin(angle) * std::sin(angle / lobes) / (angle * angle);
}

/// From a table with straight lines between its entries: a hundred times finer than a weight's last binary place.
double lanczos(double x) {
    constexpr int steps = 2048; // to one unit of x
    static const std::vector<double> table = [] {
        std::vector<double> values;
        for (int i = 0; i <= static_cast<int>(lobes) * steps + 1; ++i)
            values.push_back(exactLanczos(static_cast<double>(i) / steps));
        return values;
    }();
    x = std::abs(x) * steps;
    const auto index = static_cast<std::size_t>(x);
    if (index + 1 >= table.size()) return 0;
    return table[index] + (table[index + 1] - table[index]) * (x - static_cast<double>(index));
}

/// Weights of neighbouring samples, the first of which is `start`.
struct Kernel {
    int start = 0;
    std::vector<double> weights;

    void add(int sample, double weight) {
        const auto index = static_cast<std::size_t>(sample - start);
        if (index >= weights.size()) weights.resize(index + 1, 0.0);
        weights[index] += weight;
    }
};

/// The filter on the grid about `center`, within the positions low to below high.
Kernel gridKernel(double center, double stretch, int low, int high) {
    const double reach = lobes * stretch;
    int first = std::clamp(static_cast<int>(std::ceil(center - reach - 0.5)), low, high - 1);
    int last = std::clamp(static_cast<int>(std::floor(center + reach - 0.5)), first, high - 1);
    Kernel kernel{first, {}};
    double sum = 0;
    for (int i = first; i <= last; ++i) {
        kernel.weights.push_back(lanczos((i + 0.5 - center) / stretch));
        sum += kernel.weights.back();
    }
    if (std::abs(sum) < 1e-6) { // nothing but a tail lies inside: take the nearest
        std::fill(kernel.weights.begin(), kernel.weights.end(), 0.0);
        const int nearest = std::clamp(static_cast<int>(std::floor(center)), first, last);
        kernel.weights[static_cast<std::size_t>(nearest - first)] = sum = 1;
    }
    for (double& weight : kernel.weights)
        weight /= sum;
    return kernel;
}

/// The same filter expressed in samples of a plane that the decoder would first enlarge to the grid.
Kernel sampleKernel(const Kernel& grid, const Subsampling& subsampling, int samples) {
    const auto sampleAt = [&](int position) {
        const auto scaled = static_cast<std::int64_t>(position) * subsampling.denominator / subsampling.numerator;
        return static_cast<int>(std::clamp<std::int64_t>(scaled, 0, samples - 1));
    };
    Kernel kernel{std::max(0, sampleAt(grid.start) - (subsampling.triangle ? 1 : 0)), {}};
    for (std::size_t i = 0; i < grid.weights.size(); ++i) {
        const int position = grid.start + static_cast<int>(i);
        const int near = sampleAt(position);
        if (!subsampling.triangle) {
            kernel.add(near, grid.weights[i]);
            continue;
        }
        const int next = std::clamp(near + (position % 2 == 0 ? -1 : 1), 0, samples - 1);
        kernel.add(near, grid.weights[i] * 0.75);
        kernel.add(next, grid.weights[i] * 0.25);
    }
    return kernel;
}

/// Rounds so that the sum is exact: a constant picture stays constant.
std::vector<std::int16_t> quantized(const std::vector<double>& weights) {
    std::vector<std::int16_t> result(weights.size());
    int sum = 0;
    double carried = 0; // spreads the rounding errors over the neighbours rather than piling them on one weight
    for (std::size_t i = 0; i < weights.size(); ++i) {
        const double wanted = weights[i] * weightOne + carried;
        const double rounded = std::clamp(std::round(wanted), -32768.0, 32767.0);
        carried = wanted - rounded;
        result[i] = static_cast<std::int16_t>(rounded);
        sum += result[i];
    }
    auto largest = std::max_element(result.begin(), result.end());
    *largest = static_cast<std::int16_t>(*largest + weightOne - sum);
    return result;
}

} // namespace

AxisWeights axisWeights(const AxisMapping& mapping, const Subsampling& subsampling, int samples) {
    const double step = mapping.length / mapping.outputLength;
    const double stretch = std::max(1.0, step);
    // Counted from a place near the stretch, so that the weights do not depend, by the rounding of their last binary
    // place, on where the grid begins.
    const int unit = subsampling.numerator;
    const int origin = std::max(0, static_cast<int>(std::floor(mapping.from)) / unit - 1) * unit;
    const int firstSample = origin / unit * subsampling.denominator;
    const double from = mapping.from - origin;
    const int gridSize = mapping.gridSize - origin;
    const int low = std::clamp(static_cast<int>(std::floor(from + 1e-6)), 0, gridSize - 1);
    const int high = std::clamp(static_cast<int>(std::ceil(from + mapping.length - 1e-6)), low + 1, gridSize);
    const bool plain = subsampling.numerator == subsampling.denominator;

    AxisWeights axis;
    axis.positions.reserve(static_cast<std::size_t>(mapping.count));
    axis.begin = samples;
    for (int i = 0; i < mapping.count; ++i) {
        const double center = from + (mapping.first + i + 0.5 - mapping.outputPhase) * step;
        Kernel kernel = gridKernel(center, stretch, low, high);
        if (!plain) kernel = sampleKernel(kernel, subsampling, samples - firstSample);
        const std::vector<std::int16_t> weights = quantized(kernel.weights);
        std::size_t first = 0;
        std::size_t last = weights.size();
        while (first + 1 < last && weights[first] == 0)
            ++first;
        while (last - 1 > first && weights[last - 1] == 0)
            --last;

        AxisWeights::Position position;
        position.start = firstSample + kernel.start + static_cast<int>(first);
        position.count = static_cast<int>(last - first);
        position.offset = static_cast<int>(axis.weights.size());
        axis.positions.push_back(position);
        axis.weights.insert(axis.weights.end(), weights.begin() + static_cast<std::ptrdiff_t>(first),
                            weights.begin() + static_cast<std::ptrdiff_t>(last));
        axis.weights.resize((axis.weights.size() + 7) / 8 * 8, 0);
        axis.begin = std::min(axis.begin, position.start);
        axis.end = std::max(axis.end, position.start + position.count);
    }
    return axis;
}

} // namespace platform::draw
