#include "imaging/ColorSpaceValue.h"
#include "imaging/KLARON_Image.h"
#include "platform/draw/DeepPixels.h"
#include "support/CommandOutput.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <array>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <numbers>

namespace {

using Samples = std::vector<std::uint16_t>;
constexpr int width = 7;
constexpr int height = 4;

/// Every sample is another one; alpha is full.
Samples picture() {
    Samples samples;
    for (int i = 0; i < width * height; ++i)
        for (const int value : {1000 + i * 1237, 40000 - i * 1013, i * 97 + 3, 65535})
            samples.push_back(static_cast<std::uint16_t>(value));
    return samples;
}

Samples samplesOf(const base::Data& data) {
    Samples samples(data.size() / 2);
    std::memcpy(samples.data(), data.bytes.data(), data.size());
    return samples;
}

base::Data dataOf(const Samples& samples) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(samples.data());
    return base::Data(std::vector<std::uint8_t>(bytes, bytes + 2 * samples.size()));
}

/// What drawing leaves on a canvas (y up, rows from the top): the middle of each of its pixels is taken back through
/// the context's turn, and looked up in the rectangle into which the picture is drawn.
Samples drawn(double angle, int canvasWidth, int canvasHeight) {
    const base::Rect canvas{0, 0, static_cast<double>(canvasWidth), static_cast<double>(canvasHeight)};
    const auto turn = base::AffineTransform::rotationAbout(canvas.center(), angle);
    const base::Rect target = turn.apply(canvas);
    const Samples source = picture();
    Samples result;
    for (int row = 0; row < canvasHeight; ++row)
        for (int column = 0; column < canvasWidth; ++column) {
            const base::Point place = turn.inverted().apply(base::Point{column + 0.5, canvasHeight - row - 0.5});
            const auto x = static_cast<int>(std::floor((place.x - target.x) / target.width * width));
            const auto y = static_cast<int>(std::floor((target.maxY() - place.y) / target.height * height));
            const auto first = source.begin() + 4 * (y * width + x);
            result.insert(result.end(), first, first + 4);
        }
    return result;
}

} // namespace

TEST(KLARON_ImageDeep, BitmapDataAreExactForEveryOrientation) {
    const support::TemporaryDirectory folder;
    folder.write("s.rgba", dataOf(picture()).asText());
    const auto run = [&](const std::string& command) {
        return support::commandOutput("cd '" + folder.path().string() + "' && " + command);
    };
    const std::string raw = "convert -size 7x4 -depth 16 -endian LSB s.rgba -alpha off ";
    if (!run(raw + "PNG48:a.png") || !run(raw + "a.tif")) GTEST_SKIP() << "ImageMagick is not installed";
    if (!run("exiftool -ver")) GTEST_SKIP() << "exiftool is not installed";
    constexpr double quarter = std::numbers::pi / 2;
    constexpr std::array angles{0.0, 0.0, 0.0, 2 * quarter, 0.0, quarter, quarter, -quarter, -quarter};
    for (int orientation = 1; orientation <= 8; ++orientation)
        for (const std::string name : {"a.png", "a.tif"}) {
            SCOPED_TRACE(name + " " + std::to_string(orientation));
            run("exiftool -q -overwrite_original -n -Orientation=" + std::to_string(orientation) + " " + name);
            ASSERT_EQ(KLARON_Image::orientationForImage(folder / name), orientation);
            const bool onSide = orientation >= 5;
            KLARON_Image::Metadata properties;
            const auto data = KLARON_Image::rgbaBitmapDataWithObject(folder / name, &properties);
            ASSERT_TRUE(data && properties);
            EXPECT_EQ(samplesOf(*data), drawn(angles[static_cast<std::size_t>(orientation)], onSide ? height : width,
                                              onSide ? width : height));
            EXPECT_EQ(base::valueForKey(*properties, "width"), base::Value(onSide ? height : width));
            EXPECT_EQ(base::valueForKey(*properties, "height"), base::Value(onSide ? width : height));
            EXPECT_EQ(base::valueForKey(*properties, "bitsPerComponent"), base::Value(16));
            EXPECT_EQ(base::valueForKey(*properties, "alphaInfo"), base::Value(1));
            ASSERT_TRUE(base::valueForKey(*properties, "colorSpace").object<ColorSpaceValue>());

            const auto image = KLARON_Image::imageFromBitmapData(*data, *properties);
            ASSERT_TRUE(image);
            base::Data again(std::vector<std::uint8_t>(data->size()));
            ASSERT_TRUE(platform::draw::readDeepPixels(*image, 0, again.bytes.data()));
            EXPECT_EQ(again, *data);
        }
    // What can't be decoded leaves zeros, what is no picture nothing.
    const support::LogCapture log;
    const std::string whole = support::readFile(folder / "a.png");
    const auto broken = KLARON_Image::rgbaBitmapDataWithObject(base::Data(whole.substr(0, whole.size() - 40)));
    ASSERT_TRUE(broken);
    EXPECT_EQ(*broken, base::Data(std::vector<std::uint8_t>(8 * width * height)));
    EXPECT_TRUE(log.has("cannot read"));
    KLARON_Image::Metadata properties = base::Dictionary{};
    EXPECT_FALSE(KLARON_Image::rgbaBitmapDataWithObject(base::Data("no picture"), &properties));
    EXPECT_FALSE(properties);
    EXPECT_FALSE(KLARON_Image::rgbaBitmapDataWithObject(KLARON_Image::createCGImageFromObject(folder / "a.png")));
}

TEST(KLARON_ImageDeep, ImagesAreMadeOfTheLayoutsThatContextsHave) {
    using platform::draw::AlphaInfo;
    const auto pixelOf = [](const base::Data& data, base::Dictionary properties) -> std::optional<base::Array> {
        properties.insert_or_assign("width", 1);
        properties.emplace("height", 1);
        const auto image = KLARON_Image::imageFromBitmapData(data, properties);
        if (!image) return std::nullopt;
        const platform::draw::Bitmap bitmap = *image->bitmap();
        const std::uint8_t* pixel = bitmap.row(0);
        return base::Array{pixel[2], pixel[1], pixel[0], pixel[3]};
    };
    const base::Data bytes(std::vector<std::uint8_t>{10, 20, 30, 40});
    const base::Data words = dataOf({10 * 257, 20 * 257, 30 * 257, 40 * 257});
    struct Row {
        base::Data data;
        int bits;
        int alpha;
        std::optional<base::Array> pixel;
    };
    for (const Row& row : {Row{bytes, 8, 1, base::Array{10, 20, 30, 40}},
                           {bytes, 8, 2, base::Array{10, 10, 10, 10}}, // no colour beyond its alpha
                           {bytes, 8, 5, base::Array{10, 20, 30, 255}},
                           {bytes, 8, 6, base::Array{20, 30, 40, 255}},
                           {words, 16, 1, base::Array{10, 20, 30, 40}},
                           {words, 16, 5, base::Array{10, 20, 30, 255}},
                           {words, 16, 2, std::nullopt},
                           {words, 32, 1, std::nullopt},
                           {bytes, 8, 3, std::nullopt},
                           {bytes, 16, 1, std::nullopt},
                           {base::Data(), 8, 1, std::nullopt}})
        EXPECT_EQ(pixelOf(row.data, {{"bitsPerComponent", row.bits}, {"alphaInfo", row.alpha}}), row.pixel)
            << row.bits << " " << row.alpha;
    EXPECT_EQ(pixelOf(words, {}), (base::Array{10, 20, 30, 40})) << "16 bits, premultiplied, alpha last";
    EXPECT_FALSE(pixelOf(words, {{"height", 0}}));
    EXPECT_FALSE(pixelOf(words, {{"height", 2}})) << "too short";
    EXPECT_FALSE(pixelOf(words, {{"height", -1}}));
    for (const auto& space : {platform::draw::ColorSpace::gray(), platform::draw::ColorSpace::sRGB()}) {
        const auto image = KLARON_Image::imageFromBitmapData(
            words, {{"width", 1}, {"height", 1}, {"colorSpace", std::make_shared<ColorSpaceValue>(space)}});
        EXPECT_TRUE(image->colorSpace()->isSRGB());
    }
}
