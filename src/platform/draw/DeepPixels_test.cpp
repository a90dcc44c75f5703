// Every layout of PNG, TIFF and Photoshop files, with 8 and with 16 bits, against what ImageMagick reads in them.
#include "platform/draw/DeepPixels.h"

#include "internal/PictureFixtures.h"
#include "platform/draw/ColorSpace.h"
#include "platform/draw/ImageSource.h"
#include "support/CommandOutput.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

using namespace platform::draw;

namespace {

using Samples = std::vector<std::uint16_t>;
constexpr int width = 37;
constexpr int height = 29;

Samples samplesOf(std::string_view bytes) {
    Samples samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), 2 * samples.size());
    return samples;
}

/// Straight RGBA whose low bytes matter.
Samples picture() {
    Samples samples;
    unsigned random = 1;
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x) {
            random = random * 1664525 + 1013904223;
            for (const unsigned value : {x * 1700 + random % 900, y * 2200 + random / 4096 % 900, 30000 + x * y * 30,
                                         x < 9 ? 65535 : 65535 - x * 1701})
                samples.push_back(static_cast<std::uint16_t>(value));
        }
    return samples;
}

Samples premultiplied(Samples samples) {
    for (std::size_t i = 0; i < samples.size(); ++i)
        if (i % 4 != 3)
            samples[i] = static_cast<std::uint16_t>((samples[i] * std::uint64_t{samples[i | 3]} + 32767) / 65535);
    return samples;
}

class Files {
public:
    Files() {
        const Samples samples = picture();
        folder_.write("s.rgba", {reinterpret_cast<const char*>(samples.data()), 2 * samples.size()});
        const std::string raw =
            "convert -size " + std::to_string(width) + "x" + std::to_string(height) + " -depth 16 -endian LSB s.rgba ";
        run(raw + "PNG64:a16.png");
        run(raw + "-alpha off PNG48:s16.png");
        run("convert a16.png -depth 8 PNG32:a8.png");
        run("convert s16.png -depth 8 PNG24:s8.png");
    }
    std::optional<std::string> run(const std::string& command) const {
        return support::commandOutput("cd '" + folder_.path().string() + "' && " + command);
    }
    void write(const std::string& name, const std::vector<std::uint8_t>& bytes) const {
        folder_.write(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    ImageRef open(const std::string& name, std::size_t index = 0) const {
        const auto source = ImageSource::createWithURL(base::URL::fileURLWithPath(folder_ / name));
        return source ? (*source)->imageAtIndex(index) : nullptr;
    }
    /// As ImageMagick reads it.
    Samples judged(const std::string& name) const {
        return premultiplied(
            samplesOf(run("convert '" + name + "' -alpha set -depth 16 -endian LSB rgba:-").value_or("")));
    }

private:
    support::TemporaryDirectory folder_;
};

Samples deepPixels(const Image& image, int quarterTurns = 0) {
    std::string bytes(8u * image.width() * image.height(), '\0');
    const auto read = readDeepPixels(image, quarterTurns, reinterpret_cast<std::uint8_t*>(bytes.data()));
    EXPECT_TRUE(read) << read.error().localizedDescription;
    return samplesOf(bytes);
}

Samples widened(const Bitmap& bitmap) {
    Samples samples;
    for (int y = 0; y < bitmap.height(); ++y)
        for (int x = 0; x < bitmap.width(); ++x)
            for (const int place : {2, 1, 0, 3})
                samples.push_back(static_cast<std::uint16_t>(bitmap.row(y)[4 * x + place] * 257));
    return samples;
}

int largestDifference(const Samples& one, const Samples& other) {
    if (one.size() != other.size() || one.empty()) return 100000;
    int largest = 0;
    for (std::size_t i = 0; i < one.size(); ++i)
        largest = std::max(largest, std::abs(one[i] - other[i]));
    return largest;
}

} // namespace

TEST(DeepPixels, EveryLayoutIsReadAsAnIndependentDecoderReadsIt) {
    const Files files;
    const auto made = files.run("identify -format %m s16.png");
    if (!made) GTEST_SKIP() << "ImageMagick is not installed";
    const std::string tiled = "-define tiff:tile-geometry=32x16 ";
    const std::string gray = "-colorspace Gray ";
    struct Row {
        std::string convert; ///< What makes `file` of which.
        std::string file;
        int difference = 0;                ///< Of 65535.
        int difference8 = 65535 * 3 / 510; ///< One and a half of 255.
    };
    std::vector<Row> rows{
        {"s16.png", "PNG48:rgb.png"},
        {"a16.png", "PNG64:rgba.png"},
        {"a8.png", "PNG32:rgba8.png"},
        {"s8.png -interlace PNG", "PNG24:i.png"},
        {"a16.png -interlace PNG", "PNG64:ia.png"},
        {"a16.png " + gray + "-define png:color-type=4", "ga.png"},
        {"s8.png -fill red -draw 'rectangle 5,5 20,20' -transparent red -define png:color-type=2", "trns.png"},
        {"s8.png -colors 20 -fill none -draw 'rectangle 5,5 20,20'", "PNG8:palette-trns.png"},
        {"s16.png -compress LZW", "lzw.tif"},
        {"s16.png -compress Zip", "zip.tif"},
        {"s8.png -compress JPEG -quality 95", "jpeg.tif"},
        {"s8.png -compress JPEG -quality 95 -colorspace YCbCr", "ycbcr-jpeg.tif", 400},
        {"s8.png -colorspace YCbCr", "ycbcr.tif", 600},
        {"s16.png " + tiled, "tiles.tif"},
        {"s16.png -interlace plane", "planes.tif"},
        {"a16.png -interlace plane " + tiled, "tiled-planes.tif"},
        {"s16.png -define tiff:endian=msb", "big-endian.tif"},
        {"a16.png -define tiff:alpha=associated", "TIFF64:associated.tif", 1},
        {"a16.png -define tiff:alpha=unassociated", "TIFF64:unassociated.tif"},
        {"a8.png -define tiff:alpha=associated", "associated8.tif", 257},
        {"a8.png -define tiff:alpha=unassociated " + tiled, "unassociated8.tif"},
        {"a16.png " + gray, "gray-alpha.tif"},
        {"s8.png " + gray + "-define quantum:polarity=min-is-white", "white-is-0.tif"},
        {"s8.png -monochrome -compress Group4", "fax.tif"},
        {"s8.png -colorspace CMYK", "cmyk8.tif", 129},
        {"s16.png -colorspace CMYK " + tiled, "cmyk.tif", 1},
        {"s16.png -colorspace CMYK -interlace plane", "cmyk-planes.tif", 1},
        {"s16.png -modulate 100,40 +level 30%,90% -colorspace Lab", "lab.tif", 600, 600},
        {"s8.png -modulate 100,40 +level 30%,90% -colorspace Lab", "lab8.tif", 1300, 1300},
    };
    for (const std::string bits : {"1", "2", "4", "8", "16"}) {
        const std::string depth = "s16.png -colorspace Gray -depth " + bits + " -define png:bit-depth=" + bits;
        rows.push_back({depth + " -define png:color-type=0", "gray" + bits + ".png"});
        rows.push_back({depth + (bits == "1" ? " -type bilevel" : " -type grayscale"), "gray" + bits + ".tif"});
        if (bits == "16") continue;
        const std::string colors = "s8.png -colors " + std::to_string(std::min(200, 1 << std::stoi(bits)));
        rows.push_back({colors + " -define png:bit-depth=" + bits, "PNG8:palette" + bits + ".png"});
        if (bits != "2") rows.push_back({colors + " -type Palette -depth " + bits, "palette" + bits + ".tif"});
    }
    for (const std::string packing : {"None", "RLE"})
        for (const std::string format : {"psd", "psb"}) {
            const std::string options = " -compress " + packing;
            rows.push_back({"s16.png" + options, format + ":" + packing + "." + format});
            rows.push_back({"s8.png" + options, format + ":8" + packing + "." + format});
            rows.push_back({"s16.png " + gray + options, format + ":gray" + packing + "." + format});
            rows.push_back({"s16.png -colorspace CMYK" + options, format + ":cmyk" + packing + "." + format, 1});
        }
    for (const Row& row : rows) {
        SCOPED_TRACE(row.convert + " " + row.file);
        const bool hasDepth = row.convert.find("-depth") != std::string::npos;
        const std::string depth = hasDepth ? "" : row.convert[1] == '8' ? " -depth 8 " : " -depth 16 ";
        files.run("convert " + row.convert + depth + " " + row.file);
        const std::string name = row.file.substr(row.file.find(':') + 1);
        const ImageRef image = files.open(name);
        ASSERT_TRUE(image);
        const Samples wanted = files.judged(name + "[0]");
        EXPECT_LE(largestDifference(deepPixels(*image), wanted), row.difference);
        const auto bitmap = image->bitmap(ColorSpace::sRGB());
        ASSERT_TRUE(bitmap) << bitmap.error().localizedDescription;
        EXPECT_LE(largestDifference(widened(*bitmap), wanted), row.difference8);
    }
    // Nothing of the 16 bits was lost on the way through the files.
    for (const std::string name : {"rgba.png", "unassociated.tif"})
        EXPECT_EQ(deepPixels(*files.open(name)), premultiplied(picture()));
    files.run("convert s8.png a8.png gray4.png pages.tif");
    for (std::size_t page = 0; page < 3; ++page)
        EXPECT_EQ(deepPixels(*files.open("pages.tif", page)), files.judged("pages.tif[" + std::to_string(page) + "]"));
}

// As the same picture without alpha, which is opaque at its left.
TEST(DeepPixels, GreyWithAlphaKeepsItsProfile) {
    const Files files;
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1);
    files.write("linear.icc", fixtures::bytesOfProfile(cmsCreateGrayProfile(cmsD50_xyY(), linear)));
    cmsFreeToneCurve(linear);
    for (const std::string bits : {"8", "16"})
        for (const std::string extension : {".png", ".tif"}) {
            SCOPED_TRACE(bits + extension);
            const std::string gray = " -colorspace Gray +profile '*' -profile linear.icc -define png:color-type=";
            files.run("convert a" + bits + ".png" + gray + "4 alpha" + extension);
            if (!files.run("convert a" + bits + ".png -alpha off" + gray + "0 plain" + extension)) GTEST_SKIP();
            const ImageRef alpha = files.open("alpha" + extension), plain = files.open("plain" + extension);
            ASSERT_TRUE(alpha && plain && !alpha->isOpaque() && plain->isOpaque());
            EXPECT_EQ(alpha->colorSpace(), plain->colorSpace());
            EXPECT_NE(alpha->colorSpace(), ColorSpace::gray());
            const ImageRef one = alpha->cropped({0, 0, 9, height}), other = plain->cropped({0, 0, 9, height});
            EXPECT_LE(largestDifference(deepPixels(*one), deepPixels(*other)), bits == "8" ? 129 : 0);
            EXPECT_EQ(widened(*one->bitmap()), widened(*other->bitmap()));
        }
}

TEST(DeepPixels, PicturesInMemoryKeepThem) {
    Samples samples = picture();
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = std::min(samples[i], samples[i | 3]);
    const ImageRef image = *imageOfDeepPixels(samples, width, height, ColorSpace::sRGB(), false);
    EXPECT_EQ(deepPixels(*image), samples);
    const ImageRef part = image->cropped({5, 7, 2, 3});
    const Samples turned = deepPixels(*part, 1); // its left column becomes the upper row, read from below
    const std::size_t lowest = 4 * (9 * width + 5);
    EXPECT_TRUE(std::equal(turned.begin(), turned.begin() + 4, samples.begin() + lowest));
    const Bitmap bitmap = *part->bitmap();
    EXPECT_NEAR(bitmap.row(2)[2], samples[lowest] / 257.0, 0.51);
    const ImageRef opaque = *imageOfDeepPixels(samples, width, height, ColorSpace::sRGB(), true);
    EXPECT_TRUE(opaque->isOpaque());
    EXPECT_EQ(deepPixels(*opaque).back(), 65535);
    EXPECT_FALSE(imageOfDeepPixels(samples, width, height + 1, ColorSpace::sRGB(), false));
    EXPECT_FALSE(imageOfDeepPixels({}, 1 << 20, 1 << 20, ColorSpace::sRGB(), false));
}
