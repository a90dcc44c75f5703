#define ZX_USE_UTF8 1 // texts as UTF-8, not wide ones

#include "platform/draw/CodeReader.h"

#include "base/MessageTemplate.h"
#include "platform/draw/ColorSpace.h"

#include <ZXing/ReadBarcode.h>
#include <algorithm>
#include <exception>
#include <tuple>

namespace platform::draw {
namespace {

constexpr std::array<ZXing::BarcodeFormat, 4> formats = {ZXing::BarcodeFormat::Aztec, ZXing::BarcodeFormat::QRCode,
                                                         ZXing::BarcodeFormat::Code128, ZXing::BarcodeFormat::PDF417};

// The picture on white, one byte a pixel.
std::vector<std::uint8_t> luminance(const Bitmap& bitmap) {
    std::vector<std::uint8_t> result;
    result.reserve(static_cast<std::size_t>(bitmap.width()) * static_cast<std::size_t>(bitmap.height()));
    for (int y = 0; y < bitmap.height(); ++y) {
        const auto* pixel = reinterpret_cast<const std::uint32_t*>(bitmap.row(y));
        for (int x = 0; x < bitmap.width(); ++x, ++pixel) {
            const unsigned alpha = *pixel >> 24;
            const unsigned red = *pixel >> 16 & 255, green = *pixel >> 8 & 255, blue = *pixel & 255;
            const unsigned gray = (306 * red + 601 * green + 117 * blue) >> 10;
            result.push_back(static_cast<std::uint8_t>(std::min(255u, gray + 255 - alpha)));
        }
    }
    return result;
}

FoundCode foundCode(const ZXing::Result& result) {
    FoundCode code;
    code.kind = ZXing::ToString(result.format());
    code.message = result.text();
    code.bytes = base::Data(std::vector<std::uint8_t>(result.bytes().begin(), result.bytes().end()));
    for (std::size_t corner = 0; corner < code.corners.size(); ++corner) {
        const auto& point = result.position()[static_cast<int>(corner)];
        code.corners[corner] = {static_cast<double>(point.x), static_cast<double>(point.y)};
    }
    return code;
}

using Codes = std::vector<FoundCode>;

void appendMatrixCodes(const ZXing::ImageView& view, ZXing::BarcodeFormats wanted, Codes& codes) {
    for (const ZXing::Result& result : ZXing::ReadBarcodes(view, ZXing::DecodeHints().setFormats(wanted)))
        if (result.isValid()) codes.push_back(foundCode(result));
}

// Bars are read a line at a time and the lines put together here: in a whole picture the library may find one bar code
// twice, and then ends the process by a failed assertion.
void appendBarCodes(const std::vector<std::uint8_t>& pixels, int width, int height, bool downward,
                    ZXing::BarcodeFormats wanted, Codes& codes) {
    constexpr int lines = 256;
    constexpr int leastLines = 2;
    const int across = downward ? width : height;
    const int length = downward ? height : width;
    const int step = std::max(1, across / lines);
    const auto hints =
        ZXing::DecodeHints().setFormats(wanted).setTryRotate(false).setTryDownscale(false).setMinLineCount(1);
    struct Bars {
        FoundCode code;
        double start, end; // along the line
        int lastLine;
        int count;
    };
    std::vector<Bars> found;
    for (int line = step / 2; line < across; line += step) {
        const std::size_t first = static_cast<std::size_t>(line) * static_cast<std::size_t>(downward ? 1 : width);
        const ZXing::ImageView view =
            downward
                ? ZXing::ImageView(pixels.data() + first, length, 1, ZXing::ImageFormat::Lum, width * length, width)
                : ZXing::ImageView(pixels.data() + first, length, 1, ZXing::ImageFormat::Lum);
        for (const ZXing::Result& result : ZXing::ReadBarcodes(view, hints)) {
            if (!result.isValid()) continue;
            FoundCode code = foundCode(result);
            const double from = code.corners[0].x;
            const double to = code.corners[1].x;
            for (base::Point& corner : code.corners)
                corner = downward ? base::Point{1.0 * line, corner.x} : base::Point{corner.x, 1.0 * line};
            const auto same = std::ranges::find_if(found, [&](const Bars& bars) {
                return bars.lastLine + 3 * step >= line && bars.code.kind == code.kind &&
                       bars.code.bytes == code.bytes && std::min(bars.start, bars.end) < std::max(from, to) &&
                       std::max(bars.start, bars.end) > std::min(from, to);
            });
            if (same == found.end()) {
                found.push_back({std::move(code), from, to, line, 1});
                continue;
            }
            same->code.corners[2] = code.corners[2];
            same->code.corners[3] = code.corners[3];
            same->lastLine = line;
            ++same->count;
        }
    }
    for (Bars& bars : found)
        if (bars.count >= leastLines) codes.push_back(std::move(bars.code));
}

} // namespace

std::string FoundCode::description() const {
    return base::message("%@ \"%@\" at %@", kind, message, base::stringFromPoint(corners[0]));
}

base::Result<std::vector<FoundCode>> readCodes(const ImageRef& image, std::optional<CodeKind> kind) {
    if (!image) return base::failure(base::cocoaErrorDomain, 0, "there is no picture to look for codes in");
    const base::Result<Bitmap> bitmap = image->bitmap(ColorSpace::sRGB());
    if (!bitmap) return base::failure(bitmap.error());
    try {
        const std::vector<std::uint8_t> pixels = luminance(*bitmap);
        const int width = bitmap->width();
        const int height = bitmap->height();
        const ZXing::BarcodeFormats wanted =
            kind ? ZXing::BarcodeFormats(formats.at(static_cast<std::size_t>(*kind))) : ZXing::BarcodeFormat::Any;
        const ZXing::BarcodeFormats matrixCodes = wanted & ZXing::BarcodeFormat::MatrixCodes;
        const ZXing::BarcodeFormats barCodes = wanted & ZXing::BarcodeFormat::LinearCodes;
        Codes codes;
        if (!matrixCodes.empty())
            appendMatrixCodes({pixels.data(), width, height, ZXing::ImageFormat::Lum}, matrixCodes, codes);
        for (const bool downward : {false, true})
            if (!barCodes.empty()) appendBarCodes(pixels, width, height, downward, barCodes, codes);
        std::ranges::sort(codes, {},
                          [](const FoundCode& code) { return std::tuple(code.corners[0].y, code.corners[0].x); });
        return codes;
    } catch (const std::exception& problem) {
        return base::failure(base::cocoaErrorDomain, 0, base::message("the codes can't be read: %@", problem.what()));
    }
}

} // namespace platform::draw
