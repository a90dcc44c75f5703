#include "platform/draw/DeepPixels.h"

#include "internal/DeepRows.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

namespace platform::draw {

namespace {

constexpr std::uint16_t full = 65535;

/// Puts pixel after pixel, row after row, in their turned places.
class TurnedTarget {
public:
    TurnedTarget(std::uint8_t* target, int quarterTurns, std::int64_t width, std::int64_t height) : target_(target) {
        switch (quarterTurns & 3) {
        case 1:
            first_ = height - 1, right_ = height, down_ = -1;
            break;
        case 2:
            first_ = width * height - 1, right_ = -1, down_ = -width;
            break;
        case 3:
            first_ = (width - 1) * height, right_ = -height, down_ = 1;
            break;
        default:
            first_ = 0, right_ = 1, down_ = width;
        }
    }
    void putRow(std::int64_t y, const std::uint16_t* rgba, std::int64_t width) const {
        for (std::int64_t x = 0; x < width; ++x)
            std::memcpy(target_ + 8 * (first_ + y * down_ + x * right_), rgba + 4 * x, 8);
    }

private:
    std::uint8_t* target_;
    std::int64_t first_; // where the first pixel goes, and how far it is to the next ones
    std::int64_t right_;
    std::int64_t down_;
};

base::Result<void> readDeep(const Image& image, DeepPixelReader& reader, const TurnedTarget& target) {
    std::vector<std::uint16_t> rgba(4 * static_cast<std::size_t>(image.width()));
    for (int y = 0; y < image.height(); ++y) {
        if (auto read = reader.readRow(rgba.data()); !read) return read;
        target.putRow(y, rgba.data(), image.width());
    }
    return {};
}

base::Result<void> readWidened(const Image& image, const TurnedTarget& target) {
    const auto bitmap = image.bitmap(deepColorSpace(image));
    if (!bitmap) return base::failure(bitmap.error());
    std::vector<std::uint16_t> rgba(4 * static_cast<std::size_t>(image.width()));
    for (int y = 0; y < image.height(); ++y) {
        const std::uint8_t* row = bitmap->row(y);
        for (std::size_t i = 0; i < rgba.size(); i += 4) {
            for (std::size_t k = 0; k < 3; ++k)
                rgba[i + k] = widenedTo16Bits(row[i + 2 - k]);
            rgba[i + 3] = widenedTo16Bits(row[i + 3]);
        }
        target.putRow(y, rgba.data(), image.width());
    }
    return {};
}

using Samples = std::shared_ptr<const std::vector<std::uint16_t>>;

class MemoryDeepReader final : public DeepReader {
public:
    MemoryDeepReader(Samples samples, std::size_t width, bool opaque)
        : samples_(std::move(samples)), rowSize_(4 * width), opaque_(opaque) {
        format_ = {3, true, true};
    }
    base::Result<void> readRow(std::uint16_t* row) override {
        std::copy_n(samples_->data() + next_, rowSize_, row);
        next_ += rowSize_;
        for (std::size_t i = 3; opaque_ && i < rowSize_; i += 4)
            row[i] = full;
        return {};
    }

private:
    Samples samples_;
    std::size_t rowSize_;
    bool opaque_;
    std::size_t next_ = 0;
};

class MemoryBandReader final : public BandReader {
public:
    MemoryBandReader(Samples samples, std::size_t width, bool opaque, const PixelRect& region)
        : samples_(std::move(samples)), next_(4 * (static_cast<std::size_t>(region.y) * width + region.x)),
          step_(4 * width) {
        format_ = ReadingFormat::ofRows(opaque ? SampleKind::bgrx : SampleKind::bgra, region.width, region.height);
    }
    base::Result<void> readBand(std::uint8_t** const* rows) override {
        if (next_ >= samples_->size()) return {};
        const std::uint16_t* source = samples_->data() + next_;
        std::uint8_t* row = rows[0][0];
        for (std::size_t i = 0; i < format_.planes.front().rowBytes; i += 4) {
            for (std::size_t k = 0; k < 3; ++k)
                row[i + 2 - k] = reducedTo8Bits(source[i + k]);
            row[i + 3] = reducedTo8Bits(source[i + 3]);
        }
        next_ += step_;
        return {};
    }

private:
    Samples samples_;
    std::size_t next_;
    std::size_t step_;
};

class MemorySource final : public PixelSource {
public:
    MemorySource(std::vector<std::uint16_t> samples, int width, int height, ColorSpaceRef colorSpace, bool opaque)
        : samples_(std::make_shared<const std::vector<std::uint16_t>>(std::move(samples))) {
        width_ = width;
        height_ = height;
        opaque_ = opaque;
        colorSpace_ = std::move(colorSpace);
        identity_ = newMemoryIdentity();
    }
    base::Result<std::unique_ptr<BandReader>> open(const PixelRect& region, int) const override {
        return std::make_unique<MemoryBandReader>(samples_, static_cast<std::size_t>(width_), opaque_, region);
    }
    base::Result<std::unique_ptr<DeepReader>> openDeep() const override {
        return std::make_unique<MemoryDeepReader>(samples_, static_cast<std::size_t>(width_), opaque_);
    }

private:
    Samples samples_;
};

} // namespace

const ColorSpaceRef& deepColorSpace(const Image& image) {
    return image.colorSpace()->model() == ColorModel::rgb ? image.colorSpace() : ColorSpace::sRGB();
}

base::Result<void> readDeepPixels(const Image& image, int quarterTurns, std::uint8_t* target) {
    const TurnedTarget turned(target, quarterTurns, image.width(), image.height());
    try {
        const auto reader = DeepPixelReader::open(image);
        if (!reader) return base::failure(reader.error());
        return *reader ? readDeep(image, **reader, turned) : readWidened(image, turned);
    } catch (const std::bad_alloc&) {
        return base::failure(base::posixErrorDomain, ENOMEM, "no memory to read a picture");
    } catch (const std::length_error&) {
        return base::failure(base::posixErrorDomain, ENOMEM, "no memory to read a picture");
    }
}

base::Result<ImageRef> imageOfDeepPixels(std::vector<std::uint16_t> pixels, std::int64_t width, std::int64_t height,
                                         ColorSpaceRef colorSpace, bool opaque) {
    if (width <= 0 || height <= 0 || width > maximumBitmapSide || height > maximumBitmapSide ||
        width * height > maximumBitmapPixels || pixels.size() != static_cast<std::uint64_t>(4 * width * height))
        return base::failure(base::posixErrorDomain, EINVAL,
                             "no picture of " + std::to_string(width) + " x " + std::to_string(height) + " pixels");
    auto source = std::make_shared<MemorySource>(std::move(pixels), static_cast<int>(width), static_cast<int>(height),
                                                 std::move(colorSpace), opaque);
    return std::make_shared<Image>(std::move(source), 0, 0, static_cast<int>(width), static_cast<int>(height));
}

} // namespace platform::draw
