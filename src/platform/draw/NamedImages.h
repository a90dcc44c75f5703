// Images that a program knows by name, for the life of the process. Any thread.
#pragma once

#include "platform/draw/Image.h"

#include <string_view>

namespace platform::draw {

/// The image of this name; null when there is none.
ImageRef imageNamed(std::string_view name);
/// Gives an image a name, which an image that had it before loses; null only takes it away.
void setImageNamed(std::string_view name, ImageRef image);

} // namespace platform::draw
