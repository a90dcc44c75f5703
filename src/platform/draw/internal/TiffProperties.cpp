#include "TiffProperties.h"

#include "ExifProperties.h"
#include "platform/draw/ImageMetadata.h"

#include <string>
#include <tiffio.h>
#include <vector>

namespace platform::draw {

namespace {

struct TextTag {
    std::uint32_t tag;
    const char* property;
};
constexpr TextTag pageTexts[] = {
    {TIFFTAG_IMAGEDESCRIPTION, "ImageDescription"},
    {TIFFTAG_MAKE, "Make"},
    {TIFFTAG_MODEL, "Model"},
    {TIFFTAG_SOFTWARE, "Software"},
    {TIFFTAG_DATETIME, "DateTime"},
    {TIFFTAG_ARTIST, "Artist"},
    {TIFFTAG_COPYRIGHT, "Copyright"},
};
constexpr TextTag exifTexts[] = {
    {EXIFTAG_DATETIMEORIGINAL, "DateTimeOriginal"},
    {EXIFTAG_DATETIMEDIGITIZED, "DateTimeDigitized"},
};

template <std::size_t count>
base::Dictionary textsOf(TIFF* file, const TextTag (&tags)[count]) {
    base::Dictionary texts;
    for (const TextTag& row : tags) {
        const char* text = nullptr;
        if (TIFFGetField(file, row.tag, &text) && text) texts.emplace(row.property, std::string(text));
    }
    return texts;
}

/// The bytes of a tag of any length; none when it is absent. The library counts them in 16 or 32 bits, as its own table
/// of tags says.
std::vector<std::uint8_t> bytesOf(TIFF* file, std::uint32_t tag) {
    const TIFFField* field = TIFFFindField(file, tag, TIFF_ANY);
    if (!field || !TIFFFieldPassCount(field)) return {};
    const std::uint8_t* bytes = nullptr;
    std::uint32_t count = 0;
    std::uint16_t shortCount = 0;
    const bool isShort = TIFFFieldReadCount(field) != TIFF_VARIABLE2;
    const int found = isShort ? TIFFGetField(file, tag, &shortCount, &bytes) : TIFFGetField(file, tag, &count, &bytes);
    if (!found || !bytes) return {};
    return {bytes, bytes + (isShort ? shortCount : count)};
}

} // namespace

base::Dictionary tiffProperties(TIFF* file) {
    base::Dictionary properties;
    base::Dictionary page = textsOf(file, pageTexts);
    std::uint16_t orientation = 0;
    if (TIFFGetField(file, TIFFTAG_ORIENTATION, &orientation))
        page.emplace(kCGImagePropertyTIFFOrientation, orientation);
    if (!page.empty()) properties.emplace(kCGImagePropertyTIFFDictionary, std::move(page));

    std::uint64_t offset = 0;
    if (!TIFFGetField(file, TIFFTAG_EXIFIFD, &offset) || !TIFFReadEXIFDirectory(file, offset)) return properties;
    base::Dictionary exif = textsOf(file, exifTexts);
    if (const auto comment = bytesOf(file, EXIFTAG_USERCOMMENT); !comment.empty())
        exif.emplace(kCGImagePropertyExifUserComment, exifComment(comment, TIFFIsBigEndian(file) != 0));
    if (auto note = bytesOf(file, EXIFTAG_MAKERNOTE); !note.empty())
        exif.emplace(kCGImagePropertyExifMakerNote, exifBytes(std::move(note)));
    if (!exif.empty()) properties.emplace(kCGImagePropertyExifDictionary, std::move(exif));
    return properties;
}

} // namespace platform::draw
