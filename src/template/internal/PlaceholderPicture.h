// What the editor shows in a hole that has no photograph yet.
#pragma once

#include "base/Geometry.h"
#include "platform/draw/Image.h"

/// A landscape at an alpha of 0.75 on "DDDDDD99", `size` in pixels, rounded. Null for a size that holds no pixel.
platform::draw::ImageRef placeholderPicture(base::Size size);
