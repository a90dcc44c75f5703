#include "print/DNPPlanes.h"

#include "base/Log.h"
#include "base/MessageTemplate.h"
#include "platform/draw/ColorSpace.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

constexpr double inchesPerMetre = 39.3700787402;
constexpr std::uint8_t noInk = 255;
constexpr std::array headWidths{1920, 2560};

// -- The header ------------------------------------------------------------------------------------------------------

constexpr std::size_t paletteOffset = 54;
constexpr std::size_t paletteEntries = 256;

enum Field {
    signature,
    fileSize,
    reserved,
    pixelOffset,
    infoSize,
    planeWidth,
    planeHeight,
    planeCount,
    bitsPerPixel,
    compression,
    pixelBytes,
    horizontalDensity,
    verticalDensity,
    coloursUsed,
    coloursImportant,
    fieldCount
};

struct FieldPlace {
    std::size_t offset;
    std::size_t size;
    const char* name;
};

constexpr std::array<FieldPlace, fieldCount> places{{
    {0, 2, "signature"},
    {2, 4, "file size"},
    {6, 4, "reserved number"},
    {10, 4, "offset of the pixels"},
    {14, 4, "size of the info header"},
    {18, 4, "width"},
    {22, 4, "height"},
    {26, 2, "number of planes"},
    {28, 2, "number of bits per pixel"},
    {30, 4, "compression"},
    {34, 4, "size of the pixels"},
    {38, 4, "number of horizontal pixels per metre"},
    {42, 4, "number of vertical pixels per metre"},
    {46, 4, "number of colours"},
    {50, 4, "number of important colours"},
}};

using Header = std::array<std::uint8_t, dnpPlaneHeaderSize>;

std::uint32_t number(const std::uint8_t* header, Field field) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < places[field].size; ++i)
        value |= std::uint32_t{header[places[field].offset + i]} << (8 * i);
    return value;
}

Header headerOf(std::uint32_t width, std::uint32_t height, std::uint32_t horizontal, std::uint32_t vertical) {
    std::array<std::uint32_t, fieldCount> values{};
    values[signature] = 0x4D42;
    values[fileSize] = width * height + dnpPlaneHeaderSize;
    values[pixelOffset] = dnpPlaneHeaderSize;
    values[infoSize] = 40;
    values[planeWidth] = width;
    values[planeHeight] = height;
    values[planeCount] = 1;
    values[bitsPerPixel] = 8;
    values[pixelBytes] = width * height;
    values[horizontalDensity] = horizontal;
    values[verticalDensity] = vertical;
    values[coloursUsed] = paletteEntries;

    Header header{};
    for (std::size_t field = 0; field < fieldCount; ++field)
        for (std::size_t i = 0; i < places[field].size; ++i)
            header[places[field].offset + i] = static_cast<std::uint8_t>(values[field] >> (8 * i));
    for (std::size_t i = 0; i < paletteEntries; ++i)
        std::fill_n(header.begin() + static_cast<std::ptrdiff_t>(paletteOffset + 4 * i), 3,
                    static_cast<std::uint8_t>(255 - i));
    return header;
}

// Drivers round differently.
long dotsPerInch(std::uint32_t pixelsPerMetre) {
    return std::lround(pixelsPerMetre / inchesPerMetre);
}

tl::unexpected<base::Error> fault(std::string text) {
    return base::failure(base::cocoaErrorDomain, 0, std::move(text));
}

// What is told of the byte where a header first differs from the one that it should be.
std::string faultAt(std::size_t offset, const std::uint8_t* found, const std::uint8_t* wanted) {
    if (offset < places[signature].size) return "it is no BMP file";
    for (std::size_t i = 0; i < fieldCount; ++i) {
        const FieldPlace& place = places[i];
        if (offset >= place.offset && offset < place.offset + place.size)
            return base::message("its %s is %lu, where a plane has %lu", place.name,
                                 number(found, static_cast<Field>(i)), number(wanted, static_cast<Field>(i)));
    }
    return base::message("byte %lu is %d, where a plane has %d", offset, found[offset], wanted[offset]);
}

// -- The pixels ------------------------------------------------------------------------------------------------------

// Plain loops over whole numbers: the compiler makes vectors of them.
template <int BytesPerPixel>
void splitRow(const std::uint8_t* __restrict source, std::size_t count, std::uint8_t* __restrict first,
              std::uint8_t* __restrict second, std::uint8_t* __restrict third) {
    for (std::size_t i = 0; i < count; ++i) {
        first[i] = source[BytesPerPixel * i];
        second[i] = source[BytesPerPixel * i + 1];
        third[i] = source[BytesPerPixel * i + 2];
    }
}

std::uint8_t* rowOf(base::Data& plane, std::size_t width, std::size_t row) {
    return plane.bytes.data() + dnpPlaneHeaderSize + width * row;
}

} // namespace

base::Data dnpBlankPlane(int width, int height, base::Size resolution) {
    const Header header = headerOf(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                   static_cast<std::uint32_t>(resolution.width * inchesPerMetre),
                                   static_cast<std::uint32_t>(resolution.height * inchesPerMetre));
    base::Data plane;
    plane.bytes.assign(header.size() + static_cast<std::size_t>(width) * static_cast<std::size_t>(height), noInk);
    std::copy(header.begin(), header.end(), plane.bytes.begin());
    return plane;
}

bool dnpCopyRaster(const RasterData& raster, std::size_t pageWidth, base::Data& yellow, base::Data& magenta,
                   base::Data& cyan) {
    const bool isFourBytes = raster.bytesPerPixel == 4;
    if (raster.bitsPerComponent != 8 || (!isFourBytes && raster.bytesPerPixel != 3)) return false;
    if (raster.alphaInfo == 1 || raster.alphaInfo == 2) base::log("Premultiplied Alpha may produce unexpected output");
    const bool isAlphaFirst = raster.alphaInfo == 2 || raster.alphaInfo == 4 || raster.alphaInfo == 6;

    const std::uint8_t* header = yellow.bytes.data();
    const std::size_t width = number(header, planeWidth);
    const std::size_t rows = std::min<std::size_t>(raster.height, number(header, planeHeight));
    const std::int64_t difference = static_cast<std::int64_t>(width) - static_cast<std::int64_t>(raster.width);
    const bool isTooWide = difference < -1;
    if (isTooWide)
        base::log("ERROR: Bad input image width; too wide by %lu pixels (this should be a crasher).",
                  raster.width - pageWidth);
    const std::size_t sourceColumn = isTooWide ? static_cast<std::size_t>(-(difference / 2)) : 0;
    const std::size_t column = isTooWide ? 0 : static_cast<std::size_t>(difference / 2);
    const std::size_t count = std::min(raster.width - sourceColumn, width - column);

    const std::uint8_t* source = raster.data + sourceColumn * raster.bytesPerPixel + (isAlphaFirst ? 1 : 0);
    for (std::size_t row = rows; row-- > 1; source += raster.bytesPerRow) {
        std::uint8_t* const red = rowOf(cyan, width, row) + column;
        std::uint8_t* const green = rowOf(magenta, width, row) + column;
        std::uint8_t* const blue = rowOf(yellow, width, row) + column;
        if (isFourBytes)
            splitRow<4>(source, count, red, green, blue);
        else
            splitRow<3>(source, count, red, green, blue);
    }
    return true;
}

base::Result<DNPPlane> dnpReadPlane(std::string_view bytes) {
    const auto* found = reinterpret_cast<const std::uint8_t*>(bytes.data());
    if (bytes.size() < dnpPlaneHeaderSize)
        return fault(base::message("it has only %lu of the %lu bytes before a plane's pixels", bytes.size(),
                                   dnpPlaneHeaderSize));
    const std::uint32_t width = number(found, planeWidth);
    const std::uint32_t height = number(found, planeHeight);
    const Header wanted = headerOf(width, height, number(found, horizontalDensity), number(found, verticalDensity));
    const auto [differs, other] = std::mismatch(wanted.begin(), wanted.end(), found);
    if (differs != wanted.end())
        return fault(faultAt(static_cast<std::size_t>(differs - wanted.begin()), found, wanted.data()));
    if (std::find(headWidths.begin(), headWidths.end(), static_cast<int>(width)) == headWidths.end())
        return fault(
            base::message("its width is %lu; print heads have %d or %d dots", width, headWidths[0], headWidths[1]));
    const std::uint32_t horizontal = number(found, horizontalDensity);
    const std::uint32_t vertical = number(found, verticalDensity);
    if (dotsPerInch(horizontal) != 300 || (dotsPerInch(vertical) != 300 && dotsPerInch(vertical) != 600))
        return fault(
            base::message("it has %lu x %lu pixels per metre; printers take 300 x 300 or 300 x 600 to the inch",
                          horizontal, vertical));
    // In 64 bits, which the header's own product has not.
    const std::uint64_t size = std::uint64_t{width} * height + dnpPlaneHeaderSize;
    if (size != bytes.size())
        return fault(
            base::message("it has %lu bytes; a plane of %lu x %lu has %lu", bytes.size(), width, height, size));
    return DNPPlane{static_cast<int>(width),
                    static_cast<int>(height),
                    horizontal,
                    vertical,
                    {found + dnpPlaneHeaderSize, bytes.size() - dnpPlaneHeaderSize}};
}

base::Result<platform::draw::Bitmap> dnpPictureOfPlanes(const DNPPlane& yellow, const DNPPlane& magenta,
                                                        const DNPPlane& cyan) {
    const auto agrees = [&](const DNPPlane& plane) {
        return plane.width == yellow.width && plane.height == yellow.height &&
               plane.horizontalPixelsPerMetre == yellow.horizontalPixelsPerMetre &&
               plane.verticalPixelsPerMetre == yellow.verticalPixelsPerMetre;
    };
    if (!agrees(magenta) || !agrees(cyan)) return fault("the planes differ in size or resolution");
    auto picture = platform::draw::Bitmap::createUninitialized(yellow.width, yellow.height,
                                                               platform::draw::ColorSpace::sRGB(), true);
    if (!picture) return picture;
    const auto width = static_cast<std::size_t>(yellow.width);
    for (int y = 0; y < yellow.height; ++y) {
        const std::size_t row = width * static_cast<std::size_t>(yellow.height - 1 - y);
        std::uint8_t* pixel = picture->mutableRow(y);
        for (std::size_t x = 0; x < width; ++x, pixel += 4) {
            const std::uint32_t value = 0xFF000000u | std::uint32_t{cyan.pixels[row + x]} << 16 |
                                        std::uint32_t{magenta.pixels[row + x]} << 8 | yellow.pixels[row + x];
            std::memcpy(pixel, &value, sizeof value);
        }
    }
    return picture;
}
