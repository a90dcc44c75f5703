// Photoshop files that ImageMagick doesn't write, made here by hand; broken ones; and ours, as others read them. (Those
// that it writes are in DeepPixels_test.cpp.)
#include "platform/draw/BitmapContext.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/DeepPixels.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ImageMetadata.h"
#include "platform/draw/ImageSource.h"
#include "support/CommandOutput.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <gtest/gtest.h>

using namespace platform::draw;

namespace {

constexpr int width = 21;
constexpr int height = 10;

std::string number(std::uint64_t value, int bytes) {
    std::string text;
    while (bytes-- > 0)
        text += static_cast<char>(value >> 8 * bytes);
    return text;
}
std::string section(const std::string& content) {
    return number(content.size(), 4) + content;
}

struct File {
    int mode = 3;
    int channels = 3;
    int bits = 8;
    std::string layers;
    bool packed = false;
    std::string palette;
    std::string resources;
    int compression = -1; ///< In place of the true one.
    int version = 1;
    std::uint64_t side = 0; ///< In place of the true size.
};

/// The sample of a channel; the fourth of a file falls from left to right.
int sampleOf(int channel, int x, int y) {
    return channel == 0 ? x * 12 : channel == 1 ? y * 25 : channel == 2 ? (x + y) * 8 : 255 - x * 12;
}

std::string rowOf(const File& file, int channel, int y) {
    std::string row;
    if (file.bits == 1) {
        for (int x = 0; x < width; x += 8)
            row += static_cast<char>(x * 37 + y * 11);
        return row;
    }
    for (int x = 0; x < width; ++x)
        row += std::string(static_cast<std::size_t>(file.bits / 8), static_cast<char>(sampleOf(channel, x, y)));
    return row;
}

/// Packed in the worst way and with pauses, as no writer does it.
std::string packedRow(const std::string& row) {
    std::string packed("\x80", 1);
    for (const char byte : row)
        packed += std::string(1, '\0') + byte;
    return packed;
}

std::string psdOf(const File& file) {
    std::string counts;
    std::string rows;
    for (int channel = 0; channel < file.channels; ++channel)
        for (int y = 0; y < height; ++y) {
            const std::string row = rowOf(file, channel, y);
            rows += file.packed ? packedRow(row) : row;
            if (file.packed) counts += number(packedRow(row).size(), file.version == 2 ? 4 : 2);
        }
    return "8BPS" + number(static_cast<std::uint64_t>(file.version), 2) + std::string(6, '\0') +
           number(static_cast<std::uint64_t>(file.channels), 2) + number(file.side ? file.side : height, 4) +
           number(file.side ? file.side : width, 4) + number(static_cast<std::uint64_t>(file.bits), 2) +
           number(static_cast<std::uint64_t>(file.mode), 2) + section(file.palette) + section(file.resources) +
           (file.version == 2 ? std::string(4, '\0') : "") + section(file.layers) +
           number(static_cast<std::uint64_t>(file.compression >= 0 ? file.compression : file.packed), 2) + counts +
           rows;
}

base::Result<ImageSourceRef> opened(const std::string& bytes) {
    return ImageSource::createWithData(base::Data(bytes));
}

/// An error of opening or of decoding; empty when all went well.
std::string failureOf(const std::string& bytes) {
    const auto source = opened(bytes);
    if (!source) return source.error().localizedDescription;
    const ImageRef image = (*source)->imageAtIndex(0);
    const auto bitmap = image->bitmap();
    if (!bitmap) return bitmap.error().localizedDescription;
    std::vector<std::uint8_t> deep(8u * image->width() * image->height());
    const auto read = readDeepPixels(*image, 0, deep.data());
    return read ? "" : read.error().localizedDescription;
}

std::string palette() {
    std::string text(768, '\0');
    for (std::size_t i = 0; i < 768; ++i)
        text[i] = static_cast<char>(i * 7 / 3);
    return text;
}

// No layers but the sign of their number; a transparency block as files of 16 bits have it.
const std::string negativeCount = section(number(0xFFFF, 2)) + number(0, 4);
const std::string transparencyBlock = number(0, 4) + number(0, 4) + "8BIMMt16" + number(0, 4);

} // namespace

TEST(PhotoshopFiles, EveryModeHasItsColors) {
    using Expected = std::array<int, 4> (*)(int x, int y);
    // Transparent colours lie on white in the file: what is below white less the cover is 0.
    const Expected onWhite = [](int x, int y) -> std::array<int, 4> {
        const int alpha = sampleOf(3, x, y);
        std::array<int, 4> color{0, 0, 0, alpha};
        for (int k = 0; k < 3; ++k)
            color[static_cast<std::size_t>(k)] = std::clamp(sampleOf(k, x, y) + alpha - 255, 0, alpha);
        return color;
    };
    const Expected plain = [](int x, int y) -> std::array<int, 4> {
        return {sampleOf(0, x, y), sampleOf(1, x, y), sampleOf(2, x, y), 255};
    };
    const Expected indexed = [](int x, int y) -> std::array<int, 4> {
        const auto at = [&](int plane) { return static_cast<std::uint8_t>(palette()[256u * plane + x * 12]); };
        return x == 4 ? std::array<int, 4>{} : std::array<int, 4>{at(0), at(1), at(2), 255 + y * 0};
    };
    const Expected bitmap = [](int x, int y) -> std::array<int, 4> {
        const int level = (x / 8 * 8 * 37 + y * 11) << x % 8 & 0x80 ? 0 : 255;
        return {level, level, level, 255};
    };
    const Expected ink = [](int x, int y) -> std::array<int, 4> {
        const int light = sampleOf(3, x, y);
        return {sampleOf(0, x, y) * light / 255, sampleOf(1, x, y) * light / 255, sampleOf(2, x, y) * light / 255, 255};
    };
    const Expected grayOnWhite = [](int x, int y) -> std::array<int, 4> {
        const int alpha = sampleOf(1, x, y);
        const int level = std::clamp(sampleOf(0, x, y) + alpha - 255, 0, alpha);
        return {level, level, level, alpha};
    };
    const std::string clear = "8BIM" + number(1047, 2) + number(0, 2) + section(number(48, 2));
    struct Row {
        const char* name;
        File file;
        Expected expected;
    };
    for (const Row& row : {Row{"plain", {}, plain},
                           {"packed", {.packed = true}, plain},
                           {"large", {.packed = true, .version = 2}, plain},
                           {"a mask is no alpha", {.channels = 4}, plain},
                           {"alpha", {.channels = 4, .layers = negativeCount}, onWhite},
                           {"alpha of 16 bits", {.channels = 5, .bits = 16, .layers = transparencyBlock}, onWhite},
                           {"gray alpha", {.mode = 1, .channels = 2, .layers = negativeCount}, grayOnWhite},
                           {"palette", {.mode = 2, .channels = 1, .palette = palette(), .resources = clear}, indexed},
                           {"bitmap", {.mode = 0, .channels = 1, .bits = 1}, bitmap},
                           {"CMYK", {.mode = 4, .channels = 4, .packed = true}, ink},
                           {"CMYK and alpha", {.mode = 4, .channels = 5, .layers = negativeCount}, ink}}) {
        SCOPED_TRACE(row.name);
        const auto source = opened(psdOf(row.file));
        ASSERT_TRUE(source) << source.error().localizedDescription;
        EXPECT_EQ((*source)->typeIdentifier(), "com.adobe.photoshop-image");
        const ImageRef image = (*source)->imageAtIndex(0);
        const Bitmap pixels = *image->bitmap(ColorSpace::sRGB());
        std::vector<std::uint8_t> deep(8u * width * height);
        ASSERT_TRUE(readDeepPixels(*image, 0, deep.data()));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (const int k : {0, 1, 2, 3}) {
                    const int wanted = row.expected(x, y)[static_cast<std::size_t>(k)];
                    ASSERT_NEAR(pixels.row(y)[4 * x + (k == 3 ? 3 : 2 - k)], wanted, 1) << x << " " << y;
                    std::uint16_t value;
                    std::memcpy(&value, &deep[8u * (y * width + x) + 2u * k], 2);
                    ASSERT_NEAR(value / 257.0, wanted, 1) << x << " " << y;
                }
        // The rows of a part are found without those before it.
        const Bitmap part = *image->cropped({3, 6, 9, 3})->bitmap(ColorSpace::sRGB());
        for (int y = 0; y < 3; ++y)
            EXPECT_TRUE(std::equal(part.row(y), part.row(y) + 36, pixels.row(y + 6) + 12)) << y;
    }
    // Lab: grey where a and b are in the middle.
    File lab{.mode = 9};
    std::string bytes = psdOf(lab);
    std::fill(bytes.end() - 2 * width * height, bytes.end(), static_cast<char>(128));
    const Bitmap gray = *(*opened(bytes))->imageAtIndex(0)->bitmap();
    EXPECT_NEAR(gray.row(0)[4 * 10 + 1], 112, 2) << "L = 47";
    EXPECT_NEAR(gray.row(0)[4 * 10], gray.row(0)[4 * 10 + 2], 1);
}

TEST(PhotoshopFiles, BrokenOnesAreRefusedWithAMessage) {
    struct Row {
        File file;
        const char* message;
    };
    for (const Row& row : {Row{{.bits = 32}, "32 bits"},
                           {{.mode = 7}, "multichannel"},
                           {{.mode = 2, .channels = 1}, "palette"},
                           {{.channels = 2}, "broken"},
                           {{.compression = 2}, "ZIP"},
                           {{.compression = 9}, "compression"},
                           {{.version = 3}, "version"},
                           {{.side = 60000}, "60000 x 60000"},
                           {{.side = 4000000000}, "4000000000"}})
        EXPECT_NE(failureOf(psdOf(row.file)).find(row.message), std::string::npos) << failureOf(psdOf(row.file));

    for (const File& file : {File{.resources = std::string(90, 'x')},
                             {.layers = negativeCount, .packed = true},
                             {.channels = 4,
                             .bits = 16,
                             .layers = number(0, 8) + number(0, 4) + "8B64Mt16" + number(0, 8),
                             .version = 2}}) {
        const std::string whole = psdOf(file);
        EXPECT_EQ(failureOf(whole), "");
        for (std::size_t part = 0; part < 100; ++part)
            EXPECT_NE(failureOf(whole.substr(0, whole.size() * part / 100)), "") << part;
        unsigned random = 99;
        for (int i = 0; i < 500; ++i) {
            std::string damaged = whole;
            for (int k = 0; k < 3; ++k) {
                random = random * 1664525 + 1013904223;
                damaged[(random >> 8) % (k == 0 ? whole.size() : 160)] = static_cast<char>(random >> 3);
            }
            if (const auto source = opened(damaged))
                if ((*source)->imageAtIndex(0)->width() * std::int64_t{(*source)->imageAtIndex(0)->height()} < 10000)
                    (void)failureOf(damaged);
        }
    }
}

TEST(PhotoshopFiles, OursAreReadByOthers) {
    const support::TemporaryDirectory folder;
    for (const bool opaque : {true, false}) {
        SCOPED_TRACE(opaque ? "opaque" : "with alpha");
        const auto canvas = BitmapContext::create(300, 40, ColorSpace::sRGB(),
                                                  opaque ? AlphaInfo::noneSkipLast : AlphaInfo::premultipliedLast);
        for (int i = 0; i < 40; ++i) {
            canvas->setFillColor(Color(i * 7 % 40 / 40.0, i / 40.0, i * 11 % 40 / 40.0, opaque ? 1 : i / 40.0));
            canvas->fillRect({i * 7.0, i * 13 % 40 - 3.0, 31, 9});
        }
        const ImageRef image = canvas->makeImage();
        const std::string path = folder / "a.psd";
        auto destination =
            *ImageDestination::createWithURL(base::URL::fileURLWithPath(path), "com.adobe.photoshop-image");
        destination->addImage(image, {{"Orientation", 1}, {"{Exif}", base::Dictionary{{"UserComment", "A comment"}}}});
        ASSERT_TRUE(destination->finalize());

        const auto source = *ImageSource::createWithURL(base::URL::fileURLWithPath(path));
        const Bitmap before = *image->bitmap();
        const Bitmap after = *source->imageAtIndex(0)->bitmap();
        EXPECT_EQ(after.isOpaque(), opaque);
        for (int y = 0; y < 40; ++y)
            EXPECT_TRUE(std::equal(before.row(y), before.row(y) + 1200, after.row(y))) << y;
        EXPECT_EQ(base::valueForKey(source->propertiesAtIndex(0), kCGImagePropertyDPIWidth), base::Value(72.0));

        const auto tags = support::exiftool({path}, {"UserComment", "ProfileDescription", "XResolution", "LayerCount"});
        if (!tags) GTEST_SKIP() << "exiftool is not installed";
        EXPECT_EQ(tags->at(0), (std::vector<std::string>{"A comment", "sRGB IEC61966-2.1", "72", opaque ? "-" : "1"}));
        // The merged picture and, of one with transparency, its layer.
        for (const char* picture : opaque ? std::vector{"[0]"} : std::vector{"[0]", "[1]"}) {
            const auto raw = support::commandOutput("convert '" + path + picture + "' -depth 8 rgba:-");
            if (!raw) GTEST_SKIP() << "ImageMagick is not installed";
            ASSERT_EQ(raw->size(), 48000u);
            for (std::size_t i = 0; i < raw->size(); ++i) {
                const std::uint8_t* pixel = before.row(static_cast<int>(i / 1200)) + i % 1200 / 4 * 4;
                const int alpha = static_cast<std::uint8_t>((*raw)[i | 3]);
                const int value = static_cast<std::uint8_t>((*raw)[i]);
                ASSERT_NEAR(i % 4 == 3 ? value : value * alpha / 255.0, pixel[i % 4 == 3 ? 3 : 2 - i % 4], 1) << i;
            }
        }
    }
}
