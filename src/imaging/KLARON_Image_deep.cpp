// Pictures as plain 16-bit pixels, and back.
#include "base/Log.h"
#include "imaging/ColorSpaceValue.h"
#include "imaging/KLARON_Image.h"
#include "platform/draw/DeepPixels.h"

#include <algorithm>
#include <cstring>
#include <new>

using platform::draw::AlphaInfo;
using platform::draw::Bitmap;
using platform::draw::ColorModel;
using platform::draw::ColorSpace;
using platform::draw::Image;

namespace {

constexpr std::string_view widthKey = "width";
constexpr std::string_view heightKey = "height";
constexpr std::string_view bitsPerComponentKey = "bitsPerComponent";
constexpr std::string_view alphaInfoKey = "alphaInfo";
constexpr std::string_view colorSpaceKey = "colorSpace";

constexpr std::size_t bytesPerDeepPixel = 8;

/// Clockwise. The picture is drawn turned by +pi/2 for 5 and 6, -pi/2 for 7 and 8 and pi for 3, counter-clockwise where
/// positive, into a rectangle that the same turn made of the canvas: so the turn shows once, and exactly.
int quarterTurnsFor(int orientation) {
    switch (orientation) {
    case 3:
        return 2;
    case 5:
    case 6:
        return 3;
    case 7:
    case 8:
        return 1;
    default:
        return 0;
    }
}

/// What is told of the bytes of a picture.
struct Layout {
    std::int64_t width;
    std::int64_t height;
    std::size_t rowBytes;
    KLARON_Image::ColorSpaceRef space;
    bool alphaFirst;
    bool opaque;
};

const std::uint8_t* rowOf(const base::Data& data, const Layout& layout, std::int64_t y) {
    return data.bytes.data() + layout.rowBytes * static_cast<std::size_t>(y);
}

base::Result<KLARON_Image::ImageRef> imageOf16Bits(const base::Data& data, const Layout& layout) {
    const auto rowSize = static_cast<std::size_t>(layout.width) * 4;
    std::vector<std::uint16_t> pixels(rowSize * static_cast<std::size_t>(layout.height));
    for (std::int64_t y = 0; y < layout.height; ++y)
        std::memcpy(pixels.data() + rowSize * static_cast<std::size_t>(y), rowOf(data, layout, y), 2 * rowSize);
    return platform::draw::imageOfDeepPixels(std::move(pixels), layout.width, layout.height, layout.space,
                                             layout.opaque);
}

base::Result<KLARON_Image::ImageRef> imageOf8Bits(const base::Data& data, const Layout& layout) {
    auto bitmap = Bitmap::createUninitialized(layout.width, layout.height, layout.space, layout.opaque);
    if (!bitmap) return base::failure(bitmap.error());
    const std::size_t colors = layout.alphaFirst ? 1 : 0;
    for (int y = 0; y < bitmap->height(); ++y) {
        const std::uint8_t* source = rowOf(data, layout, y);
        std::uint8_t* target = bitmap->mutableRow(y);
        for (int x = 0; x < bitmap->width(); ++x, source += 4, target += 4) {
            const std::uint8_t alpha = layout.opaque ? 255 : source[layout.alphaFirst ? 0 : 3];
            for (std::size_t k = 0; k < 3; ++k)
                target[2 - k] = std::min(source[colors + k], alpha); // no colour is more than its alpha
            target[3] = alpha;
        }
    }
    return Image::fromBitmap(std::move(*bitmap));
}

} // namespace

std::optional<base::Data> KLARON_Image::rgbaBitmapDataWithObject(const ImageObject& object, Metadata* properties) {
    if (properties) properties->reset();
    const ImageSourceRef source = createCGImageSourceFromObject(object);
    const ImageRef image = source ? source->imageAtIndex(0) : nullptr;
    if (!image) return std::nullopt;
    const int quarterTurns = quarterTurnsFor(static_cast<int>(
        base::valueForKey(source->propertiesAtIndex(0), platform::draw::kCGImagePropertyOrientation).integerValue()));
    const bool onSide = quarterTurns % 2 == 1;
    const std::int64_t width = onSide ? image->height() : image->width();
    const std::int64_t height = onSide ? image->width() : image->height();

    base::Data data;
    const std::size_t size = bytesPerDeepPixel * static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    try {
        data.bytes.resize(size);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
    if (properties)
        *properties = {
            {std::string(widthKey), width},
            {std::string(heightKey), height},
            {std::string(bitsPerComponentKey), 16},
            {std::string(alphaInfoKey), static_cast<int>(AlphaInfo::premultipliedLast)},
            {std::string(colorSpaceKey), std::make_shared<ColorSpaceValue>(platform::draw::deepColorSpace(*image))}};
    if (const auto read = platform::draw::readDeepPixels(*image, quarterTurns, data.bytes.data()); !read) {
        base::log("ERROR: %@", read.error());
        std::fill(data.bytes.begin(), data.bytes.end(), 0);
    }
    return data;
}

KLARON_Image::ImageRef KLARON_Image::imageFromBitmapData(const base::Data& data, const base::Dictionary& properties) {
    const auto numberOr = [&](std::string_view key, std::int64_t otherwise) {
        const base::Value& value = base::valueForKey(properties, key);
        return value.isNothing() ? otherwise : value.integerValue();
    };
    Layout layout{};
    layout.width = numberOr(widthKey, 0);
    layout.height = numberOr(heightKey, 0);
    if (layout.width <= 0 || layout.height <= 0 || data.empty()) return nullptr;
    const std::int64_t bits = numberOr(bitsPerComponentKey, 16);
    const auto alpha = static_cast<AlphaInfo>(numberOr(alphaInfoKey, static_cast<int>(AlphaInfo::premultipliedLast)));
    layout.alphaFirst = alpha == AlphaInfo::premultipliedFirst || alpha == AlphaInfo::noneSkipFirst;
    layout.opaque = alpha == AlphaInfo::noneSkipLast || alpha == AlphaInfo::noneSkipFirst;
    const bool knownAlpha = layout.alphaFirst || layout.opaque || alpha == AlphaInfo::premultipliedLast;
    if (!knownAlpha || !(bits == 8 || (bits == 16 && !layout.alphaFirst))) return nullptr;

    layout.rowBytes = data.size() / static_cast<std::size_t>(layout.height);
    const std::size_t pixelBytes = static_cast<std::size_t>(bits) / 2;
    if (layout.rowBytes / pixelBytes < static_cast<std::size_t>(layout.width)) return nullptr;
    const auto given = base::valueForKey(properties, colorSpaceKey).object<ColorSpaceValue>();
    layout.space = given && given->space()->model() == ColorModel::rgb ? given->space() : ColorSpace::sRGB();
    try {
        const auto image = bits == 16 ? imageOf16Bits(data, layout) : imageOf8Bits(data, layout);
        return image ? *image : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
