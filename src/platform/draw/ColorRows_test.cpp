#include "platform/draw/ColorRows.h"

#include "internal/ColorProfile.h"
#include "internal/EveryTargetFixture.h"
#include "internal/PictureFixtures.h"
#include "platform/draw/DeepPixels.h"
#include "platform/draw/ImageSource.h"
#include "platform/draw/Raster.h"
#include "platform/draw/ScaledRows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

using namespace platform::draw;

namespace {

ColorSpaceRef spaceOf(const std::vector<std::uint8_t>& profile) {
    const auto space = ColorSpace::fromICC(profile);
    if (!space) throw std::runtime_error(space.error().localizedDescription);
    return *space;
}

std::vector<std::uint8_t> wideProfile() {
    return fixtures::profileOf({0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1});
}

/// A printer of dyes by tables of `grid` points a side: the wide space behind a curve of its own, and a paper and a
/// black that are not those of the screen.
std::vector<std::uint8_t> printerProfile(cmsUInt32Number grid) {
    const std::vector<std::uint8_t> bytes = wideProfile();
    const Profile wide = openProfile(bytes);
    const Profile lab(cmsCreateLab4Profile(nullptr));
    cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
    cmsSetProfileVersion(profile, 4.2);
    cmsSetDeviceClass(profile, cmsSigOutputClass);
    cmsSetColorSpace(profile, cmsSigRgbData);
    cmsSetPCS(profile, cmsSigLabData);
    cmsWriteTag(profile, cmsSigMediaWhitePointTag, cmsD50_XYZ());
    constexpr double darkest = 8;
    struct Cargo {
        cmsHTRANSFORM transform;
        bool toLab;
    };
    const auto sample = [](const cmsUInt16Number in[], cmsUInt16Number out[], void* given) -> cmsInt32Number {
        const auto& cargo = *static_cast<Cargo*>(given);
        double rgb[3];
        cmsCIELab color;
        if (cargo.toLab) {
            for (int k = 0; k < 3; ++k)
                rgb[k] = std::pow(in[k] / 65535.0, 1.2);
            cmsDoTransform(cargo.transform, rgb, &color, 1);
            color.L = darkest + color.L * (100 - darkest) / 100;
            cmsFloat2LabEncoded(out, &color);
        } else {
            cmsLabEncoded2Float(&color, in);
            color.L = std::max(0.0, (color.L - darkest) * 100 / (100 - darkest));
            cmsDoTransform(cargo.transform, &color, rgb, 1);
            for (int k = 0; k < 3; ++k)
                out[k] =
                    static_cast<cmsUInt16Number>(std::lround(65535 * std::pow(std::clamp(rgb[k], 0.0, 1.0), 1 / 1.2)));
        }
        return 1;
    };
    const Transform ways[] = {Transform(cmsCreateTransform(wide.get(), TYPE_RGB_DBL, lab.get(), TYPE_Lab_DBL,
                                                           INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE)),
                              Transform(cmsCreateTransform(lab.get(), TYPE_Lab_DBL, wide.get(), TYPE_RGB_DBL,
                                                           INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE))};
    for (const bool toLab : {true, false}) {
        Cargo cargo{ways[toLab ? 0 : 1].get(), toLab};
        cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, 3, 3);
        cmsStage* points = cmsStageAllocCLut16bit(nullptr, grid, 3, 3, nullptr);
        cmsStageSampleCLut16bit(points, sample, &cargo, 0);
        cmsPipelineInsertStage(pipeline, cmsAT_BEGIN, cmsStageAllocToneCurves(nullptr, 3, nullptr));
        cmsPipelineInsertStage(pipeline, cmsAT_END, points);
        cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr));
        cmsWriteTag(profile, toLab ? cmsSigAToB0Tag : cmsSigBToA0Tag, pipeline);
        cmsPipelineFree(pipeline);
    }
    return fixtures::bytesOfProfile(profile);
}

std::vector<std::uint8_t> grayProfile(double gamma) {
    cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
    cmsHPROFILE profile = cmsCreateGrayProfile(cmsD50_xyY(), curve);
    cmsFreeToneCurve(curve);
    return fixtures::bytesOfProfile(profile);
}

/// Colours of 0 to 1: greys, corners, and others by chance. Red, green, blue.
std::vector<double> colors() {
    std::vector<double> values;
    for (int i = 0; i <= 64; ++i)
        values.insert(values.end(), 3, i / 64.0);
    for (int i = 0; i < 8; ++i)
        values.insert(values.end(), {i & 1 ? 1.0 : 0.0, i & 2 ? 1.0 : 0.0, i & 4 ? 1.0 : 0.0});
    std::minstd_rand random(1);
    for (int i = 0; i < 3 * 1000; ++i)
        values.push_back((random() >> 8) % 1024 / 1023.0);
    return values;
}

/// The colours as a row with one alpha, and what the row then holds, not premultiplied.
struct Row {
    std::vector<std::uint16_t> memory; // aligned for both
    std::vector<double> held;
    std::size_t count = 0;
    const std::uint8_t* bytes() const { return reinterpret_cast<const std::uint8_t*>(memory.data()); }

    Row(const std::vector<double>& values, RowDepth depth, double alpha = 1) : count(values.size() / 3) {
        memory.resize(4 * count);
        auto* row = reinterpret_cast<std::uint8_t*>(memory.data());
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t k = 0; k < 4; ++k) {
                const double value = k < 3 ? values[3 * i + k] * alpha : alpha;
                double kept = 0;
                if (depth == RowDepth::half) {
                    memory[4 * i + k] = halfOfFloat(static_cast<float>(value));
                    kept = floatOfHalf(memory[4 * i + k]);
                } else {
                    const auto level = static_cast<std::uint8_t>(std::lround(value * 255));
                    row[4 * i + (k < 3 ? 2 - k : 3)] = level;
                    kept = level / 255.0;
                }
                if (k < 3) held.push_back(kept / alpha);
            }
    }
};

/// By the library in floats, step by step.
std::vector<double> exact(const std::vector<double>& values, const ColorSpaceRef& source, const ColorSpaceRef& target) {
    const Profile from = openProfile(source->iccData().bytes);
    const Profile to = openProfile(target->iccData().bytes);
    const bool isGray = target->model() == ColorModel::monochrome;
    const Transform transform(cmsCreateTransform(from.get(), TYPE_RGB_DBL, to.get(),
                                                 isGray ? TYPE_GRAY_DBL : TYPE_RGB_DBL, INTENT_RELATIVE_COLORIMETRIC,
                                                 cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOOPTIMIZE));
    const std::size_t count = values.size() / 3;
    std::vector<double> result(values.size());
    cmsDoTransform(transform.get(), values.data(), result.data(), static_cast<cmsUInt32Number>(count));
    if (isGray)
        for (std::size_t i = count; i-- > 0;)
            std::fill_n(result.begin() + static_cast<std::ptrdiff_t>(3 * i), 3, result[i]);
    for (double& value : result)
        value = std::clamp(value, 0.0, 1.0);
    return result;
}

std::vector<double> converted(const Row& row, const ColorSpaceRef& source, RowDepth depth, const ColorSpaceRef& target,
                              int bits) {
    const auto rows = ColorRows::between(source, depth, target, bits);
    if (!rows) throw std::runtime_error(rows.error().localizedDescription);
    std::vector<std::uint16_t> samples(4 * row.count);
    auto* bytes = reinterpret_cast<std::uint8_t*>(samples.data());
    (*rows)->convert(row.bytes(), bytes, row.count);
    std::vector<double> result;
    for (std::size_t i = 0; i < 4 * row.count; ++i)
        if (i % 4 != 3) result.push_back(bits == 8 ? bytes[i] / 255.0 : samples[i] / 65535.0);
    return result;
}

double largestDifference(const std::vector<double>& a, const std::vector<double>& b) {
    double largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        largest = std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

} // namespace

TEST(ColorRows, AreAsExactAsTheirSamples) {
    const ColorSpaceRef wide = spaceOf(wideProfile());
    const ColorSpaceRef printer = spaceOf(printerProfile(17));
    const ColorSpaceRef gray = spaceOf(grayProfile(1.8));
    ASSERT_TRUE(gray->supportsOutput() && printer->supportsOutput() && ColorSpace::gray()->supportsOutput());
    struct Case {
        ColorSpaceRef source, target;
        double words; ///< Bound at 16 bits, of 1; bytes may be off by two steps.
    };
    const std::vector<double> values = colors();
    for (const Case& test : {Case{ColorSpace::sRGB(), wide, 5e-4},

                             {wide, ColorSpace::sRGB(), 5e-4},
                             {ColorSpace::sRGB(), gray, 5e-4},
                             {wide, ColorSpace::gray(), 5e-4},
                             {ColorSpace::sRGB(), printer, 4e-3},
                             {wide, printer, 4e-3}})
        for (const RowDepth depth : {RowDepth::bits8, RowDepth::half})
            for (const int bits : {8, 16})
                for (const double alpha : {1.0, 0.2}) {
                    SCOPED_TRACE(testing::Message() << test.source->name() << " to " << test.target->name() << " depth "
                                                    << static_cast<int>(depth) << " bits " << bits << " " << alpha);
                    const Row row(values, depth, alpha);
                    std::vector<double> wanted = exact(row.held, test.source, test.target);
                    for (double& value : wanted)
                        value *= alpha;
                    const double bound = bits == 8 ? 2.0 / 255 : test.words;
                    fixtures::onEveryTarget([&] {
                        const auto got = converted(row, test.source, depth, test.target, bits);
                        EXPECT_LE(largestDifference(got, wanted), bound);
                    });
                }
}

TEST(ColorRows, KeepWhatStandsInTheSameSpace) {
    const ColorSpaceRef wide = spaceOf(wideProfile());
    std::vector<double> values;
    for (int i = 0; i < 256; ++i)
        values.insert(values.end(), {i / 255.0, (255 - i) / 255.0, (i * 7 % 256) / 255.0});
    for (const RowDepth depth : {RowDepth::bits8, RowDepth::half})
        for (const int bits : {8, 16}) {
            const auto got = converted(Row(values, depth), wide, depth, wide, bits);
            EXPECT_LE(largestDifference(got, values), depth == RowDepth::half && bits == 16 ? 0.0003 : 1e-9);
        }
}

void expectLightAndBack() {
    const auto curve = [](double value) {
        const double amount = std::abs(value);
        return std::copysign(amount <= 0.04045 ? amount / 12.92 : std::pow((amount + 0.055) / 1.055, 2.4), value);
    };
    std::vector<double> values = colors();
    const std::vector<double> outside{-0.25, 1.5, 0.5, 3, -1, 0, 0.001, 1e-5, -1e-4};
    for (const RowDepth depth : {RowDepth::bits8, RowDepth::half}) {
        if (depth == RowDepth::half) values.insert(values.end(), outside.begin(), outside.end());
        for (const double alpha : {1.0, 0.4}) {
            const Row row(values, depth, alpha);
            std::vector<float> light(4 * row.count);
            (*LightRows::of(ColorSpace::sRGB(), depth))->read(row.bytes(), light.data(), row.count);
            for (std::size_t i = 0; i < row.count; ++i) {
                ASSERT_NEAR(light[4 * i + 3], alpha, 3e-4);
                for (std::size_t k = 0; k < 3; ++k) {
                    const double wanted = curve(row.held[3 * i + k]);
                    ASSERT_NEAR(light[4 * i + k], wanted, 1e-6 + std::abs(wanted) * (alpha == 1 ? 1e-6 : 3e-3));
                }
            }
            std::vector<std::uint16_t> back(row.memory.size());
            LightRows::write(light.data(), depth, reinterpret_cast<std::uint8_t*>(back.data()), row.count);
            for (std::size_t i = 0; i < back.size(); ++i) {
                if (depth == RowDepth::bits8 || alpha == 1)
                    ASSERT_EQ(back[i], row.memory[i]) << i;
                else
                    ASSERT_NEAR(floatOfHalf(back[i]), floatOfHalf(row.memory[i]), 2e-3);
            }
        }
    }
    // What is clear, and what is no number, stays among the sensible ones.
    const std::array<std::uint16_t, 8> odd{0x7E00, 0x7C00, 0xFC00, 0x3C00, 0x3800, 0x3800, 0x3800, 0};
    std::array<float, 8> light{};
    (*LightRows::of(ColorSpace::sRGB(), RowDepth::half))
        ->read(reinterpret_cast<const std::uint8_t*>(odd.data()), light.data(), 2);
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_TRUE(std::isfinite(light[i]) && (i < 4 || light[i] == 0)) << i;
}

TEST(ColorRows, LightAndBack) {
    fixtures::onEveryTarget(expectLightAndBack);
}

// Colours of a wide space that sRGB does not have come through light unharmed.
TEST(ColorRows, LightHoldsWideGamuts) {
    const ColorSpaceRef wide = spaceOf(wideProfile());
    const std::vector<double> green{0, 1, 0, 0.2, 0.9, 0.1, 1, 0, 0};
    const Row row(green, RowDepth::half);
    std::vector<float> light(12);
    (*LightRows::of(wide, RowDepth::half))->read(row.bytes(), light.data(), 3);
    EXPECT_LT(light[0], -0.1);
    std::vector<std::uint16_t> coded(12);
    LightRows::write(light.data(), RowDepth::half, reinterpret_cast<std::uint8_t*>(coded.data()), 3);
    std::vector<std::uint16_t> samples(12);
    (*ColorRows::between(ColorSpace::sRGB(), RowDepth::half, wide, 16))
        ->convert(reinterpret_cast<const std::uint8_t*>(coded.data()), reinterpret_cast<std::uint8_t*>(samples.data()),
                  3);
    for (std::size_t i = 0; i < 9; ++i)
        EXPECT_NEAR(samples[i / 3 * 4 + i % 3] / 65535.0, green[i], 0.01) << i;
}

TEST(ColorRows, RefuseWhatCannotBe) {
    EXPECT_FALSE(ColorRows::between(ColorSpace::gray(), RowDepth::bits8, ColorSpace::sRGB(), 8));
    EXPECT_FALSE(ColorRows::between(ColorSpace::sRGB(), RowDepth::bits8, ColorSpace::deviceCMYK(), 8));
    EXPECT_FALSE(ColorRows::between(ColorSpace::sRGB(), RowDepth::bits8, ColorSpace::sRGB(), 12));
}

// Rows of a picture in a printer's space are the picture's rows converted.
TEST(ScaledRows, ComeInTheSpaceThatIsWished) {
    const ColorSpaceRef wide = spaceOf(wideProfile());
    const ColorSpaceRef printer = spaceOf(printerProfile(17));
    const auto pixels = fixtures::Pixels::of(64, 48, fixtures::photographLike);
    const ImageRef image = (*ImageSource::createWithData(fixtures::pngOf(pixels)))->imageAtIndex(0);
    const RowPlacement placement{0, 0, 40, 30, {0, 0, 40, 30}};
    for (const ColorSpaceRef& target : {wide, printer})
        for (const RowDepth depth : {RowDepth::bits8, RowDepth::half})
            for (const int turns : {0, 1}) {
                auto own = std::move(*scaledRows(image, turns, false, placement, depth, nullptr, Quality::final));
                auto other = std::move(*scaledRows(image, turns, false, placement, depth, target, Quality::final));
                EXPECT_EQ(other->format().colorSpace, target);
                const auto toTarget = *ColorRows::between(own->format().colorSpace, depth, target, 8);
                const auto plain = *ColorRows::between(target, depth, target, 8);
                std::vector<std::uint16_t> row(4 * 40);
                auto* bytes = reinterpret_cast<std::uint8_t*>(row.data());
                std::vector<std::uint8_t> wanted(4 * 40), got(4 * 40);
                for (int y = 0; y < 30; ++y) {
                    ASSERT_TRUE(own->readRow(bytes));
                    toTarget->convert(bytes, wanted.data(), 40);
                    ASSERT_TRUE(other->readRow(bytes));
                    plain->convert(bytes, got.data(), 40);
                    for (std::size_t i = 0; i < wanted.size(); ++i)
                        ASSERT_NEAR(got[i], wanted[i], 1) << y << " " << i;
                }
            }
}

TEST(Raster, IsAnImage) {
    for (const int bits : {8, 16})
        for (const bool opaque : {true, false}) {
            Raster raster{2,
                          2,
                          static_cast<std::size_t>(bits) + 4,
                          bits,
                          opaque ? AlphaInfo::noneSkipLast : AlphaInfo::premultipliedLast,
                          ColorSpace::sRGB(),
                          nullptr};
            raster.pixels = std::make_shared<std::vector<std::uint8_t>>(raster.bytesPerRow * 2);
            for (std::size_t i = 0; i < raster.pixels->size(); ++i)
                (*raster.pixels)[i] = static_cast<std::uint8_t>(i * 9);
            const auto image = imageOfRaster(raster);
            ASSERT_TRUE(image);
            EXPECT_EQ((*image)->isOpaque(), opaque);
            std::array<std::uint16_t, 16> deep{};
            ASSERT_TRUE(readDeepPixels(**image, 0, reinterpret_cast<std::uint8_t*>(deep.data())));
            for (std::size_t i = 0; i < 16; ++i) {
                const std::uint8_t* row = raster.row(static_cast<int>(i / 8));
                std::uint16_t wanted = 0;
                if (bits == 16)
                    std::memcpy(&wanted, row + 2 * (i % 8), 2);
                else
                    wanted = static_cast<std::uint16_t>(row[i % 8] * 257);
                EXPECT_EQ(deep[i], opaque && i % 4 == 3 ? 65535 : wanted) << i;
            }
        }
}

// A grey raster shows the lightness that its levels stand for.
TEST(Raster, OfGreyIsAnImageOfItsLightness) {
    for (const int bits : {8, 16}) {
        const ColorSpaceRef gray = spaceOf(grayProfile(1.0));
        Raster raster{1, 1, static_cast<std::size_t>(bits / 2), bits, AlphaInfo::noneSkipLast, gray, nullptr};
        raster.pixels = std::make_shared<std::vector<std::uint8_t>>(raster.bytesPerRow, std::uint8_t{128});
        const auto bitmap = (*imageOfRaster(raster))->bitmap();
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(bitmap->pixels()[k], 188, 1) << bits; // half the light in sRGB
    }
}
