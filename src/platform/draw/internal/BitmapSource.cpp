#include "BitmapSource.h"

#include <cstring>

namespace platform::draw {

namespace {

class BitmapBandReader final : public BandReader {
public:
    BitmapBandReader(Bitmap bitmap, const PixelRect& region) : bitmap_(std::move(bitmap)), region_(region) {
        format_ = ReadingFormat::ofRows(bitmap_.isOpaque() ? SampleKind::bgrx : SampleKind::bgra, region.width,
                                        region.height);
    }

    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (next_ < region_.maxY() - region_.y)
            std::memcpy(rows[0][0], bitmap_.row(region_.y + next_) + 4 * static_cast<std::ptrdiff_t>(region_.x),
                        format_.planes.front().rowBytes);
        ++next_;
        return {};
    }

private:
    Bitmap bitmap_;
    PixelRect region_;
    int next_ = 0;
};

} // namespace

BitmapSource::BitmapSource(Bitmap bitmap) : bitmap_(std::move(bitmap)) {
    width_ = bitmap_.width();
    height_ = bitmap_.height();
    opaque_ = bitmap_.isOpaque();
    colorSpace_ = bitmap_.colorSpace();
    identity_ = newMemoryIdentity();
}

base::Result<std::unique_ptr<BandReader>> BitmapSource::open(const PixelRect& region, int) const {
    return std::make_unique<BitmapBandReader>(bitmap_, region);
}

} // namespace platform::draw
