#include "Shadow.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {
namespace {

constexpr double reachInSigmas = 3; // beyond that less than half a step of 8 bits is left

// The blurred edge of a half plane: 0 far outside, 1 far inside, in a table over the distance from the edge.
class EdgeProfile {
public:
    explicit EdgeProfile(double sigma) : reach_(sigma * reachInSigmas), scale_(steps / (2 * reach_)) {
        for (int step = 0; step <= steps + 1; ++step) {
            const double distance = step / scale_ - reach_;
            table_[step] = static_cast<float>(0.5 * (1 + std::erf(distance / (sigma * std::sqrt(2.0)))));
        }
    }
    float at(double distance) const {
        const double position = (distance + reach_) * scale_;
        if (position <= 0) return 0;
        if (position >= steps) return 1;
        const int step = static_cast<int>(position);
        const float fraction = static_cast<float>(position - step);
        return table_[step] + fraction * (table_[step + 1] - table_[step]);
    }
    // Between two edges `half` away from the middle on both sides.
    float between(double fromMiddle, double half) const { return at(fromMiddle + half) + at(half - fromMiddle) - 1; }

private:
    static constexpr int steps = 1024;
    double reach_;
    double scale_;
    float table_[steps + 2];
};

struct LocalPoint {
    double along;
    double across;
};
LocalPoint localPoint(const TurnedRectangle& rectangle, double x, double y) {
    const double dx = x - rectangle.center.x;
    const double dy = y - rectangle.center.y;
    return {dx * rectangle.axis.x + dy * rectangle.axis.y, dy * rectangle.axis.x - dx * rectangle.axis.y};
}

// The coverage of a blurred rectangle times a sign, for rows of pixels that begin at one place.
class BlurredRows {
public:
    BlurredRows(const TurnedRectangle& rectangle, const EdgeProfile& profile, int x, int width, float sign)
        : rectangle_(rectangle), profile_(profile), x_(x), sign_(sign) {
        if (rectangle_.axis.y != 0) return;
        // What stands upright has the same columns in all its rows.
        const LocalPoint start = localPoint(rectangle_, x + 0.5, 0);
        for (int pixel = 0; pixel < width; ++pixel)
            columns_.push_back(sign * profile.between(start.along + pixel * rectangle_.axis.x, rectangle_.halfWidth));
    }

    void addTo(std::vector<float>& row, int y) const {
        const LocalPoint start = localPoint(rectangle_, x_ + 0.5, y + 0.5);
        if (rectangle_.axis.y == 0) {
            const float across = profile_.between(start.across, rectangle_.halfHeight);
            for (std::size_t pixel = 0; pixel < row.size(); ++pixel)
                row[pixel] += columns_[pixel] * across;
            return;
        }
        for (std::size_t pixel = 0; pixel < row.size(); ++pixel) {
            const double along = start.along + static_cast<double>(pixel) * rectangle_.axis.x;
            const double across = start.across - static_cast<double>(pixel) * rectangle_.axis.y;
            row[pixel] +=
                sign_ * profile_.between(along, rectangle_.halfWidth) * profile_.between(across, rectangle_.halfHeight);
        }
    }

private:
    const TurnedRectangle& rectangle_;
    const EdgeProfile& profile_;
    int x_;
    float sign_;
    std::vector<float> columns_; // of what stands upright
};

std::vector<float> gaussianWeights(double sigma) {
    const int radius = blurReach(sigma);
    std::vector<float> weights(static_cast<std::size_t>(2 * radius + 1));
    double sum = 0;
    for (int offset = -radius; offset <= radius; ++offset) {
        const double weight = std::exp(-0.5 * offset * offset / (sigma * sigma));
        weights[static_cast<std::size_t>(offset + radius)] = static_cast<float>(weight);
        sum += weight;
    }
    for (float& weight : weights)
        weight = static_cast<float>(weight / sum);
    return weights;
}

void storeRow(const std::vector<float>& sums, std::uint8_t* row) {
    for (std::size_t x = 0; x < sums.size(); ++x)
        row[x] = static_cast<std::uint8_t>(std::clamp(sums[x], 0.0f, 255.0f) + 0.5f);
}

} // namespace

std::optional<TurnedRectangle> TurnedRectangle::from(const base::Rect& rect, const base::AffineTransform& transform) {
    const base::Point along{transform.a * rect.width, transform.b * rect.width};
    const base::Point across{transform.c * rect.height, transform.d * rect.height};
    const double width = std::hypot(along.x, along.y);
    const double height = std::hypot(across.x, across.y);
    if (!(width > 0) || !(height > 0)) return std::nullopt;
    const double cosine = (along.x * across.x + along.y * across.y) / (width * height);
    if (std::abs(cosine) > 1e-6) return std::nullopt;
    return TurnedRectangle{transform.apply(rect.center()), {along.x / width, along.y / width}, width / 2, height / 2};
}

TurnedRectangle TurnedRectangle::grown(double amount) const {
    return {center, axis, halfWidth + amount, halfHeight + amount};
}

base::Rect TurnedRectangle::bounds() const {
    const double reachX = std::abs(axis.x) * halfWidth + std::abs(axis.y) * halfHeight;
    const double reachY = std::abs(axis.y) * halfWidth + std::abs(axis.x) * halfHeight;
    return {center.x - reachX, center.y - reachY, 2 * reachX, 2 * reachY};
}

TurnedRectangle::Span TurnedRectangle::coveredPixels(int y) const {
    double left = -1e9, right = 1e9;
    // A row of pixels is inside where both its edges are: the rectangle is convex.
    for (const int edge : {y, y + 1}) {
        const LocalPoint atZero = localPoint(*this, 0, edge);
        const struct {
            double value, slope, half;
        } sides[] = {{atZero.along, axis.x, halfWidth}, {atZero.across, -axis.y, halfHeight}};
        for (const auto& side : sides) {
            if (std::abs(side.slope) < 1e-9) {
                if (std::abs(side.value) > side.half) return {};
                continue;
            }
            const double one = (-side.half - side.value) / side.slope;
            const double other = (side.half - side.value) / side.slope;
            left = std::max(left, std::min(one, other));
            right = std::min(right, std::max(one, other));
        }
    }
    if (!(left < right)) return {};
    return {static_cast<int>(std::ceil(left)), static_cast<int>(std::floor(right))};
}

CoverageMask blurredRectangle(const RectangleShape& shape, double sigma, const PixelRect& area) {
    CoverageMask mask(area.width, area.height);
    // A pixel gathers over its own area: to the Gaussian that adds the variance of a unit square.
    const EdgeProfile profile(std::sqrt(sigma * sigma + 1.0 / 12));
    std::vector<BlurredRows> parts{{shape.outer, profile, area.x, area.width, 255}};
    if (shape.hole) parts.emplace_back(*shape.hole, profile, area.x, area.width, -255);
    std::vector<float> row(static_cast<std::size_t>(area.width));
    for (int y = 0; y < area.height; ++y) {
        std::fill(row.begin(), row.end(), 0.0f);
        for (const BlurredRows& part : parts)
            part.addTo(row, area.y + y);
        storeRow(row, mask.row(y));
    }
    return mask;
}

int blurReach(double sigma) {
    return static_cast<int>(std::ceil(sigma * reachInSigmas));
}

void blur(CoverageMask& mask, double sigma) {
    if (!(sigma > 0)) return;
    const std::vector<float> weights = gaussianWeights(sigma);
    const int radius = blurReach(sigma);
    const std::size_t width = static_cast<std::size_t>(mask.width);
    std::vector<float> sums(width);

    // Along the rows: each row padded by the radius, so that the inner loop has no ends to watch.
    std::vector<float> padded(width + weights.size());
    for (int y = 0; y < mask.height; ++y) {
        std::copy_n(mask.row(y), width, padded.begin() + radius);
        std::fill(sums.begin(), sums.end(), 0.0f);
        for (std::size_t tap = 0; tap < weights.size(); ++tap)
            for (std::size_t x = 0; x < width; ++x)
                sums[x] += weights[tap] * padded[x + tap];
        storeRow(sums, mask.row(y));
    }
    // Across them: whole rows at a time.
    CoverageMask source = mask;
    for (int y = 0; y < mask.height; ++y) {
        std::fill(sums.begin(), sums.end(), 0.0f);
        for (int offset = std::max(-radius, -y); offset <= std::min(radius, mask.height - 1 - y); ++offset) {
            const float weight = weights[static_cast<std::size_t>(offset + radius)];
            const std::uint8_t* row = source.row(y + offset);
            for (std::size_t x = 0; x < width; ++x)
                sums[x] += weight * row[x];
        }
        storeRow(sums, mask.row(y));
    }
}

} // namespace platform::draw
