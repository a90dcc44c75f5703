#include "Painting.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace samples {

namespace {

std::uint8_t toByte(float value) {
    return static_cast<std::uint8_t>(std::clamp(value + 0.5f, 0.0f, 255.0f));
}

/// Small and the same on every machine, which the library's distributions do not promise.
class Dice {
public:
    explicit Dice(unsigned seed) : state_(seed * 2654435761u + 0x9E3779B9u) {}
    std::uint32_t bits() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    /// From -1 to 1.
    float signedUnit() { return static_cast<float>(static_cast<std::int32_t>(bits())) * (1.0f / 2147483648.0f); }

private:
    std::uint32_t state_;
};

/// Twice the size, linear between the samples.
std::vector<float> doubled(const std::vector<float>& from, int fromWidth, int fromHeight) {
    const int width = fromWidth * 2 - 1;
    const int height = fromHeight * 2 - 1;
    std::vector<float> to(static_cast<std::size_t>(width) * height);
    for (int y = 0; y < fromHeight; ++y) {
        const float* source = &from[static_cast<std::size_t>(y) * fromWidth];
        float* row = &to[static_cast<std::size_t>(2 * y) * width];
        for (int x = 0; x + 1 < fromWidth; ++x) {
            row[2 * x] = source[x];
            row[2 * x + 1] = 0.5f * (source[x] + source[x + 1]);
        }
        row[width - 1] = source[fromWidth - 1];
    }
    for (int y = 1; y < height; y += 2) {
        const float* above = &to[static_cast<std::size_t>(y - 1) * width];
        const float* under = &to[static_cast<std::size_t>(y + 1) * width];
        float* row = &to[static_cast<std::size_t>(y) * width];
        for (int x = 0; x < width; ++x)
            row[x] = 0.5f * (above[x] + under[x]);
    }
    return to;
}

} // namespace

Color mix(Color from, Color to, float part) {
    return {from.red + (to.red - from.red) * part, from.green + (to.green - from.green) * part,
            from.blue + (to.blue - from.blue) * part};
}

std::vector<std::int8_t> fractalNoise(int width, int height, unsigned seed, float persistence, int smoothOctaves) {
    // Begun with so few samples that doubling them `octaves` times covers the picture.
    int octaves = 0;
    while ((5 - 1) * (1 << octaves) + 1 < std::max(width, height))
        ++octaves;
    const auto samplesFor = [&](int size) { return (size - 2 + (1 << octaves)) / (1 << octaves) + 1; };
    int columns = std::max(2, samplesFor(width));
    int rows = std::max(2, samplesFor(height));
    Dice dice(seed);
    std::vector<float> field(static_cast<std::size_t>(columns) * rows);
    for (float& value : field)
        value = dice.signedUnit();
    float strength = 1;
    for (int octave = 0; octave < octaves; ++octave) {
        field = doubled(field, columns, rows);
        columns = columns * 2 - 1;
        rows = rows * 2 - 1;
        strength *= persistence;
        if (octave >= octaves - smoothOctaves) continue;
        for (float& value : field)
            value += strength * dice.signedUnit();
    }
    const float scale = 127.0f * (1 - persistence) * 1.6f;
    std::vector<std::int8_t> noise(static_cast<std::size_t>(width) * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const float value = field[static_cast<std::size_t>(y) * columns + x] * scale;
            noise[static_cast<std::size_t>(y) * width + x] =
                static_cast<std::int8_t>(std::clamp(value, -127.0f, 127.0f));
        }
    return noise;
}

Painting::Painting(int width, int height, unsigned seed)
    : seed_(seed), width_(width), height_(height), pixels_(static_cast<std::size_t>(width) * height * 3),
      texture_(fractalNoise(width, height, seed, 0.87f, 0)) {}

void Painting::blendRow(int y, int from, int to, const float* coverage, const Paint& paint, float depth) {
    const Color color = mix(paint.top, paint.bottom, std::clamp(depth, 0.0f, 1.0f));
    const std::size_t start = static_cast<std::size_t>(y) * width_;
    const float texture = paint.texture / 127.0f;
    for (int x = from; x < to; ++x) {
        const float part = coverage[x - from];
        if (part <= 0) continue;
        std::uint8_t* pixel = &pixels_[(start + x) * 3];
        const float shade = texture_[start + x] * texture;
        pixel[0] = toByte(pixel[0] + (color.red + shade - pixel[0]) * part);
        pixel[1] = toByte(pixel[1] + (color.green + shade - pixel[1]) * part);
        pixel[2] = toByte(pixel[2] + (color.blue + shade - pixel[2]) * part);
    }
}

void Painting::sky(Color top, Color bottom, Color clouds, float cover) {
    // Clouds have no detail finer than some pixels: a quarter of the picture's size is enough to hold them.
    const int step = 4;
    const int columns = width_ / step + 2;
    const int rows = height_ / step + 2;
    const std::vector<std::int8_t> field = fractalNoise(columns, rows, seed_ + 1000, 0.55f, 1);
    for (int y = 0; y < height_; ++y) {
        const float depth = static_cast<float>(y) / height_;
        const Color base = mix(top, bottom, std::min(1.0f, depth * 1.5f));
        const float thinning = std::clamp(1.0f - depth * 1.6f, 0.0f, 1.0f);
        const float fractionY = static_cast<float>(y % step) / step;
        const std::int8_t* upper = &field[static_cast<std::size_t>(y / step) * columns];
        const std::int8_t* lower = upper + columns;
        std::uint8_t* pixel = &pixels_[static_cast<std::size_t>(y) * width_ * 3];
        for (int x = 0; x < width_; ++x, pixel += 3) {
            const float fractionX = static_cast<float>(x % step) / step;
            const int column = x / step;
            const float above = upper[column] + (upper[column + 1] - upper[column]) * fractionX;
            const float under = lower[column] + (lower[column + 1] - lower[column]) * fractionX;
            const float value = (above + (under - above) * fractionY) / 127.0f;
            const float cloud = std::clamp((value + cover - 0.5f) * 1.8f, 0.0f, 0.9f) * thinning;
            const Color color = mix(base, clouds, cloud);
            pixel[0] = toByte(color.red);
            pixel[1] = toByte(color.green);
            pixel[2] = toByte(color.blue);
        }
    }
}

void Painting::glow(Spot center, float radius, Color light, float strength) {
    const int top = std::max(0, static_cast<int>(center.y - radius));
    const int bottom = std::min(height_, static_cast<int>(center.y + radius) + 1);
    const int left = std::max(0, static_cast<int>(center.x - radius));
    const int right = std::min(width_, static_cast<int>(center.x + radius) + 1);
    for (int y = top; y < bottom; ++y)
        for (int x = left; x < right; ++x) {
            const float dx = (x - center.x) / radius;
            const float dy = (y - center.y) / radius;
            const float square = dx * dx + dy * dy;
            if (square >= 1) continue;
            const float part = strength * (1 - square) * (1 - square);
            std::uint8_t* pixel = &pixels_[(static_cast<std::size_t>(y) * width_ + x) * 3];
            pixel[0] = toByte(pixel[0] + (light.red - pixel[0]) * part);
            pixel[1] = toByte(pixel[1] + (light.green - pixel[1]) * part);
            pixel[2] = toByte(pixel[2] + (light.blue - pixel[2]) * part);
        }
}

void Painting::below(const std::vector<float>& line, const Paint& paint) {
    const float highest = *std::min_element(line.begin(), line.end());
    std::vector<float> coverage(static_cast<std::size_t>(width_));
    for (int y = std::max(0, static_cast<int>(highest)); y < height_; ++y) {
        for (int x = 0; x < width_; ++x)
            coverage[x] = std::clamp(y + 1 - line[x], 0.0f, 1.0f);
        blendRow(y, 0, width_, coverage.data(), paint, (y - highest) / (height_ - highest));
    }
}

void Painting::polygon(const std::vector<Spot>& corners, const Paint& paint) {
    const auto [upper, lower] =
        std::minmax_element(corners.begin(), corners.end(), [](const Spot& a, const Spot& b) { return a.y < b.y; });
    const auto [leftmost, rightmost] =
        std::minmax_element(corners.begin(), corners.end(), [](const Spot& a, const Spot& b) { return a.x < b.x; });
    const int left = std::max(0, static_cast<int>(std::floor(leftmost->x)));
    const int right = std::min(width_, static_cast<int>(std::ceil(rightmost->x)));
    if (left >= right) return;
    // Four lines a row, each with the exact part of the pixels at its ends.
    const int linesPerRow = 4;
    std::vector<float> coverage(static_cast<std::size_t>(right - left));
    std::vector<float> crossings;
    for (int y = std::max(0, static_cast<int>(upper->y)); y < std::min<float>(height_, lower->y); ++y) {
        std::fill(coverage.begin(), coverage.end(), 0.0f);
        for (int line = 0; line < linesPerRow; ++line) {
            const float level = y + (line + 0.5f) / linesPerRow;
            crossings.clear();
            for (std::size_t i = 0; i < corners.size(); ++i) {
                const Spot& a = corners[i];
                const Spot& b = corners[(i + 1) % corners.size()];
                if ((a.y <= level) == (b.y <= level)) continue;
                crossings.push_back(a.x + (b.x - a.x) * (level - a.y) / (b.y - a.y));
            }
            std::sort(crossings.begin(), crossings.end());
            for (std::size_t i = 0; i + 1 < crossings.size(); i += 2) {
                const float from = std::max<float>(crossings[i], left);
                const float to = std::min<float>(crossings[i + 1], right);
                for (int x = static_cast<int>(from); x < to; ++x)
                    coverage[x - left] +=
                        (std::min(to, x + 1.0f) - std::max(from, static_cast<float>(x))) / linesPerRow;
            }
        }
        blendRow(y, left, right, coverage.data(), paint, (y - upper->y) / (lower->y - upper->y));
    }
}

void Painting::rectangle(float left, float top, float right, float bottom, const Paint& paint) {
    polygon({{left, top}, {right, top}, {right, bottom}, {left, bottom}}, paint);
}

void Painting::ellipse(Spot center, float radiusX, float radiusY, const Paint& paint) {
    const int corners = 96;
    std::vector<Spot> outline;
    for (int i = 0; i < corners; ++i) {
        const float angle = 6.2831853f * i / corners;
        outline.push_back({center.x + radiusX * std::cos(angle), center.y + radiusY * std::sin(angle)});
    }
    polygon(outline, paint);
}

void Painting::grain(float strength, unsigned seed) {
    // Four uniform bytes of one throw add up to nearly the bell curve of a sensor's noise.
    const float scale = strength / 148.0f;
    Dice dice(seed);
    for (std::size_t i = 0; i < pixels_.size(); i += 3) {
        const std::uint32_t bits = dice.bits();
        const int sum = static_cast<int>((bits & 255) + ((bits >> 8) & 255) + ((bits >> 16) & 255) + (bits >> 24));
        const float shade = (sum - 510) * scale;
        for (int channel = 0; channel < 3; ++channel)
            pixels_[i + channel] = toByte(pixels_[i + channel] + shade);
    }
}

} // namespace samples
