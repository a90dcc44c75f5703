// The pixels of a Bitmap as the source of an image. Immutable; any thread.
#pragma once

#include "PixelSource.h"

namespace platform::draw {

class BitmapSource final : public PixelSource {
public:
    explicit BitmapSource(Bitmap bitmap);
    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int reduction) const override;
    const Bitmap* bitmap() const override { return &bitmap_; }

private:
    Bitmap bitmap_;
};

} // namespace platform::draw
