#include "internal/ColorProfile.h"
#include "internal/ColorTransform.h"
#include "internal/PictureFixtures.h"
#include "platform/draw/Color.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace platform::draw;

namespace {

std::vector<std::uint8_t> wideGamutProfile() {
    return fixtures::profileOf({0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1});
}

} // namespace

TEST(ColorSpace, KnowsSRGBInAnyClothing) {
    EXPECT_TRUE(ColorSpace::sRGB()->isSRGB());
    EXPECT_EQ(ColorSpace::sRGB()->name(), "sRGB IEC61966-2.1");
    const auto own = ColorSpace::fromICC(ColorSpace::sRGB()->iccData().bytes);
    ASSERT_TRUE(own);
    EXPECT_EQ(*own, ColorSpace::sRGB()) << "the same bytes are the same space";
    const auto other = ColorSpace::fromICC(fixtures::bytesOfProfile(cmsCreate_sRGBProfile()));
    ASSERT_TRUE(other);
    EXPECT_TRUE((*other)->isSRGB());
    EXPECT_NE(*other, ColorSpace::sRGB());
    const auto wide = ColorSpace::fromICC(wideGamutProfile());
    ASSERT_TRUE(wide);
    EXPECT_FALSE((*wide)->isSRGB());
    EXPECT_EQ((*wide)->model(), ColorModel::rgb);
    const auto gray = ColorSpace::fromICC(ColorSpace::gray()->iccData().bytes);
    ASSERT_TRUE(gray);
    EXPECT_EQ((*gray)->model(), ColorModel::monochrome);
    EXPECT_EQ((*gray)->componentCount(), 1);
}

TEST(ColorSpace, RefusesWhatIsNoProfileOfADevice) {
    EXPECT_FALSE(ColorSpace::fromICC({}));
    const std::vector<std::uint8_t> rubbish(500, 'x');
    EXPECT_FALSE(ColorSpace::fromICC(rubbish));
    auto cut = wideGamutProfile();
    cut.resize(cut.size() / 2);
    const auto broken = ColorSpace::fromICC(cut);
    if (broken) {
        EXPECT_FALSE(ColorTransform::between(*broken, PixelLayout::bgra8, ColorSpace::sRGB()));
    }
    EXPECT_FALSE(ColorSpace::fromICC(fixtures::bytesOfProfile(cmsCreateLab4Profile(nullptr))));
}

TEST(ColorTransform, ConvertsWideGamutToSRGBAndKeepsAlpha) {
    const auto wide = *ColorSpace::fromICC(wideGamutProfile());
    const auto transform = ColorTransform::between(wide, PixelLayout::bgra8, ColorSpace::sRGB());
    ASSERT_TRUE(transform);
    // Blue, green, red, alpha. The mid green of the wide space has no red in sRGB; grey stays grey.
    std::uint8_t pixels[] = {100, 180, 100, 7, 128, 128, 128, 255, 0, 0, 0, 0, 255, 255, 255, 200};
    (*transform)->convert(pixels, pixels, 4);
    EXPECT_LT(pixels[2], 60);
    EXPECT_NEAR(pixels[1], 181, 3);
    EXPECT_EQ(pixels[3], 7);
    EXPECT_NEAR(pixels[4], 128, 2);
    EXPECT_NEAR(pixels[4], pixels[6], 1);
    EXPECT_EQ(pixels[11], 0);
    EXPECT_EQ(pixels[12], 255);
    EXPECT_EQ(pixels[15], 200);
    EXPECT_EQ(*ColorTransform::between(wide, PixelLayout::bgra8, ColorSpace::sRGB()), *transform) << "made once";
    EXPECT_EQ(*ColorTransform::between(wide, PixelLayout::bgra8, wide), nullptr) << "nothing to do";
}

TEST(ColorTransform, ConvertsGrayAndPlainCMYK) {
    const auto gray = ColorTransform::between(ColorSpace::gray(), PixelLayout::gray8, ColorSpace::sRGB());
    ASSERT_TRUE(gray);
    const std::uint8_t levels[] = {0, 77, 255};
    std::uint8_t out[12];
    (*gray)->convert(levels, out, 3);
    for (int pixel = 0; pixel < 3; ++pixel) {
        for (int channel = 0; channel < 3; ++channel)
            EXPECT_NEAR(out[4 * pixel + channel], levels[pixel], 1);
        EXPECT_EQ(out[4 * pixel + 3], 255);
    }
    const auto cmyk = ColorTransform::between(ColorSpace::deviceCMYK(), PixelLayout::cmyk8, ColorSpace::sRGB());
    const auto inverted =
        ColorTransform::between(ColorSpace::deviceCMYK(), PixelLayout::cmykInverted8, ColorSpace::sRGB());
    ASSERT_TRUE(cmyk && inverted);
    const std::uint8_t ink[] = {255, 0, 0, 0, 0, 0, 0, 255, 0, 0, 0, 0};
    std::uint8_t light[12];
    std::transform(std::begin(ink), std::end(ink), light, [](int value) { return 255 - value; });
    const std::uint8_t expected[] = {255, 255, 0, 255, 0, 0, 0, 255, 255, 255, 255, 255};
    (*cmyk)->convert(ink, out, 3);
    EXPECT_TRUE(std::equal(std::begin(out), std::end(out), expected));
    (*inverted)->convert(light, out, 3);
    EXPECT_TRUE(std::equal(std::begin(out), std::end(out), expected));
    EXPECT_FALSE(ColorTransform::between(ColorSpace::gray(), PixelLayout::bgra8, ColorSpace::sRGB()));
    EXPECT_FALSE(ColorTransform::between(ColorSpace::sRGB(), PixelLayout::bgra8, ColorSpace::gray()));
}

TEST(ColorTransform, IsSharedByThreads) {
    const auto profile = wideGamutProfile();
    std::vector<std::thread> threads;
    std::vector<std::vector<std::uint8_t>> results(4);
    for (auto& result : results)
        threads.emplace_back([&] {
            const auto wide = *ColorSpace::fromICC(profile);
            const auto transform = *ColorTransform::between(wide, PixelLayout::bgra8, ColorSpace::sRGB());
            for (int value = 0; value < 4000; ++value)
                result.push_back(static_cast<std::uint8_t>(value * 7));
            transform->convert(result.data(), result.data(), result.size() / 4);
        });
    for (auto& thread : threads)
        thread.join();
    for (const auto& result : results)
        EXPECT_EQ(result, results.front());
}

TEST(Color, GoesToTheSpaceOfTheCanvas) {
    const struct {
        Color color;
        double red, green, blue, alpha;
    } cases[] = {{Color(0.5, 0.25, 1, 0.3), 0.5, 0.25, 1, 0.3},
                 {Color(ColorSpace::gray(), {0.5, 1}), 0.5, 0.5, 0.5, 1},
                 {Color(ColorSpace::deviceCMYK(), {0, 1, 1, 0, 0.5}), 1, 0, 0, 0.5}};
    for (const auto& row : cases) {
        const auto found = row.color.inSpace(ColorSpace::sRGB());
        EXPECT_NEAR(found.red, row.red, 0.01);
        EXPECT_NEAR(found.green, row.green, 0.01);
        EXPECT_NEAR(found.blue, row.blue, 0.01);
        EXPECT_EQ(found.alpha, row.alpha);
    }
    EXPECT_EQ(Color(ColorSpace::sRGB(), {1.5}).inSpace(ColorSpace::sRGB()).red, 1) << "too few, too large";
}
