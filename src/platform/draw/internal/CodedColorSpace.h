// Colour spaces that picture files name by code points in place of a profile (ISO/IEC 23091-2, "nclx"). Pure function;
// any thread.
#pragma once

#include "platform/draw/ColorSpace.h"

namespace platform::draw {

/// The RGB space of these primaries and this transfer function. sRGB for primaries that are not known. Transfer
/// functions of video for the screen (BT.709 and its kin) count as sRGB's, as they do for still pictures elsewhere; so
/// do those of high dynamic range, which eight bits can't hold.
ColorSpaceRef colorSpaceOfCodePoints(int primaries, int transfer);

} // namespace platform::draw
