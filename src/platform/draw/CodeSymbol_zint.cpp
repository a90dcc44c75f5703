#include "platform/draw/CodeSymbol.h"

#include "base/MessageTemplate.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <zint.h>

namespace platform::draw {
namespace {

// No symbol of any kind holds more: the digits of the largest QR code.
constexpr std::size_t longestMessage = 7089;
constexpr int greatestQuietSpace = 20;

struct KindRow {
    std::string_view name;
    int symbology;
    int border;    // white modules on each side
    int rowHeight; // pixels
};
// By CodeKind. Code 128 has its quiet space in the place of a border.
constexpr std::array<KindRow, 4> kindRows = {{{"Aztec", BARCODE_AZTEC, 0, 1},
                                              {"QR", BARCODE_QRCODE, 1, 1},
                                              {"Code 128", BARCODE_CODE128, 0, 32},
                                              {"PDF417", BARCODE_PDF417, 2, 3}}};

struct DeleteSymbol {
    void operator()(zint_symbol* symbol) const { ZBarcode_Delete(symbol); }
};
using SymbolRef = std::unique_ptr<zint_symbol, DeleteSymbol>;

tl::unexpected<base::Error> failureOf(const KindRow& kind, std::string_view reason) {
    return base::failure(base::cocoaErrorDomain, 0, base::message("%@ code: %@", kind.name, reason));
}

bool isDark(const zint_symbol& symbol, int row, int column) {
    return symbol.encoded_data[row][column / 8] >> (column % 8) & 1;
}

struct Encoding {
    SymbolRef symbol;
    int status = ZINT_ERROR_MEMORY;
    std::string reason = "out of memory";
    bool isMade() const { return status < ZINT_ERROR; }
};

// The two numbers mean something else in each symbology.
Encoding encode(const KindRow& kind, std::string_view message, int option1, int option2) {
    Encoding encoding{SymbolRef(ZBarcode_Create())};
    if (!encoding.symbol) return encoding;
    zint_symbol& symbol = *encoding.symbol;
    symbol.symbology = kind.symbology;
    symbol.input_mode = DATA_MODE;
    symbol.option_1 = option1;
    symbol.option_2 = option2;
    encoding.status = ZBarcode_Encode(&symbol, reinterpret_cast<const unsigned char*>(message.data()),
                                      static_cast<int>(message.size()));
    encoding.reason = symbol.errtxt;
    return encoding;
}

// -- Aztec -----------------------------------------------------------------------------------------------------------
// The library offers four correction levels and a choice of size. A percentage is met by taking the smallest size in
// which what the message leaves over is enough, as told by the symbol's own mode message.

constexpr int aztecSizes = 36; // 1 to 4 compact with that many layers; 5 to 36 full with 1 to 32
constexpr int aztecCompactSizes = 4;

int aztecLayers(int size) {
    return size <= aztecCompactSizes ? size : size - aztecCompactSizes;
}

int aztecCodewords(int size) {
    const int layers = aztecLayers(size);
    const int bits = ((size <= aztecCompactSizes ? 88 : 112) + 16 * layers) * layers;
    return bits / (layers <= 2 ? 6 : layers <= 8 ? 8 : layers <= 22 ? 10 : 12);
}

// The codewords of the message in a symbol, from the ring around the bull's eye: clockwise from the top left, the
// number of layers less one, then that of codewords less one. 0 when the ring does not tell of this size.
int aztecMessageCodewords(const zint_symbol& symbol, int size) {
    const bool compact = size <= aztecCompactSizes;
    const int centre = symbol.width / 2;
    const int distance = compact ? 5 : 7;
    const int reach = compact ? 3 : 5;
    const int layerBits = compact ? 2 : 5;
    const int wordBits = compact ? 6 : 11;
    unsigned bits = 0;
    int count = 0;
    const auto take = [&](int row, int column) {
        if (count++ < layerBits + wordBits) bits = bits << 1 | (isDark(symbol, row, column) ? 1u : 0u);
    };
    for (const bool onTop : {true, false})
        for (int step = -reach; step <= reach; ++step) {
            if (step == 0 && !compact) continue; // the reference grid
            onTop ? take(centre - distance, centre + step) : take(centre + step, centre + distance);
        }
    const int layers = static_cast<int>(bits >> wordBits) + 1;
    return layers == aztecLayers(size) ? static_cast<int>(bits & ((1u << wordBits) - 1)) + 1 : 0;
}

// A compact symbol can name no more than 64 codewords, but the library fills its largest with up to 73, and no reader
// reads that. The full symbol of as many layers has codewords of the same width and names them all.
bool fitsCompactModeMessage(const KindRow& kind, std::string_view message, int size) {
    const int fullSize = size + aztecCompactSizes;
    const Encoding full = encode(kind, message, 0, fullSize);
    return full.isMade() && aztecMessageCodewords(*full.symbol, fullSize) <= 64;
}

Encoding encodeAztec(const KindRow& kind, std::string_view message, int percent) {
    Encoding encoding;
    for (int size = 1; size <= aztecSizes; ++size) {
        // The full symbols of up to three layers hold less than compact ones of the same width.
        if (size > aztecCompactSizes && aztecLayers(size) < aztecCompactSizes) continue;
        encoding = encode(kind, message, 0, size);
        if (encoding.status == ZINT_ERROR_TOO_LONG) continue;
        if (!encoding.isMade()) return encoding;
        const int total = aztecCodewords(size);
        const int used = aztecMessageCodewords(*encoding.symbol, size);
        const bool isTold = used > 0 && (size != aztecCompactSizes || fitsCompactModeMessage(kind, message, size));
        // Three codewords come on top of the percentage.
        if (isTold && (total - used - 3) * 100 >= total * percent) return encoding;
        encoding.status = ZINT_ERROR_TOO_LONG;
        encoding.reason = "the message is too long for this correction level";
    }
    return encoding;
}

// -- All kinds -------------------------------------------------------------------------------------------------------

base::Result<ImageRef> imageOf(const zint_symbol& symbol, int borderX, int borderY, int rowHeight) {
    const int width = symbol.width + 2 * borderX;
    auto bitmap = Bitmap::createUninitialized(width, symbol.rows * rowHeight + 2 * borderY, ColorSpace::sRGB(), true);
    if (!bitmap) return base::failure(bitmap.error());
    for (int y = 0; y < bitmap->height(); ++y) {
        // 0xFF in all four bytes is white and 0 with full alpha is black, in any order of bytes.
        constexpr std::uint32_t white = 0xFFFFFFFF;
        constexpr std::uint32_t black = 0xFF000000;
        auto* pixels = reinterpret_cast<std::uint32_t*>(bitmap->mutableRow(y));
        std::fill_n(pixels, width, white);
        const int row = y < borderY ? symbol.rows : (y - borderY) / rowHeight;
        for (int column = 0; row < symbol.rows && column < symbol.width; ++column)
            if (isDark(symbol, row, column)) pixels[borderX + column] = black;
    }
    return Image::fromBitmap(std::move(*bitmap));
}

} // namespace

base::Result<ImageRef> makeCodeSymbol(CodeKind kind, std::string_view message, const CodeSymbolOptions& options) {
    const KindRow& row = kindRows.at(static_cast<std::size_t>(kind));
    if (message.empty()) return failureOf(row, "there is no message to encode");
    if (message.size() > longestMessage) return failureOf(row, "the message is too long");

    int borderX = row.border;
    Encoding encoding;
    switch (kind) {
    case CodeKind::aztec: {
        const int percent = options.aztecCorrectionPercent;
        if (percent < 5 || percent > 95) return failureOf(row, "the correction level is not from 5 to 95");
        encoding = encodeAztec(row, message, percent);
        break;
    }
    case CodeKind::qr: {
        const std::size_t level = std::string_view("LMQH").find(options.qrCorrectionLevel);
        if (options.qrCorrectionLevel.size() != 1 || level == std::string_view::npos)
            return failureOf(row, "the correction level is none of L, M, Q and H");
        encoding = encode(row, message, static_cast<int>(level) + 1, 0);
        break;
    }
    case CodeKind::code128:
        borderX = options.code128QuietSpace;
        if (borderX < 0 || borderX > greatestQuietSpace) return failureOf(row, "the quiet space is not from 0 to 20");
        encoding = encode(row, message, 0, 0);
        break;
    case CodeKind::pdf417: {
        const int level = options.pdf417CorrectionLevel.value_or(-1); // what the library takes for "by length"
        if (options.pdf417CorrectionLevel && (level < 0 || level > 8))
            return failureOf(row, "the correction level is not from 0 to 8");
        encoding = encode(row, message, level, 0);
        break;
    }
    }
    if (!encoding.isMade()) return failureOf(row, encoding.reason);
    return imageOf(*encoding.symbol, borderX, row.border, row.rowHeight);
}

} // namespace platform::draw
