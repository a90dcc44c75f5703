#include "platform/filter/FilterImage.h"

#include "platform/draw/DeepPixels.h"
#include "platform/draw/ImageDestination.h"
#include "platform/draw/ScaledRows.h"
#include "platform/filter/Filter.h"
#include "platform/filter/FilterContext.h"
#include "support/TemporaryDirectory.h"

#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace platform::filter {
namespace {

using base::AffineTransform;
using base::Rect;
using draw::ColorSpace;
using draw::Raster;

using Pixel = std::array<double, 4>; // red, green, blue, alpha from 0 to 1
constexpr double step8 = 1.0 / 255;

/// Random pixels: opaque ones of middling colours, which filters don't drive out of range, others of all kinds.
draw::ImageRef noise(int width, int height, bool opaque = true, unsigned seed = 1) {
    std::mt19937 random(seed);
    auto bitmap = draw::Bitmap::create(width, height, ColorSpace::sRGB(), opaque).value();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::uint8_t* pixel = bitmap.mutableRow(y) + std::ptrdiff_t{4} * x;
            pixel[3] = static_cast<std::uint8_t>(opaque ? 255 : x % 5 == 0 ? 0 : 64 + random() % 192);
            for (int c = 0; c < 3; ++c)
                pixel[c] = static_cast<std::uint8_t>(opaque ? 64 + random() % 128 : random() % (pixel[3] + 1U));
        }
    return draw::Image::fromBitmap(bitmap);
}

FilterImageRef picture(int width, int height, bool opaque = true) {
    return FilterImage::imageWithImage(noise(width, height, opaque));
}

FilterRef filter(std::string_view name, const base::Dictionary& inputs = {}) {
    FilterRef made = Filter::filterWithName(name);
    for (const auto& [key, value] : inputs)
        made->setInput(key, value);
    return made;
}

FilterImageRef filtered(FilterImageRef image, const Filters& filters) {
    for (const FilterRef& each : filters)
        image = each->outputImage(image);
    return image;
}

Raster rendered(const FilterImageRef& image, const Rect& rect, WorkingFormat format = WorkingFormat::rgbaHalf,
                int bits = 16, RenderStatistics* statistics = nullptr) {
    auto raster = FilterContext(nullptr, format).render(image, rect, bits, statistics);
    if (!raster) throw std::runtime_error(raster.error().localizedDescription);
    return *raster;
}

Pixel pixelAt(const Raster& raster, int x, int y) {
    Pixel pixel;
    for (std::size_t c = 0; c < 4; ++c) {
        const std::size_t at = 4 * static_cast<std::size_t>(x) + c;
        if (raster.bitsPerComponent == 8)
            pixel.at(c) = raster.row(y)[at] / 255.0;
        else
            pixel.at(c) = reinterpret_cast<const std::uint16_t*>(raster.row(y))[at] / 65535.0;
    }
    return pixel;
}

/// The greatest difference between any two samples.
double difference(const Raster& left, const Raster& right, int x = 0, int y = 0) {
    double greatest = 0;
    for (int row = 0; row < right.height; ++row)
        for (int column = 0; column < right.width; ++column) {
            const Pixel a = pixelAt(left, x + column, y + row);
            const Pixel b = pixelAt(right, column, row);
            for (std::size_t c = 0; c < 4; ++c)
                greatest = std::max(greatest, std::abs(a.at(c) - b.at(c)));
        }
    return greatest;
}

double linear(double coded) {
    return coded <= 0.04045 ? coded / 12.92 : std::pow((coded + 0.055) / 1.055, 2.4);
}

double coded(double light) {
    light = std::clamp(light, 0.0, 1.0);
    return light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

double luminance(const Pixel& p) {
    return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2];
}

Pixel lightOf(const Pixel& p) {
    if (p[3] == 0) return {};
    return {linear(p[0] / p[3]), linear(p[1] / p[3]), linear(p[2] / p[3]), p[3]};
}

Pixel codedOf(const Pixel& p) {
    const double alpha = std::clamp(p[3], 0.0, 1.0);
    return {coded(p[0]) * alpha, coded(p[1]) * alpha, coded(p[2]) * alpha, alpha};
}

Pixel eachColor(Pixel p, const std::function<double(double)>& change) {
    for (std::size_t c = 0; c < 3; ++c)
        p.at(c) = change(p.at(c));
    return p;
}

base::Array vector(double a, double b, double c, double d) {
    return {a, b, c, d};
}

TEST(Filter, MeansWhatIsPublished) {
    struct Case {
        FilterRef filter;
        std::function<Pixel(Pixel)> formula;
    };
    const std::vector<Case> cases{
        {filter("CIColorControls", {{"inputSaturation", 0.3}}),
         [](Pixel p) { return eachColor(p, [&](double v) { return luminance(p) + 0.3 * (v - luminance(p)); }); }},
        {filter("CIColorControls", {{"inputContrast", 1.4}, {"inputBrightness", -0.1}}),
         [](Pixel p) { return eachColor(p, [](double v) { return (v - 0.5) * 1.4 + 0.5 - 0.1; }); }},
        {filter("CIExposureAdjust", {{"inputEV", 0.7}}),
         [](Pixel p) { return eachColor(p, [](double v) { return v * std::pow(2, 0.7); }); }},
        {filter("CIGammaAdjust", {{"inputPower", 1.7}}),
         [](Pixel p) { return eachColor(p, [](double v) { return std::pow(v, 1.7); }); }},
        {filter("CIHueAdjust", {{"inputAngle", 0.4}}),
         [](Pixel p) { // Rodrigues' formula about (1, 1, 1)
             const double mean = (p[0] + p[1] + p[2]) / 3;
             const double s = std::sin(0.4) / std::sqrt(3);
             const auto turned = [&](double v, double next, double last) {
                 return std::cos(0.4) * v + (1 - std::cos(0.4)) * mean + s * (last - next);
             };
             return Pixel{turned(p[0], p[1], p[2]), turned(p[1], p[2], p[0]), turned(p[2], p[0], p[1]), p[3]};
         }},
        {filter("CIColorMatrix", {{"inputGVector", vector(0.2, 0.5, 0.1, 0.05)},
                                  {"inputAVector", vector(0, 0, 0, 0.5)},
                                  {"inputBiasVector", vector(0, 0, 0.1, 0.2)}}),
         [](Pixel p) {
             return Pixel{p[0], 0.2 * p[0] + 0.5 * p[1] + 0.1 * p[2] + 0.05 * p[3], p[2] + 0.1, 0.5 * p[3] + 0.2};
         }},
    };
    for (const bool opaque : {true, false}) {
        const FilterImageRef image = picture(37, 6, opaque);
        const Raster source = rendered(image, image->extent());
        for (const Case& test : cases) {
            SCOPED_TRACE(test.filter->description());
            const FilterImageRef output = test.filter->outputImage(image);
            const Raster deep = rendered(output, image->extent());
            const Raster bytes = rendered(output, image->extent(), WorkingFormat::rgba8, 8);
            for (int y = 0; y < source.height; ++y)
                for (int x = 0; x < source.width; ++x) {
                    const Pixel expected = codedOf(test.formula(lightOf(pixelAt(source, x, y))));
                    for (std::size_t c = 0; c < 4; ++c) {
                        EXPECT_NEAR(pixelAt(deep, x, y).at(c), expected.at(c), 0.4 * step8) << x << " " << y;
                        EXPECT_NEAR(pixelAt(bytes, x, y).at(c), expected.at(c), 1.01 * step8) << x << " " << y;
                    }
                }
        }
    }
}

TEST(Filter, DefaultsAndUnusableInputsChangeNothing) {
    const FilterImageRef image = picture(20, 3, false);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const std::string_view name : Filter::names()) {
        const FilterRef plain = filter(name, {{"inputSharpness", 0.0}});
        EXPECT_EQ(plain->outputImage(image), image) << name;
        for (const auto& [key, value] : base::Dictionary(plain->inputs()))
            for (const base::Value& bad : {base::Value(nan), base::Value("text"), base::Value(vector(nan, 0, 0, 0)),
                                           base::Value(base::Array{1.0}), base::Value()})
                EXPECT_EQ(filter(name, {{key, bad}, {"inputSharpness", 0.0}})->outputImage(image) == image,
                          key != "inputSharpness" || name != "CISharpenLuminance");
    }
    EXPECT_EQ(Filter::filterWithName("CIGloom"), nullptr);
    const Raster back = rendered(
        filtered(image, {filter("CIExposureAdjust", {{"inputEV", 1}}), filter("CIExposureAdjust", {{"inputEV", -1}})}),
        image->extent(), WorkingFormat::rgba8, 8);
    EXPECT_LE(difference(back, rendered(image, image->extent(), WorkingFormat::rgba8, 8)), 1.01 * step8);
    const FilterImageRef absurd = filtered(
        image, {filter("CIExposureAdjust", {{"inputEV", 1e300}}), filter("CIGammaAdjust", {{"inputPower", -1e300}}),
                filter("CIColorControls", {{"inputContrast", -1e300}}),
                filter("CISharpenLuminance", {{"inputSharpness", 1e300}, {"inputRadius", 1e300}})});
    EXPECT_TRUE(FilterContext().render(absurd, image->extent()));
}

TEST(Filter, SharpeningAddsToLuminanceOnlyWhatItDiffersFromItsSurroundings) {
    const int width = 29;
    const int height = 17;
    for (const bool opaque : {true, false}) {
        const FilterImageRef image = picture(width, height, opaque);
        const Raster source = rendered(image, image->extent());
        const Raster sharp = rendered(filter("CISharpenLuminance")->outputImage(image), image->extent());
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                double sum = 0;
                double weights = 0;
                for (int v = std::max(0, y - 6); v < std::min(height, y + 7); ++v)
                    for (int u = std::max(0, x - 6); u < std::min(width, x + 7); ++u) {
                        const Pixel light = lightOf(pixelAt(source, u, v));
                        const double weight =
                            light[3] * std::exp(-((u - x) * (u - x) + (v - y) * (v - y)) / (2 * 1.69 * 1.69));
                        sum += weight * luminance(light);
                        weights += weight;
                    }
                const Pixel light = lightOf(pixelAt(source, x, y));
                const double change = 0.4 * (luminance(light) - sum / weights);
                const Pixel expected = codedOf(eachColor(light, [&](double v) { return v + change; }));
                for (std::size_t c = 0; c < 4; ++c)
                    ASSERT_NEAR(pixelAt(sharp, x, y).at(c), expected.at(c), 0.6 * step8) << x << " " << y << " " << c;
            }
    }
}

const Filters& chain() {
    static const Filters filters{filter("CIColorControls", {{"inputSaturation", 0.7}, {"inputBrightness", 0.05}}),
                                 filter("CIHueAdjust", {{"inputAngle", 0.2}}),
                                 filter("CIGammaAdjust", {{"inputPower", 0.8}}),
                                 filter("CISharpenLuminance", {{"inputSharpness", 0.2}}),
                                 filter("CIColorMatrix", {{"inputRVector", vector(0.9, 0, 0, 0)}}),
                                 filter("CIExposureAdjust", {{"inputEV", -0.3}})};
    return filters;
}

TEST(FilterContext, FiltersInARowAreOnePassWithTheResultOfOneAtATime) {
    const FilterImageRef image = picture(43, 21);
    RenderStatistics statistics;
    const Raster fused = rendered(filtered(image, chain()), image->extent(), WorkingFormat::rgbaHalf, 16, &statistics);
    EXPECT_EQ(statistics.filteredPixels, 43U * 21U);
    EXPECT_EQ(statistics.resampledPixels, 0U);
    FilterImageRef single = image;
    for (const FilterRef& each : chain())
        single = FilterImage::imageWithImage(
            draw::imageOfRaster(rendered(each->outputImage(single), image->extent())).value());
    EXPECT_LE(difference(fused, rendered(single, image->extent())), 1.5 * step8); // each rounds and cuts at 0 and 1
}

TEST(FilterImage, GeometryFoldsIntoOneResampling) {
    const FilterImageRef image = picture(120, 80);
    const FilterImageRef folded = image->imageByApplyingLanczosScale(0.5)
                                      ->imageByApplyingTransform(AffineTransform::scaling(0.5, 1))
                                      ->imageByApplyingTransform(AffineTransform::translation(3.25, -4))
                                      ->imageByCroppingToRect({5, 0, 20, 30})
                                      ->imageByApplyingTransform(AffineTransform::translation(-5, 0));
    EXPECT_EQ(folded->extent(), (Rect{0, 0, 20, 30}));
    RenderStatistics statistics;
    const Raster raster = rendered(folded, {0, 0, 20, 30}, WorkingFormat::rgba8, 8, &statistics);
    EXPECT_EQ(statistics.resampledPixels, 600U);

    // By hand: 30 x 40 pixels from (3.25 - 5, -4), y up, in a page that is 30 high.
    auto rows = draw::scaledRows(noise(120, 80), 0, false, {-1.75, -6, 30, 40, {0, 0, 20, 30}}, draw::RowDepth::bits8,
                                 nullptr, draw::Quality::final)
                    .value();
    std::vector<std::uint8_t> row(80);
    for (int y = 0; y < 30; ++y) {
        ASSERT_TRUE(rows->readRow(row.data()));
        for (std::size_t x = 0; x < 20; ++x)
            for (std::size_t c = 0; c < 3; ++c)
                ASSERT_EQ(raster.row(y)[4 * x + c], row[4 * x + 2 - c]) << x << " " << y;
    }
}

TEST(FilterImage, OrientationsTurnPixels) {
    // Of an upright picture of 2 x 3 pixels, numbered along its rows: the stored numbers for each orientation.
    const std::vector<std::vector<int>> stored{{0, 1, 2, 3, 4, 5}, {1, 0, 3, 2, 5, 4}, {5, 4, 3, 2, 1, 0},
                                               {4, 5, 2, 3, 0, 1}, {0, 2, 4, 1, 3, 5}, {1, 3, 5, 0, 2, 4},
                                               {5, 3, 1, 4, 2, 0}, {4, 2, 0, 5, 3, 1}};
    for (int orientation = 1; orientation <= 8; ++orientation) {
        SCOPED_TRACE(orientation);
        const auto& numbers = stored.at(static_cast<std::size_t>(orientation - 1));
        const int width = orientation < 5 ? 2 : 3;
        auto bitmap = draw::Bitmap::create(width, 6 / width, ColorSpace::sRGB(), true).value();
        for (int i = 0; i < 6; ++i)
            bitmap.mutableRow(i / width)[4 * (i % width) + 1] =
                static_cast<std::uint8_t>(10 + 40 * numbers.at(static_cast<std::size_t>(i)));
        const FilterImageRef image = FilterImage::imageWithImage(draw::Image::fromBitmap(bitmap));
        const FilterRef brighter = filter("CIExposureAdjust", {{"inputEV", 1e-6}});
        const FilterImageRef filtered = brighter->outputImage(image);
        const double moved = orientation == 1 ? 0 : -7;
        for (const FilterImageRef& upright :
             {image->imageByApplyingOrientation(orientation), filtered->imageByApplyingOrientation(orientation),
              filtered->imageByApplyingTransform({1, 0, 0, 1, moved, 0})->imageByApplyingOrientation(orientation),
              // beside a larger picture that lies otherwise
              image->imageByApplyingOrientation(orientation)
                  ->imageByCompositingOverImage(picture(9, 9)->imageByApplyingOrientation(8))
                  ->imageByCroppingToRect({0, 0, 2, 3})}) {
            ASSERT_EQ(upright->extent(), (Rect{0, 0, 2, 3}));
            const Raster raster = rendered(upright, {0, 0, 2, 3}, WorkingFormat::rgba8, 8);
            for (int i = 0; i < 6; ++i)
                EXPECT_EQ(raster.row(i / 2)[4 * (i % 2) + 1], 10 + 40 * i);
            EXPECT_EQ(raster.alphaInfo, draw::AlphaInfo::noneSkipLast);
        }
    }
}

/// A page as they are made: a filtered picture enlarged, another one reduced and filtered, over a canvas.
FilterImageRef page(bool opaque = false) {
    const FilterImageRef enlarged = filtered(picture(40, 30), chain())
                                        ->imageByApplyingLanczosScale(1.7)
                                        ->imageByCroppingToRect({10.25, 3, 40, 44})
                                        ->imageByApplyingTransform(AffineTransform::translation(-8, 2));
    const FilterImageRef reduced = filtered(picture(90, 70, opaque)
                                                ->imageByApplyingLanczosScale(0.6)
                                                ->imageByApplyingTransform(AffineTransform::translation(30.5, 8)),
                                            chain());
    return reduced->imageByCompositingOverImage(enlarged)->imageByCompositingOverImage(
        FilterImage::imageWithColor(1, 0.9, 0.8)->imageByCroppingToRect({1, 0, 79, 60}));
}

TEST(FilterContext, PartsAreAsTheWhole) {
    const Rect all{0, 0, 81, 60};
    for (const WorkingFormat format : {WorkingFormat::rgba8, WorkingFormat::rgbaHalf}) {
        const Raster whole = rendered(page(), all, format);
        for (const Rect& part : {Rect{0, 0, 10, 60}, Rect{33, 20, 7, 1}, Rect{50, 1, 31, 58}, Rect{-5, -5, 90, 70}}) {
            const Rect common = part.intersection(all);
            const Raster shown = rendered(page(), part, format);
            const Raster cut = rendered(page(), common, format);
            const auto below = [&](const Rect& rect) { return static_cast<int>(rect.maxY() - common.maxY()); };
            EXPECT_LE(difference(whole, cut, static_cast<int>(common.x), below(all)), 1.01 * step8);
            EXPECT_LE(difference(shown, cut, static_cast<int>(common.x - part.x), below(part)), 1.01 * step8);
        }
    }
    EXPECT_LE(difference(rendered(page(true), all, WorkingFormat::rgba8, 8), rendered(page(true), all)), 3 * step8);
}

TEST(FilterContext, ColorsEndInTheOutputSpace) {
    // sRGB with the names of red and green exchanged in its table of tags.
    base::Data profile = ColorSpace::sRGB()->iccData();
    const std::size_t red = profile.asText().find("rXYZ");
    std::swap(profile.bytes[red], profile.bytes[profile.asText().find("gXYZ")]);
    const FilterContext exchanged(ColorSpace::fromICC(profile.bytes).value(), WorkingFormat::rgbaHalf);
    const Rect all{0, 0, 81, 60};
    const FilterImageRef grey = filter("CIColorControls", {{"inputSaturation", 0.0}})->outputImage(page(true));
    for (const FilterImageRef& image : {page(true), picture(81, 60, false), grey}) {
        const Raster expected = rendered(image, all);
        const Raster raster = exchanged.render(image, all, 16).value();
        const Raster level = FilterContext(ColorSpace::gray()).render(image, all, 16).value();
        for (int x = 0; x < 81; ++x) {
            const Pixel p = pixelAt(expected, x, 30);
            const Pixel other = pixelAt(raster, x, 30);
            EXPECT_THAT((Pixel{other[1], other[0], other[2], other[3]}),
                        testing::Pointwise(testing::DoubleNear(2 * step8), p))
                << x;
            if (image == grey) {
                EXPECT_NEAR(pixelAt(level, x, 30)[0], p[0], 2 * step8) << x;
            }
        }
    }
}

TEST(FilterContext, TurnedPagesAreThePagesPixelsTurned) {
    const FilterImageRef upright = page()
                                       ->imageByCompositingOverImage(FilterImage::imageWithColor(1, 1, 1))
                                       ->imageByCroppingToRect({0, 0, 81, 60});
    for (const int bits : {8, 16}) {
        const Raster expected = rendered(upright, upright->extent(), WorkingFormat::rgbaHalf, bits);
        for (const int orientation : {2, 3, 4, 5, 6, 7, 8}) {
            const FilterImageRef image = upright->imageByApplyingOrientation(orientation);
            const Raster raster = rendered(image, image->extent(), WorkingFormat::rgbaHalf, bits);
            double greatest = 0;
            for (int y = 0; y < 60; ++y)
                for (int x = 0; x < 81; ++x) {
                    // Where the rows and columns of the upright page begin at its far sides.
                    const int u = orientation == 2 || orientation == 3 || orientation > 6 ? 80 - x : x;
                    const int v = orientation == 3 || orientation == 4 || orientation / 2 == 3 ? 59 - y : y;
                    const Pixel shown = orientation > 4 ? pixelAt(raster, v, u) : pixelAt(raster, u, v);
                    for (std::size_t c = 0; c < 4; ++c)
                        greatest = std::max(greatest, std::abs(shown.at(c) - pixelAt(expected, x, y).at(c)));
                }
            EXPECT_LE(greatest, 1.01 * step8) << orientation;
        }
    }
}

TEST(FilterContext, FiltersCountThePixelsOfTheirOwnImage) {
    const FilterRef warm = filter("CIColorMatrix", {{"inputBVector", vector(0, 0, 0.8, 0)}});
    const FilterImageRef image = picture(40, 20);
    RenderStatistics before;
    rendered(warm->outputImage(image)->imageByApplyingLanczosScale(3), {0, 0, 120, 60}, WorkingFormat::rgba8, 8,
             &before);
    EXPECT_EQ(before.filteredPixels, 800U);
    EXPECT_EQ(before.resampledPixels, 7200U);
    RenderStatistics after;
    rendered(warm->outputImage(image->imageByApplyingLanczosScale(0.5)), {0, 0, 20, 10}, WorkingFormat::rgba8, 8,
             &after);
    EXPECT_EQ(after.filteredPixels, 200U);
    // What an opaque image hides is not made, nor what lies beyond the rectangle.
    RenderStatistics hidden;
    rendered(FilterImage::imageWithColor(1, 1, 1)->imageByCompositingOverImage(warm->outputImage(image)),
             {0, 0, 40, 20}, WorkingFormat::rgba8, 8, &hidden);
    EXPECT_EQ(hidden.filteredPixels, 0U);
}

TEST(FilterContext, EdgesBetweenPixelsCoverThemInPart) {
    const FilterImageRef black = FilterImage::imageWithColor(0, 0, 0);
    const FilterImageRef white = FilterImage::imageWithColor(1, 1, 1);
    struct Case {
        const char* name;
        FilterImageRef image; // from x = 1.25 to 3.5 black
    };
    auto opaque = draw::Bitmap::create(9, 4, ColorSpace::sRGB(), true).value();
    const FilterImageRef dark = FilterImage::imageWithImage(draw::Image::fromBitmap(opaque));
    for (const Case& test : std::initializer_list<Case>{
             {"a cropped colour", black->imageByCroppingToRect({1.25, 0, 2.25, 4})},
             {"a moved colour",
              black->imageByCroppingToRect({0, 0, 4, 4})->imageByApplyingTransform({0.5625, 0, 0, 1, 1.25, 0})},
             {"a picture", dark->imageByApplyingTransform({0.25, 0, 0, 1, 1.25, 0})},
             {"a cropped picture", dark->imageByCroppingToRect({1.25, 0, 2.25, 4})},
             {"cropped at its own edge", dark->imageByApplyingTransform(AffineTransform::translation(1.25, 0))
                                             ->imageByCroppingToRect({1.25, 0, 2.25, 4})}}) {
        SCOPED_TRACE(test.name);
        for (const WorkingFormat format : {WorkingFormat::rgba8, WorkingFormat::rgbaHalf}) {
            const Raster over = rendered(test.image->imageByCompositingOverImage(white), {0, 0, 5, 4}, format, 8);
            const Raster alone = rendered(test.image, {0, 0, 5, 4}, format, 8);
            const Raster upwards = rendered(test.image->imageByApplyingTransform({0, 1, 1, 0, 0, 0}), {0, 0, 4, 5});
            const std::vector<double> coverage{0, 0.75, 1, 0.5, 0};
            for (int x = 0; x < 5; ++x) {
                EXPECT_NEAR(pixelAt(over, x, 1)[1], 1 - coverage.at(static_cast<std::size_t>(x)), 1.01 * step8) << x;
                EXPECT_NEAR(pixelAt(alone, x, 1)[3], coverage.at(static_cast<std::size_t>(x)), 1.01 * step8) << x;
                EXPECT_NEAR(pixelAt(upwards, 1, 4 - x)[3], coverage.at(static_cast<std::size_t>(x)), 1.01 * step8);
            }
            EXPECT_EQ(over.alphaInfo, draw::AlphaInfo::noneSkipLast);
            EXPECT_EQ(alone.alphaInfo, draw::AlphaInfo::premultipliedLast);
        }
    }
}

TEST(FilterContext, NoSenseIsAnErrorOrAnEmptyImage) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    const FilterImageRef image = picture(4, 4);
    const FilterImageRef color = FilterImage::imageWithColor(0.5, nan, 2);
    for (const Rect& rect : {Rect{}, Rect{0, 0, 0, 4}, Rect{0, 0, -1, 4}, Rect{0.5, 0, 4, 4}, Rect{nan, 0, 4, 4},
                             Rect{0, 0, nan, 4}, Rect{0, 0, infinity, 1}, Rect::null(), color->extent(),
                             Rect{0, 0, 1e6, 1}, Rect{0, 0, 60000, 60000}, Rect{1e18, 0, 4, 4}}) {
        EXPECT_FALSE(FilterContext().render(image, rect)) << base::stringFromRect(rect);
        EXPECT_TRUE(image->imageByCroppingToRect(rect)->extent().isEmpty() || rect.width > 0);
    }
    EXPECT_FALSE(FilterContext().render(nullptr, {0, 0, 1, 1}));
    EXPECT_FALSE(FilterContext().render(image, {0, 0, 1, 1}, 12));
    EXPECT_FALSE(FilterContext(ColorSpace::deviceCMYK()).render(image, {0, 0, 1, 1}));
    for (const FilterImageRef& empty :
         {image->imageByApplyingLanczosScale(nan), image->imageByApplyingLanczosScale(0),
          image->imageByApplyingLanczosScale(-1), image->imageByApplyingLanczosScale(infinity),
          image->imageByApplyingTransform(AffineTransform::rotation(0.5)),
          image->imageByApplyingTransform({1, 0, 0, 0, 0, 0}), image->imageByApplyingTransform({1, 0, 0, 1, nan, 0}),
          image->imageByCroppingToRect({5, 0, 2, 2}), image->imageByCroppingToRect({0, 0, nan, 2}),
          FilterImage::imageWithImage(nullptr)}) {
        EXPECT_TRUE(empty->extent().isEmpty());
        const Raster raster = rendered(chain()[0]->outputImage(empty), {0, 0, 2, 2});
        EXPECT_EQ(pixelAt(raster, 1, 1), (Pixel{0, 0, 0, 0}));
        EXPECT_EQ(empty->imageByCompositingOverImage(image), image);
    }
    const FilterImageRef huge = image->imageByApplyingLanczosScale(1e12);
    EXPECT_FALSE(FilterContext().render(huge, {0, 0, 4, 4}));
    // What has no bounds stays so through all that is done with it, and any part of it can be rendered.
    const FilterImageRef everywhere = filtered(color, chain())
                                          ->imageByApplyingLanczosScale(7)
                                          ->imageByApplyingOrientation(6)
                                          ->imageByCompositingOverImage(image);
    EXPECT_TRUE(everywhere->isInfinite());
    const Raster far = rendered(everywhere, {-900000, 800000, 3, 2});
    EXPECT_EQ(far.alphaInfo, draw::AlphaInfo::noneSkipLast);
    EXPECT_GT(pixelAt(far, 1, 1)[2], 0.5);
}

TEST(FilterImage, OpensFilesUprightAndNamesThoseThatFail) {
    const support::TemporaryDirectory folder;
    for (const int orientation : {1, 6}) {
        const base::URL url = base::URL::fileURLWithPath(folder / "picture.jpg");
        auto destination = draw::ImageDestination::createWithURL(url, "public.jpeg").value();
        destination->addImage(noise(16, 8), {{"Orientation", orientation}});
        ASSERT_TRUE(destination->finalize());
        const auto upright = FilterImage::imageWithContentsOfURL(url, true);
        ASSERT_TRUE(upright);
        EXPECT_EQ((*upright)->extent().size(), (orientation == 6 ? base::Size{8, 16} : base::Size{16, 8}));
        EXPECT_EQ(FilterImage::imageWithContentsOfURL(url, false).value()->extent().size(), (base::Size{16, 8}));
    }
    const auto missing = FilterImage::imageWithContentsOfURL(base::URL::fileURLWithPath(folder / "none.jpg"), true);
    ASSERT_FALSE(missing);
    EXPECT_THAT(missing.error().localizedDescription, testing::HasSubstr("none.jpg"));
}

} // namespace
} // namespace platform::filter
