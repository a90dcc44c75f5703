// Conversion to sRGB from profiles whose colours are tables (nearly all CMYK ones). The library's own fast way puts the
// profile's table, the clipping to sRGB and sRGB's curve into one table of even steps, and is wrong by twenty of 255
// where the clipping bends it. Here the library interpolates in the profile's own grid only, to CIE Lab; what follows
// is computed.
#pragma once

#include "ColorProfile.h"
#include "ColorTransform.h"

#include <memory>

namespace platform::draw {

/// Null for profiles without a table. `format` is the library's description of source pixels of `layout`. How close the
/// result comes to the exact one is the caller's to check: a profile may hold more than a table with curves before it.
std::unique_ptr<ColorTransform> makeTableTransform(cmsHPROFILE source, PixelLayout layout, cmsUInt32Number format);

} // namespace platform::draw
