#include "internal/ColorProfile.h"
#include "internal/ColorTransform.h"
#include "internal/PictureFixtures.h"
#include "platform/draw/BitmapContext.h"
#include "platform/draw/Color.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

using namespace platform::draw;

namespace {

std::vector<std::uint8_t> wideGamutProfile() {
    return fixtures::profileOf({0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1});
}

using Lab = std::array<double, 3>;
using ToLab = std::function<Lab(const double* colorants)>; ///< Of 0 to 1.

struct Table {
    cmsTagSignature tag;
    ToLab colors;
};
// A profile whose colours are tables of `grid` points a side.
std::vector<std::uint8_t> tableProfile(cmsColorSpaceSignature space, double version, int grid,
                                       const std::vector<Table>& tables, cmsUInt32Number intent = INTENT_PERCEPTUAL,
                                       cmsCIEXYZ white = *cmsD50_XYZ()) {
    cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
    cmsSetProfileVersion(profile, version);
    cmsSetDeviceClass(profile, cmsSigOutputClass);
    cmsSetColorSpace(profile, space);
    cmsSetPCS(profile, cmsSigLabData);
    cmsSetHeaderRenderingIntent(profile, intent);
    cmsWriteTag(profile, cmsSigMediaWhitePointTag, &white);
    const cmsUInt32Number channels = cmsChannelsOf(space);
    struct Cargo {
        const ToLab& colors;
        cmsUInt32Number channels;
        bool old;
    };
    for (const Table& table : tables) {
        Cargo cargo{table.colors, channels, version < 4};
        const auto sample = [](const cmsUInt16Number in[], cmsUInt16Number out[], void* given) -> cmsInt32Number {
            const auto& to = *static_cast<Cargo*>(given);
            double colorants[4];
            for (cmsUInt32Number channel = 0; channel < to.channels; ++channel)
                colorants[channel] = in[channel] / 65535.0;
            const Lab found = to.colors(colorants);
            const cmsCIELab lab{found[0], found[1], found[2]};
            to.old ? cmsFloat2LabEncodedV2(out, &lab) : cmsFloat2LabEncoded(out, &lab);
            return 1;
        };
        cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, channels, 3);
        cmsStage* points = cmsStageAllocCLut16bit(nullptr, static_cast<cmsUInt32Number>(grid), channels, 3, nullptr);
        cmsStageSampleCLut16bit(points, sample, &cargo, 0);
        cmsPipelineInsertStage(pipeline, cmsAT_BEGIN, cmsStageAllocToneCurves(nullptr, channels, nullptr));
        cmsPipelineInsertStage(pipeline, cmsAT_END, points);
        cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr));
        cmsWriteTag(profile, table.tag, pipeline);
        cmsPipelineFree(pipeline);
    }
    return fixtures::bytesOfProfile(profile);
}

// Four inks on white paper with some dot gain; black is not quite black.
Lab inksOnPaper(const double* ink) {
    const auto spread = [](double share) { return share + 0.4 * share * (1 - share); };
    const double left = 1 - 0.92 * spread(ink[3]);
    const double cyan = spread(ink[0]), magenta = spread(ink[1]), yellow = spread(ink[2]);
    return {100 * left * (1 - 0.45 * cyan) * (1 - 0.5 * magenta) * (1 - 0.1 * yellow),
            left * (75 * magenta - 37 * cyan - 5 * yellow), left * (93 * yellow - 50 * cyan - 3 * magenta)};
}

std::vector<std::uint8_t> grayProfile(cmsToneCurve* curve) {
    auto bytes = fixtures::bytesOfProfile(cmsCreateGrayProfile(cmsD50_xyY(), curve));
    cmsFreeToneCurve(curve);
    return bytes;
}

std::vector<std::uint8_t> rgbProfile(cmsToneCurve* curve, const std::array<cmsCIExyY, 4>& whiteAndPrimaries,
                                     double version) {
    const auto& [white, red, green, blue] = whiteAndPrimaries;
    const cmsCIExyYTRIPLE primaries{red, green, blue};
    cmsToneCurve* const curves[]{curve, curve, curve};
    cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsSetProfileVersion(profile, version);
    cmsFreeToneCurve(curve);
    return fixtures::bytesOfProfile(profile);
}

cmsToneCurve* tabulated(double (*curve)(double)) {
    std::vector<float> values;
    for (int index = 0; index < 1024; ++index)
        values.push_back(static_cast<float>(curve(index / 1023.0)));
    return cmsBuildTabulatedToneCurveFloat(nullptr, static_cast<cmsUInt32Number>(values.size()), values.data());
}
cmsToneCurve* sRGBCurve() {
    constexpr double parameters[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    return cmsBuildParametricToneCurve(nullptr, 4, parameters);
}

// The greatest difference from a conversion in double precision, over random colours, dark ones and the greys.
double greatestError(const ColorSpaceRef& space, PixelLayout layout, cmsUInt32Number exactFormat) {
    const auto transform = ColorTransform::between(space, layout, ColorSpace::sRGB());
    if (!transform) return INFINITY;
    const int channels = space->componentCount();
    std::vector<double> exactIn;
    std::vector<std::uint8_t> in;
    const auto add = [&](const std::array<std::uint8_t, 4>& color) {
        for (int channel = 0; channel < channels; ++channel)
            exactIn.push_back(color[channel] / 255.0 * (channels == 4 ? 100 : 1));
        if (layout == PixelLayout::bgra8)
            in.insert(in.end(), {color[2], color[1], color[0], 255});
        else
            in.insert(in.end(), color.begin(), color.begin() + channels);
    };
    std::minstd_rand random(7);
    const auto any = [&](int below) { return static_cast<std::uint8_t>((random() >> 8) % below); };
    for (int level = 0; level < 256; ++level)
        add({any(256), any(256), any(256), any(256)}),
            add({std::uint8_t(level), std::uint8_t(level), std::uint8_t(level), 0});
    for (int index = 0; index < 20000; ++index)
        add({any(256), any(256), any(256), any(256)}), add({any(40), any(40), any(40), any(40)});
    const std::size_t count = exactIn.size() / channels;
    std::vector<std::uint8_t> out(4 * count);
    (*transform)->convert(in.data(), out.data(), count);

    std::vector<double> exact(3 * count);
    const Profile from = openProfile(space->iccData().bytes);
    const Profile to(cmsCreate_sRGBProfile());
    const Transform reference(cmsCreateTransform(from.get(), exactFormat, to.get(), TYPE_RGB_DBL,
                                                 INTENT_RELATIVE_COLORIMETRIC,
                                                 cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOOPTIMIZE));
    cmsDoTransform(reference.get(), exactIn.data(), exact.data(), static_cast<cmsUInt32Number>(count));
    double greatest = 0;
    for (std::size_t index = 0; index < count; ++index)
        for (int channel = 0; channel < 3; ++channel)
            greatest = std::max(greatest, std::abs(out[4 * index + 2 - channel] -
                                                   255 * std::clamp(exact[3 * index + channel], 0.0, 1.0)));
    return greatest;
}

} // namespace

TEST(ColorTransform, IsAsExactAsEightBitsAllow) {
    constexpr cmsCIExyY d65{0.3127, 0.3290, 1}, d50{0.3457, 0.3585, 1};
    const auto table = [](double version, int grid, ToLab colors) {
        return tableProfile(cmsSigCmykData, version, grid, {{cmsSigAToB0Tag, colors}, {cmsSigAToB1Tag, colors}});
    };
    const auto steep = [](const double* ink) {
        return Lab{ink[3] > 0.6 ? 0.0 : 100 - 40 * ink[0], ink[1] > 0.3 ? 60.0 : 0.0, ink[2] > 0.5 ? 80.0 : -20.0};
    };
    const auto rgbTable = [](const double* rgb) {
        return Lab{100 * std::cbrt(0.2 * rgb[0] + 0.7 * rgb[1] + 0.1 * rgb[2]), 90 * (rgb[0] - rgb[1]),
                   90 * (rgb[1] - rgb[2])};
    };
    const struct {
        const char* name;
        std::vector<std::uint8_t> profile;
        PixelLayout layout;
        double limit; // 0.5 is rounding alone
    } cases[] = {
        {"Display P3", rgbProfile(sRGBCurve(), {d65, {0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}}, 4.2),
         PixelLayout::bgra8, 1},
        {"Adobe RGB",
         rgbProfile(cmsBuildGamma(nullptr, 563 / 256.0), {d65, {0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}}, 2.1),
         PixelLayout::bgra8, 1},
        {"ProPhoto",
         rgbProfile(cmsBuildGamma(nullptr, 1.8), {d50, {0.7347, 0.2653, 1}, {0.1596, 0.8404, 1}, {0.0366, 0.0001, 1}},
                    2.1),
         PixelLayout::bgra8, 1},
        {"curves by table",
         rgbProfile(tabulated([](double x) { return x * x * (0.6 + 0.4 * x); }),
                    {d65, {0.708, 0.292, 1}, {0.170, 0.797, 1}, {0.131, 0.046, 1}}, 2.1),
         PixelLayout::bgra8, 1},
        {"RGB by table", tableProfile(cmsSigRgbData, 4.2, 17, {{cmsSigAToB0Tag, rgbTable}}), PixelLayout::bgra8, 2},
        {"CMYK v2", table(2.1, 9, inksOnPaper), PixelLayout::cmyk8, 2},
        {"CMYK v4", table(4.2, 11, inksOnPaper), PixelLayout::cmyk8, 2},
        {"CMYK with steps", table(2.1, 16, steep), PixelLayout::cmyk8, 1},
        {"grey, gamma 1", grayProfile(cmsBuildGamma(nullptr, 1)), PixelLayout::gray8, 0.6},
        {"grey, gamma 2.2", grayProfile(cmsBuildGamma(nullptr, 2.2)), PixelLayout::gray8, 0.6},
        {"grey, dot gain 20 %", grayProfile(tabulated([](double x) { return x - 0.8 * x * (1 - x); })),
         PixelLayout::gray8, 0.6},
        {"grey as sRGB", ColorSpace::gray()->iccData().bytes, PixelLayout::gray8, 0.6},
    };
    for (const auto& row : cases) {
        const auto space = ColorSpace::fromICC(row.profile);
        ASSERT_TRUE(space) << row.name;
        const cmsUInt32Number format = row.layout == PixelLayout::cmyk8   ? TYPE_CMYK_DBL
                                       : row.layout == PixelLayout::gray8 ? TYPE_GRAY_DBL
                                                                          : TYPE_RGB_DBL;
        const double error = greatestError(*space, row.layout, format);
        EXPECT_LE(error, row.limit) << row.name;
        RecordProperty(row.name, std::to_string(error));
    }
}

TEST(ColorTransform, FollowsTheWishOfTheProfile) {
    const auto even = [](double lightness) {
        return [=](const double* ink) { return Lab{lightness * (1 - ink[3]), 0, 0}; };
    };
    // The tables of the intents have papers of different lightness; the paper itself is yellowish.
    const cmsCIEXYZ paper{0.8, 0.82, 0.5};
    const struct {
        cmsUInt32Number stated;
        std::array<std::uint8_t, 3> white; // red, green, blue
    } cases[] = {{INTENT_PERCEPTUAL, {255, 255, 255}},
                 {INTENT_RELATIVE_COLORIMETRIC, {255, 255, 255}},
                 {INTENT_SATURATION, {119, 119, 119}},
                 {INTENT_ABSOLUTE_COLORIMETRIC, {248, 232, 199}},
                 {77, {255, 255, 255}},
                 {0x10000 | INTENT_PERCEPTUAL, {255, 255, 255}}};
    for (const auto& row : cases) {
        const auto space = ColorSpace::fromICC(tableProfile(
            cmsSigCmykData, 2.1, 3,
            {{cmsSigAToB0Tag, even(80)}, {cmsSigAToB1Tag, even(100)}, {cmsSigAToB2Tag, even(50)}}, row.stated, paper));
        ASSERT_TRUE(space);
        const auto transform = ColorTransform::between(*space, PixelLayout::cmyk8, ColorSpace::sRGB());
        ASSERT_TRUE(transform);
        const std::uint8_t none[4] = {};
        std::uint8_t white[4];
        (*transform)->convert(none, white, 1);
        for (int channel = 0; channel < 3; ++channel)
            EXPECT_NEAR(white[2 - channel], row.white[channel], 1) << row.stated << " " << channel;
    }
}

// A profile with changed bytes is refused or converts: it never breaks a picture that is opened with it.
TEST(ColorSpace, FallsBackForBrokenProfiles) {
    const std::vector<std::uint8_t> whole[] = {
        tableProfile(cmsSigCmykData, 2.1, 3, {{cmsSigAToB0Tag, inksOnPaper}, {cmsSigAToB1Tag, inksOnPaper}}),
        tableProfile(cmsSigCmykData, 4.2, 3, {{cmsSigAToB1Tag, inksOnPaper}}), wideGamutProfile(),
        ColorSpace::gray()->iccData().bytes};
    std::minstd_rand random(3);
    int opened = 0;
    const auto open = [&](const std::vector<std::uint8_t>& bytes) {
        const auto space = ColorSpace::fromICC(bytes);
        if (!space) return;
        ++opened;
        const PixelLayout layout = (*space)->model() == ColorModel::rgb    ? PixelLayout::bgra8
                                   : (*space)->model() == ColorModel::cmyk ? PixelLayout::cmyk8
                                                                           : PixelLayout::gray8;
        // That of four inks takes too long for each of them.
        if (layout != PixelLayout::cmyk8 || opened % 40 == 0) {
            EXPECT_TRUE(ColorTransform::between(*space, layout, ColorSpace::sRGB()));
        }
    };
    for (const auto& profile : whole) {
        for (int percent = 0; percent < 100; percent += 4)
            open({profile.begin(), profile.begin() + static_cast<std::ptrdiff_t>(profile.size() * percent / 100)});
        for (int round = 0; round < 60; ++round) {
            auto changed = profile;
            for (int change = 0; change < 3; ++change)
                changed[random() % std::min<std::size_t>(changed.size(), 700)] =
                    static_cast<std::uint8_t>(random() >> 8);
            open(changed);
        }
    }
    EXPECT_GT(opened, 20);

    // A table of 255 points a side for four inks; long lists of elements; bytes without end.
    auto huge = whole[0];
    const char mft2[] = {'m', 'f', 't', '2'};
    for (auto at = huge.begin(); (at = std::search(at, huge.end(), mft2, mft2 + 4)) != huge.end(); at += 11)
        at[10] = 255;
    EXPECT_FALSE(ColorSpace::fromICC(huge));
    const auto ofElements = [](int count) {
        cmsHPROFILE profile = cmsCreate_sRGBProfile();
        cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, 3, 3);
        const double identity[] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        for (int element = 0; element < count; ++element)
            cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocMatrix(nullptr, 3, 3, identity, nullptr));
        EXPECT_TRUE(cmsWriteTag(profile, cmsSigDToB1Tag, pipeline));
        cmsPipelineFree(pipeline);
        return fixtures::bytesOfProfile(profile);
    };
    EXPECT_TRUE(ColorSpace::fromICC(ofElements(64)));
    EXPECT_FALSE(ColorSpace::fromICC(ofElements(65)));
    EXPECT_FALSE(ColorSpace::fromICC(std::vector<std::uint8_t>(40u << 20, 0)));
}

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
    const Table oneWay{cmsSigAToB0Tag, [](const double* rgb) { return Lab{100 * rgb[1], 0, 0}; }};
    const auto scanner = ColorSpace::fromICC(tableProfile(cmsSigRgbData, 2.1, 3, {oneWay}));
    ASSERT_TRUE(scanner);
    EXPECT_FALSE((*scanner)->supportsOutput());
    EXPECT_TRUE((*wide)->supportsOutput());
    EXPECT_EQ(BitmapContext::create(2, 2, *scanner)->colorSpace(), ColorSpace::sRGB());
}

TEST(ColorSpace, RefusesWhatIsNoProfileOfADevice) {
    EXPECT_FALSE(ColorSpace::fromICC({}));
    EXPECT_FALSE(ColorSpace::fromICC(std::vector<std::uint8_t>(500, 'x')));
    cmsHPROFILE namedColors = cmsCreateProfilePlaceholder(nullptr);
    cmsSetDeviceClass(namedColors, cmsSigNamedColorClass);
    cmsSetColorSpace(namedColors, cmsSigRgbData);
    for (cmsHPROFILE other : {cmsCreateLab2Profile(nullptr), cmsCreateLab4Profile(nullptr), cmsCreateXYZProfile(),
                              cmsCreateInkLimitingDeviceLink(cmsSigCmykData, 200),
                              cmsCreateBCHSWabstractProfile(5, 10, 1, 0, 0, 6500, 5000), namedColors})
        EXPECT_FALSE(ColorSpace::fromICC(fixtures::bytesOfProfile(other)));
}

TEST(ColorTransform, KeepsAlphaAndIsMadeOnce) {
    const auto wide = *ColorSpace::fromICC(wideGamutProfile());
    const auto transform = ColorTransform::between(wide, PixelLayout::bgra8, ColorSpace::sRGB());
    ASSERT_TRUE(transform);
    // Blue, green, red, alpha; in place. The mid green of the wide space has no red in sRGB.
    std::uint8_t pixels[] = {100, 180, 100, 7, 0, 0, 0, 0, 255, 255, 255, 200};
    (*transform)->convert(pixels, pixels, 3);
    EXPECT_LT(pixels[2], 60);
    EXPECT_EQ(pixels[3], 7);
    EXPECT_EQ(pixels[7], 0);
    EXPECT_EQ(pixels[11], 200);
    EXPECT_EQ(*ColorTransform::between(wide, PixelLayout::bgra8, ColorSpace::sRGB()), *transform);
    EXPECT_EQ(*ColorTransform::between(wide, PixelLayout::bgra8, wide), nullptr) << "nothing to do";
}

TEST(ColorTransform, ConvertsPlainCMYK) {
    const auto cmyk = ColorTransform::between(ColorSpace::deviceCMYK(), PixelLayout::cmyk8, ColorSpace::sRGB());
    const auto inverted =
        ColorTransform::between(ColorSpace::deviceCMYK(), PixelLayout::cmykInverted8, ColorSpace::sRGB());
    ASSERT_TRUE(cmyk && inverted);
    const std::uint8_t ink[] = {255, 0, 0, 0, 0, 0, 0, 255, 0, 0, 0, 0};
    std::uint8_t light[12], out[12];
    std::transform(std::begin(ink), std::end(ink), light, [](int value) { return 255 - value; });
    const std::uint8_t expected[] = {255, 255, 0, 255, 0, 0, 0, 255, 255, 255, 255, 255};
    (*cmyk)->convert(ink, out, 3);
    EXPECT_TRUE(std::equal(std::begin(out), std::end(out), expected));
    (*inverted)->convert(light, out, 3);
    EXPECT_TRUE(std::equal(std::begin(out), std::end(out), expected));
    EXPECT_FALSE(ColorTransform::between(ColorSpace::sRGB(), PixelLayout::gray8, ColorSpace::sRGB()));
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
