#include "platform/draw/ScaledRows.h"

#include "internal/EveryTargetFixture.h"
#include "internal/PictureFixtures.h"
#include "internal/ScaledPixels.h"
#include "platform/draw/ColorRows.h"
#include "platform/draw/DeepPixels.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PictureCache.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace platform::draw;
using fixtures::Pixels;

namespace {

ImageRef imageOf(base::Data data) {
    const auto source = ImageSource::createWithData(std::move(data));
    return source ? (*source)->imageAtIndex(0) : nullptr;
}

ImageRef deepImage(int width, int height, bool opaque = true) {
    std::vector<std::uint16_t> samples;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const auto alpha = static_cast<std::uint16_t>(opaque ? 65535 : 65535 * (x + 1) / (width + 1));
            for (const double value : fixtures::photographLike(x, y))
                samples.push_back(static_cast<std::uint16_t>(value * 257 * alpha / 65535));
            samples.push_back(alpha);
        }
    return *imageOfDeepPixels(std::move(samples), width, height, ColorSpace::sRGB(), opaque);
}

/// All rows, as red, green, blue, alpha in 0 to 1.
struct Rows {
    RowFormat format;
    std::vector<float> values;
    float at(int x, int y, int k) const { return values[4 * (static_cast<std::size_t>(y) * format.width + x) + k]; }
};

Rows readAll(base::Result<RowReaderRef> reader) {
    if (!reader) {
        ADD_FAILURE() << reader.error().localizedDescription;
        return {};
    }
    Rows rows{(*reader)->format(), {}};
    const auto count = 4 * static_cast<std::size_t>(rows.format.width);
    std::vector<std::uint16_t> row(count + 1, 0xABCD); // what stands behind a row stays
    for (int y = 0; y < rows.format.height; ++y) {
        auto* bytes = reinterpret_cast<std::uint8_t*>(row.data());
        if (auto read = (*reader)->readRow(bytes); !read) {
            ADD_FAILURE() << read.error().localizedDescription;
            return {};
        }
        EXPECT_EQ(row.back(), 0xABCD);
        for (std::size_t i = 0; i < count; ++i)
            rows.values.push_back(rows.format.depth == RowDepth::half ? floatOfHalf(row[i])
                                  : i % 4 == 3                        ? bytes[i] / 255.0f
                                                                      : bytes[i - i % 4 + 2 - i % 4] / 255.0f);
    }
    return rows;
}

Rows rowsOf(const ImageRef& image, const RowPlacement& placement, RowDepth depth = RowDepth::bits8, int turns = 0,
            bool mirrored = false) {
    return readAll(scaledRows(image, turns, mirrored, placement, depth, nullptr, Quality::final));
}

/// The same by the road of a canvas.
Rows drawn(const ImageRef& image, const RowPlacement& placement, int turns, bool mirrored) {
    const auto width = static_cast<int>(placement.visible.width);
    const auto height = static_cast<int>(placement.visible.height);
    Bitmap bitmap = *Bitmap::create(width, height, ColorSpace::sRGB(), false);
    const PixelTarget target{bitmap.mutablePixels(), bitmap.stride(), width, height, ColorSpace::sRGB()};
    const Placement place{
        {placement.x - placement.visible.x, placement.y - placement.visible.y, placement.width, placement.height},
        turns,
        mirrored};
    EXPECT_TRUE(drawScaled(*image, place, Quality::final, 1, {0, 0, width, height}, target));
    const RowPlacement whole{0,
                             0,
                             placement.visible.width,
                             placement.visible.height,
                             {0, 0, placement.visible.width, placement.visible.height}};
    return rowsOf(Image::fromBitmap(bitmap), whole);
}

float largestDifference(const Rows& a, const Rows& b) {
    if (a.values.size() != b.values.size() || a.values.empty()) return 999;
    float largest = 0;
    for (std::size_t i = 0; i < a.values.size(); ++i)
        largest = std::max(largest, std::abs(a.values[i] - b.values[i]));
    return largest;
}

const RowPlacement placements[] = {
    {0, 0, 60, 50, {0, 0, 60, 50}},              // a reduction over all of it
    {-20.3, 4.6, 90.7, 44.25, {-3, 0, 50, 60}},  // fractions, cut off at one side, margins at others
    {2.5, 1.25, 12, 9, {0, 0, 20, 14}},          // by the decoder's reduction
    {-100, -50.5, 400, 333, {10, 20, 200, 150}}, // a part of an enlargement
    {5, 7, 131, 98, {0, 0, 150, 120}},           // at its own size
    {-10, -7, 131, 98, {0, 0, 60, 50}},          // a part of that
    {0.4, 0.4, 0.3, 40, {0, 0, 3, 50}},          // thinner than a pixel
    {200, 0, 50, 50, {0, 0, 40, 40}},            // outside
};

} // namespace

TEST(ScaledRows, AreThePixelsOfACanvas) {
    const Pixels pixels = Pixels::of(131, 98, fixtures::photographLike);
    const ImageRef pictures[] = {imageOf(fixtures::jpegOf(pixels)),
                                 imageOf(fixtures::pngOf(pixels, {.colors = fixtures::PngColors::rgba})),
                                 imageOf(fixtures::jpegOf(pixels, {.colors = fixtures::JpegColors::cmyk}))};
    for (const ImageRef& image : pictures)
        for (int orientation = 0; orientation < 8; ++orientation)
            for (const RowPlacement& placement : placements) {
                // Out of kept rows, which small pictures have, and without.
                const std::size_t capacity = pictureCacheCapacity();
                if (orientation % 2 == 0) setPictureCacheCapacity(0);
                const int turns = orientation % 4;
                const bool mirrored = orientation >= 4;
                SCOPED_TRACE(testing::Message() << &image - pictures << " turned " << turns << " mirrored " << mirrored
                                                << " at " << &placement - placements);
                const Rows rows = rowsOf(image, placement, RowDepth::bits8, turns, mirrored);
                setPictureCacheCapacity(capacity);
                const Rows wanted = drawn(image, placement, turns, mirrored);
                // Upright, and turned after a reduction: the same pixels. What is enlarged is turned before, and the
                // filter rounds along its other axis first.
                const bool enlarged = placement.width > 131 && (turns != 0);
                EXPECT_LE(largestDifference(rows, wanted), (enlarged ? 2.01f : 0.01f) / 255);
            }
}

TEST(ScaledRows, OfRowsAreThoseOfTheImage) {
    for (const bool opaque : {true, false}) {
        const ImageRef image = deepImage(131, 98, opaque);
        const RowPlacement own{0, 0, 131, 98, {0, 0, 131, 98}};
        for (const RowPlacement& placement : placements)
            for (const RowDepth depth : {RowDepth::bits8, RowDepth::half}) {
                SCOPED_TRACE(testing::Message()
                             << opaque << " " << static_cast<int>(depth) << " at " << &placement - placements);
                const Rows rows =
                    readAll(scaledRows(std::move(*scaledRows(image, 0, false, own, depth, nullptr, Quality::final)),
                                       placement, Quality::final));
                EXPECT_EQ(largestDifference(rows, rowsOf(image, placement, depth)), 0);
            }
    }
}

// Bytes are half pixels rounded and cut. What the eight bits of a picture's file are rounded to counts for half a step.
TEST(ScaledRows, HalfRowsAreFinerThanBytes) {
    const Pixels pixels = Pixels::of(131, 98, fixtures::photographLike);
    const ImageRef pictures[] = {imageOf(fixtures::jpegOf(pixels)),
                                 imageOf(fixtures::pngOf(pixels)),
                                 imageOf(fixtures::jpegOf(pixels, {.colors = fixtures::JpegColors::gray})),
                                 deepImage(131, 98),
                                 deepImage(131, 98, false),
                                 imageOf(fixtures::pngOf(pixels, {.colors = fixtures::PngColors::rgba, .bits = 16}))};
    for (const ImageRef& image : pictures)
        for (const RowPlacement& placement : placements)
            for (const int turns : {0, 1}) {
                SCOPED_TRACE(testing::Message()
                             << &image - pictures << " at " << &placement - placements << " turned " << turns);
                Rows half = rowsOf(image, placement, RowDepth::half, turns);
                fixtures::onEveryTarget([&] {
                    EXPECT_LE(largestDifference(half, rowsOf(image, placement, RowDepth::half, turns)), 0.001);
                });
                EXPECT_EQ(half.format.depth, RowDepth::half);
                for (std::size_t i = 0; i < half.values.size(); i += 4)
                    for (std::size_t k = 0; k < 3; ++k)
                        half.values[i + k] = std::clamp(half.values[i + k], 0.0f, half.values[i + 3]);
                EXPECT_LE(largestDifference(half, rowsOf(image, placement, RowDepth::bits8, turns)), 2.1f / 255);
            }
}

TEST(ScaledRows, KeepSixteenBits) {
    // A slope of which eight bits would make steps of 1/255.
    std::vector<std::uint16_t> samples;
    for (int i = 0; i < 200 * 4; ++i)
        samples.insert(samples.end(), {static_cast<std::uint16_t>(10000 + i % 200), 0, 0, 65535});
    const ImageRef image = *imageOfDeepPixels(std::move(samples), 200, 4, ColorSpace::sRGB(), true);
    const Rows rows = rowsOf(image, {0, 0, 50, 2, {0, 0, 50, 2}}, RowDepth::half);
    for (int x = 2; x < 48; ++x)
        EXPECT_NEAR(rows.at(x, 0, 0) * 65535, 10001.5 + 4 * x, 5) << x; // half a step of a half float there is 4
}

TEST(ScaledRows, ConstantStaysConstantAndEdgesAreCovered) {
    const ImageRef image = imageOf(fixtures::pngOf(Pixels::of(40, 30, [](double, double) {
        return fixtures::Color{51, 102, 204};
    })));
    const RowPlacement placement{2.25, 3.5, 30.5, 41, {0, 0, 36, 48}};
    for (const RowDepth depth : {RowDepth::bits8, RowDepth::half})
        for (int turns = 0; turns < 4; ++turns) {
            const Rows rows = rowsOf(image, placement, depth, turns);
            EXPECT_FALSE(rows.format.opaque);
            for (int y = 0; y < 48; ++y)
                for (int x = 0; x < 36; ++x) {
                    const auto coverage = [](double pixel, double from, double to) {
                        return std::clamp(std::min(pixel + 1, to) - std::max(pixel, from), 0.0, 1.0);
                    };
                    const double alpha = coverage(x, 2.25, 32.75) * coverage(y, 3.5, 44.5);
                    EXPECT_NEAR(rows.at(x, y, 3), alpha, 0.51 / 255) << x << "," << y;
                    EXPECT_NEAR(rows.at(x, y, 2), alpha * 0.8, 1.01 / 255) << x << "," << y;
                }
        }
    EXPECT_TRUE(rowsOf(image, {-0.5, 0, 40, 30, {0, 0, 39, 30}}).format.opaque);
}

TEST(ScaledRows, PartsAreTheWhole) {
    const ImageRef image = imageOf(fixtures::jpegOf(Pixels::of(131, 98, fixtures::photographLike)));
    const RowPlacement placement{-2.5, 1.25, 71.5, 150, {0, 0, 70, 160}};
    for (const int turns : {0, 2, 3}) {
        const Rows whole = rowsOf(image, placement, RowDepth::bits8, turns);
        for (const base::Rect& part : {base::Rect{10, 20, 30, 40}, {0, 100, 70, 60}, {69, 159, 1, 1}}) {
            RowPlacement narrowed = placement;
            narrowed.visible = part;
            const Rows rows = rowsOf(image, narrowed, RowDepth::bits8, turns);
            for (int y = 0; y < rows.format.height; ++y)
                for (int x = 0; x < rows.format.width; ++x)
                    for (int k = 0; k < 4; ++k)
                        ASSERT_EQ(rows.at(x, y, k),
                                  whole.at(x + static_cast<int>(part.x), y + static_cast<int>(part.y), k))
                            << x << "," << y << " turned " << turns;
        }
    }
}

TEST(ScaledRows, RefusesWhatCannotBe) {
    const ImageRef image = imageOf(fixtures::pngOf(Pixels::of(4, 4, fixtures::photographLike)));
    constexpr double infinite = std::numeric_limits<double>::infinity();
    for (const RowPlacement& placement : {RowPlacement{0, 0, 0, 10, {0, 0, 10, 10}},
                                          {0, 0, -5, 10, {0, 0, 10, 10}},
                                          {0, 0, infinite, 5, {0, 0, 5, 5}},
                                          {0, 0, 5, 5, {0, 0, 0, 5}},
                                          {0, 0, 5, 5, {0, 0, 1e6, 5}},
                                          {std::nan(""), 0, 5, 5, {0, 0, 5, 5}}})
        EXPECT_FALSE(scaledRows(image, 0, false, placement, RowDepth::bits8, nullptr, Quality::final));
    // Far away and very large, but possible.
    EXPECT_EQ(rowsOf(image, {-1e8, -1e8, 2e8, 2e8, {0, 0, 2, 2}}).format.width, 2);

    base::Data cut = fixtures::jpegOf(Pixels::of(131, 98, fixtures::photographLike));
    cut.bytes.resize(cut.bytes.size() / 2);
    const ImageRef broken = imageOf(std::move(cut));
    for (const int turns : {0, 1}) {
        auto reader =
            scaledRows(broken, turns, false, {0, 0, 60, 50, {0, 0, 60, 50}}, RowDepth::half, nullptr, Quality::final);
        std::vector<std::uint16_t> row(4 * 60);
        bool failed = !reader;
        for (int y = 0; !failed && y < 50; ++y)
            failed = !(*reader)->readRow(reinterpret_cast<std::uint8_t*>(row.data()));
        EXPECT_TRUE(failed) << turns;
    }
}
