// The colour spaces of printers, out of ICC files. Any thread.
#pragma once

#include "base/Path.h"
#include "platform/draw/ColorSpace.h"

namespace print {

/// The space that a profile describes; null when the file can't be read or holds none. The spaces asked for last stay
/// in memory: while one lives, the same bytes need not be parsed again.
platform::draw::ColorSpaceRef colorSpaceOfFile(const base::URL& url);

} // namespace print
