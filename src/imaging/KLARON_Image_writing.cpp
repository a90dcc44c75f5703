#include "base/Log.h"
#include "base/Text.h"
#include "imaging/KLARON_Image.h"
#include "internal/ErrorPlaces.h"
#include "platform/data/AtomicFile.h"
#include "platform/data/Dates.h"
#include "platform/data/FileTypes.h"
#include "platform/draw/ImageDestination.h"

#include <cerrno>
#include <filesystem>
#include <utility>

using namespace platform::draw;

namespace {

constexpr std::string_view exifDateFormat = "yyyy:MM:dd HH:mm:ss";
constexpr const char* writeImageName = "+[KLARON_Image writeImage:toDestination:options:returningError:]";
constexpr const char* writeImageFileName =
    "+[KLARON_Image writeImageFile:toDestination:addingEXIFUserComment:overwriteExisting:returningError:]";

std::string presentTime() {
    return platform::data::stringWithUTSFormat(platform::data::now(), exifDateFormat);
}

base::Error cocoaError(std::string text) {
    return {std::string(base::cocoaErrorDomain), 0, std::move(text)};
}

void reportBadArguments(const char* operation, const std::string& source, const base::Value& destination,
                        ErrorPlace place) {
    report({std::string(base::posixErrorDomain), EINVAL,
            base::message("%s ERROR: Bad input arguments src:%@ dst:%@", operation, source, destination)},
           place);
}

// What a path text or a URL names, which may be no file; nothing for anything else.
std::optional<base::URL> destinationURL(const base::Value& item) {
    const auto* url = item.as<base::URL>();
    return url ? *url : ImageObject(item).fileURL();
}

// "a.jpg" -> "a 1.jpg", "a 7.jpg" -> "a 8.jpg". A number that has no next one is taken for a part of the name.
base::URL nextNumbered(const base::URL& url) {
    const std::string name = url.deletingPathExtension().lastPathComponent();
    const std::size_t lastOther = name.find_last_not_of("0123456789");
    const bool endsInNumber = lastOther != std::string::npos && lastOther + 1 < name.size() && name[lastOther] == ' ';
    const std::int64_t number = endsInNumber ? base::integerValue(std::string_view(name).substr(lastOther + 1)) : 0;
    const bool isNumbered = endsInNumber && number < INT64_MAX;
    const std::string stem = isNumbered ? name.substr(0, lastOther) : name;
    return url.deletingLastPathComponent()
        .appendingPathComponent(stem + " " + std::to_string(isNumbered ? number + 1 : 1))
        .appendingPathExtension(url.pathExtension());
}

bool exists(const base::URL& url) {
    return platform::data::conformsToType(url, platform::data::kUTTypeItem);
}

struct WriteOptions {
    explicit WriteOptions(const base::Dictionary& options) {
        const auto first = [&](std::string_view key, std::string_view otherKey) -> const base::Value& {
            const base::Value& value = base::valueForKey(options, key);
            return value || otherKey.empty() ? value : base::valueForKey(options, otherKey);
        };
        comment = first(klaronImageKey_exifComment, kCGImagePropertyExifUserComment).stringValue().value_or(comment);
        note = first(klaronImageKey_exifNote, kCGImagePropertyExifMakerNote).stringValue().value_or(note);
        downsample = first(klaronImageKey_downsample, {}).boolValue();
        maximum = first(klaronImageKey_maxPixelLength, {}).doubleValue();
        type = first(klaronImageKey_utType, {}).stringValue().value_or(type);
        if (const auto& value =
                first(klaronImageKey_lossyCompressionQuality, kCGImageDestinationLossyCompressionQuality))
            quality = value.doubleValue();
        if (const auto& value = first(klaronImageKey_overwriteExistingFile, {})) overwrite = value.boolValue();
    }
    std::string comment = "VELM comment";
    std::string note = "VELM XML";
    bool downsample = false;
    double maximum = 0;
    std::string type = std::string(platform::data::kUTTypeJPEG);
    double quality = 0.85;
    bool overwrite = true;
};

base::Dictionary propertiesFor(const WriteOptions& options) {
    return {
        {std::string(kCGImageDestinationLossyCompressionQuality), options.quality},
        {std::string(kCGImagePropertyOrientation), 1}, // what is written is upright
        {std::string(kCGImagePropertyExifDictionary),
         base::Dictionary{{std::string(kCGImagePropertyExifMakerNote), options.note},
                          {std::string(kCGImagePropertyExifUserComment), options.comment},
                          {std::string(kCGImagePropertyExifDateTimeOriginal), presentTime()}}},
    };
}

// One file. Answers the result of finalizing, or nothing when it did not come to that.
std::optional<bool> writeItem(const ImageRef& image, const base::Value& item, const base::URL& wanted,
                              const WriteOptions& options, base::Dictionary& properties, ErrorPlace place,
                              WrittenFiles writtenFiles) {
    const base::URL url = options.overwrite ? wanted : KLARON_Image::URLWithoutOverwriting(wanted);
    const auto failedToCreate = [&](const base::Error* why) -> std::optional<bool> {
        if (place && !*place) {
            *place = cocoaError(base::message("Failed to create CGImageDestination for %@", item));
            if (why) base::log("ERROR: %@", *why);
        }
        return std::nullopt;
    };
    if (!KLARON_Image::makeEnclosingDirectoryForFileURL(url, place)) return failedToCreate(nullptr);
    const auto destination =
        ImageDestination::createWithURL(url, options.type, options.overwrite ? NextName() : nextNumbered);
    if (!destination) return failedToCreate(&destination.error());
    properties[std::string(kCGImagePropertyExifDictionary)].as<base::Dictionary>()->insert_or_assign(
        std::string(kCGImagePropertyExifDateTimeDigitized), presentTime());
    (*destination)->addImage(image, properties);
    const auto finalized = (*destination)->finalize();
    if (!finalized) {
        base::log("ERROR: %@", finalized.error());
        report(cocoaError(base::message("Failed to finalize image to %@", item)), place);
    } else if (writtenFiles) {
        writtenFiles->push_back((*destination)->url());
    }
    return finalized.has_value();
}

} // namespace

bool KLARON_Image::writeImage(const ImageRef& image, const base::Value& destination, ErrorPlace returningError) {
    return writeImage(image, destination, {}, returningError);
}

bool KLARON_Image::writeImage(const ImageRef& image, const base::Value& destination, const base::Dictionary& dictionary,
                              ErrorPlace returningError, WrittenFiles writtenFiles) {
    clear(returningError);
    if (!image || !destination) {
        reportBadArguments(writeImageName, ImageObject(image).description(), destination, returningError);
        return false;
    }
    const WriteOptions options(dictionary);
    base::Dictionary properties = propertiesFor(options);
    ImageRef written = image;
    if (options.downsample && (image->width() > options.maximum || image->height() > options.maximum))
        written = initWithCGImage(image)->copyWithMaxDimension(options.maximum);

    const auto* several = destination.as<base::Array>();
    const base::Array items = several ? *several : base::Array{destination};
    bool result = false;
    for (const base::Value& item : items) {
        const auto given = destinationURL(item);
        if (!given) {
            const base::Error error =
                cocoaError(base::message("Passed parameter to %s not a path or URL", writeImageName));
            if (returningError) *returningError = error;
            base::log("%@", error);
            continue;
        }
        const base::URL wanted =
            given->isFileURL()
                ? platform::data::appendingPathExtensionForType(given->deletingPathExtension(), options.type)
                : *given; // has no folder, and fails there
        result = writeItem(written, item, wanted, options, properties, returningError, writtenFiles).value_or(result);
    }
    return result;
}

bool KLARON_Image::writeImageFile(const ImageObject& source, const base::Value& destination,
                                  const std::optional<std::string>& comment, bool overwriteExisting,
                                  ErrorPlace returningError, WrittenFiles writtenFiles) {
    clear(returningError);
    const auto url = destinationURL(destination);
    if (!url || !url->isFileURL() || !createCGImageSourceFromObject(source)) {
        reportBadArguments(writeImageFileName, source.description(), destination, returningError);
        return false;
    }
    ImageMetadata metadata;
    if (comment && !comment->empty() &&
        !metadata.setValueMatchingImageProperty(kCGImagePropertyExifDictionary, kCGImagePropertyExifUserComment,
                                                *comment))
        report({std::string(imageMetadataErrorDomain), 0,
                base::message("Failed to set %@ CGImageMetadataSetValueMatchingImageProperty",
                              kCGImagePropertyExifUserComment)},
               returningError);

    const auto bytes = source.fileBytes();
    const auto copy = bytes ? copyOfImageFile(*bytes, platform::data::kUTTypeJPEG, metadata.dictionaries()) : bytes;
    if (!copy) {
        report(copy.error(), returningError);
        return false;
    }
    if (!makeEnclosingDirectoryForFileURL(*url, returningError)) return false;
    const auto written = overwriteExisting
                             ? platform::data::writeFileAtomically(url->path(), *copy).map([&] { return *url; })
                             : writeWithoutReplacing(*copy, URLWithoutOverwriting(*url), nextNumbered);
    if (!written) {
        report(written.error(), returningError);
        return false;
    }
    if (writtenFiles) writtenFiles->push_back(*written);
    return true;
}

bool KLARON_Image::setEXIFUserComment(const std::optional<std::string>& comment, const base::Value& image,
                                      ErrorPlace returningError) {
    return writeImageFile(ImageObject(image), image, comment, true, returningError);
}

std::optional<std::string> KLARON_Image::getEXIFUserCommentForImage(const ImageObject& object) {
    const Metadata metaData = metaDataForImage(object);
    if (!metaData) return std::nullopt;
    const auto* exif = base::valueForKey(*metaData, kCGImagePropertyExifDictionary).as<base::Dictionary>();
    return exif ? base::textForKey(*exif, kCGImagePropertyExifUserComment) : std::nullopt;
}

bool KLARON_Image::makeEnclosingDirectoryForFileURL(const base::URL& url, ErrorPlace returningError) {
    clear(returningError);
    const std::string folder = url.deletingLastPathComponent().path();
    if (!url.isFileURL() || folder.empty()) return false;
    std::error_code code;
    std::filesystem::create_directories(folder, code);
    if (!code && !std::filesystem::is_directory(folder, code) && !code)
        code = std::make_error_code(std::errc::not_a_directory);
    if (!code) return true;
    const base::Error error = base::systemError(code.value(), "cannot make the folder " + folder);
    base::log("ERROR: %@", error);
    if (returningError) *returningError = error;
    return false;
}

base::URL KLARON_Image::URLWithoutOverwriting(const base::URL& url) {
    base::URL free = url;
    while (exists(free))
        free = nextNumbered(free);
    return free;
}
