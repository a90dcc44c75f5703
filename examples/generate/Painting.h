// The canvas on which scenes are painted: 8-bit RGB rows from the top, filled with textured, antialiased shapes.
// Coordinates are pixels of the finished picture, y down, unless a function says otherwise. One thread at a time.
#pragma once

#include <cstdint>
#include <vector>

namespace samples {

struct Color {
    float red = 0, green = 0, blue = 0; ///< 0 to 255.
};
Color mix(Color from, Color to, float part);

struct Spot {
    float x = 0, y = 0;
};

/// A colour that changes from the top of a shape to its bottom, with a grain of its own: `texture` is the strength of
/// the mottling, in steps of 255.
struct Paint {
    Color top, bottom;
    float texture = 0;
};

/// Values from -1 to 1 with the spectrum of natural surfaces. Each finer octave is weaker by `persistence`, and
/// `smoothOctaves` of the finest are left out.
std::vector<std::int8_t> fractalNoise(int width, int height, unsigned seed, float persistence, int smoothOctaves);

class Painting {
public:
    Painting(int width, int height, unsigned seed);

    int width() const { return width_; }
    int height() const { return height_; }
    /// Three bytes a pixel, rows from the top without padding.
    const std::vector<std::uint8_t>& pixels() const { return pixels_; }

    /// The whole picture from `top` to `bottom`, with clouds of `cover` (0 none, 1 much) in its upper part.
    void sky(Color top, Color bottom, Color clouds, float cover);
    /// Light that falls off from a centre.
    void glow(Spot center, float radius, Color light, float strength);
    /// Everything below a line that is given as one height for each column.
    void below(const std::vector<float>& line, const Paint& paint);
    void polygon(const std::vector<Spot>& corners, const Paint& paint);
    void rectangle(float left, float top, float right, float bottom, const Paint& paint);
    void ellipse(Spot center, float radiusX, float radiusY, const Paint& paint);
    /// The grain of a sensor over the whole picture: `strength` in steps of 255.
    void grain(float strength, unsigned seed);

private:
    /// Mixes the paint over one row between two columns, with each column's coverage from 0 to 1.
    void blendRow(int y, int from, int to, const float* coverage, const Paint& paint, float depth);

    unsigned seed_;
    int width_;
    int height_;
    std::vector<std::uint8_t> pixels_;
    std::vector<std::int8_t> texture_;
};

} // namespace samples
