// What the editor shows in a hole that has no photograph yet.
#pragma once

#include "imaging/KLARON_Image.h"

/// The picture "Girl and Butterfly" at an alpha of 0.75 on "DDDDDD99", `size` in pixels, rounded. Null for a size that
/// holds no pixel.
KLARON_ImageRef placeholderPicture(base::Size size);
