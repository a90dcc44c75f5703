#include "internal/ScaledPixels.h"

#include "internal/PictureFixtures.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/PictureCache.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace platform::draw;
using fixtures::Color;
using fixtures::JpegColors;
using fixtures::likeness;
using fixtures::Pixels;

namespace {

ImageRef imageOf(base::Data data) {
    const auto source = ImageSource::createWithData(std::move(data));
    if (!source) {
        ADD_FAILURE() << source.error().localizedDescription;
        return nullptr;
    }
    return (*source)->imageAtIndex(0);
}

ImageRef imageOf(const Pixels& pixels) {
    auto bitmap = Bitmap::create(pixels.width, pixels.height, ColorSpace::sRGB(), true);
    for (int y = 0; y < pixels.height; ++y)
        for (int x = 0; x < pixels.width; ++x)
            for (int k = 0; k < 3; ++k)
                bitmap->mutableRow(y)[4 * x + 2 - k] = pixels.at(x, y)[k];
    return Image::fromBitmap(*bitmap);
}

Bitmap scaled(const Image& image, int width, int height, Quality quality = Quality::final) {
    auto bitmap = scaledBitmap(image, width, height, quality, ColorSpace::sRGB());
    if (!bitmap) throw std::runtime_error(bitmap.error().localizedDescription);
    return *bitmap;
}

Bitmap canvas(int width, int height) {
    return *Bitmap::create(width, height, ColorSpace::sRGB(), false);
}

base::Result<void> draw(const Image& image, const Placement& placement, Bitmap& bitmap, double alpha = 1,
                        PixelRect clip = {0, 0, 10000, 10000}) {
    const PixelTarget target{bitmap.mutablePixels(), bitmap.stride(), bitmap.width(), bitmap.height(),
                             bitmap.colorSpace()};
    return drawScaled(image, placement, Quality::final, alpha, clip, target);
}

std::vector<int> pixel(const Bitmap& bitmap, int x, int y) {
    const std::uint8_t* bytes = bitmap.row(y) + 4 * x;
    return {bytes[2], bytes[1], bytes[0], bytes[3]};
}

bool samePixels(const Bitmap& a, const Bitmap& b) {
    if (a.width() != b.width() || a.height() != b.height()) return false;
    for (int y = 0; y < a.height(); ++y)
        if (!std::equal(a.row(y), a.row(y) + 4 * a.width(), b.row(y))) return false;
    return true;
}

/// Files of the chroma resolutions that cameras and programs write.
std::vector<base::Data> sampledJpegs(const Pixels& pixels) {
    std::vector<base::Data> files;
    for (const auto& [horizontal, vertical] : {std::pair{1, 1}, {2, 2}, {2, 1}, {1, 2}, {4, 1}})
        files.push_back(fixtures::jpegOf(pixels, {.horizontalSampling = horizontal, .verticalSampling = vertical}));
    return files;
}

} // namespace

// The whole chain (planes at their own resolution, weights in integers, colours last) against the plain one: decode at
// full size to RGB, then reduce in full precision. Rounding the result to bytes alone limits the likeness to 58.9 dB.
TEST(ScaledPixels, AreAsGoodAsFullPrecision) {
    const Pixels pixels = Pixels::of(331, 246, fixtures::photographLike);
    for (int sampling = 0; const base::Data& jpeg : sampledJpegs(pixels)) {
        SCOPED_TRACE(sampling++);
        const Pixels decoded = fixtures::decodedJpeg(jpeg);
        const ImageRef image = imageOf(jpeg);
        ASSERT_TRUE(image);
        // To half and below, decoding may start from a reduced picture only when a factor of two is left.
        EXPECT_GT(likeness(scaled(*image, 100, 75), fixtures::reference(decoded, 0, 0, 331, 246, 100, 75)), 55);
        EXPECT_GT(likeness(scaled(*image, 331, 246), fixtures::reference(decoded, 0, 0, 331, 246, 331, 246)), 50);
        EXPECT_GT(likeness(scaled(*image, 500, 400), fixtures::reference(decoded, 0, 0, 331, 246, 500, 400)), 50);
        const ImageRef part = image->cropped({101, 83, 150, 120});
        EXPECT_GT(likeness(scaled(*part, 90, 70), fixtures::reference(decoded, 101, 83, 150, 120, 90, 70)), 54);
    }
}

TEST(ScaledPixels, ReducedDecodingStaysClose) {
    const Pixels pixels = Pixels::of(640, 480, fixtures::photographLike);
    const base::Data jpeg = fixtures::jpegOf(pixels);
    const Pixels decoded = fixtures::decodedJpeg(jpeg);
    const ImageRef image = imageOf(jpeg);
    struct Case {
        int width, height;
        Quality quality;
        double decibels;
    };
    // A preview reduces in the decoder as far as it can, which lets a little of the finest detail through.
    for (const Case& test : {Case{160, 120, Quality::final, 42},
                             {80, 60, Quality::final, 42},
                             {40, 30, Quality::final, 40},
                             {300, 220, Quality::preview, 34}}) {
        SCOPED_TRACE(test.width);
        const auto wanted = fixtures::reference(decoded, 0, 0, 640, 480, test.width, test.height);
        EXPECT_GT(likeness(scaled(*image, test.width, test.height, test.quality), wanted), test.decibels);
    }
}

TEST(ScaledPixels, ConstantPicturesStayConstant) {
    const auto gray = [](int value) {
        return Pixels::of(203, 151, [=](double, double) { return Color{value + 0., value + 0., value + 0.}; });
    };
    for (const int value : {0, 1, 77, 128, 254, 255}) {
        const Pixels pixels = gray(value);
        for (const ImageRef& image :
             {imageOf(pixels), imageOf(fixtures::jpegOf(pixels)), imageOf(fixtures::pngOf(pixels))}) {
            for (const auto& [width, height] : {std::pair{7, 5}, {50, 50}, {203, 151}, {301, 260}, {1, 1}}) {
                const Bitmap bitmap = scaled(*image, width, height);
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x)
                        ASSERT_EQ(pixel(bitmap, x, y), (std::vector<int>{value, value, value, 255})) << width;
            }
        }
    }
}

// Rings that grow finer outwards, up to one pixel light and one dark. Where they are finer than the output can show
// there must be even gray: what remains there is false.
TEST(ScaledPixels, AZonePlateShowsNoMoreFalseRingsThanFullPrecision) {
    constexpr int side = 512;
    const Pixels plate = Pixels::of(side, side, [](double x, double y) {
        const double radius = std::hypot(x - side / 2.0, y - side / 2.0);
        const double value = 127.5 + 127.5 * std::cos(std::numbers::pi * radius * radius / side);
        return Color{value, value, value};
    });
    const base::Data jpeg = fixtures::jpegOf(plate, {.quality = 98});
    struct Subject {
        const char* name;
        ImageRef image;
        Pixels pixels;
    };
    const Subject subjects[] = {{"in memory", imageOf(plate), plate},
                                {"PNG", imageOf(fixtures::pngOf(plate)), plate},
                                {"JPEG", imageOf(jpeg), fixtures::decodedJpeg(jpeg)}};
    for (const int size : {341, 216, 128, 97, 64, 42, 31, 21}) {
        const double factor = static_cast<double>(side) / size;
        // Of a picture of three bytes a pixel: the deviation from gray beyond what the output can show.
        const auto falseRings = [&](const auto& valueAt) {
            double sum = 0;
            int count = 0;
            for (int y = 0; y < size; ++y)
                for (int x = 0; x < size; ++x) {
                    const double radius = std::hypot((x + 0.5) * factor - side / 2.0, (y + 0.5) * factor - side / 2.0);
                    if (radius < 1.3 * side / 2 / factor) continue;
                    sum += (valueAt(x, y) - 127.5) * (valueAt(x, y) - 127.5);
                    ++count;
                }
            return std::sqrt(sum / std::max(count, 1));
        };
        for (const auto& [name, image, pixels] : subjects) {
            SCOPED_TRACE(std::string(name) + " to " + std::to_string(size));
            const Bitmap bitmap = scaled(*image, size, size);
            const auto wanted = fixtures::reference(pixels, 0, 0, side, side, size, size);
            const double ours = falseRings([&](int x, int y) { return double(bitmap.row(y)[4 * x + 1]); });
            const double best = falseRings(
                [&](int x, int y) { return std::round(wanted[3 * (static_cast<std::size_t>(y) * size + x) + 1]); });
            EXPECT_LE(ours, best * 1.1);
        }
    }
}

TEST(ScaledPixels, ADrawingAtItsOwnSizeIsUnchanged) {
    const Pixels pixels = Pixels::of(131, 98, fixtures::photographLike);
    std::vector<std::pair<ImageRef, Pixels>> subjects{{imageOf(pixels), pixels},
                                                      {imageOf(fixtures::pngOf(pixels)), pixels},
                                                      {imageOf(fixtures::tiffOf(pixels)), pixels}};
    for (const base::Data& jpeg : sampledJpegs(pixels))
        subjects.emplace_back(imageOf(jpeg), fixtures::decodedJpeg(jpeg));
    for (const auto& [image, wanted] : subjects) {
        // Whole, of a part, and of a part of the target only.
        Bitmap whole = canvas(131, 98);
        ASSERT_TRUE(draw(*image, {{0, 0, 131, 98}}, whole));
        Bitmap part = canvas(131, 98);
        ASSERT_TRUE(draw(*image->cropped({20, 37, 64, 50}), {{20, 37, 64, 50}}, part, 1, {25, 41, 30, 20}));
        for (int y = 0; y < 98; ++y)
            for (int x = 0; x < 131; ++x) {
                const std::uint8_t* color = wanted.at(x, y);
                const std::vector<int> expected{color[0], color[1], color[2], 255};
                ASSERT_EQ(pixel(whole, x, y), expected) << x << " " << y;
                const bool inside = x >= 25 && x < 55 && y >= 41 && y < 61;
                ASSERT_EQ(pixel(part, x, y), inside ? expected : std::vector<int>(4)) << x << " " << y;
            }
    }
}

TEST(ScaledPixels, TurnedDrawingIsTheTurnedPicture) {
    const base::Data jpeg = fixtures::jpegOf(Pixels::of(240, 160, fixtures::photographLike));
    const ImageRef image = imageOf(jpeg);
    for (int turns = 0; turns < 4; ++turns) {
        for (const bool mirrored : {false, true}) {
            const bool onSide = turns % 2 != 0;
            Bitmap direct = canvas(150, 150);
            const base::Rect place{10, 20, onSide ? 60.0 : 90.0, onSide ? 90.0 : 60.0};
            ASSERT_TRUE(draw(*image, {place, turns, mirrored}, direct));
            Bitmap stepwise = canvas(150, 150);
            ASSERT_TRUE(draw(*Image::fromBitmap(scaled(*image, 90, 60)), {place, turns, mirrored}, stepwise));
            EXPECT_TRUE(samePixels(direct, stepwise)) << turns << mirrored;
        }
    }
}

TEST(ScaledPixels, AClippedDrawingIsAPartOfTheWhole) {
    const ImageRef image = imageOf(fixtures::jpegOf(Pixels::of(240, 160, fixtures::photographLike)));
    for (int turns = 0; turns < 4; ++turns) {
        const Placement placement{{-20.5, 5.25, 130.75, 90.5}, turns, false};
        Bitmap whole = canvas(100, 100);
        Bitmap parts = canvas(100, 100);
        ASSERT_TRUE(draw(*image, placement, whole));
        for (const PixelRect& clip : {PixelRect{0, 0, 41, 33}, {41, 0, 59, 33}, {0, 33, 77, 67}, {77, 33, 23, 67}})
            ASSERT_TRUE(draw(*image, placement, parts, 1, clip));
        EXPECT_TRUE(samePixels(whole, parts)) << turns;
    }
}

TEST(ScaledPixels, EdgesBetweenPixelsAreBlended) {
    const ImageRef image = imageOf(Pixels::of(20, 20, [](double, double) { return Color{200, 100, 40}; }));
    Bitmap bitmap = canvas(10, 10);
    ASSERT_TRUE(draw(*image, {{2.5, 3, 4, 2.25}}, bitmap));
    EXPECT_EQ(pixel(bitmap, 1, 3), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_NEAR(pixel(bitmap, 2, 3)[3], 128, 1);
    EXPECT_NEAR(pixel(bitmap, 2, 3)[0], 100, 1);
    EXPECT_EQ(pixel(bitmap, 3, 3), (std::vector<int>{200, 100, 40, 255}));
    EXPECT_NEAR(pixel(bitmap, 6, 4)[3], 128, 1);
    EXPECT_NEAR(pixel(bitmap, 4, 5)[3], 64, 1);
    EXPECT_NEAR(pixel(bitmap, 6, 5)[3], 32, 1);
    EXPECT_EQ(pixel(bitmap, 4, 6)[3], 0);

    // Narrower than a pixel.
    Bitmap thin = canvas(10, 10);
    ASSERT_TRUE(draw(*image, {{4.25, 0, 0.5, 10}}, thin));
    EXPECT_NEAR(pixel(thin, 4, 5)[3], 128, 1);
    EXPECT_EQ(pixel(thin, 5, 5)[3], 0);
}

TEST(ScaledPixels, AlphaAndTransparencyLieOverWhatIsThere) {
    const Pixels red = Pixels::of(8, 8, [](double, double) { return Color{255, 0, 0}; });
    const Pixels blue = Pixels::of(8, 8, [](double, double) { return Color{0, 0, 255}; });
    Bitmap bitmap = canvas(8, 8);
    ASSERT_TRUE(draw(*imageOf(blue), {{0, 0, 8, 8}}, bitmap));
    ASSERT_TRUE(draw(*imageOf(red), {{0, 0, 8, 8}}, bitmap, 0.25));
    EXPECT_NEAR(pixel(bitmap, 4, 4)[0], 64, 1);
    EXPECT_NEAR(pixel(bitmap, 4, 4)[2], 191, 1);
    EXPECT_EQ(pixel(bitmap, 4, 4)[3], 255);

    Bitmap empty = canvas(8, 8);
    ASSERT_TRUE(draw(*Image::fromBitmap(canvas(8, 8)), {{0, 0, 8, 8}}, empty));
    EXPECT_EQ(pixel(empty, 4, 4), (std::vector<int>{0, 0, 0, 0}));

    // No colour rises above its alpha, however steep the edge that is resampled.
    Bitmap half = canvas(40, 40);
    for (int y = 0; y < 40; ++y)
        for (int x = 20; x < 40; ++x)
            std::fill_n(half.mutableRow(y) + 4 * x, 4, std::uint8_t{255});
    const Bitmap reduced = scaled(*Image::fromBitmap(half), 33, 33);
    for (int x = 0; x < 33; ++x) {
        const auto values = pixel(reduced, x, 16);
        EXPECT_LE(values[0], values[3]);
    }
}

TEST(ScaledPixels, NothingIsDrawnForEmptyOrMeaninglessRectangles) {
    const ImageRef image = imageOf(Pixels::of(8, 8, [](double, double) { return Color{255, 255, 255}; }));
    const double none = std::numeric_limits<double>::quiet_NaN();
    const double endless = std::numeric_limits<double>::infinity();
    for (const base::Rect& rectangle :
         {base::Rect{1, 1, 0, 5}, base::Rect{1, 1, 5, -1}, base::Rect::null(), base::Rect{none, 0, 5, 5},
          base::Rect{0, 0, endless, 5}, base::Rect{50, 0, 5, 5}, base::Rect{-9e15, -9e15, 5, 5}}) {
        Bitmap bitmap = canvas(10, 10);
        EXPECT_TRUE(draw(*image, {rectangle}, bitmap));
        EXPECT_TRUE(samePixels(bitmap, canvas(10, 10)));
    }
    Bitmap bitmap = canvas(10, 10);
    EXPECT_TRUE(draw(*image, {{-1e7, -1e7, 2e7, 2e7}}, bitmap));
    EXPECT_EQ(pixel(bitmap, 5, 5), (std::vector<int>{255, 255, 255, 255}));
}

TEST(ScaledPixels, ABrokenPictureLeavesTheTargetAlone) {
    base::Data jpeg = fixtures::jpegOf(Pixels::of(200, 200, fixtures::photographLike));
    jpeg.bytes.resize(jpeg.size() / 2);
    const ImageRef image = imageOf(jpeg);
    ASSERT_TRUE(image);
    Bitmap bitmap = canvas(50, 50);
    const auto drawn = draw(*image, {{0, 0, 50, 50}}, bitmap);
    ASSERT_FALSE(drawn);
    EXPECT_TRUE(samePixels(bitmap, canvas(50, 50)));
    // What stands before the damage is whole.
    EXPECT_TRUE(draw(*image->cropped({0, 0, 200, 40}), {{0, 0, 50, 10}}, bitmap));
}

TEST(PictureCache, DecodesOnceForAll) {
    clearPictureCache();
    const ImageRef image = imageOf(fixtures::jpegOf(Pixels::of(900, 700, fixtures::photographLike)));
    const auto before = pictureCacheStatistics();
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 6; ++i)
        threads.emplace_back([&, i] {
            Bitmap bitmap = canvas(300, 200);
            if (draw(*image, {{0, 0, 200, 150}, i % 2 * 2}, bitmap)) ++good;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 6);
    const auto after = pictureCacheStatistics();
    EXPECT_EQ(after.misses - before.misses, 1u);
    EXPECT_EQ(after.hits - before.hits, 5u);
}

// At other sizes, of other parts, on several threads at once: one decoding, and the pixels are those that a drawing
// without any cache has.
TEST(PictureCache, KeptPicturesAreDrawnAsDecodedOnes) {
    struct Wish {
        base::Rect crop;
        int width, height;
    };
    const std::vector<Wish> wishes{{{0, 0, 700, 500}, 350, 250},     {{0, 0, 700, 500}, 301, 222},
                                   {{13, 101, 333, 257}, 180, 131},  {{350, 0, 350, 500}, 340, 490},
                                   {{101, 211, 301, 202}, 299, 201}, {{0, 0, 700, 500}, 700, 499}};
    const Pixels pixels = Pixels::of(700, 500, fixtures::photographLike);
    const std::size_t capacity = pictureCacheCapacity();
    for (const ImageRef& image :
         {imageOf(fixtures::jpegOf(pixels)), imageOf(fixtures::jpegOf(pixels, {.colors = JpegColors::gray})),
          imageOf(fixtures::pngOf(pixels, {fixtures::PngColors::rgba})), imageOf(fixtures::tiffOf(pixels))}) {
        const auto drawn = [&](const Wish& wish) {
            return scaled(*image->cropped(wish.crop), wish.width, wish.height);
        };
        std::vector<Bitmap> wanted;
        setPictureCacheCapacity(0);
        for (const Wish& wish : wishes)
            wanted.push_back(drawn(wish));
        setPictureCacheCapacity(capacity);
        const std::uint64_t before = pictureCacheStatistics().decodings;
        const PictureSharing sharing;
        std::atomic<int> same{0};
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < wishes.size(); ++i)
            threads.emplace_back([&, i] { same += samePixels(drawn(wishes[i]), wanted[i]); });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(same, 6);
        EXPECT_EQ(pictureCacheStatistics().decodings - before, 1u);
    }
}

TEST(PictureCache, LargePicturesAreKeptWhileTheyAreShared) {
    clearPictureCache();
    const std::size_t capacity = pictureCacheCapacity();
    setPictureCacheCapacity(1'000'000); // of which a quarter is for what nobody shares
    const ImageRef image = imageOf(fixtures::jpegOf(Pixels::of(600, 400, fixtures::photographLike)));
    const auto decodings = [&](int width, int height) {
        const std::uint64_t before = pictureCacheStatistics().decodings;
        (void)scaled(*image, width, height);
        return pictureCacheStatistics().decodings - before;
    };
    EXPECT_EQ(decodings(200, 150) + decodings(201, 150), 2u);
    {
        const PictureSharing sharing;
        EXPECT_EQ(decodings(202, 150) + decodings(203, 150), 1u);
        EXPECT_GT(pictureCacheStatistics().bytes, 360'000u);
    }
    EXPECT_LT(pictureCacheStatistics().bytes, 500'000u);
    EXPECT_EQ(decodings(204, 150), 1u);
    setPictureCacheCapacity(capacity);
    clearPictureCache();
}

TEST(PictureCache, IsBoundedAndKeepsNoFailure) {
    clearPictureCache();
    const std::size_t capacity = pictureCacheCapacity();
    setPictureCacheCapacity(1'000'000);
    const ImageRef image = imageOf(fixtures::jpegOf(Pixels::of(400, 300, fixtures::photographLike)));
    for (int width = 100; width < 200; ++width)
        (void)scaled(*image, width, 100);
    EXPECT_LE(pictureCacheStatistics().bytes, 1'000'000u);
    EXPECT_GT(pictureCacheStatistics().bytes, 500'000u);

    const auto before = pictureCacheStatistics();
    (void)scaled(*image, 199, 100); // used last, so still there
    (void)scaled(*image, 100, 100); // used first, so gone
    EXPECT_EQ(pictureCacheStatistics().hits - before.hits, 1u);
    EXPECT_EQ(pictureCacheStatistics().misses - before.misses, 1u);

    base::Data cut = fixtures::jpegOf(Pixels::of(64, 64, fixtures::photographLike));
    cut.bytes.resize(cut.size() - 300);
    const ImageRef broken = imageOf(cut);
    for (int i = 0; i < 2; ++i)
        EXPECT_FALSE(scaledBitmap(*broken, 64, 64, Quality::final, ColorSpace::sRGB()));
    EXPECT_EQ(pictureCacheStatistics().misses - before.misses, 3u);
    setPictureCacheCapacity(capacity);
    clearPictureCache();
    EXPECT_EQ(pictureCacheStatistics().bytes, 0u);
}
