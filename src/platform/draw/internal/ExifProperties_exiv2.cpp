#include "ExifProperties.h"

#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <exiv2/exiv2.hpp>
#include <string>

namespace platform::draw {

namespace {

// Larger ones are previews and makers' private data, of no use as properties.
constexpr long maximumValueBytes = 65536;

bool isText(const std::vector<std::uint8_t>& bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; });
}

std::string withoutPadding(std::string text) {
    text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
    return text;
}

base::Value numberAt(const Exiv2::Value& value, long index) {
    switch (value.typeId()) {
    case Exiv2::unsignedRational:
    case Exiv2::signedRational: {
        const Exiv2::Rational ratio = value.toRational(index);
        return ratio.second == 0 ? base::Value(0.0) : base::Value(static_cast<double>(ratio.first) / ratio.second);
    }
    case Exiv2::tiffFloat:
    case Exiv2::tiffDouble:
        return static_cast<double>(value.toFloat(index));
    default:
        return static_cast<std::int64_t>(value.toLong(index));
    }
}

base::Value propertyOf(const Exiv2::Exifdatum& datum) {
    const Exiv2::Value& value = datum.value();
    if (const auto* comment = dynamic_cast<const Exiv2::CommentValue*>(&value))
        return withoutPadding(comment->comment());
    switch (value.typeId()) {
    case Exiv2::asciiString:
        return withoutPadding(value.toString());
    case Exiv2::undefined: {
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(value.size()));
        value.copy(bytes.data(), Exiv2::invalidByteOrder);
        return exifBytes(std::move(bytes));
    }
    default:
        break;
    }
    if (value.count() == 1) return numberAt(value, 0);
    base::Array numbers;
    for (long i = 0; i < value.count(); ++i)
        numbers.push_back(numberAt(value, i));
    return numbers;
}

} // namespace

std::string exifComment(const std::vector<std::uint8_t>& bytes, bool bigEndian) {
    try {
        Exiv2::CommentValue comment;
        comment.read(bytes.data(), static_cast<long>(bytes.size()), bigEndian ? Exiv2::bigEndian : Exiv2::littleEndian);
        return withoutPadding(comment.comment());
    } catch (const std::exception&) {
        return {};
    }
}

base::Value exifBytes(std::vector<std::uint8_t> bytes) {
    if (isText(bytes)) return std::string(bytes.begin(), bytes.end());
    return base::Data(std::move(bytes));
}

base::Dictionary exifProperties(const std::vector<std::uint8_t>& exif) {
    base::Dictionary properties;
    if (exif.empty()) return properties;
    base::Dictionary tiffPart;
    base::Dictionary exifPart;
    try {
        Exiv2::ExifData data;
        Exiv2::ExifParser::decode(data, exif.data(), static_cast<std::uint32_t>(exif.size()));
        for (const Exiv2::Exifdatum& datum : data) {
            const std::string group = datum.groupName();
            if (datum.size() > maximumValueBytes || (group != "Image" && group != "Photo")) continue;
            try {
                (group == "Image" ? tiffPart : exifPart).insert_or_assign(datum.tagName(), propertyOf(datum));
            } catch (const std::exception&) {
                continue; // this value is broken, the others may be good
            }
        }
    } catch (const std::exception&) {
        return properties;
    }
    const std::int64_t orientation = base::valueForKey(tiffPart, kCGImagePropertyTIFFOrientation).integerValue();
    if (orientation >= 1 && orientation <= 8) properties.emplace(kCGImagePropertyOrientation, orientation);
    if (!tiffPart.empty()) properties.emplace(kCGImagePropertyTIFFDictionary, std::move(tiffPart));
    if (!exifPart.empty()) properties.emplace(kCGImagePropertyExifDictionary, std::move(exifPart));
    return properties;
}

} // namespace platform::draw
