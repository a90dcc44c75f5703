// The forms in which a page's samples leave it: from a work buffer of four components a pixel (red, green, blue and one
// that is skipped, 8 bits or 16 bits in the machine's order of bytes, rows without gaps) to three, interleaved or as
// three planes, plain or complemented. Pure functions, any thread.
#pragma once

#include "base/Value.h"

#include <array>
#include <cstddef>
#include <cstdint>

struct RasterForm {
    int bitsPerComponent = 8; ///< 8 or 16
    bool planar = false;
    bool cmy = false; ///< Complemented, in the order yellow, magenta, cyan.
};

/// Moves the pixels of the buffer together, in place, and cuts it to 3 samples a pixel. The buffer holds whole pixels.
/// Plain: red, green, blue. Complemented: complement of blue, of green, of red.
void compactPixels(base::Data& buffer, int bitsPerComponent, bool cmy);

/// Three planes of one sample a pixel; red, green, blue, or the complement of blue, of green, of red. At 16 bits they
/// hold what RasterForms.cpp tells, which is not that: who needs right colours of 16 bits takes interleaved ones.
std::array<base::Data, 3> planesOfPixels(const base::Data& buffer, int bitsPerComponent, bool cmy);
