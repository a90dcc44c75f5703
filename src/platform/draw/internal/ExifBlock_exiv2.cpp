#include "ExifBlock.h"

#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <exiv2/exiv2.hpp>

namespace platform::draw {
namespace {

// What the library has to say goes into our errors, not to standard error.
[[maybe_unused]] const bool libraryIsQuiet = (Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute), true);

enum class TagKind { text, comment, bytes, shortInteger };

struct TagRow {
    std::string_view dictionary;
    std::string_view property;
    const char* key;
    TagKind kind;
};
constexpr TagRow tagRows[] = {
    {kCGImagePropertyExifDictionary, kCGImagePropertyExifUserComment, "Exif.Photo.UserComment", TagKind::comment},
    {kCGImagePropertyExifDictionary, kCGImagePropertyExifMakerNote, "Exif.Photo.MakerNote", TagKind::bytes},
    {kCGImagePropertyExifDictionary, kCGImagePropertyExifDateTimeOriginal, "Exif.Photo.DateTimeOriginal",
     TagKind::text},
    {kCGImagePropertyExifDictionary, kCGImagePropertyExifDateTimeDigitized, "Exif.Photo.DateTimeDigitized",
     TagKind::text},
    {kCGImagePropertyTIFFDictionary, kCGImagePropertyTIFFOrientation, "Exif.Image.Orientation", TagKind::shortInteger},
};

const TagRow* rowFor(std::string_view dictionary, std::string_view property) {
    const auto* row = std::find_if(std::begin(tagRows), std::end(tagRows), [&](const TagRow& candidate) {
        return candidate.dictionary == dictionary && candidate.property == property;
    });
    return row == std::end(tagRows) ? nullptr : row;
}

void setTag(Exiv2::ExifData& exif, const char* keyText, const Exiv2::Value& value) {
    const Exiv2::ExifKey key(keyText);
    if (const auto present = exif.findKey(key); present != exif.end())
        present->setValue(&value);
    else
        exif.add(key, &value);
}

void removeTag(Exiv2::ExifData& exif, const char* keyText) {
    if (const auto present = exif.findKey(Exiv2::ExifKey(keyText)); present != exif.end()) exif.erase(present);
}

void setProperty(Exiv2::ExifData& exif, const TagRow& row, const base::Value& value) {
    const std::string text = value.stringValue().value_or("");
    const auto* data = value.as<base::Data>();
    if (text.empty() && !data) return removeTag(exif, row.key);
    switch (row.kind) {
    case TagKind::text: {
        const Exiv2::AsciiValue content(text);
        return setTag(exif, row.key, content);
    }
    case TagKind::comment: {
        const bool isASCII = std::all_of(text.begin(), text.end(), [](unsigned char byte) { return byte < 128; });
        const Exiv2::CommentValue content((isASCII ? "charset=Ascii " : "charset=Unicode ") + text);
        return setTag(exif, row.key, content);
    }
    case TagKind::bytes: {
        Exiv2::DataValue content(Exiv2::undefined);
        if (data)
            content.read(data->bytes.data(), static_cast<long>(data->bytes.size()));
        else
            content.read(reinterpret_cast<const Exiv2::byte*>(text.data()), static_cast<long>(text.size()));
        return setTag(exif, row.key, content);
    }
    case TagKind::shortInteger: {
        Exiv2::UShortValue content;
        content.value_.push_back(static_cast<std::uint16_t>(value.integerValue()));
        return setTag(exif, row.key, content);
    }
    }
}

void setProperties(Exiv2::ExifData& exif, const base::Dictionary& dictionaries) {
    for (const auto& [dictionary, properties] : dictionaries)
        if (const auto* entries = properties.as<base::Dictionary>())
            for (const auto& [property, value] : *entries)
                if (const TagRow* row = rowFor(dictionary, property)) setProperty(exif, *row, value);
}

template <class Work>
base::Result<Bytes> guarded(const Work& work) {
    try {
        return work();
    } catch (const std::exception& problem) {
        return base::failure(imageMetadataErrorDomain, 0,
                             std::string("the metadata can't be written: ") + problem.what());
    }
}

// The library drops large tags from a block that would be too large for a JPEG segment, without a word.
void verify(const Exiv2::ExifData& wanted, const Bytes& block) {
    constexpr const char* ownGroups[] = {"Image", "Photo", "GPSInfo", "Iop", "Thumbnail"}; // makers' tags travel in one
    Exiv2::ExifData written;
    if (!block.empty()) Exiv2::ExifParser::decode(written, block.data(), static_cast<std::uint32_t>(block.size()));
    for (const Exiv2::Exifdatum& datum : wanted) {
        const std::string group = datum.groupName();
        const bool isOwn = std::find(std::begin(ownGroups), std::end(ownGroups), group) != std::end(ownGroups);
        if (isOwn && datum.size() > 0 && written.findKey(Exiv2::ExifKey(datum.key())) == written.end())
            throw std::runtime_error(datum.key() + " finds no room");
    }
}

Bytes encoded(const Exiv2::ExifData& exif, Exiv2::ByteOrder order, Bytes former) {
    Exiv2::Blob blob;
    const auto method =
        Exiv2::ExifParser::encode(blob, former.data(), static_cast<std::uint32_t>(former.size()), order, exif);
    // Nothing in the blob: the tags found room in the former block, which was changed where it stands.
    if (method == Exiv2::wmNonIntrusive) blob = std::move(former);
    verify(exif, blob);
    return blob;
}

} // namespace

bool isWritableProperty(std::string_view dictionary, std::string_view property) {
    return rowFor(dictionary, property) != nullptr;
}

base::Result<Bytes> exifBlock(const ExifOfImage& image) {
    return guarded([&] {
        Exiv2::ExifData exif;
        // What the standard requires of every file, with its own values for the unknown.
        exif["Exif.Image.XResolution"] = Exiv2::URational(72, 1);
        exif["Exif.Image.YResolution"] = Exiv2::URational(72, 1);
        exif["Exif.Image.ResolutionUnit"] = std::uint16_t{2};
        exif["Exif.Image.YCbCrPositioning"] = std::uint16_t{1};
        exif["Exif.Photo.ExifVersion"] = std::string("48 50 51 48");
        exif["Exif.Photo.ComponentsConfiguration"] = std::string("1 2 3 0");
        exif["Exif.Photo.FlashpixVersion"] = std::string("48 49 48 48");
        exif["Exif.Photo.ColorSpace"] = static_cast<std::uint16_t>(image.isSRGB ? 1 : 65535);
        exif["Exif.Photo.PixelXDimension"] = static_cast<std::uint32_t>(image.width);
        exif["Exif.Photo.PixelYDimension"] = static_cast<std::uint32_t>(image.height);
        setProperties(exif, image.properties);
        const base::Value& orientation = base::valueForKey(image.properties, kCGImagePropertyOrientation);
        if (orientation)
            setProperty(exif, *rowFor(kCGImagePropertyTIFFDictionary, kCGImagePropertyTIFFOrientation), orientation);
        return encoded(exif, Exiv2::littleEndian, {});
    });
}

base::Result<Bytes> exifBlockMerging(std::span<const std::uint8_t> block, const base::Dictionary& dictionaries) {
    Exiv2::ExifData exif;
    Exiv2::ByteOrder order = Exiv2::littleEndian;
    Bytes former(block.begin(), block.end()); // may be changed where it stands
    try {
        if (!former.empty())
            order = Exiv2::ExifParser::decode(exif, former.data(), static_cast<std::uint32_t>(former.size()));
    } catch (const std::exception&) {
        order = Exiv2::invalidByteOrder;
    }
    if (order == Exiv2::invalidByteOrder)
        return base::failure(imageMetadataErrorDomain, unreadableExifBlock, "the EXIF metadata can't be read");
    return guarded([&] {
        setProperties(exif, dictionaries);
        return encoded(exif, order, std::move(former));
    });
}

} // namespace platform::draw
