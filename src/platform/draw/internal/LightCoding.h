// Colours between linear light with sRGB's primaries, in floats, and the coded values of a space. Transforms are made
// once for each space and kept. Immutable; any thread.
#pragma once

#include "FloatKernels.h"
#include "base/Error.h"
#include "platform/draw/ColorSpace.h"

#include <cstddef>
#include <memory>

namespace platform::draw {

/// From light to coded values: red, green, blue; a monochrome space's level stands in all three.
class LightCoder {
public:
    virtual ~LightCoder() = default;
    /// An RGB or monochrome space that supports output.
    static base::Result<std::shared_ptr<const LightCoder>> to(const ColorSpaceRef& space);
    /// `count` pixels of four floats that are not premultiplied, alpha as it is. Colours outside of the space keep
    /// their excess where its profile can tell it (primaries and curves), else they are cut. May be in place.
    virtual void code(const float* light, float* out, std::size_t count) const = 0;
};

} // namespace platform::draw
