// Plain pixels with a description of their layout: six bytes of it, and then the pixels.
#include "Fuzzing.h"
#include "imaging/KLARON_Image.h"

using fuzzing::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    constexpr std::size_t headSize = 6;
    if (size < headSize) return 0;
    const auto sideOf = [](std::uint8_t byte) { // now and then negative, and large enough to overflow products
        return byte < 240 ? std::int64_t{byte} - 2 : std::int64_t{1} << (byte - 240) * 4;
    };
    base::Dictionary layout{{"width", sideOf(bytes[0])}, {"height", sideOf(bytes[1])}};
    if (bytes[2] % 4 != 0) layout["bitsPerComponent"] = bytes[2] % 4 == 1 ? 16 : bytes[2] % 4 == 2 ? 8 : bytes[3];
    if (bytes[4] % 4 != 0) layout["alphaInfo"] = bytes[5] % 9;
    const auto image = KLARON_Image::imageFromBitmapData(fuzzing::dataOf(bytes + headSize, size - headSize), layout);
    if (!image) return 0;
    require(image->width() == layout["width"].integerValue() && image->height() == layout["height"].integerValue(),
            "the picture has the size that was told");
    require(image->bitmap().has_value(), "pixels in memory are whole");
    return 0;
}
