// Compares two pictures sample by sample. Plain functions for one thread.
#pragma once

#include "base/Error.h"
#include "platform/draw/Bitmap.h"

#include <string>

namespace golden {

struct Limits {
    double share = 0.0002; ///< Of the samples that may differ by more than 1/255.
    int largest = 3;       ///< Difference of any sample, in 1/255.
};

struct Difference {
    bool sameSize = true;
    double share = 0;
    int largest = 0;

    bool isWithin(const Limits& limits) const { return sameSize && share <= limits.share && largest <= limits.largest; }
};

/// The pixels of the picture in a file, in sRGB.
base::Result<platform::draw::Bitmap> readPicture(const std::string& path);
base::Result<void> writePNG(const platform::draw::Bitmap& picture, const std::string& path);

Difference compare(const platform::draw::Bitmap& left, const platform::draw::Bitmap& right);
/// Each sample's difference, eight times amplified, on opaque black. Both pictures have the same size.
base::Result<platform::draw::Bitmap> differencePicture(const platform::draw::Bitmap& left,
                                                       const platform::draw::Bitmap& right);

} // namespace golden
