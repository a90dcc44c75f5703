#include "platform/draw/ImageSource.h"

#include "internal/PictureFixtures.h"
#include "internal/ScaledPixels.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageMetadata.h"
#include "platform/draw/PictureCache.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <fstream>
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

/// On a palette of four steps a component.
Pixels coarse(Pixels pixels) {
    for (std::uint8_t& byte : pixels.bytes)
        byte = static_cast<std::uint8_t>((byte >> 6) * 85);
    return pixels;
}

/// Laid on black, with the red component for alpha.
Pixels overBlack(Pixels pixels) {
    for (std::size_t i = 0; i < pixels.bytes.size(); i += 3) {
        const int alpha = pixels.bytes[i];
        for (std::size_t k = 0; k < 3; ++k)
            pixels.bytes[i + k] = static_cast<std::uint8_t>((pixels.bytes[i + k] * alpha + 127) / 255);
    }
    return pixels;
}

Pixels grayOverBlack(const Pixels& pixels) {
    Pixels result = grayOf(pixels);
    for (std::size_t i = 0; i < result.bytes.size(); ++i)
        result.bytes[i] = static_cast<std::uint8_t>((result.bytes[i] * pixels.bytes[i / 3 * 3] + 127) / 255);
    return result;
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

TEST(ImageSource, ReadsEveryKindOfPng) {
    const Pixels pixels = Pixels::of(67, 45, photographLike);
    struct Case {
        PngOptions options;
        Pixels wanted;
        bool opaque;
    };
    for (const Case& test : {Case{{PngColors::rgb, 8, false}, pixels, true},
                             {{PngColors::rgb, 16, false}, pixels, true},
                             {{PngColors::rgb, 8, true}, pixels, true},
                             {{PngColors::rgba, 8, false}, overBlack(pixels), false},
                             {{PngColors::rgba, 16, true}, overBlack(pixels), false},
                             {{PngColors::gray, 8, false}, grayOf(pixels), true},
                             {{PngColors::gray, 16, false}, grayOf(pixels), true},
                             {{PngColors::grayAlpha, 8, false}, grayOverBlack(pixels), false},
                             {{PngColors::palette, 8, false}, coarse(pixels), true}}) {
        SCOPED_TRACE(std::to_string(static_cast<int>(test.options.colors)) + " " + std::to_string(test.options.bits));
        const auto source = sourceOf(pngOf(pixels, test.options));
        ASSERT_TRUE(source) << source.error().localizedDescription;
        EXPECT_EQ((*source)->typeIdentifier(), "public.png");
        const ImageRef image = (*source)->imageAtIndex(0);
        EXPECT_EQ(image->isOpaque(), test.opaque);
        EXPECT_EQ(image->alphaInfo(), test.opaque ? AlphaInfo::noneSkipLast : AlphaInfo::premultipliedLast);
        EXPECT_LT(meanDifference(*image, test.wanted), 0.6); // nothing is lost but a rounding
        EXPECT_EQ(base::valueForKey((*source)->propertiesAtIndex(0), kCGImagePropertyDepth),
                  base::Value(test.options.bits));
    }
}

TEST(ImageSource, ReadsEveryKindOfTiff) {
    const Pixels pixels = Pixels::of(150, 101, photographLike);
    struct Case {
        TiffOptions options;
        Pixels wanted;
    };
    for (const Case& test : {Case{{TiffColors::rgb}, pixels},
                             {{TiffColors::rgb, 16}, pixels},
                             {{TiffColors::rgb, 8, true}, pixels},
                             {{TiffColors::rgb, 8, false, true}, pixels},
                             {{TiffColors::rgb, 16, true}, pixels},
                             {{TiffColors::rgba}, overBlack(pixels)},
                             {{TiffColors::rgba, 16, true}, overBlack(pixels)},
                             {{TiffColors::gray}, grayOf(pixels)},
                             {{TiffColors::gray, 16}, grayOf(pixels)},
                             {{TiffColors::grayInverted}, grayOf(pixels)},
                             {{TiffColors::cmyk}, pixels},
                             {{TiffColors::cmyk, 16}, pixels},
                             {{TiffColors::palette}, coarse(pixels)}}) {
        SCOPED_TRACE(std::to_string(static_cast<int>(test.options.colors)) + " " + std::to_string(test.options.bits));
        const auto source = sourceOf(tiffOf(pixels, test.options));
        ASSERT_TRUE(source) << source.error().localizedDescription;
        EXPECT_EQ((*source)->typeIdentifier(), "public.tiff");
        EXPECT_LT(meanDifference(*(*source)->imageAtIndex(0), test.wanted), 1.0);
        EXPECT_EQ(base::valueForKey((*source)->propertiesAtIndex(0), kCGImagePropertyOrientation), base::Value(6));
        // A crop of it, too: rows above it are passed over.
        const ImageRef part = (*source)->imageAtIndex(0)->cropped({31, 40, 60, 50});
        Pixels wantedPart = Pixels::of(60, 50, [](double, double) { return fixtures::Color{}; });
        for (int y = 0; y < 50; ++y)
            std::copy_n(test.wanted.at(31, 40 + y), 180, wantedPart.at(0, y));
        EXPECT_LT(meanDifference(*part, wantedPart), 1.0);
    }
    const auto pages = sourceOf(tiffOf(pixels, {TiffColors::gray, 8, false, false, 3}));
    ASSERT_TRUE(pages);
    EXPECT_EQ((*pages)->count(), 3u);
    EXPECT_LT(meanDifference(*(*pages)->imageAtIndex(2), grayOf(pixels)), 1.0);
    EXPECT_EQ((*pages)->imageAtIndex(3), nullptr);
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
    const std::vector<base::Data> files{jpegOf(pixels),
                                        jpegOf(pixels, progressive),
                                        jpegOf(pixels, restarts),
                                        pngOf(pixels),
                                        pngOf(pixels, {PngColors::rgb, 8, true}),
                                        tiffOf(pixels)};
    for (std::size_t i = 0; i < files.size(); ++i) {
        for (const double share : {0.0, 0.02, 0.1, 0.3, 0.5, 0.8, 0.95}) {
            SCOPED_TRACE(std::to_string(i) + " " + std::to_string(share));
            base::Data cut = files[i];
            cut.bytes.resize(static_cast<std::size_t>(static_cast<double>(cut.size()) * share));
            const auto source = sourceOf(cut);
            if (!source) continue; // not even a header
            const auto bitmap = (*source)->imageAtIndex(0)->bitmap();
            ASSERT_FALSE(bitmap);
            EXPECT_NE(bitmap.error().localizedDescription, "");
        }
        EXPECT_TRUE((*sourceOf(files[i]))->imageAtIndex(0)->bitmap());
    }
    // Harmless: what follows the picture, and a missing end mark of a picture that is whole.
    base::Data longer = files[0];
    longer.bytes.insert(longer.bytes.end(), 5000, 0xAB);
    EXPECT_TRUE((*sourceOf(longer))->imageAtIndex(0)->bitmap());
    base::Data unended = files[0];
    unended.bytes.resize(unended.size() - 2);
    EXPECT_TRUE((*sourceOf(unended))->imageAtIndex(0)->bitmap());
}

TEST(ImageSource, DamagedPicturesDoNotCrash) {
    const Pixels pixels = Pixels::of(90, 70, photographLike);
    for (const base::Data& file :
         {jpegOf(pixels), pngOf(pixels), tiffOf(pixels), tiffOf(pixels, {TiffColors::rgb, 8, true})}) {
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

TEST(ImageSource, ReadsBackTheMetadataOfProducts) {
    const auto image = (*sourceOf(jpegOf(Pixels::of(20, 10, photographLike))))->imageAtIndex(0);
    for (const std::string_view type : {"public.jpeg", "public.png", "public.tiff"}) {
        for (const std::string comment : {"VELM comment", "Gr\u00FC\u00DFe, \u5199\u771F"}) {
            SCOPED_TRACE(std::string(type) + " " + comment);
            auto destination = ImageDestination::createWithData(type);
            ASSERT_TRUE(destination);
            const base::Dictionary exif{
                {"UserComment", comment}, {"MakerNote", "VELM XML"}, {"DateTimeOriginal", "2026:03:15 10:11:12"}};
            (*destination)->addImage(image, {{"Orientation", 1}, {"{Exif}", exif}});
            ASSERT_TRUE((*destination)->finalize());
            const auto source = sourceOf((*destination)->takeData());
            ASSERT_TRUE(source);
            EXPECT_EQ((*source)->typeIdentifier(), type);
            const base::Dictionary& properties = (*source)->propertiesAtIndex(0);
            EXPECT_EQ(base::valueForKey(properties, "Orientation"), base::Value(1));
            const auto* read = base::valueForKey(properties, "{Exif}").as<base::Dictionary>();
            ASSERT_TRUE(read);
            for (const auto& [key, value] : exif)
                EXPECT_EQ(base::valueForKey(*read, key).description(), value.description()) << key;
        }
    }
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
