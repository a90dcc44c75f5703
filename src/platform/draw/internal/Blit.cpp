#include "Blit.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace platform::draw {

namespace {

// A turned picture is read along its rows and written down the target's columns; this many target rows at a time keep
// both within the near cache.
constexpr int turnedRows = 16;

double snapped(double value) {
    const double whole = std::round(value);
    return std::abs(value - whole) < 1.0 / 512 ? whole : value;
}

/// Edges far outside any target must not overflow whole numbers.
int limited(double value) {
    return static_cast<int>(std::clamp(value, -1e9, 1e9));
}

unsigned divided255(unsigned value) {
    value += 128;
    return (value + (value >> 8)) >> 8;
}

// The four components of a pixel side by side, in 16 bits each, so that one operation serves all of them.
using Wide = std::uint64_t;
constexpr Wide wideBytes = 0x00FF00FF00FF00FF;
constexpr Wide wideOnes = 0x0001000100010001;

Wide widened(const std::uint8_t* pixel) {
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, pixel, sizeof bytes);
    Wide wide = bytes;
    wide = (wide | (wide << 16)) & 0x0000FFFF0000FFFF;
    return (wide | (wide << 8)) & wideBytes;
}

void storeNarrowed(Wide wide, std::uint8_t* pixel) {
    wide = (wide | (wide >> 8)) & 0x0000FFFF0000FFFF;
    const auto bytes = static_cast<std::uint32_t>(wide | (wide >> 16));
    std::memcpy(pixel, &bytes, sizeof bytes);
}

// Of products of two bytes.
Wide dividedBy255(Wide wide) {
    wide += 128 * wideOnes;
    return ((wide + ((wide >> 8) & wideBytes)) >> 8) & wideBytes;
}

void blendPixel(std::uint8_t* target, const std::uint8_t* source, unsigned factor) {
    const unsigned rest = 255 - divided255(source[3] * factor);
    const Wide sum = dividedBy255(widened(source) * factor) + dividedBy255(widened(target) * rest);
    const Wide isAbove255 = (sum >> 8) & wideOnes; // where a colour exceeds its alpha
    storeNarrowed((sum | isAbove255 * 255) & wideBytes, target);
}

/// One row of the target, with a factor for the row and others for its first and last pixel.
struct Span {
    int count = 0;
    bool opaque = false;
    unsigned factor = 255; // of the row; those of the ends contain it
    unsigned firstFactor = 255;
    unsigned lastFactor = 255;

    void draw(std::uint8_t* target, const std::uint8_t* source) const {
        int begin = 0;
        int end = count;
        if (firstFactor != factor) blendPixel(target, source, firstFactor), begin = 1;
        if (lastFactor != factor && end - 1 >= begin) {
            --end;
            blendPixel(target + 4 * end, source + 4 * end, lastFactor);
        }
        if (end <= begin) return;
        if (opaque && factor == 255) {
            std::memcpy(target + 4 * begin, source + 4 * begin, static_cast<std::size_t>(end - begin) * 4);
            return;
        }
        for (int i = begin; i < end; ++i) {
            std::uint32_t pixel = 0;
            std::memcpy(&pixel, source + 4 * i, sizeof pixel);
            // Texts and nested canvases are clear for the most part, and what is not is opaque as a rule.
            if (pixel == 0) continue;
            if (source[4 * i + 3] == 255 && factor == 255)
                std::memcpy(target + 4 * i, &pixel, sizeof pixel);
            else
                blendPixel(target + 4 * i, source + 4 * i, factor);
        }
    }
};

} // namespace

PlacedAxis::PlacedAxis(double start, double extent, int clipFrom, int clipTo, bool isReversed)
    : from(snapped(start)), to(snapped(start + extent)), low(limited(std::floor(from))), high(limited(std::ceil(to))),
      clipLow(std::max(low, clipFrom)), clipHigh(std::min(high, clipTo)), reversed(isReversed) {}

double PlacedAxis::coverage(int pixel) const {
    return std::clamp(std::min(pixel + 1.0, to) - std::max(static_cast<double>(pixel), from), 0.0, 1.0);
}

PlacedPicture::PlacedPicture(const Placement& placement, const PixelRect& clip)
    : x(placement.rectangle.x, placement.rectangle.width, clip.x, clip.maxX(), false),
      y(placement.rectangle.y, placement.rectangle.height, clip.y, clip.maxY(), false) {
    const int turns = ((placement.quarterTurns % 4) + 4) % 4;
    turned = turns % 2 == 1;
    PlacedAxis& along = turned ? y : x;
    PlacedAxis& across = turned ? x : y;
    along.reversed = (turns >= 2) != placement.mirrored;
    across.reversed = turns == 1 || turns == 2;
}

void blit(const PlacedPicture& placed, const std::uint8_t* pixels, std::size_t stride, bool opaque, double alpha,
          const PixelTarget& target) {
    const PlacedAxis& x = placed.x;
    const PlacedAxis& y = placed.y;
    const PlacedAxis& along = placed.columns();
    const PlacedAxis& across = placed.rows();
    const auto width = static_cast<std::size_t>(x.count());
    const auto factorOf = [](double share) { return static_cast<unsigned>(std::lround(share * 255)); };
    const auto drawRow = [&](int row, const std::uint8_t* source) {
        const double share = std::clamp(alpha, 0.0, 1.0) * y.coverage(row);
        const Span span{x.count(), opaque, factorOf(share), factorOf(share * x.coverage(x.clipLow)),
                        factorOf(share * x.coverage(x.clipHigh - 1))};
        if (span.factor == 0) return;
        span.draw(target.pixels + static_cast<std::size_t>(row) * target.stride +
                      static_cast<std::size_t>(x.clipLow) * 4,
                  source);
    };
    // The picture's own row or column for the i-th drawn one of the target.
    const auto ownIndex = [](const PlacedAxis& axis, int i) {
        return static_cast<std::size_t>(axis.reversed ? axis.count() - 1 - i : i);
    };

    if (!placed.turned) {
        std::vector<std::uint8_t> mirrored(along.reversed ? width * 4 : 0);
        for (int row = 0; row < y.count(); ++row) {
            const std::uint8_t* source = pixels + ownIndex(across, row) * stride;
            if (along.reversed) {
                for (std::size_t i = 0; i < width; ++i)
                    std::memcpy(&mirrored[4 * i], source + 4 * (width - 1 - i), 4);
                source = mirrored.data();
            }
            drawRow(y.clipLow + row, source);
        }
        return;
    }
    std::vector<std::uint8_t> turned(width * 4 * turnedRows);
    for (int first = 0; first < y.count(); first += turnedRows) {
        const int rows = std::min(turnedRows, y.count() - first);
        for (int i = 0; i < x.count(); ++i) {
            const std::uint8_t* source = pixels + ownIndex(across, i) * stride;
            for (int row = 0; row < rows; ++row)
                std::memcpy(&turned[(static_cast<std::size_t>(row) * width + static_cast<std::size_t>(i)) * 4],
                            source + 4 * ownIndex(along, first + row), 4);
        }
        for (int row = 0; row < rows; ++row)
            drawRow(y.clipLow + first + row, &turned[static_cast<std::size_t>(row) * width * 4]);
    }
}

} // namespace platform::draw
