#include "base/Log.h"
#include "internal/PictureCopy.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageSource.h"

#include <algorithm>

namespace platform::draw {
namespace {

struct CopyableType {
    std::string_view typeIdentifier;
    PictureCopier copy;
};
constexpr CopyableType copyableTypes[] = {
    {"public.jpeg", copyJpeg},
    {"public.png", copyPng},
    {"public.tiff", copyTiff},
    {"org.webmproject.webp", copyWebp},
    {"com.adobe.photoshop-image", copyPsd},
};

bool isAbsent(const base::Value& value) {
    const auto* text = value.as<std::string>();
    return value.isNothing() || (text && text->empty());
}

void addChanges(const base::Dictionary& former, const base::Dictionary& wanted, std::string_view dictionary,
                base::Dictionary& changes) {
    for (const auto& [property, value] : wanted) {
        const base::Value& present = base::valueForKey(former, property);
        if (value == present || (isAbsent(value) && isAbsent(present)) || value.as<base::Dictionary>()) continue;
        if (isWritableProperty(dictionary, property))
            changes.insert_or_assign(property, value);
        else
            base::log("WARNING: the image property \"%@\" can't be written", property);
    }
}

// Those of the wanted properties that the file does not have so: what is written anew may lose digits.
base::Dictionary changedProperties(const base::Data& file, const base::Dictionary& wanted) {
    const auto source = ImageSource::createWithData(file);
    const base::Dictionary former = source ? (*source)->propertiesAtIndex(0) : base::Dictionary();
    base::Dictionary changes;
    addChanges(former, wanted, {}, changes);
    for (const auto& [name, content] : wanted) {
        const auto* entries = content.as<base::Dictionary>();
        if (!entries) continue;
        const auto* present = base::valueForKey(former, name).as<base::Dictionary>();
        base::Dictionary part;
        addChanges(present ? *present : base::Dictionary(), *entries, name, part);
        if (!part.empty()) changes.insert_or_assign(name, std::move(part));
    }
    return changes;
}

} // namespace

base::Result<base::Data> copyOfImageFile(const base::Data& file, std::string_view typeIdentifier,
                                         const base::Dictionary& properties) {
    const auto* type = std::find_if(std::begin(copyableTypes), std::end(copyableTypes),
                                    [&](const CopyableType& row) { return row.typeIdentifier == typeIdentifier; });
    if (type == std::end(copyableTypes))
        return base::failure(base::cocoaErrorDomain, 0,
                             "images of type \"" + std::string(typeIdentifier) +
                                 "\" can't be copied with other properties");
    return type->copy(file.bytes, properties.empty() ? properties : changedProperties(file, properties));
}

base::Result<Bytes> mergedExif(View formerBlock, const base::Dictionary& properties) {
    auto block = exifBlockMerging(formerBlock, properties);
    if (!block && block.error().code == unreadableExifBlock) {
        base::log("WARNING: unreadable EXIF metadata is replaced");
        block = exifBlockMerging({}, properties);
    }
    return block;
}

std::optional<Density> densityIn(const base::Dictionary& properties) {
    const double width = base::valueForKey(properties, kCGImagePropertyDPIWidth).doubleValue(),
                 height = base::valueForKey(properties, kCGImagePropertyDPIHeight).doubleValue();
    if (!(width > 0) && !(height > 0)) return std::nullopt;
    return Density{width > 0 ? width : height, height > 0 ? height : width};
}

tl::unexpected<base::Error> copyFailure(std::string_view kind, std::string_view why) {
    return base::failure(base::cocoaErrorDomain, 0,
                         "the source can't be copied as " + std::string(kind) + ": " + std::string(why));
}

bool hasTextAt(View bytes, std::size_t position, std::string_view text) {
    return position <= bytes.size() && text.size() <= bytes.size() - position &&
           std::equal(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position),
                      [](char left, std::uint8_t right) { return static_cast<std::uint8_t>(left) == right; });
}

void append(Bytes& target, View bytes) {
    target.insert(target.end(), bytes.begin(), bytes.end());
}

} // namespace platform::draw
