#include "ExifBlock.h"

#include "ByteOrder.h"
#include "UnicodeText.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <cmath>

namespace platform::draw {
namespace {

enum class TagKind { text, comment, bytes, shortInteger, rational };

struct TagRow {
    std::string_view dictionary; ///< Empty for the top level.
    std::string_view property;
    TiffPlace place;
    std::uint16_t tag;
    TagKind kind;
};
constexpr std::string_view exif = kCGImagePropertyExifDictionary, tiff = kCGImagePropertyTIFFDictionary;
constexpr std::uint16_t resolutionUnitTag = 0x0128;
constexpr TagRow tagRows[] = {
    {{}, kCGImagePropertyOrientation, TiffPlace::image, 0x0112, TagKind::shortInteger},
    {{}, kCGImagePropertyDPIWidth, TiffPlace::image, 0x011A, TagKind::rational},
    {{}, kCGImagePropertyDPIHeight, TiffPlace::image, 0x011B, TagKind::rational},
    {tiff, kCGImagePropertyTIFFOrientation, TiffPlace::image, 0x0112, TagKind::shortInteger},
    {tiff, "DocumentName", TiffPlace::image, 0x010D, TagKind::text},
    {tiff, kCGImagePropertyTIFFImageDescription, TiffPlace::image, 0x010E, TagKind::text},
    {tiff, kCGImagePropertyTIFFMake, TiffPlace::image, 0x010F, TagKind::text},
    {tiff, kCGImagePropertyTIFFModel, TiffPlace::image, 0x0110, TagKind::text},
    {tiff, "XResolution", TiffPlace::image, 0x011A, TagKind::rational},
    {tiff, "YResolution", TiffPlace::image, 0x011B, TagKind::rational},
    {tiff, "ResolutionUnit", TiffPlace::image, resolutionUnitTag, TagKind::shortInteger},
    {tiff, kCGImagePropertyTIFFSoftware, TiffPlace::image, 0x0131, TagKind::text},
    {tiff, kCGImagePropertyTIFFDateTime, TiffPlace::image, 0x0132, TagKind::text},
    {tiff, kCGImagePropertyTIFFArtist, TiffPlace::image, 0x013B, TagKind::text},
    {tiff, "HostComputer", TiffPlace::image, 0x013C, TagKind::text},
    {tiff, kCGImagePropertyTIFFCopyright, TiffPlace::image, 0x8298, TagKind::text},
    {exif, kCGImagePropertyExifDateTimeOriginal, TiffPlace::exif, 0x9003, TagKind::text},
    {exif, kCGImagePropertyExifDateTimeDigitized, TiffPlace::exif, 0x9004, TagKind::text},
    {exif, "OffsetTime", TiffPlace::exif, 0x9010, TagKind::text},
    {exif, "OffsetTimeOriginal", TiffPlace::exif, 0x9011, TagKind::text},
    {exif, "OffsetTimeDigitized", TiffPlace::exif, 0x9012, TagKind::text},
    {exif, kCGImagePropertyExifMakerNote, TiffPlace::exif, 0x927C, TagKind::bytes},
    {exif, kCGImagePropertyExifUserComment, TiffPlace::exif, 0x9286, TagKind::comment},
    {exif, "SubsecTime", TiffPlace::exif, 0x9290, TagKind::text},
    {exif, "SubsecTimeOriginal", TiffPlace::exif, 0x9291, TagKind::text},
    {exif, "SubsecTimeDigitized", TiffPlace::exif, 0x9292, TagKind::text},
    {exif, "ImageUniqueID", TiffPlace::exif, 0xA420, TagKind::text},
    {exif, "CameraOwnerName", TiffPlace::exif, 0xA430, TagKind::text},
    {exif, "BodySerialNumber", TiffPlace::exif, 0xA431, TagKind::text},
    {exif, "LensMake", TiffPlace::exif, 0xA433, TagKind::text},
    {exif, "LensModel", TiffPlace::exif, 0xA434, TagKind::text},
};

const TagRow* rowFor(std::string_view dictionary, std::string_view property) {
    const auto* row = std::find_if(std::begin(tagRows), std::end(tagRows), [&](const TagRow& candidate) {
        return candidate.dictionary == dictionary && candidate.property == property;
    });
    return row == std::end(tagRows) ? nullptr : row;
}

// Eight bytes name the encoding of a comment.
Bytes commentBytes(const std::string& text, bool bigEndian) {
    constexpr std::string_view asciiMark("ASCII\0\0\0", 8), unicodeMark("UNICODE\0", 8);
    const bool isASCII = std::all_of(text.begin(), text.end(), [](unsigned char byte) { return byte < 128; });
    const std::string_view mark = isASCII ? asciiMark : unicodeMark;
    Bytes bytes(mark.begin(), mark.end());
    const Bytes content = isASCII ? Bytes(text.begin(), text.end()) : utf16FromUTF8(text, bigEndian);
    bytes.insert(bytes.end(), content.begin(), content.end());
    return bytes;
}

// Empty for a value that the tag can't hold.
Bytes rationalBytes(double number, bool bigEndian) {
    constexpr std::uint32_t denominators[] = {1, 100, 10000};
    Bytes bytes;
    if (!(number >= 0) || number > 1e5) return bytes;
    for (const std::uint32_t denominator : denominators) {
        const double numerator = number * denominator;
        if (std::abs(numerator - std::round(numerator)) > 1e-6 && denominator != denominators[2]) continue;
        appendInteger(bytes, static_cast<std::uint64_t>(std::llround(numerator)), 4, bigEndian);
        appendInteger(bytes, denominator, 4, bigEndian);
        break;
    }
    return bytes;
}

Bytes bytesFor(TagKind kind, const base::Value& value, bool bigEndian) {
    if (kind == TagKind::bytes)
        if (const auto* data = value.as<base::Data>()) return data->bytes;
    const auto text = value.stringValue();
    if (!text || text->empty()) return {};
    switch (kind) {
    case TagKind::text: {
        Bytes bytes(text->begin(), std::find(text->begin(), text->end(), '\0'));
        bytes.push_back(0);
        return bytes;
    }
    case TagKind::comment:
        return commentBytes(*text, bigEndian);
    case TagKind::bytes:
        return Bytes(text->begin(), text->end());
    case TagKind::shortInteger: {
        Bytes bytes;
        const std::int64_t number = value.integerValue();
        if (number >= 0 && number <= 0xFFFF) appendInteger(bytes, static_cast<std::uint64_t>(number), 2, bigEndian);
        return bytes;
    }
    case TagKind::rational:
        return rationalBytes(value.doubleValue(), bigEndian);
    }
    return {};
}

TiffType typeOf(TagKind kind) {
    switch (kind) {
    case TagKind::text:
        return TiffType::ascii;
    case TagKind::shortInteger:
        return TiffType::shortInteger;
    case TagKind::rational:
        return TiffType::rational;
    default:
        return TiffType::undefined;
    }
}

bool removes(const base::Value& value) {
    const auto* text = value.as<std::string>();
    const auto* data = value.as<base::Data>();
    return value.isNothing() || (text && text->empty()) || (data && data->empty());
}

base::Result<void> appendTag(std::vector<TiffChange>& tags, const TagRow& row, const base::Value& value,
                             bool bigEndian) {
    TiffChange tag{row.place, row.tag, typeOf(row.kind), bytesFor(row.kind, value, bigEndian)};
    if (tag.value.empty() && !removes(value))
        return base::failure(imageMetadataErrorDomain, 0,
                             "the property \"" + std::string(row.property) + "\" can't hold " + value.description());
    const bool isDensity = row.dictionary.empty() && row.kind == TagKind::rational;
    if (isDensity && !tag.value.empty()) {
        Bytes inches;
        appendInteger(inches, 2, 2, bigEndian);
        tags.push_back({TiffPlace::image, resolutionUnitTag, TiffType::shortInteger, std::move(inches)});
    }
    tags.push_back(std::move(tag));
    return {};
}

tl::unexpected<base::Error> noRoom() {
    return base::failure(imageMetadataErrorDomain, 0, "the metadata finds no room");
}

} // namespace

bool isWritableProperty(std::string_view dictionary, std::string_view property) {
    return rowFor(dictionary, property) != nullptr;
}

base::Result<std::vector<TiffChange>> tagsForProperties(const base::Dictionary& properties,
                                                        const TiffStructure& structure) {
    const bool bigEndian = structure.isBigEndian();
    std::vector<TiffChange> tags;
    // The top level comes last, so that it counts where both state a thing.
    for (const auto& [dictionary, content] : properties)
        if (const auto* entries = content.as<base::Dictionary>())
            for (const auto& [property, value] : *entries)
                if (const TagRow* row = rowFor(dictionary, property))
                    if (auto done = appendTag(tags, *row, value, bigEndian); !done) return base::failure(done.error());
    for (const auto& [property, value] : properties)
        if (const TagRow* row = rowFor({}, property))
            if (auto done = appendTag(tags, *row, value, bigEndian); !done) return base::failure(done.error());
    // The standard wants its version in a new EXIF directory.
    const auto isNewExif = [](const TiffChange& tag) { return tag.place == TiffPlace::exif && !tag.value.empty(); };
    const auto image = structure.directoryAt(structure.firstDirectory());
    if (std::any_of(tags.begin(), tags.end(), isNewExif) &&
        (!image || !structure.subdirectory(*image, exifDirectoryTag)))
        tags.push_back({TiffPlace::exif, 0x9000, TiffType::undefined, {'0', '2', '3', '0'}});
    return tags;
}

base::Result<Bytes> exifBlock(const ExifOfImage& image) {
    constexpr bool bigEndian = false;
    std::vector<TiffChange> tags;
    const auto put = [&](TiffPlace place, std::uint16_t tag, TiffType type,
                         std::initializer_list<std::uint64_t> numbers, int size) {
        TiffChange change{place, tag, type, {}};
        for (const std::uint64_t number : numbers)
            appendInteger(change.value, number, size, bigEndian);
        tags.push_back(std::move(change));
    };
    // What the standard requires of every file, with its own values for the unknown.
    put(TiffPlace::image, 0x011A, TiffType::rational, {72, 1}, 4);              // resolution across
    put(TiffPlace::image, 0x011B, TiffType::rational, {72, 1}, 4);              // and down
    put(TiffPlace::image, resolutionUnitTag, TiffType::shortInteger, {2}, 2);   // an inch
    put(TiffPlace::image, 0x0213, TiffType::shortInteger, {1}, 2);              // position of colour samples
    put(TiffPlace::exif, 0x9000, TiffType::undefined, {'0', '2', '3', '0'}, 1); // version
    put(TiffPlace::exif, 0x9101, TiffType::undefined, {1, 2, 3, 0}, 1);         // components: Y, Cb, Cr
    put(TiffPlace::exif, 0xA000, TiffType::undefined, {'0', '1', '0', '0'}, 1); // FlashPix version
    put(TiffPlace::exif, 0xA001, TiffType::shortInteger, {image.isSRGB ? 1u : 65535u}, 2);
    put(TiffPlace::exif, 0xA002, TiffType::longInteger, {static_cast<std::uint64_t>(image.width)}, 4);
    put(TiffPlace::exif, 0xA003, TiffType::longInteger, {static_cast<std::uint64_t>(image.height)}, 4);
    Bytes block = TiffStructure::empty(bigEndian);
    const auto structure = TiffStructure::of(block);
    auto own = tagsForProperties(image.properties, *structure);
    if (!own) return base::failure(own.error());
    tags.insert(tags.end(), own->begin(), own->end());
    const auto edit = structure->editFor(tags, false);
    if (!edit) return noRoom();
    apply(*edit, block);
    return block;
}

base::Result<Bytes> exifBlockMerging(std::span<const std::uint8_t> block, const base::Dictionary& properties) {
    Bytes merged = block.empty() ? TiffStructure::empty(false) : Bytes(block.begin(), block.end());
    const auto structure = TiffStructure::of(merged);
    if (!structure || (structure->firstDirectory() != 0 && !structure->directoryAt(structure->firstDirectory())))
        return base::failure(imageMetadataErrorDomain, unreadableExifBlock, "the EXIF metadata can't be read");
    const auto tags = tagsForProperties(properties, *structure);
    if (!tags) return base::failure(tags.error());
    const auto edit = structure->editFor(*tags, true);
    if (!edit) return noRoom();
    if (edit->writes.empty()) return Bytes(block.begin(), block.end());
    apply(*edit, merged);
    return merged;
}

} // namespace platform::draw
