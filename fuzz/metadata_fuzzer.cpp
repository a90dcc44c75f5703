// The EXIF block of a photograph, read and rewritten by the copy that keeps the picture data.
#include "Fuzzing.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageMetadata.h"
#include "platform/draw/ImageSource.h"

#include <algorithm>
#include <string>

using namespace platform::draw;
using fuzzing::require;
using Bytes = std::vector<std::uint8_t>;

namespace {

// A grey picture of 8 x 8 pixels behind its SOI marker, with a Huffman table of one code a class.
const Bytes picture = {
    0xFF, 0xDB, 0, 67, 0,    1, 1,    1, 1,  1, 1,    1,    1,   1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1,    1,    1, 1,  1,    1, 1,    1, 1,  1, 1,    1,    1,   1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1,    1,    1, 1,  1,    1, 1,    1, 1,  1, 1,    1,    1,   1, 1, 1, 1, 1, 1, 1, 1, 1, 1, // quantization
    0xFF, 0xC0, 0, 11, 8,    0, 8,    0, 8,  1, 1,    0x11, 0,                                 // frame
    0xFF, 0xC4, 0, 20, 0x00, 1, 0,    0, 0,  0, 0,    0,    0,   0, 0, 0, 0, 0, 0, 0, 0, 0,    // DC: no difference
    0xFF, 0xC4, 0, 20, 0x10, 1, 0,    0, 0,  0, 0,    0,    0,   0, 0, 0, 0, 0, 0, 0, 0, 0,    // AC: end of block
    0xFF, 0xDA, 0, 8,  1,    1, 0x00, 0, 63, 0, 0x3F, 0xFF, 0xD9};                             // scan

Bytes photographWith(const std::uint8_t* block, std::size_t size) {
    const std::size_t length = 2 + 6 + size;
    Bytes jpeg = {
        0xFF, 0xD8, 0xFF, 0xE1, static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length), 'E', 'x',
        'i',  'f',  0,    0};
    jpeg.insert(jpeg.end(), block, block + size);
    jpeg.insert(jpeg.end(), picture.begin(), picture.end());
    return jpeg;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    if (size > 0xF000) return 0;
    const base::Data jpeg(photographWith(bytes, size));
    const auto source = ImageSource::createWithData(jpeg);
    require(source.has_value(), "metadata of any kind is no reason to refuse a picture");
    const base::Dictionary& properties = (*source)->propertiesAtIndex(0);
    const std::int64_t orientation = base::valueForKey(properties, kCGImagePropertyOrientation).integerValue();
    require(orientation >= 0 && orientation <= 8, "an orientation is one of eight");
    require((*source)->thumbnailAtIndex(0, 4, true).has_value(), "the picture can be drawn");

    ImageMetadata metadata;
    const std::string comment = "Retouched";
    require(metadata.setValueMatchingImageProperty(kCGImagePropertyExifDictionary, kCGImagePropertyExifUserComment,
                                                   comment),
            "a comment can be written");
    const auto copy = copyOfImageFile(jpeg, "public.jpeg", metadata.dictionaries());
    if (!copy) return 0; // too large for a JPEG file, at most
    require(copy->size() > picture.size() && std::equal(picture.rbegin(), picture.rend(), copy->bytes.rbegin()),
            "a copy keeps the picture byte for byte");
    const auto again = ImageSource::createWithData(*copy);
    require(again.has_value(), "a copy is a picture");
    const base::Value& exif = base::valueForKey((*again)->propertiesAtIndex(0), kCGImagePropertyExifDictionary);
    const auto* dictionary = exif.as<base::Dictionary>();
    require(dictionary && base::textForKey(*dictionary, kCGImagePropertyExifUserComment) == comment,
            "a copy has the comment that it was given");
    return 0;
}
