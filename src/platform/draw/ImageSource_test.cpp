#include "platform/draw/ImageSource.h"

#include "internal/PictureFixtures.h"
#include "internal/ScaledPixels.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageMetadata.h"
#include "platform/draw/PictureCache.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <string>

using namespace platform::draw;
using namespace fixtures;

namespace {

base::Result<ImageSourceRef> sourceOf(base::Data data) {
    return ImageSource::createWithData(std::move(data));
}

/// The mean difference of the components from the wanted picture, at full size.
double meanDifference(const Image& image, const Pixels& wanted) {
    const auto bitmap = image.bitmap(ColorSpace::sRGB());
    if (!bitmap) {
        ADD_FAILURE() << bitmap.error().localizedDescription;
        return 1000;
    }
    double sum = 0;
    for (int y = 0; y < wanted.height; ++y)
        for (int x = 0; x < wanted.width; ++x)
            for (int k = 0; k < 3; ++k)
                sum += std::abs(bitmap->row(y)[4 * x + 2 - k] - wanted.at(x, y)[k]);
    return sum / static_cast<double>(wanted.bytes.size());
}

Pixels grayOf(Pixels pixels) {
    for (std::size_t i = 0; i < pixels.bytes.size(); i += 3) {
        const double value = 0.299 * pixels.bytes[i] + 0.587 * pixels.bytes[i + 1] + 0.114 * pixels.bytes[i + 2];
        for (std::size_t k = 0; k < 3; ++k)
            pixels.bytes[i + k] = static_cast<std::uint8_t>(std::lround(value));
    }
    return pixels;
}

// "Exif", a TIFF structure of orientation 6, the maker "Velm", and a comment.
std::vector<std::uint8_t> exifMarker() {
    const std::string text("Exif\0\0II*\0\x08\0\0\0\x03\0"
                           "\x0F\x01\x02\0\x05\0\0\0\x32\0\0\0"
                           "\x12\x01\x03\0\x01\0\0\0\x06\0\0\0"
                           "\x69\x87\x04\0\x01\0\0\0\x38\0\0\0"
                           "\0\0\0\0"
                           "Velm\0\0"
                           "\x01\0"
                           "\x86\x92\x07\0\x0D\0\0\0\x4A\0\0\0"
                           "\0\0\0\0"
                           "ASCII\0\0\0Hello",
                           6 + 8 + 2 + 36 + 4 + 6 + 2 + 12 + 4 + 13);
    return {text.begin(), text.end()};
}

} // namespace

TEST(ImageSource, ReadsEveryKindOfJpeg) {
    const Pixels pixels = Pixels::of(131, 97, photographLike);
    const auto with = [](auto change) {
        JpegOptions options;
        options.quality = 98;
        change(options);
        return options;
    };
    struct Case {
        std::string name;
        JpegOptions options;
        Pixels wanted;
        std::string model;
        double difference;
    };
    const std::vector<Case> cases{
        {"4:2:0", with([](JpegOptions&) {}), pixels, "RGB", 4},
        {"progressive", with([](JpegOptions& o) { o.progressive = true; }), pixels, "RGB", 4},
        {"restarts", with([](JpegOptions& o) { o.restartInterval = 3; }), pixels, "RGB", 4},
        {"RGB", with([](JpegOptions& o) { o.colors = JpegColors::rgb; }), pixels, "RGB", 1.5},
        {"gray", with([](JpegOptions& o) { o.colors = JpegColors::gray; }), grayOf(pixels), "Gray", 1.5},
        {"CMYK of Adobe", with([](JpegOptions& o) { o.colors = JpegColors::cmyk; }), pixels, "CMYK", 2},
        {"CMYK", with([](JpegOptions& o) { o.colors = JpegColors::cmyk, o.adobeMarker = false; }), pixels, "CMYK", 2},
        {"YCCK", with([](JpegOptions& o) {
             o.colors = JpegColors::ycck;
             o.horizontalSampling = o.verticalSampling = 1;
         }),
         pixels, "CMYK", 3},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        const auto source = sourceOf(jpegOf(pixels, test.options));
        ASSERT_TRUE(source) << source.error().localizedDescription;
        EXPECT_EQ((*source)->typeIdentifier(), "public.jpeg");
        EXPECT_EQ(base::valueForKey((*source)->propertiesAtIndex(0), kCGImagePropertyColorModel).textOr(""),
                  test.model);
        EXPECT_LT(meanDifference(*(*source)->imageAtIndex(0), test.wanted), test.difference);
    }
}

// The layouts of PNG and TIFF files are read in DeepPixels_test.cpp.
TEST(ImageSource, ReadsAPartAsItIsInTheWhole) {
    const Pixels pixels = Pixels::of(150, 101, photographLike);
    Pixels wanted = Pixels::of(60, 50, [](double, double) { return Color{}; });
    for (int y = 0; y < 50; ++y)
        std::copy_n(pixels.at(31, 40 + y), 180, wanted.at(0, y));
    for (const base::Data& file : {pngOf(pixels), pngOf(pixels, {PngColors::rgb, 8, true}), tiffOf(pixels),
                                   tiffOf(pixels, {.tiled = true}), tiffOf(pixels, {.pages = 3})}) {
        const ImageSourceRef source = *sourceOf(file);
        const std::size_t last = source->count() - 1;
        const ImageRef image = source->imageAtIndex(last);
        SCOPED_TRACE(std::string(source->typeIdentifier()) + " " + std::to_string(last));
        EXPECT_EQ(image->alphaInfo(), AlphaInfo::noneSkipLast);
        EXPECT_EQ(meanDifference(*image, pixels), 0);
        EXPECT_EQ(meanDifference(*image->cropped({31, 40, 60, 50}), wanted), 0);
        EXPECT_EQ(source->imageAtIndex(last + 1), nullptr);
    }
    EXPECT_EQ((*sourceOf(tiffOf(pixels, {.pages = 3})))->count(), 3u);
    const ImageRef clear = (*sourceOf(pngOf(pixels, {PngColors::rgba})))->imageAtIndex(0);
    EXPECT_EQ(clear->alphaInfo(), AlphaInfo::premultipliedLast);
}

TEST(ImageSource, KnowsThePropertiesWithoutDecoding) {
    JpegOptions options;
    options.exif = exifMarker();
    options.profile = ColorSpace::sRGB()->iccData().bytes;
    base::Data jpeg = jpegOf(Pixels::of(60, 40, photographLike), options);
    jpeg.bytes.resize(jpeg.size() - 500); // the picture itself is gone, the header is not
    const auto source = sourceOf(jpeg);
    ASSERT_TRUE(source);
    const base::Dictionary& properties = (*source)->propertiesAtIndex(0);
    EXPECT_EQ(base::valueForKey(properties, "PixelWidth"), base::Value(60));
    EXPECT_EQ(base::valueForKey(properties, "PixelHeight"), base::Value(40));
    EXPECT_EQ(base::valueForKey(properties, "Orientation"), base::Value(6));
    EXPECT_EQ(base::valueForKey(properties, "ProfileName").textOr(""), ColorSpace::sRGB()->name());
    const auto* tiff = base::valueForKey(properties, "{TIFF}").as<base::Dictionary>();
    const auto* exif = base::valueForKey(properties, "{Exif}").as<base::Dictionary>();
    ASSERT_TRUE(tiff && exif);
    EXPECT_EQ(base::textForKey(*tiff, "Make"), "Velm");
    EXPECT_EQ(base::textForKey(*exif, "UserComment"), "Hello");
    EXPECT_TRUE((*source)->propertiesAtIndex(1).empty());
    const auto deep = sourceOf(pngOf(Pixels::of(6, 4, photographLike), {PngColors::rgb, 16}));
    EXPECT_EQ(base::valueForKey((*deep)->propertiesAtIndex(0), "Depth"), base::Value(16));
    const auto turned = sourceOf(tiffOf(Pixels::of(6, 4, photographLike)));
    EXPECT_EQ(base::valueForKey((*turned)->propertiesAtIndex(0), "Orientation"), base::Value(6));
}

TEST(ImageSource, MakesUprightThumbnails) {
    JpegOptions options;
    options.exif = exifMarker(); // orientation 6: the stored left edge is the upper one
    const auto source = sourceOf(jpegOf(Pixels::of(400, 200,
                                                   [](double x, double) {
                                                       return x < 200 ? Color{250, 20, 20} : Color{20, 20, 250};
                                                   }),
                                        options));
    ASSERT_TRUE(source);
    const auto upright = (*source)->thumbnailAtIndex(0, 100, true);
    ASSERT_TRUE(upright);
    EXPECT_EQ((*upright)->width(), 50);
    EXPECT_EQ((*upright)->height(), 100);
    const Bitmap bitmap = *(*upright)->bitmap();
    EXPECT_GT(bitmap.row(10)[4 * 25 + 2], 200);
    EXPECT_GT(bitmap.row(90)[4 * 25], 200);
    const auto stored = (*source)->thumbnailAtIndex(0, 1000, false);
    ASSERT_TRUE(stored);
    EXPECT_EQ((*stored)->width(), 400) << "a small picture is not enlarged";
    EXPECT_FALSE((*source)->thumbnailAtIndex(1, 100, true));
}

TEST(ImageSource, CropsAreViews) {
    const auto source = sourceOf(pngOf(Pixels::of(50, 40, [](double x, double y) { return Color{x, y, 0}; })));
    const ImageRef image = (*source)->imageAtIndex(0);
    const ImageRef part = image->cropped({10.4, 20.6, 15, 100});
    ASSERT_TRUE(part);
    EXPECT_EQ(part->width(), 16);
    EXPECT_EQ(part->height(), 20);
    const ImageRef inner = part->cropped({2, 3, 4, 5});
    const Bitmap bitmap = *inner->bitmap();
    EXPECT_EQ(bitmap.row(0)[2], 12);
    EXPECT_EQ(bitmap.row(0)[1], 23);
    EXPECT_EQ(image->cropped({50, 0, 10, 10}), nullptr);
    EXPECT_EQ(image->cropped({5, 5, 0, 10}), nullptr);
    EXPECT_EQ(image->cropped(base::Rect::null()), nullptr);
}

TEST(ImageSource, CutOffPicturesNeverBecomePixels) {
    const Pixels pixels = Pixels::of(200, 160, photographLike);
    JpegOptions progressive;
    progressive.progressive = true;
    JpegOptions restarts;
    restarts.restartInterval = 2;
    const base::Data plain = jpegOf(pixels);
    for (const base::Data& file : {plain, jpegOf(pixels, progressive), jpegOf(pixels, restarts), pngOf(pixels),
                                   pngOf(pixels, {PngColors::rgb, 8, true}), tiffOf(pixels)})
        expectCutOffFilesFail(file);
    // Harmless: what follows the picture, and a missing end mark of a picture that is whole.
    base::Data longer = plain;
    longer.bytes.insert(longer.bytes.end(), 5000, 0xAB);
    EXPECT_TRUE((*sourceOf(longer))->imageAtIndex(0)->bitmap());
    base::Data unended = plain;
    unended.bytes.resize(unended.size() - 2);
    EXPECT_TRUE((*sourceOf(unended))->imageAtIndex(0)->bitmap());
}

TEST(ImageSource, DamagedPicturesDoNotCrash) {
    const Pixels pixels = Pixels::of(90, 70, photographLike);
    for (const base::Data& file : {jpegOf(pixels), pngOf(pixels), tiffOf(pixels), tiffOf(pixels, {.tiled = true})}) {
        unsigned random = 12345;
        for (int i = 0; i < 300; ++i) {
            base::Data damaged = file;
            for (int k = 0; k < 4; ++k) {
                random = random * 1664525 + 1013904223;
                // The header and its tables, and the data, in equal parts.
                const std::size_t range = k % 2 ? damaged.size() : std::min<std::size_t>(damaged.size(), 600);
                damaged.bytes[(random >> 8) % range] = static_cast<std::uint8_t>(random >> 3);
            }
            if (const auto source = sourceOf(std::move(damaged)))
                for (std::size_t page = 0; page < (*source)->count() && page < 3; ++page)
                    (void)scaledBitmap(*(*source)->imageAtIndex(page), 30, 20, Quality::final, ColorSpace::sRGB());
        }
    }
}

TEST(ImageSource, RefusesWhatIsNoPictureOrTooLarge) {
    for (const std::string& text :
         {std::string(), std::string("hello, this is no picture"), std::string("\xFF\xD8\xFF"),
          std::string("II*\0\x08\0\0\0", 8), std::string("\x89PNG\r\n\x1A\n")})
        EXPECT_FALSE(sourceOf(base::Data(text)));

    base::Data jpeg = jpegOf(Pixels::of(16, 16, photographLike));
    for (std::size_t i = 0; i + 9 < jpeg.size(); ++i) {
        if (jpeg.bytes[i] == 0xFF && jpeg.bytes[i + 1] == 0xC0) {
            jpeg.bytes[i + 5] = jpeg.bytes[i + 7] = 60000 >> 8;
            jpeg.bytes[i + 6] = jpeg.bytes[i + 8] = 60000 & 0xFF;
        }
    }
    const auto huge = sourceOf(jpeg);
    ASSERT_FALSE(huge);
    EXPECT_NE(huge.error().localizedDescription.find("60000 x 60000"), std::string::npos);
}

TEST(ImageSource, FilesAreReadAnewAndMustBeTheSame) {
    const support::TemporaryDirectory folder;
    const auto write = [&](const base::Data& data) { return folder.write("a.jpg", data.asText()); };
    const std::string path = write(jpegOf(Pixels::of(80, 60, photographLike)));
    const auto source = ImageSource::createWithURL(base::URL::fileURLWithPath(path));
    ASSERT_TRUE(source);
    const ImageRef image = (*source)->imageAtIndex(0);
    EXPECT_TRUE(scaledBitmap(*image, 40, 30, Quality::final, ColorSpace::sRGB()));
    write(jpegOf(Pixels::of(90, 60, photographLike)));
    clearPictureCache();
    const auto changed = scaledBitmap(*image, 41, 30, Quality::final, ColorSpace::sRGB());
    ASSERT_FALSE(changed);
    EXPECT_NE(changed.error().localizedDescription.find(path), std::string::npos);

    for (const std::string& missing : {folder / "none.jpg", folder.path().string()})
        EXPECT_FALSE(ImageSource::createWithURL(base::URL::fileURLWithPath(missing)));
}

// Whether a picture's profile is applied to the reduced rows as they come, or to the whole reduced picture at once.
TEST(ImageSource, ConvertsProfilesAfterReduction) {
    // With the primaries in another order: nobody can overlook it.
    JpegOptions options;
    options.profile = profileOf({0.30, 0.60, 1}, {0.64, 0.33, 1}, {0.15, 0.06, 1});
    const Pixels red = Pixels::of(64, 48, [](double, double) { return Color{230, 30, 20}; });
    const auto source = sourceOf(jpegOf(red, options));
    ASSERT_TRUE(source);
    const ImageRef image = (*source)->imageAtIndex(0);
    EXPECT_FALSE(image->colorSpace()->isSRGB());
    const Bitmap converted = *scaledBitmap(*image, 30, 20, Quality::final, ColorSpace::sRGB());
    EXPECT_GT(converted.row(5)[4 * 5 + 1], 200) << "their red is our green";
    EXPECT_LT(converted.row(5)[4 * 5 + 2], 90);

    const Bitmap own = *scaledBitmap(*image, 30, 20, Quality::final, image->colorSpace());
    const Bitmap later = *scaledBitmap(*Image::fromBitmap(own), 30, 20, Quality::final, ColorSpace::sRGB());
    for (int y = 0; y < 20; ++y)
        EXPECT_TRUE(std::equal(converted.row(y), converted.row(y) + 120, later.row(y)));
}

TEST(ImageSource, PassesOverProfilesThatDoNotFit) {
    JpegOptions options;
    options.profile = ColorSpace::gray()->iccData().bytes;
    const Pixels pixels = Pixels::of(64, 64, photographLike);
    const auto source = sourceOf(jpegOf(pixels, options));
    ASSERT_TRUE(source);
    EXPECT_TRUE((*source)->imageAtIndex(0)->colorSpace()->isSRGB());
    EXPECT_LT(meanDifference(*(*source)->imageAtIndex(0), pixels), 5);
}
