#include "PdfMetadata.h"

#include "UnicodeText.h"
#include "platform/draw/ImageMetadata.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <utility>

namespace platform::draw {
namespace {

constexpr std::pair<std::string_view, char> entities[] = {
    {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&#13;", '\r'}};

// As the text of an XML element; what XML can't hold becomes the replacement character.
std::string escaped(std::string_view text) {
    std::string result;
    for (const char byte : utf8FromUTF16(utf16FromUTF8(text, true), true)) {
        const auto* entity = std::find_if(std::begin(entities), std::end(entities),
                                          [byte](const auto& row) { return row.second == byte; });
        if (entity != std::end(entities))
            result += entity->first;
        else if (static_cast<unsigned char>(byte) < ' ' && byte != '\t' && byte != '\n')
            result += "\xEF\xBF\xBD";
        else
            result += byte;
    }
    return result;
}

std::string unescaped(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const auto* entity = std::find_if(std::begin(entities), std::end(entities),
                                          [text](const auto& row) { return text.starts_with(row.first); });
        const bool found = entity != std::end(entities);
        result += found ? entity->second : text.front();
        text.remove_prefix(found ? entity->first.size() : 1);
    }
    return result;
}

// A text of a PDF document: UTF-16 in hexadecimal digits.
std::string hexText(std::string_view text) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string result = "<FEFF";
    for (const std::uint8_t byte : utf16FromUTF8(text, true)) {
        result += digits[byte >> 4];
        result += digits[byte & 15];
    }
    return result + ">";
}

std::string exifText(const base::Dictionary& properties, std::string_view key) {
    const auto* exif = base::valueForKey(properties, kCGImagePropertyExifDictionary).as<base::Dictionary>();
    return exif ? base::valueForKey(*exif, key).stringValue().value_or("") : "";
}

// "2026:03:15 10:11:12" with other separators; empty for what is no date of that form.
std::string dateText(const std::string& exifDate, const char* form) {
    int year, month, day, hour, minute, second, end = 0;
    if (std::sscanf(exifDate.c_str(), "%4d:%2d:%2d %2d:%2d:%2d%n", &year, &month, &day, &hour, &minute, &second,
                    &end) != 6 ||
        end != 19 || exifDate.size() != 19)
        return {};
    char text[64];
    std::snprintf(text, sizeof text, form, year, month, day, hour, minute, second);
    return text;
}

constexpr const char* xmpDate = "%04d-%02d-%02dT%02d:%02d:%02d";
constexpr const char* pdfDate = "(D:%04d%02d%02d%02d%02d%02d)";

std::string element(const std::string& name, const std::string& content) {
    return content.empty() ? "" : "<" + name + ">" + content + "</" + name + ">\n";
}

constexpr std::string_view defaultLanguage = "<rdf:Alt><rdf:li xml:lang=\"x-default\">";

std::string inDefaultLanguage(const std::string& content) {
    return content.empty() ? "" : std::string(defaultLanguage) + content + "</rdf:li></rdf:Alt>";
}

} // namespace

std::string xmpPacket(const base::Dictionary& properties) {
    const std::string comment = inDefaultLanguage(escaped(exifText(properties, kCGImagePropertyExifUserComment)));
    const std::string original = dateText(exifText(properties, kCGImagePropertyExifDateTimeOriginal), xmpDate);
    const std::string digitized = dateText(exifText(properties, kCGImagePropertyExifDateTimeDigitized), xmpDate);
    const base::Value& orientation = base::valueForKey(properties, kCGImagePropertyOrientation);
    return "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
           "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
           "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
           "<rdf:Description rdf:about=\"\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\""
           " xmlns:exif=\"http://ns.adobe.com/exif/1.0/\" xmlns:pdf=\"http://ns.adobe.com/pdf/1.3/\""
           " xmlns:tiff=\"http://ns.adobe.com/tiff/1.0/\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\">\n" +
           element("dc:description", comment) + element("exif:UserComment", comment) +
           element("exif:DateTimeOriginal", original) + element("exif:DateTimeDigitized", digitized) +
           element("xmp:CreateDate", digitized) +
           element("pdf:Keywords", escaped(exifText(properties, kCGImagePropertyExifMakerNote))) +
           element("tiff:Orientation", orientation ? std::to_string(orientation.integerValue()) : "") +
           "</rdf:Description>\n</rdf:RDF>\n</x:xmpmeta>\n<?xpacket end=\"r\"?>";
}

base::Dictionary propertiesOfXmpPacket(std::string_view bytes) {
    constexpr std::size_t reach = 1 << 20; // ours stands behind the picture; large documents must not be searched whole
    bytes = bytes.substr(bytes.size() - std::min(bytes.size(), reach));
    const std::size_t packet = bytes.rfind("<x:xmpmeta");
    if (packet == std::string_view::npos) return {};
    bytes = bytes.substr(packet);
    const std::string mark = "<exif:UserComment>" + std::string(defaultLanguage);
    const std::size_t begin = bytes.find(mark);
    if (begin == std::string_view::npos) return {};
    const std::string_view rest = bytes.substr(begin + mark.size());
    const std::string comment = unescaped(rest.substr(0, rest.find('<')));
    if (!isUTF8(comment)) return {};
    return {{std::string(kCGImagePropertyExifDictionary),
             base::Dictionary{{std::string(kCGImagePropertyExifUserComment), comment}}}};
}

std::string pdfInformation(const base::Dictionary& properties) {
    const std::string comment = exifText(properties, kCGImagePropertyExifUserComment);
    const std::string note = exifText(properties, kCGImagePropertyExifMakerNote);
    const std::string date = dateText(exifText(properties, kCGImagePropertyExifDateTimeDigitized), pdfDate);
    std::string entries;
    if (!comment.empty()) entries += " /Subject " + hexText(comment);
    if (!note.empty()) entries += " /Keywords " + hexText(note);
    if (!date.empty()) entries += " /CreationDate " + date;
    return "<<" + entries + " >>";
}

} // namespace platform::draw
