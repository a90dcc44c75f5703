// A picture with what may be a machine-readable code: a byte for the width in modules, one for the pixels a module, and
// then a bit for each module, black when it is set.
#include "Fuzzing.h"
#include "platform/draw/CodeReader.h"
#include "platform/draw/ColorSpace.h"

using namespace platform::draw;
using fuzzing::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzzing::silenceLog();
    if (size < 3 || size > 4096) return 0;
    constexpr int margin = 10;
    const int columns = bytes[0] + 1;
    const int scale = 1 + bytes[1] % 3;
    const int rows = static_cast<int>((size - 2) * 8) / columns;
    if (rows == 0 || rows > 400) return 0;
    auto bitmap = Bitmap::create(columns * scale + 2 * margin, rows * scale + 2 * margin, ColorSpace::sRGB(), true);
    require(bitmap.has_value(), "there is memory for a small picture");
    for (int y = 0; y < bitmap->height(); ++y)
        for (int x = 0; x < bitmap->width(); ++x) {
            const int column = (x - margin) / scale, row = (y - margin) / scale;
            const bool inside = x >= margin && y >= margin && column < columns && row < rows;
            const auto bit =
                static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(column);
            const bool black = inside && (bytes[2 + bit / 8] >> (7 - bit % 8) & 1) != 0;
            for (int channel = 0; channel < 3; ++channel)
                bitmap->mutableRow(y)[4 * x + channel] = black ? 0 : 255;
        }
    const auto codes = readCodes(Image::fromBitmap(*bitmap));
    if (!codes) return 0;
    for (const FoundCode& code : *codes) {
        require(!code.kind.empty(), "a found code has a kind");
        for (const base::Point& corner : code.corners)
            require(corner.x >= 0 && corner.x <= bitmap->width() && corner.y >= 0 && corner.y <= bitmap->height(),
                    "a found code stands within the picture");
    }
    return 0;
}
