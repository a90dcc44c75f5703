#include "imaging/KLARON_EXIF.h"

#include "base/Log.h"
#include "internal/ErrorPlaces.h"
#include "platform/data/AtomicFile.h"
#include "platform/data/FileTypes.h"
#include "platform/draw/ImageDestination.h"

using namespace platform::draw;

namespace {

// The file to change; nothing, with a log line, for one that is no image.
std::optional<base::URL> imageFile(const ImageObject& image, const char* operation) {
    const auto url = image.fileURL();
    if (url && platform::data::conformsToType(*url, platform::data::kUTTypeImage)) return url;
    base::log("ERROR calling %s\n\t\t file with UT Type \"%@\" at \"%@\" is not recognized as an image ", operation,
              url ? platform::data::typeIdentifierOfFile(*url) : std::nullopt,
              url ? url->absoluteString() : image.description());
    return std::nullopt;
}

} // namespace

ImageSourceRef KLARON_EXIF::createCGImageSourceFromObject(const ImageObject& object,
                                                          const base::Dictionary& withOptions) {
    return KLARON_Image::CGImageSourceCreateWithObject(object, withOptions);
}

std::optional<std::string> KLARON_EXIF::getEXIFUserCommentForImage(const ImageObject& object) {
    return KLARON_Image::getEXIFUserCommentForImage(object);
}

bool KLARON_EXIF::setEXIFUserComment(const std::optional<std::string>& comment, const ImageObject& image,
                                     ErrorPlace returningError) {
    clear(returningError);
    const auto url = image.fileURL();
    const ImageSourceRef source = url ? createCGImageSourceFromObject(image) : nullptr;
    const auto copy = [&]() -> base::Result<base::Data> {
        if (!source) return base::failure(base::cocoaErrorDomain, 0, "it is no image file");
        base::Dictionary properties = source->propertiesAtIndex(0);
        base::Value& exif = properties[std::string(kCGImagePropertyExifDictionary)];
        if (!exif.as<base::Dictionary>()) exif = base::Dictionary();
        exif.as<base::Dictionary>()->insert_or_assign(std::string(kCGImagePropertyExifUserComment),
                                                      base::Value(comment));
        const auto bytes = image.fileBytes();
        return bytes ? copyOfImageFile(*bytes, platform::data::kUTTypeJPEG, properties) : bytes;
    }();
    if (!copy) {
        base::log("ERROR: %@", copy.error());
        report({std::string(base::cocoaErrorDomain), 0,
                base::message("Failed to copy image source at %@", image.description())},
               returningError);
        return false;
    }
    const auto written = platform::data::writeFileAtomically(url->path(), *copy);
    if (!written) report(written.error(), returningError);
    return written.has_value();
}

bool KLARON_EXIF::forImage(const ImageObject& image, const std::optional<base::URL>& saveToDestionation,
                           const ImageFile::ChangeProperties& changeProperties) {
    const auto url = imageFile(image, "+[KLARON_EXIF forImage:saveToDestionation:changeProperties:]");
    return url && ImageFile::changeImageProperties(*url, changeProperties, saveToDestionation);
}

bool KLARON_EXIF::forImage(const ImageObject& image, const std::optional<base::URL>& saveToDestionation,
                           const std::optional<int>& settingOrientation) {
    const auto url = imageFile(image, "+[KLARON_EXIF forImage:saveToDestionation:settingOrientation:]");
    return url && ImageFile::setImageOrientation(*url, settingOrientation, saveToDestionation);
}
