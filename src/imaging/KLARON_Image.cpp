#include "imaging/KLARON_Image.h"

#include "base/Log.h"
#include "platform/data/FileTypes.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/NamedImages.h"

#include <mutex>
#include <numbers>
#include <utility>

using platform::draw::AttributedText;
using platform::draw::ImageMetadata;
using platform::draw::ImageSource;
using platform::draw::TextAttributes;

namespace {

constexpr int previewSize = 1000;

std::optional<int> integerUnder(const base::Dictionary& dictionary, std::string_view key) {
    const base::Value& value = base::valueForKey(dictionary, key);
    if (value.isNothing()) return std::nullopt;
    return static_cast<int>(value.integerValue());
}

std::optional<int> orientationIn(const KLARON_Image::Metadata& metaData) {
    return metaData ? integerUnder(*metaData, platform::draw::kCGImagePropertyOrientation) : std::nullopt;
}

// One key for what a preview is made of; empty for what gets none.
std::string previewKey(const ImageObject& object) {
    if (const auto* path = object.as<std::string>()) return "path " + *path;
    if (const auto* url = object.as<base::URL>()) return "URL " + url->absoluteString();
    if (const auto* data = object.as<base::Data>()) return "data " + std::string(data->asText());
    return {};
}

struct PreviewCache {
    std::mutex mutex;
    std::map<std::string, KLARON_Image::ImageRef> images;
};
PreviewCache& cachePreview() {
    static auto* shared = new PreviewCache; // outlives every user at exit
    return *shared;
}

} // namespace

// -- Opening and metadata --------------------------------------------------------------------------------------------

KLARON_Image::ImageSourceRef KLARON_Image::createCGImageSourceFromObject(const ImageObject& object) {
    return CGImageSourceCreateWithObject(object, {});
}

KLARON_Image::ImageSourceRef KLARON_Image::CGImageSourceCreateWithObject(const ImageObject& object,
                                                                         const base::Dictionary&) {
    const auto orNull = [](base::Result<ImageSourceRef> source) { return source ? *source : nullptr; };
    if (const auto url = object.fileURL()) return orNull(ImageSource::createWithURL(*url));
    if (const auto* data = object.as<base::Data>()) return orNull(ImageSource::createWithData(*data));
    return nullptr;
}

KLARON_Image::ImageRef KLARON_Image::createCGImageFromObject(const ImageObject& object, Metadata* properties) {
    if (properties) properties->reset();
    const ImageSourceRef source = createCGImageSourceFromObject(object);
    if (!source) return nullptr;
    if (properties) *properties = metaDataForImageSource(source);
    return source->imageAtIndex(0);
}

void KLARON_Image::imageFromObject(const ImageObject& object,
                                   const std::function<void(const ImageRef&, std::size_t, const Metadata&)>& reply) {
    if (!reply) return;
    const ImageSourceRef source = createCGImageSourceFromObject(object);
    for (std::size_t index = 0; source && index < source->count(); ++index)
        reply(source->imageAtIndex(index), index, source->propertiesAtIndex(index));
}

KLARON_Image::Metadata KLARON_Image::metaDataForImageSource(const ImageSourceRef& source) {
    return source ? Metadata(source->propertiesAtIndex(0)) : std::nullopt;
}

KLARON_Image::Metadata KLARON_Image::metaDataForImage(const ImageObject& object) {
    return metaDataForImageSource(createCGImageSourceFromObject(object));
}

std::optional<int> KLARON_Image::tiffOrientationForMetadata(const ImageMetadata& metadata) {
    const base::Value* value = metadata.valueMatchingImageProperty(platform::draw::kCGImagePropertyTIFFDictionary,
                                                                   platform::draw::kCGImagePropertyTIFFOrientation);
    const std::string text = value ? value->textOr("") : "";
    if (text.empty()) return std::nullopt;
    return static_cast<int>(value->integerValue());
}

std::optional<int> KLARON_Image::orientationForImage(const ImageObject& object) {
    return orientationIn(metaDataForImage(object));
}

std::optional<double> KLARON_Image::rotationForImage(const ImageObject& object) {
    return rotationForImageMetaData(metaDataForImage(object));
}

std::optional<double> KLARON_Image::rotationForImageMetaData(const Metadata& metaData) {
    switch (orientationIn(metaData).value_or(1)) {
    case 3:
        return std::numbers::pi;
    case 6:
        return std::numbers::pi / 2;
    case 8:
        return -std::numbers::pi / 2;
    default:
        return std::nullopt;
    }
}

base::AffineTransform KLARON_Image::drawingTransformForImage(const ImageObject&) {
    return {};
}

base::Size KLARON_Image::sizeForImageMetaData(const Metadata& metaData, bool oriented) {
    if (!metaData || !oriented) return {};
    const auto width = integerUnder(*metaData, platform::draw::kCGImagePropertyPixelWidth);
    const auto height = integerUnder(*metaData, platform::draw::kCGImagePropertyPixelHeight);
    if (!width || !height) return {};
    const base::Size size{static_cast<double>(*width), static_cast<double>(*height)};
    const int orientation = orientationIn(metaData).value_or(1);
    return orientation >= 5 && orientation <= 8 ? base::Size{size.height, size.width} : size;
}

base::Size KLARON_Image::sizeForImage(const ImageObject& object) {
    if (const auto* image = object.as<KLARON_ImageRef>()) return (*image)->size();
    return sizeForImageMetaData(metaDataForImage(object));
}

base::Size KLARON_Image::orientedSizeForImage(const ImageObject& object) {
    if (const auto* image = object.as<KLARON_ImageRef>()) return (*image)->orientedSize();
    return orientedSizeForImageMetaData(metaDataForImage(object));
}

// -- Making instances ------------------------------------------------------------------------------------------------

KLARON_ImageRef KLARON_Image::initWithCGImageSource(ImageSourceRef source) {
    auto image = std::make_shared<KLARON_Image>();
    image->imageSource_ = std::move(source);
    return image;
}

KLARON_ImageRef KLARON_Image::initWithCGImage(ImageRef cgImage, Metadata metaData) {
    auto image = std::make_shared<KLARON_Image>();
    image->cgImageInternal_ = std::move(cgImage);
    image->metaData_ = std::move(metaData);
    return image;
}

KLARON_ImageRef KLARON_Image::initWithAttributedString(AttributedText text) {
    auto image = std::make_shared<KLARON_Image>();
    image->stringInternal_ = std::move(text);
    image->borderClipsContent_ = false;
    return image;
}

KLARON_ImageRef KLARON_Image::imageWithObject(const ImageObject& object) {
    if (const auto* image = object.as<ImageRef>()) return initWithCGImage(*image);
    if (ImageSourceRef source = createCGImageSourceFromObject(object)) return initWithCGImageSource(std::move(source));
    const auto* name = object.as<std::string>();
    ImageRef named = name ? platform::draw::imageNamed(*name) : nullptr;
    return named ? initWithCGImage(std::move(named)) : nullptr;
}

KLARON_ImageRef KLARON_Image::imageWithDrawingString(std::string_view text,
                                                     const std::optional<TextAttributes>& attributes) {
    return imageWithDrawingString(AttributedText{std::string(text), {}}, attributes);
}

KLARON_ImageRef KLARON_Image::imageWithDrawingString(AttributedText text,
                                                     const std::optional<TextAttributes>& attributes) {
    if (attributes) text.attributes = *attributes;
    return initWithAttributedString(std::move(text));
}

KLARON_ImageRef KLARON_Image::previewImageWithObject(const ImageObject& object) {
    const std::string key = previewKey(object);
    if (key.empty()) return nullptr;
    PreviewCache& cache = cachePreview();
    {
        const std::lock_guard lock(cache.mutex);
        if (const auto found = cache.images.find(key); found != cache.images.end())
            return initWithCGImage(found->second);
    }
    const ImageSourceRef source = createCGImageSourceFromObject(object);
    if (!source) return nullptr;
    const auto thumbnail = source->thumbnailAtIndex(0, previewSize, true);
    if (!thumbnail || !*thumbnail) return nullptr;
    const std::lock_guard lock(cache.mutex);
    cache.images.insert_or_assign(key, *thumbnail);
    return initWithCGImage(*thumbnail);
}

// -- Geometry --------------------------------------------------------------------------------------------------------

const KLARON_Image::ImageRef& KLARON_Image::cgImage() {
    if (!cgImageInternal_ && imageSource_) cgImageInternal_ = imageSource_->imageAtIndex(0);
    return cgImageInternal_;
}

const KLARON_Image::Metadata& KLARON_Image::metaData() {
    if (!metaData_ && imageSource_) metaData_ = metaDataForImageSource(imageSource_);
    return metaData_;
}

int KLARON_Image::orientationNatural() {
    return orientationIn(metaData()).value_or(1);
}

int KLARON_Image::orientation() {
    return orientationForced_ ? *orientationForced_ : orientationNatural();
}

base::Size KLARON_Image::actualSize() {
    const ImageRef& image = cgImage();
    return image ? base::Size{static_cast<double>(image->width()), static_cast<double>(image->height())} : base::Size{};
}

base::Size KLARON_Image::size() {
    return metaData() ? sizeForImageMetaData(metaData()) : actualSize();
}

base::Size KLARON_Image::orientedSizeForOrientation(int orientation, base::Size size) {
    return orientation == 6 || orientation == 8 ? base::Size{size.height, size.width} : size;
}

base::Size KLARON_Image::orientedSizeForSize(base::Size size) {
    return orientedSizeForOrientation(orientation(), size);
}

base::Size KLARON_Image::orientedSize() {
    return orientedSizeForSize(actualSize());
}

base::Size KLARON_Image::naturalOrientedSize() {
    return orientedSizeForOrientation(orientationNatural(), actualSize());
}

KLARON_Image::ColorSpaceRef KLARON_Image::colorSpace() {
    if (const ImageRef& image = cgImage()) return image->colorSpace();
    if (!colorSpace_) colorSpace_ = platform::draw::ColorSpace::sRGB();
    return colorSpace_;
}

platform::draw::AlphaInfo KLARON_Image::alphaInfo() {
    const ImageRef& image = cgImage();
    return image ? image->alphaInfo() : platform::draw::AlphaInfo::premultipliedLast;
}

// -- Helpers ---------------------------------------------------------------------------------------------------------

base::Rect KLARON_Image::normalizedRect(const base::Rect& rect, base::Size size) {
    if (size.width == 0 || size.height == 0) return {};
    return {rect.x / size.width, rect.y / size.height, rect.width / size.width, rect.height / size.height};
}

base::Point KLARON_Image::normalizedPoint(base::Point point, base::Size size) {
    if (size.width == 0 || size.height == 0) return {};
    return {point.x / size.width, point.y / size.height};
}

base::Rect KLARON_Image::denormalizedRect(const base::Rect& rect, base::Size size) {
    return {rect.x * size.width, rect.y * size.height, rect.width * size.width, rect.height * size.height};
}

base::Point KLARON_Image::denormalizedPoint(base::Point point, base::Size size) {
    return {point.x * size.width, point.y * size.height};
}

std::shared_ptr<ImageValue> KLARON_Image::imageFromCGImage(const ImageRef& image) {
    return image ? std::make_shared<ImageValue>(image) : nullptr;
}

void KLARON_Image::saveJPEGImageAsTIFF(const ImageObject& object) {
    const auto destination = platform::draw::ImageDestination::createWithData(platform::data::kUTTypeTIFF);
    if (destination) (*destination)->addImage(createCGImageFromObject(object), {});
}

KLARON_color::Components KLARON_Image::colorComponentsForHexCode(std::optional<std::string_view> code) {
    if (!code) base::log("using default color black");
    return KLARON_color::colorComponentsForHexCode(code);
}

std::string KLARON_Image::hexcodeForColor(const platform::draw::Color& color) {
    return KLARON_color::hexcodeForColor(color);
}

std::string KLARON_Image::hexcodeForColorIgnoringAlpha(const platform::draw::Color& color) {
    return KLARON_color::hexcodeForColorIgnoringAlpha(color);
}

std::string KLARON_Image::hexcodeForColor(const platform::draw::Color& color, bool includingAlpha) {
    return KLARON_color::hexcodeForColor(color, includingAlpha);
}

platform::draw::Color KLARON_Image::createColorWithHexcode(std::optional<std::string_view> code,
                                                           const ColorSpaceRef& space) {
    return KLARON_color::createColorWithHexcode(code, space);
}

void KLARON_Image::setColorWithHexcodeForKey(std::string_view code, std::string_view key) {
    cgColorsDict_.insert_or_assign(
        std::string(key), std::make_shared<const platform::draw::Color>(createColorWithHexcode(code, colorSpace_)));
}

KLARON_color::ColorRef KLARON_Image::colorForKey(std::string_view key) const {
    const auto found = cgColorsDict_.find(key);
    return found == cgColorsDict_.end() ? nullptr : found->second;
}

KLARON_color::ColorRef KLARON_Image::colorForHexcode(std::optional<std::string_view> code) {
    if (!code) return nullptr;
    if (KLARON_color::ColorRef known = colorForKey(*code)) return known;
    setColorWithHexcodeForKey(*code, *code);
    return colorForKey(*code);
}
