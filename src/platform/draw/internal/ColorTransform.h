// Conversion of pixel rows from one colour space to another by Little CMS. Transforms are made once for each pair of
// spaces and layouts, kept for the life of the process (up to a limit) and shared. Any thread, also the same transform
// by several at once.
#pragma once

#include "base/Error.h"
#include "platform/draw/ColorSpace.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform::draw {

/// How source pixels lie in memory. Values are not premultiplied.
enum class PixelLayout {
    bgra8,         ///< Cairo's byte order on little-endian machines; the alpha byte is carried over unchanged. Grey
                   ///< pictures with alpha lie so too, their level in all three colours.
    gray8,         ///< one byte
    cmyk8,         ///< four bytes, 255 is full ink
    cmykInverted8, ///< four bytes, 0 is full ink, as JPEG files hold them
};

class ColorTransform {
public:
    virtual ~ColorTransform() = default;

    /// From `source` pixels to bgra8 pixels of `target`, an RGB space that supports output; see ColorSpace.h for the
    /// rendering intent. From gray8 and cmyk8 the alpha byte becomes
    /// 255. Null when source and target need no conversion and the layout is bgra8. An error when the spaces and the
    /// layout do not go together.
    static base::Result<std::shared_ptr<const ColorTransform>> between(const ColorSpaceRef& source, PixelLayout layout,
                                                                       const ColorSpaceRef& target);

    /// Converts `count` pixels. Source and target may be the same memory when the layout is bgra8.
    virtual void convert(const std::uint8_t* source, std::uint8_t* target, std::size_t count) const = 0;
};

} // namespace platform::draw
