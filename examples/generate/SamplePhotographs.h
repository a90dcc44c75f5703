// Photographs for examples and measurements: painted scenes of camera size, with the gradients, edges, texture and
// grain of a photograph, and an unmistakable up side (sky and sun above, house, lighthouse or boats standing on the
// ground). The same description always yields the same bytes. Pure functions, any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace samples {

enum class Scene { house, lighthouse, harbour };
enum class Daytime { morning, noon, evening };

struct Photograph {
    std::string name; ///< File name, with its extension.
    Scene scene = Scene::house;
    Daytime daytime = Daytime::noon;
    int width = 0; ///< Of the scene as a person sees it, upright; in pixels, as is height.
    int height = 0;
    /// The EXIF orientation, 1, 3, 6 or 8. The pixels are stored turned so that a reader who obeys it sees the scene
    /// upright: under 6 and 8 the stored picture is `height` wide and `width` high.
    int orientation = 1;
    /// Stored in the primaries of Display P3, with such an ICC profile; otherwise sRGB without a profile.
    bool wideGamut = false;
    /// Distinguishes pictures of one scene: another course of the hills, other clouds, other grain.
    unsigned seed = 1;
};

/// The photographs of the sample order: 12 and 24 megapixels, the four orientations, one of wide gamut.
const std::vector<Photograph>& catalogue();

/// The whole JPEG file (quality 92, 4:2:0), with its EXIF data. Answers no bytes and fills `error` on failure.
std::vector<std::uint8_t> jpegOf(const Photograph& photograph, std::string& error);

} // namespace samples
