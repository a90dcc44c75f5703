// The least work that a product can cost: each photograph streamed once out of the JPEG decoder at the smallest power
// of two of its size that is large enough for its place, and a product encoded at quality 90. No resampling, no
// composition, no text, no profiles: what every renderer must do besides what it is for.
#pragma once

#include <string>
#include <vector>

namespace bench {

/// A photograph and its place on the product, which it fills, in pixels from the top left.
struct Placed {
    std::string path;
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

struct FloorTask {
    int width = 0;
    int height = 0;
    std::vector<Placed> photographs; ///< One that is used twice, at one size, is decoded once.
};

/// Answers whether it worked; the product goes to `output`.
bool renderFloor(const FloorTask& task, const std::string& output);

} // namespace bench
