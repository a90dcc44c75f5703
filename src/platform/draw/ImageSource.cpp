#include "platform/draw/ImageSource.h"

#include "internal/ByteSource.h"
#include "internal/ExifProperties.h"
#include "internal/PictureFormat.h"
#include "internal/ScaledPixels.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <span>

namespace platform::draw {

namespace {

constexpr std::array<std::string_view, 4> heicBrands{"heic", "heix", "heim", "heis"};
constexpr std::array<std::string_view, 1> heifBrands{"mif1"};
bool hasBrand(std::string_view beginning, std::span<const std::string_view> brands) {
    return beginning.substr(4, 4) == "ftyp" &&
           std::find(brands.begin(), brands.end(), beginning.substr(8, 4)) != brands.end();
}

constexpr std::array formats{
    PictureFormat{"public.jpeg", [](std::string_view begin) { return begin.starts_with("\xFF\xD8\xFF"); }, openJpeg},
    PictureFormat{"public.png", [](std::string_view begin) { return begin.starts_with("\x89PNG\r\n\x1A\n"); }, openPng},
    PictureFormat{"public.tiff",
                  [](std::string_view begin) {
                      using namespace std::string_view_literals;
                      return begin.starts_with("II*\0"sv) || begin.starts_with("MM\0*"sv) ||
                             begin.starts_with("II+\0"sv) || begin.starts_with("MM\0+"sv);
                  },
                  openTiff},
    PictureFormat{"com.adobe.photoshop-image", [](std::string_view begin) { return begin.starts_with("8BPS"); },
                  openPsd},
    PictureFormat{"com.adobe.pdf", [](std::string_view begin) { return begin.starts_with("%PDF-"); }, openPdf},
    PictureFormat{"org.webmproject.webp",
                  [](std::string_view begin) { return begin.starts_with("RIFF") && begin.substr(8, 4) == "WEBP"; },
                  openWebp},
    PictureFormat{"com.compuserve.gif", [](std::string_view begin) { return begin.starts_with("GIF8"); }, openGif},
    PictureFormat{"com.microsoft.bmp", [](std::string_view begin) { return begin.starts_with("BM"); }, openBmp},
    PictureFormat{"public.heic", [](std::string_view begin) { return hasBrand(begin, heicBrands); }, openHeic},
    PictureFormat{"public.heif", [](std::string_view begin) { return hasBrand(begin, heifBrands); }, openHeic},
};

std::string_view modelName(ColorModel model) {
    switch (model) {
    case ColorModel::monochrome:
        return "Gray";
    case ColorModel::cmyk:
        return "CMYK";
    case ColorModel::lab:
        return "Lab";
    default:
        return "RGB";
    }
}

base::Dictionary propertiesOf(const Picture& picture) {
    base::Dictionary properties = exifProperties(picture.exif);
    const PixelSource& pixels = *picture.pixels;
    properties.insert_or_assign(std::string(kCGImagePropertyPixelWidth), pixels.width());
    properties.insert_or_assign(std::string(kCGImagePropertyPixelHeight), pixels.height());
    properties.insert_or_assign(std::string(kCGImagePropertyDepth), picture.bitsPerComponent);
    properties.insert_or_assign(std::string(kCGImagePropertyHasAlpha), !pixels.isOpaque());
    properties.insert_or_assign(std::string(kCGImagePropertyColorModel), modelName(pixels.colorSpace()->model()));
    if (!pixels.colorSpace()->iccData().empty())
        properties.insert_or_assign(std::string(kCGImagePropertyProfileName), pixels.colorSpace()->name());
    if (picture.dpiWidth) properties.insert_or_assign(std::string(kCGImagePropertyDPIWidth), *picture.dpiWidth);
    if (picture.dpiHeight) properties.insert_or_assign(std::string(kCGImagePropertyDPIHeight), *picture.dpiHeight);
    for (const auto& [key, value] : picture.properties)
        properties.insert_or_assign(key, value);
    if (picture.orientation) properties.emplace(kCGImagePropertyOrientation, *picture.orientation);
    return properties;
}

/// How a picture of this orientation is put upright: mirrored first, then turned clockwise.
struct Uprighting {
    int quarterTurns;
    bool mirrored;
};
constexpr std::array<Uprighting, 9> uprightings{
    {{0, false}, {0, false}, {0, true}, {2, false}, {2, true}, {3, true}, {1, false}, {1, true}, {3, false}}};

} // namespace

ImageSource::ImageSource(std::string_view typeIdentifier, std::vector<Entry> entries)
    : typeIdentifier_(typeIdentifier), entries_(std::move(entries)) {}

base::Result<ImageSourceRef> ImageSource::create(std::shared_ptr<const ByteSource> bytes) {
    std::array<char, 16> beginning{};
    {
        const auto reader = bytes->open();
        if (!reader) return base::failure(reader.error());
        const std::size_t size = (*reader)->read(0, beginning.data(), beginning.size());
        if (size == 0) return pictureFailure(*bytes, "it is empty");
    }
    const auto format = std::find_if(formats.begin(), formats.end(), [&](const PictureFormat& candidate) {
        return candidate.recognizes({beginning.data(), beginning.size()});
    });
    if (format == formats.end()) return pictureFailure(*bytes, "it is not a picture of a known kind");
    try {
        auto pictures = format->open(bytes);
        if (!pictures) return base::failure(pictures.error());
        std::vector<Entry> entries;
        for (const Picture& picture : *pictures)
            entries.push_back({picture.pixels, propertiesOf(picture)});
        return ImageSourceRef(new ImageSource(format->typeIdentifier, std::move(entries)));
    } catch (const std::bad_alloc&) {
        return pictureFailure(*bytes, "no memory");
    }
}

base::Result<ImageSourceRef> ImageSource::createWithURL(const base::URL& url) {
    auto bytes = ByteSource::ofFile(url);
    if (!bytes) return base::failure(bytes.error());
    return create(std::move(*bytes));
}

base::Result<ImageSourceRef> ImageSource::createWithData(base::Data data) {
    return create(ByteSource::ofData(std::move(data)));
}

std::vector<std::string_view> ImageSource::typeIdentifiers() {
    std::vector<std::string_view> types;
    for (const PictureFormat& format : formats)
        types.push_back(format.typeIdentifier);
    return types;
}

ImageRef ImageSource::imageAtIndex(std::size_t index) const {
    if (index >= count()) return nullptr;
    const auto& pixels = entries_[index].pixels;
    return std::make_shared<Image>(pixels, 0, 0, pixels->width(), pixels->height());
}

const base::Dictionary& ImageSource::propertiesAtIndex(std::size_t index) const {
    static const base::Dictionary none;
    return index < count() ? entries_[index].properties : none;
}

base::Result<ImageRef> ImageSource::thumbnailAtIndex(std::size_t index, int maxPixelSize, bool withTransform,
                                                     Quality quality) const {
    const ImageRef image = imageAtIndex(index);
    if (!image || maxPixelSize < 1) return base::failure(base::cocoaErrorDomain, 0, "there is no such picture");
    const double scale = std::min(1.0, static_cast<double>(maxPixelSize) / std::max(image->width(), image->height()));
    const int width = std::max(1, static_cast<int>(std::lround(image->width() * scale)));
    const int height = std::max(1, static_cast<int>(std::lround(image->height() * scale)));
    const bool isRGB = image->colorSpace()->model() == ColorModel::rgb;
    const ColorSpaceRef& space = isRGB ? image->colorSpace() : ColorSpace::sRGB();

    const std::int64_t orientation =
        base::valueForKey(propertiesAtIndex(index), kCGImagePropertyOrientation).integerValue();
    const Uprighting turn = uprightings[withTransform ? static_cast<std::size_t>(orientation) : 0];
    if (turn.quarterTurns == 0 && !turn.mirrored) {
        auto bitmap = scaledBitmap(*image, width, height, quality, space);
        if (!bitmap) return base::failure(bitmap.error());
        return Image::fromBitmap(std::move(*bitmap));
    }
    const bool onSide = turn.quarterTurns % 2 == 1;
    auto bitmap = Bitmap::create(onSide ? height : width, onSide ? width : height, space, image->isOpaque());
    if (!bitmap) return base::failure(bitmap.error());
    const PixelRect whole{0, 0, bitmap->width(), bitmap->height()};
    const PixelTarget target{bitmap->mutablePixels(), bitmap->stride(), whole.width, whole.height, space};
    const Placement placement{
        {0, 0, static_cast<double>(whole.width), static_cast<double>(whole.height)}, turn.quarterTurns, turn.mirrored};
    if (auto drawn = drawScaled(*image, placement, quality, 1, whole, target); !drawn)
        return base::failure(drawn.error());
    return Image::fromBitmap(std::move(*bitmap));
}

} // namespace platform::draw
