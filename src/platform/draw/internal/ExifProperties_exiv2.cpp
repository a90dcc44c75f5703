#include "ExifProperties.h"

#include "ByteOrder.h"
#include "UnicodeText.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exiv2/exiv2.hpp>
#include <iterator>
#include <span>
#include <string>

namespace platform::draw {

namespace {

// What the library has to say must not reach standard error.
[[maybe_unused]] const bool libraryIsQuiet = (Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute), true);

// Where a property is not called as the library calls the tag; null for tags that tell how the file is built.
struct Renaming {
    std::string_view tag;
    std::string_view property;
};
constexpr Renaming renamings[] = {
    {"Image.ExifTag", {}},
    {"Image.GPSTag", {}},
    {"Photo.InteroperabilityTag", {}},
    {"Photo.FlashpixVersion", "FlashPixVersion"},
    {"Photo.FocalLengthIn35mmFilm", "FocalLenIn35mmFilm"},
    {"Photo.SubSecTime", "SubsecTime"},
    {"Photo.SubSecTimeOriginal", "SubsecTimeOriginal"},
    {"Photo.SubSecTimeDigitized", "SubsecTimeDigitized"},
    {"Photo.SubjectDistanceRange", "SubjectDistRange"},
    {"Application2.ObjectType", "ObjectTypeReference"},
    {"Application2.ObjectAttribute", "ObjectAttributeReference"},
    {"Application2.Subject", "SubjectReference"},
    {"Application2.SuppCategory", "SupplementalCategory"},
    {"Application2.FixtureId", "FixtureIdentifier"},
    {"Application2.LocationCode", "ContentLocationCode"},
    {"Application2.LocationName", "ContentLocationName"},
    {"Application2.DigitizationDate", "DigitalCreationDate"},
    {"Application2.DigitizationTime", "DigitalCreationTime"},
    {"Application2.Program", "OriginatingProgram"},
    {"Application2.ProvinceState", "Province/State"},
    {"Application2.CountryCode", "Country/PrimaryLocationCode"},
    {"Application2.CountryName", "Country/PrimaryLocationName"},
    {"Application2.TransmissionReference", "OriginalTransmissionReference"},
    {"Application2.Copyright", "CopyrightNotice"},
    {"Application2.Caption", "Caption/Abstract"},
    {"Application2.Writer", "Writer/Editor"},
    {"Application2.Language", "LanguageIdentifier"},
    {"GPSInfo.GPSVersionID", "GPSVersion"},
};

// Empty for what is no property.
std::string propertyName(const std::string& group, const std::string& tag) {
    const std::string key = group + "." + tag;
    const auto* renaming =
        std::find_if(std::begin(renamings), std::end(renamings), [&](const Renaming& row) { return row.tag == key; });
    if (renaming != std::end(renamings)) return std::string(renaming->property);
    return group == "GPSInfo" && tag.starts_with("GPS") ? tag.substr(3) : tag;
}

// Larger ones are previews and makers' private data, of no use as properties.
constexpr long maximumValueBytes = 65536;

bool isPrintable(const std::vector<std::uint8_t>& bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; });
}

std::string withoutPadding(std::string text) {
    text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
    return text;
}

// Writers of old files meant Latin-1, if anything.
std::string textOf(std::string bytes) {
    bytes = withoutPadding(std::move(bytes));
    return isUTF8(bytes) ? bytes : utf8FromLatin1(bytes);
}

base::Value numberAt(const Exiv2::Value& value, long index) {
    switch (value.typeId()) {
    case Exiv2::unsignedRational: { // which the library would hand out as signed
        const auto* rationals = dynamic_cast<const Exiv2::URationalValue*>(&value);
        const auto& ratio = rationals->value_.at(static_cast<std::size_t>(index));
        return ratio.second == 0 ? base::Value(0.0) : base::Value(static_cast<double>(ratio.first) / ratio.second);
    }
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

std::vector<std::uint8_t> bytesOf(const Exiv2::Value& value, Exiv2::ByteOrder order) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(value.size()));
    value.copy(bytes.data(), order);
    return bytes;
}

base::Value propertyOf(const Exiv2::Exifdatum& datum, Exiv2::ByteOrder order) {
    const Exiv2::Value& value = datum.value();
    if (const auto* comment = dynamic_cast<const Exiv2::CommentValue*>(&value))
        return exifComment({comment->value_.begin(), comment->value_.end()}, order == Exiv2::bigEndian);
    switch (value.typeId()) {
    case Exiv2::asciiString:
        return textOf(value.toString());
    case Exiv2::undefined: {
        auto bytes = bytesOf(value, order);
        if (isPrintable(bytes)) return std::string(bytes.begin(), bytes.end());
        return base::Data(std::move(bytes));
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

// Degrees, minutes and seconds as degrees; hours, minutes and seconds as a text; all others as they are.
base::Value positionProperty(const std::string& name, base::Value value) {
    const auto* parts = value.as<base::Array>();
    if (!parts || parts->size() != 3) return value;
    const double first = (*parts)[0].doubleValue(), minutes = (*parts)[1].doubleValue(),
                 seconds = (*parts)[2].doubleValue();
    if (name.ends_with("Latitude") || name.ends_with("Longitude")) return first + minutes / 60 + seconds / 3600;
    if (name != "TimeStamp" || !(first < 100 && minutes < 100 && seconds < 100)) return value;
    char text[16];
    std::snprintf(text, sizeof text, "%02.0f:%02.0f:%02.0f", first, minutes, std::floor(seconds));
    return text;
}

void addResolution(base::Dictionary& properties, const base::Dictionary& tiffPart) {
    constexpr std::int64_t unitless = 1, centimeter = 3;
    const base::Value& unitValue = base::valueForKey(tiffPart, "ResolutionUnit");
    const std::int64_t unit = unitValue ? unitValue.integerValue() : 2;
    for (const auto& [tag, property] :
         {std::pair{"XResolution", kCGImagePropertyDPIWidth}, std::pair{"YResolution", kCGImagePropertyDPIHeight}}) {
        const double density = base::valueForKey(tiffPart, tag).doubleValue();
        if (density > 0 && unit != unitless) properties.emplace(property, density * (unit == centimeter ? 2.54 : 1.0));
    }
}

} // namespace

base::Value exifComment(const std::vector<std::uint8_t>& bytes, bool bigEndian) {
    constexpr std::size_t markSize = 8;
    const std::string all(bytes.begin(), bytes.end());
    const std::string mark = all.substr(0, markSize);
    if (mark.starts_with("UNICODE")) {
        std::span<const std::uint8_t> units(bytes);
        units = units.subspan(std::min(markSize, units.size()));
        // A mark of the order counts; without one some writers keep to their machine's order, which shows where most
        // are Latin letters.
        std::size_t zeros[2] = {0, 0};
        for (std::size_t at = 0; at + 1 < units.size(); ++at)
            if (units[at] == 0) ++zeros[at % 2];
        bool order = bigEndian;
        if (4 * std::max(zeros[0], zeros[1]) > units.size()) order = zeros[0] > zeros[1];
        if (units.size() >= 2 && integerAt(units.data(), 2, true) == 0xFEFF) order = true;
        if (units.size() >= 2 && integerAt(units.data(), 2, false) == 0xFEFF) order = false;
        if (units.size() >= 2 && integerAt(units.data(), 2, order) == 0xFEFF) units = units.subspan(2);
        return withoutPadding(utf8FromUTF16(units, order));
    }
    if (mark.starts_with(std::string("JIS\0", 4))) return base::Data(bytes);
    const bool isMarked = mark == std::string(markSize, '\0') || mark.starts_with(std::string("ASCII\0", 6));
    std::string text = withoutPadding(isMarked ? all.substr(markSize) : all);
    text.erase(text.find_last_not_of(' ') + 1); // some pad with blanks
    if (isUTF8(text)) return text;
    if (mark.starts_with("ASCII")) return utf8FromLatin1(text);
    return base::Data(bytes);
}

base::Dictionary iptcProperties(const std::vector<std::uint8_t>& dataSets) {
    base::Dictionary properties;
    if (dataSets.empty()) return properties;
    try {
        Exiv2::IptcData data;
        if (Exiv2::IptcParser::decode(data, dataSets.data(), static_cast<std::uint32_t>(dataSets.size())) != 0)
            return properties;
        for (const Exiv2::Iptcdatum& datum : data) {
            constexpr std::uint16_t version = 0;
            if (datum.record() != Exiv2::IptcDataSets::application2 || datum.tag() == version ||
                datum.size() > maximumValueBytes)
                continue;
            base::Value& slot = properties[propertyName(datum.groupName(), datum.tagName())];
            const std::string text = textOf(datum.toString());
            if (auto* several = slot.as<base::Array>())
                several->push_back(text);
            else
                slot = slot ? base::Value(base::Array{slot, text}) : base::Value(text);
        }
    } catch (const std::exception&) {
        // What came before the broken part is good.
    }
    return properties;
}

std::vector<std::uint8_t> iptcInPhotoshopResources(const std::vector<std::uint8_t>& resources) {
    const Exiv2::byte* record = nullptr;
    std::uint32_t headerSize = 0, size = 0;
    if (resources.empty()) return {};
    try {
        if (Exiv2::Photoshop::locateIptcIrb(resources.data(), static_cast<long>(resources.size()), &record, &headerSize,
                                            &size) != 0)
            return {};
    } catch (const std::exception&) {
        return {};
    }
    return {record + headerSize, record + headerSize + size};
}

base::Dictionary exifProperties(const std::vector<std::uint8_t>& exif) {
    base::Dictionary properties;
    if (exif.empty()) return properties;
    base::Dictionary tiffPart, exifPart, gpsPart, iptcPart;
    const auto partOf = [&](const std::string& group) -> base::Dictionary* {
        return group == "Image" ? &tiffPart : group == "Photo" ? &exifPart : group == "GPSInfo" ? &gpsPart : nullptr;
    };
    try {
        Exiv2::ExifData data;
        const Exiv2::ByteOrder order =
            Exiv2::ExifParser::decode(data, exif.data(), static_cast<std::uint32_t>(exif.size()));
        for (const Exiv2::Exifdatum& datum : data) {
            constexpr std::uint16_t iptcTag = 0x83BB;
            base::Dictionary* part = partOf(datum.groupName());
            if (!part || datum.size() > maximumValueBytes) continue;
            try {
                const std::string name = propertyName(datum.groupName(), datum.tagName());
                if (name.empty()) continue;
                base::Value value = propertyOf(datum, order);
                if (part == &gpsPart) value = positionProperty(name, std::move(value));
                if (part == &tiffPart && datum.tag() == iptcTag)
                    iptcPart = iptcProperties(bytesOf(datum.value(), order));
                else
                    part->insert_or_assign(name, std::move(value));
            } catch (const std::exception&) {
                continue; // this value is broken, the others may be good
            }
        }
    } catch (const std::exception&) {
        return properties;
    }
    const std::int64_t orientation = base::valueForKey(tiffPart, kCGImagePropertyTIFFOrientation).integerValue();
    if (orientation >= 1 && orientation <= 8) properties.emplace(kCGImagePropertyOrientation, orientation);
    addResolution(properties, tiffPart);
    for (auto& [key, part] : {std::pair{kCGImagePropertyTIFFDictionary, &tiffPart},
                              {kCGImagePropertyExifDictionary, &exifPart},
                              {kCGImagePropertyGPSDictionary, &gpsPart},
                              {kCGImagePropertyIPTCDictionary, &iptcPart}})
        if (!part->empty()) properties.emplace(key, std::move(*part));
    return properties;
}

} // namespace platform::draw
