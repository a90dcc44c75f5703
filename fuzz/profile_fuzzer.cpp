// An ICC profile, and colours converted from it.
#include "Fuzzing.h"
#include "platform/draw/Color.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/Image.h"

using namespace platform::draw;
using fuzzing::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    const auto space = ColorSpace::fromICC({bytes, size});
    if (!space) return 0;
    const int components = (*space)->componentCount();
    require(components == 1 || components == 3 || components == 4, "a device has one, three or four components");
    require(!(*space)->iccData().empty(), "a space of a profile keeps it");
    const auto same = ColorSpace::fromICC({bytes, size});
    require(same.has_value() && *same == *space, "a profile is one space");

    for (const double level : {0.0, 0.3, 1.0, 7.0}) {
        std::vector<double> values(static_cast<std::size_t>(components), level);
        values.push_back(0.5);
        const auto rgba = Color(*space, values).inSpace(ColorSpace::sRGB());
        for (const double value : {rgba.red, rgba.green, rgba.blue, rgba.alpha})
            require(value >= 0 && value <= 1, "components lie within 0 and 1");
    }
    if ((*space)->model() != ColorModel::rgb) return 0;
    auto bitmap = Bitmap::create(16, 4, *space, true);
    require(bitmap.has_value(), "there is a small bitmap in every RGB space");
    for (int y = 0; y < bitmap->height(); ++y)
        for (int x = 0; x < bitmap->width(); ++x) {
            std::uint8_t* pixel = bitmap->mutableRow(y) + 4 * x;
            pixel[0] = static_cast<std::uint8_t>(17 * x);
            pixel[1] = static_cast<std::uint8_t>(85 * y);
            pixel[2] = static_cast<std::uint8_t>(255 - 17 * x);
        }
    const auto converted = Image::fromBitmap(*bitmap)->bitmap(ColorSpace::sRGB());
    if (!converted) return 0;
    for (int y = 0; y < converted->height(); ++y)
        for (int x = 0; x < converted->width(); ++x)
            require(converted->row(y)[4 * x + 3] == 255, "opaque pixels stay opaque");
    return 0;
}
