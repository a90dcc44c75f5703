#include "KLARON_PrintPage.h"

#include "ImageProcessingKeys.h"
#include "base/Text.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/ImageDestination.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <set>

using namespace platform::draw;
using namespace platform::filter;
using support::LogCapture;
using support::TemporaryDirectory;

namespace {

/// Red grows evenly from 16 at the left edge to 240 at the right one, green from the top to the bottom.
double ramp(double position, double length) {
    return 16 + 224 * position / length;
}

base::URL rampPicture(const TemporaryDirectory& folder, int width, int height) {
    auto bitmap = *Bitmap::create(width, height, ColorSpace::sRGB(), true);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::uint8_t* pixel = bitmap.mutableRow(y) + 4 * x;
            pixel[0] = 60;
            pixel[1] = static_cast<std::uint8_t>(std::lround(ramp(y + 0.5, height)));
            pixel[2] = static_cast<std::uint8_t>(std::lround(ramp(x + 0.5, width)));
        }
    const auto url =
        base::URL::fileURLWithPath(folder / (std::to_string(width) + "x" + std::to_string(height) + ".png"));
    auto destination = *ImageDestination::createWithURL(url, "public.png");
    destination->addImage(Image::fromBitmap(bitmap), {});
    EXPECT_TRUE(destination->finalize());
    return url;
}

FilterRef filterWith(std::string_view name, std::string_view input, double value) {
    const FilterRef filter = Filter::filterWithName(name);
    filter->setInput(input, value);
    return filter;
}

std::uint64_t filteredPixels(const FilterImageRef& image) {
    RenderStatistics statistics;
    const auto raster = FilterContext().render(image, image->extent().integral(), 8, &statistics);
    EXPECT_TRUE(raster);
    return statistics.filteredPixels;
}

struct FitCase {
    const char* name;
    base::Size page; ///< in pixels of the printer
    base::Size resolution;
    int width, height; ///< of the picture
    const char* gravity;
    bool autoRotate;
    bool turns;          ///< whether the picture is to be turned
    const char* preview; ///< its size, or none
};
const FitCase fitCases[] = {
    {"fills, square pixels", {80, 120}, {300, 300}, 64, 97, "resizeAspectFill", true, false, nullptr},
    {"fills, too wide", {80, 120}, {300, 300}, 97, 61, "resizeAspectFill", false, false, nullptr},
    {"turned", {80, 120}, {300, 300}, 97, 61, "resizeAspectFill", true, true, nullptr},
    {"turned on a page that is high in pixels only",
     {60, 80},
     {300, 600},
     61,
     97,
     "resizeAspectFill",
     true,
     true,
     nullptr},
    {"wide pixels", {80, 240}, {300, 600}, 61, 97, "resizeAspectFill", true, false, nullptr},
    {"high pixels", {160, 120}, {600, 300}, 61, 97, "resizeAspectFill", true, false, nullptr},
    {"fits", {80, 120}, {300, 300}, 97, 61, "resizeAspect", false, false, nullptr},
    {"fits with wide pixels", {80, 240}, {300, 600}, 97, 61, "resizeAspect", false, false, nullptr},
    {"fits with high pixels", {160, 120}, {600, 300}, 97, 61, "resizeAspect", false, false, nullptr},
    {"does not stretch", {80, 120}, {300, 300}, 97, 61, "resize", false, false, nullptr},
    {"enlarged", {300, 420}, {300, 300}, 61, 97, "resizeAspectFill", true, false, nullptr},
    {"a square picture stands", {80, 120}, {300, 300}, 61, 61, "resizeAspectFill", true, false, nullptr},
    {"a square page turns nothing", {100, 100}, {300, 300}, 97, 61, "resizeAspect", true, false, nullptr},
    {"without a resolution", {80, 120}, {0, 0}, 61, 97, "resizeAspectFill", true, false, nullptr},
    {"preview", {80, 120}, {300, 300}, 61, 97, "resizeAspectFill", true, false, "{40, 40}"},
    {"preview of wide pixels", {80, 240}, {300, 600}, 97, 61, "resizeAspectFill", true, true, "{40, 30}"},
    {"preview of high pixels", {160, 120}, {600, 300}, 61, 97, "resizeAspectFill", true, false, "{50, 60}"},
    {"only square pixels", {80, 240}, {300, 600}, 61, 97, "resizeAspectFill", true, false, "{0, 60}"},
    {"no page yet", {80, 0}, {300, 300}, 97, 61, "resizeAspectFill", false, false, "{50, 40}"},
};

/// What the case means in inches: the page's pixels are `dots` of an inch, and one picture pixel takes `scale` inches.
struct Expectation {
    base::Size pixels;
    base::Size dots;
    double scale;

    explicit Expectation(const FitCase& fit, base::Size picture) : pixels(fit.page), dots(fit.resolution) {
        bool fills = std::string_view(fit.gravity) == "resizeAspectFill";
        if (dots.width == 0) dots = {300, 300};
        if (fit.preview) {
            const base::Size box = base::sizeFromString(fit.preview);
            const double fewest = std::min(dots.width, dots.height);
            pixels = {pixels.width * fewest / dots.width, pixels.height * fewest / dots.height};
            double reduction = box.width > 9 ? std::min(box.width / pixels.width, box.height / pixels.height) : 1;
            if (pixels.height == 0) {
                pixels = box;
                reduction = 1;
                fills = false;
            }
            pixels = {pixels.width * reduction, pixels.height * reduction};
            dots = {fewest, fewest};
        }
        const double across = pixels.width / dots.width / picture.width;
        const double down = pixels.height / dots.height / picture.height;
        scale = fills ? std::max(across, down) : std::min(across, down);
    }
};

TEST(PrintPageProcessing, aPictureLiesWhereItsSizeInInchesPutsIt) {
    const TemporaryDirectory folder;
    for (const FitCase& fit : fitCases) {
        SCOPED_TRACE(fit.name);
        KLARON_PrintPage page;
        page.setInputImages({rampPicture(folder, fit.width, fit.height)});
        page.setOutputSize(fit.page);
        page.setOutputResolution(fit.resolution);
        page.setImageGravity(fit.gravity);
        page.setAutoRotate(fit.autoRotate);
        base::Dictionary options;
        if (fit.preview) options = {{"previewSize", fit.preview}, {"isPreviewImage", true}};
        const FilterImageRef image = page.imagePreProcessWithOptions(options);
        ASSERT_TRUE(image);

        const double width = fit.turns ? fit.height : fit.width;
        const double height = fit.turns ? fit.width : fit.height;
        const Expectation expected(fit, {width, height});
        EXPECT_NEAR(image->extent().x, 0, 1e-6);
        EXPECT_NEAR(image->extent().y, 0, 1e-6);
        EXPECT_NEAR(image->extent().width, expected.pixels.width, 1e-6);
        EXPECT_NEAR(image->extent().height, expected.pixels.height, 1e-6);

        const base::Rect rect = image->extent().integral();
        const auto raster = FilterContext().render(image, rect);
        ASSERT_TRUE(raster) << raster.error().localizedDescription;
        int compared = 0;
        int white = 0;
        for (int y = 0; y < raster->height; ++y)
            for (int x = 0; x < raster->width; ++x) {
                // From the middle of the page, which is the middle of the picture. The raster's rows begin at the top.
                const double top = rect.height - expected.pixels.height;
                const double across = (x + 0.5 - expected.pixels.width / 2) / (expected.scale * expected.dots.width);
                const double down =
                    (y + 0.5 - top - expected.pixels.height / 2) / (expected.scale * expected.dots.height);
                const double u = width / 2 + across;
                const double v = height / 2 + down;
                const std::uint8_t* pixel = raster->row(y) + 4 * x;
                // Within three pixels of an edge the filter sees the end of the ramp.
                const double margin =
                    3 / std::min(1.0, expected.scale * std::min(expected.dots.width, expected.dots.height));
                const double inside = std::min(std::min(u, width - u), std::min(v, height - v));
                if (inside > margin) {
                    const double sourceX = fit.turns ? v : u;
                    const double sourceY = fit.turns ? width - u : v;
                    ASSERT_NEAR(pixel[0], ramp(sourceX, fit.width), 3) << x << ", " << y;
                    ASSERT_NEAR(pixel[1], ramp(sourceY, fit.height), 3) << x << ", " << y;
                    ++compared;
                } else if (inside < -margin) {
                    ASSERT_TRUE(pixel[0] == 255 && pixel[1] == 255 && pixel[2] == 255) << x << ", " << y;
                    ++white;
                }
            }
        EXPECT_GT(compared, 50);
        EXPECT_GT(compared + white, raster->width * raster->height / 4);
    }
}

TEST(PrintPageProcessing, withoutACanvasNothingStandsBesideThePicture) {
    const TemporaryDirectory folder;
    KLARON_PrintPage page;
    page.setInputImages({rampPicture(folder, 100, 50)});
    page.setOutputSize({80, 240});
    page.setOutputResolution({300, 600});
    page.setAutoRotate(false);
    page.setImageGravity("resizeAspect");
    EXPECT_EQ(page.imagePreProcessWithOptions({{"DrawsCanvas", false}})->extent(), (base::Rect{0, 80, 80, 80}));
    EXPECT_EQ(page.imagePreProcessWithOptions()->extent(), (base::Rect{0, 0, 80, 240}));
    // A gravity that does not resize keeps the picture's own size, filters or not.
    page.setImageGravity("center");
    EXPECT_EQ(page.imagePreProcessWithOptions()->extent(), (base::Rect{0, 0, 100, 50}));
    page.setImageFilters({{filterWith("CIExposureAdjust", "inputEV", 1)}});
    EXPECT_EQ(filteredPixels(page.imagePreProcessWithOptions()), 100u * 50u);
}

TEST(PrintPageProcessing, filtersRunOnTheSmallerPicture) {
    const TemporaryDirectory folder;
    struct Case {
        base::Size page;
        std::uint64_t most;
    };
    for (const Case& row : {Case{{400, 240}, 100 * 60}, Case{{50, 30}, 50 * 30}}) {
        KLARON_PrintPage page;
        page.setInputImages({rampPicture(folder, 100, 60)});
        page.setOutputSize(row.page);
        page.setOutputResolution({300, 300});
        EXPECT_EQ(filteredPixels(page.imagePreProcessWithOptions()), 0u);
        page.setImageFilters({{filterWith("CIExposureAdjust", "inputEV", 1)}});
        EXPECT_EQ(filteredPixels(page.imagePreProcessWithOptions()), row.most);
        page.setApplyImageFilters(false);
        EXPECT_EQ(filteredPixels(page.imagePreProcessWithOptions()), 0u);
    }
}

TEST(PrintPageProcessing, optionsStandInForThePagesOwn) {
    const TemporaryDirectory folder;
    KLARON_PrintPage page;
    page.setOutputSize({80, 80});
    page.setImageFilters({{}});
    const FilterImageRef image =
        page.imagePreProcessWithOptions({{"urlImage", rampPicture(folder, 100, 50)},
                                         {"imageGravity", "resizeAspect"},
                                         {"outputSize", "{200, 200}"},
                                         {"DrawsCanvas", false},
                                         {"imageFilters", base::Array{filterWith("CIExposureAdjust", "inputEV", 1)}}});
    ASSERT_TRUE(image);
    EXPECT_EQ(image->extent(), (base::Rect{0, 50, 200, 100}));
    EXPECT_EQ(filteredPixels(image), 100u * 50u);
}

TEST(PrintPageProcessing, whatCanNotBeReadGivesNoImageAndNoMessage) {
    const TemporaryDirectory folder;
    const LogCapture log;
    const std::vector<std::vector<base::URL>> images = {
        {},
        {base::URL::fileURLWithPath(folder / "missing.jpg")},
        {base::URL::fileURLWithPath(folder.write("broken.jpg", "no picture"))},
        {base::URL::fromString("https://example.com/a.jpg")},
    };
    for (const auto& urls : images) {
        KLARON_PrintPage page;
        page.setInputImages(urls);
        page.setOutputSize({80, 80});
        EXPECT_FALSE(page.imagePreProcessWithOptions());
        EXPECT_FALSE(page.imageRaster());
        base::Dictionary properties;
        EXPECT_EQ(page.imageRasterWithProperties(&properties).index(), 0u);
        EXPECT_TRUE(properties.empty());
    }
    EXPECT_TRUE(log.lines().empty());
}

// --- Profiles -------------------------------------------------------------------------------------------------------

void putNumber(std::string& bytes, std::size_t position, std::uint32_t number) {
    for (int i = 0; i < 4; ++i)
        bytes[position + static_cast<std::size_t>(i)] = static_cast<char>(number >> (24 - 8 * i));
}

/// A profile that leads out of a device and not into it: one table of two points a side, all grey.
std::string inputProfile(const char* deviceClass, const char* space, int channels) {
    constexpr std::size_t tableBegin = 144;
    std::string bytes(tableBegin, '\0');
    bytes.replace(12, 4, deviceClass).replace(16, 4, space).replace(20, 4, "Lab ").replace(36, 4, "acsp");
    putNumber(bytes, 8, 0x02100000);
    constexpr std::uint32_t whitePoint[] = {0xF6D6, 0x10000, 0xD32D};
    for (std::size_t i = 0; i < 3; ++i)
        putNumber(bytes, 68 + 4 * i, whitePoint[i]);
    putNumber(bytes, 128, 1);
    bytes.replace(132, 4, "A2B0");
    putNumber(bytes, 136, tableBegin);
    std::string table("mft1\0\0\0\0", 8);
    table += {static_cast<char>(channels), 3, 2, 0};
    table.resize(table.size() + 36);
    for (const std::size_t diagonal : {0u, 4u, 8u})
        putNumber(table, 12 + 4 * diagonal, 0x10000);
    const auto addCurves = [&](int count) {
        for (int i = 0; i < count * 256; ++i)
            table += static_cast<char>(i % 256);
    };
    addCurves(channels);
    for (int point = 0; point < 1 << channels; ++point)
        table +=
            {static_cast<char>(point * 255 / ((1 << channels) - 1)), static_cast<char>(128), static_cast<char>(128)};
    addCurves(3);
    putNumber(bytes, 140, static_cast<std::uint32_t>(table.size()));
    bytes += table;
    putNumber(bytes, 0, static_cast<std::uint32_t>(bytes.size()));
    return bytes;
}

/// sRGB with its first and its last primary exchanged: what is red in the one is blue in the other.
std::string exchangedProfile() {
    std::string bytes(ColorSpace::sRGB()->iccData().asText());
    const std::size_t red = bytes.find("rXYZ");
    const std::size_t blue = bytes.find("bXYZ");
    bytes.replace(red, 4, "bXYZ").replace(blue, 4, "rXYZ");
    return bytes;
}

TEST(PrintPageProcessing, aProfileThatCanNotBePrintedToIsToldOnceAndTakenOff) {
    const TemporaryDirectory folder;
    struct Case {
        const char* name;
        std::string profile; ///< none: no file
        std::int32_t management;
        bool used;
        const char* message; ///< logged, and the profile taken off
    };
    const std::string gray(ColorSpace::gray()->iccData().asText());
    const Case cases[] = {
        {"rgb", exchangedProfile(), 1, true, nullptr},
        {"rgb by mode 2", exchangedProfile(), 2, true, nullptr},
        {"mode 0", exchangedProfile(), 0, false, nullptr},
        {"mode 3", inputProfile("prtr", "CMYK", 4), 3, false, nullptr},
        {"gray", gray, 1, true, nullptr},
        {"cmyk", inputProfile("prtr", "CMYK", 4), 2, false,
         "incompatible color space 2 for color profile. must be RGB or monochrome!"},
        {"scanner", inputProfile("scnr", "RGB ", 3), 2, false, "incompatible color profile does not produce output!"},
        {"broken", "no profile", 1, false, nullptr},
        {"missing", "", 1, false, nullptr},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const LogCapture log;
        const auto url = base::URL::fileURLWithPath(
            row.profile.empty() ? folder / "none.icc" : folder.write(std::string(row.name) + ".icc", row.profile));
        KLARON_PrintPage page;
        page.setPrinterProfileICC(url);
        page.setColorManagement(row.management);
        for (int again = 0; again < 2; ++again) {
            const ColorSpaceRef space = page.outputColorSpace();
            ASSERT_TRUE(space);
            EXPECT_EQ(space->iccData().asText(), row.used ? row.profile : ColorSpace::sRGB()->iccData().asText());
        }
        EXPECT_EQ(log.lines(), row.message ? std::vector<std::string>{row.message} : std::vector<std::string>());
        EXPECT_EQ(page.printerProfileICC(), row.message ? std::nullopt : std::optional(url));
        EXPECT_EQ(page.colorManagement(), row.message ? 1 : row.management);
    }
    KLARON_PrintPage none;
    EXPECT_EQ(none.outputColorSpace(), ColorSpace::sRGB());
}

// --- Bytes ----------------------------------------------------------------------------------------------------------

class PrintPageBytes : public testing::Test {
protected:
    PrintPageBytes() {
        page_.setInputImages({rampPicture(folder_, 97, 61)});
        page_.setOutputSize({90, 50});
        page_.setOutputResolution({300, 300});
    }

    static constexpr std::size_t pixels = 90 * 50;
    static const std::vector<std::uint8_t>& chunky(const RasterBytes& bytes) { return std::get<1>(bytes).bytes; }
    static const std::array<base::Data, 3>& planar(const RasterBytes& bytes) { return std::get<2>(bytes); }
    static int word(const std::vector<std::uint8_t>& bytes, std::size_t index) {
        std::uint16_t sample;
        std::memcpy(&sample, &bytes[2 * index], 2);
        return sample;
    }

    TemporaryDirectory folder_;
    KLARON_PrintPage page_;
};

TEST_F(PrintPageBytes, theEightFormsHoldTheSameSamples) {
    const auto raster = page_.imageRaster();
    ASSERT_TRUE(raster);
    EXPECT_EQ(raster->alphaInfo, AlphaInfo::noneSkipLast);
    const auto rgb8 = chunky(page_.rgb_8_chunky());
    const auto cmy8 = chunky(page_.cmy_8_chunky());
    const auto rgb16 = chunky(page_.rgb_16_chunky());
    const auto cmy16 = chunky(page_.cmy_16_chunky());
    const auto rgb8Planes = planar(page_.rgb_8_planar());
    const auto cmy8Planes = planar(page_.cmy_8_planar());
    const auto rgb16Planes = planar(page_.rgb_16_planar());
    const auto cmy16Planes = planar(page_.cmy_16_planar());
    ASSERT_EQ(rgb8.size(), 3 * pixels);
    ASSERT_EQ(cmy8.size(), 3 * pixels);
    ASSERT_EQ(rgb16.size(), 6 * pixels);
    ASSERT_EQ(cmy16.size(), 6 * pixels);
    bool keepsDepth = false;
    for (std::size_t i = 0; i < pixels; ++i)
        for (std::size_t component = 0; component < 3; ++component) {
            const std::size_t index = 3 * i + component;
            const std::size_t mirrored = 3 * i + 2 - component;
            const int sample = rgb8[index];
            const int deep = word(rgb16, index);
            ASSERT_EQ(sample, raster->row(static_cast<int>(i / 90))[4 * (i % 90) + component]);
            ASSERT_EQ(cmy8[mirrored], 255 - sample);
            ASSERT_NEAR(deep / 257.0, sample, 1);
            ASSERT_EQ(word(cmy16, mirrored), 65535 - deep);
            ASSERT_EQ(rgb8Planes[component].bytes[i], sample);
            ASSERT_EQ(cmy8Planes[2 - component].bytes[i], 255 - sample);
            ASSERT_EQ(word(rgb16Planes[component].bytes, i), deep & 255);
            keepsDepth |= deep % 257 != 0;
        }
    EXPECT_TRUE(keepsDepth);
    for (std::size_t i = 0; i < pixels; ++i) {
        ASSERT_EQ(word(cmy16Planes[2].bytes, i), 65535 - word(rgb16, 3 * i));
        ASSERT_EQ(word(cmy16Planes[1].bytes, i), 65535 - word(rgb16, 3 * i + 2));
        // Sample 3 i + 4 of the four that each pixel has in the work buffer.
        const std::size_t source = 3 * i + 4;
        ASSERT_EQ(word(cmy16Planes[0].bytes, i), source % 4 == 3 ? 65535 : word(rgb16, source / 4 * 3 + source % 4));
    }
}

TEST_F(PrintPageBytes, propertiesTellTheFormAndFailuresTheirReason) {
    base::Dictionary properties{{"bitsPerComponent", 9}, {"other", 1}};
    EXPECT_EQ(page_.imageRasterWithProperties(&properties).index(), 1u);
    const base::Value space = valueForKey(properties, "colorSpace");
    ASSERT_TRUE(space.object<ColorSpaceObject>());
    EXPECT_EQ(space.object<ColorSpaceObject>()->colorSpace(), ColorSpace::sRGB());
    EXPECT_EQ(properties, (base::Dictionary{{"width", 90},
                                            {"height", 50},
                                            {"numberOfComponents", 3},
                                            {"bytesPerRow", 360},
                                            {"bitsPerComponent", 8},
                                            {"alphaInfo", 5},
                                            {"colorSpace", space}}));
    // What a shortcut does not need to set, it leaves to the caller.
    properties = {{"planar", true}, {"cmy", true}};
    EXPECT_EQ(page_.rgb_16_chunky(&properties).index(), 2u);
    EXPECT_EQ(valueForKey(properties, "bytesPerRow"), base::Value(720));

    const auto errorOf = [&](KLARON_PrintPage& page) {
        properties = {{"planar", true}};
        EXPECT_EQ(page.imageRasterWithProperties(&properties).index(), 0u);
        EXPECT_EQ(properties.size(), 1u);
        const auto error = valueForKey(properties, "error").object<ErrorObject>();
        return error ? error->error() : base::Error();
    };
    page_.setOutputSize({90, 0});
    const base::Error empty = errorOf(page_);
    EXPECT_EQ(empty.code, -1);
    EXPECT_TRUE(empty.localizedDescription.starts_with("FAILED to get a context for properties:{"));
    EXPECT_NE(empty.localizedDescription.find("alphaInfo = 5"), std::string::npos);
    page_.setOutputSize({90'000, 90'000});
    EXPECT_EQ(errorOf(page_).code, -1);

    // A picture that breaks off behind its header.
    const std::string whole = support::readFile(page_.inputImages().front().path());
    page_.setInputImages({base::URL::fileURLWithPath(folder_.write("cut.png", whole.substr(0, whole.size() - 100)))});
    page_.setOutputSize({90, 50});
    EXPECT_FALSE(page_.imageRaster());
    EXPECT_FALSE(errorOf(page_).localizedDescription.empty());
}

TEST_F(PrintPageBytes, samplesAreThoseOfThePrintersProfile) {
    const auto plain = chunky(page_.rgb_8_chunky());
    page_.setPrinterProfileICC(base::URL::fileURLWithPath(folder_.write("exchanged.icc", exchangedProfile())));
    const auto exchanged = chunky(page_.rgb_8_chunky());
    for (std::size_t i = 0; i < plain.size(); ++i)
        ASSERT_NEAR(exchanged[i], plain[i / 3 * 3 + 2 - i % 3], 1);
    // Grey has one component: a raster has it in all three, bytes stay RGB.
    page_.setPrinterProfileICC(
        base::URL::fileURLWithPath(folder_.write("gray.icc", ColorSpace::gray()->iccData().asText())));
    const auto raster = page_.imageRaster();
    ASSERT_TRUE(raster);
    EXPECT_EQ(raster->colorSpace->model(), ColorModel::monochrome);
    EXPECT_TRUE(raster->row(20)[80] == raster->row(20)[81] && raster->row(20)[81] == raster->row(20)[82]);
    EXPECT_EQ(chunky(page_.rgb_8_chunky()), plain);
}

// --- Colour settings ------------------------------------------------------------------------------------------------

TEST(ColorAdjustments, eachSettingIsAnInputOfItsFilter) {
    const char* settings[] = {"Brightness", "Contrast",  "Saturation", "Exposure", "Hue",
                              "Gamma",      "Sharpness", "Red",        "Green",    "Blue"};
    base::Dictionary numbers, prefixedTexts;
    for (int i = 0; i < 10; ++i) {
        numbers.emplace(settings[i], i + 0.25);
        prefixedTexts.emplace(std::string("colorAdjust") + settings[i], std::to_string(i) + ".25 of all");
    }
    const auto filters = KLARON_PrintPage::filtersForOLDVELMColorAdjustments(numbers);
    ASSERT_EQ(filters.size(), 1u);
    std::set<std::string> changed;
    for (const FilterRef& filter : filters[0]) {
        const base::Dictionary defaults = Filter::filterWithName(filter->name())->inputs();
        for (const auto& [input, value] : filter->inputs()) {
            ASSERT_TRUE(defaults.contains(input)) << "the filter has no " << input;
            if (value != valueForKey(defaults, input))
                changed.insert(filter->name() + " " + input + " " +
                               base::replacingAll(base::replacingAll(value.description(), "\n", ""), " ", ""));
        }
    }
    EXPECT_EQ(changed, (std::set<std::string>{
                           "CIColorControls inputBrightness 0.25", "CIColorControls inputContrast 1.25",
                           "CIColorControls inputSaturation 2.25", "CIExposureAdjust inputEV 3.25",
                           "CIHueAdjust inputAngle 4.25", "CIGammaAdjust inputPower 5.25",
                           "CISharpenLuminance inputSharpness 6.25", "CIColorMatrix inputRVector (7.25,0,0,0)",
                           "CIColorMatrix inputGVector (0,8.25,0,0)", "CIColorMatrix inputBVector (0,0,9.25,0)"}));
    const auto same = KLARON_PrintPage::filtersForOLDVELMColorAdjustments(prefixedTexts);
    ASSERT_EQ(same[0].size(), filters[0].size());
    for (std::size_t i = 0; i < same[0].size(); ++i)
        EXPECT_TRUE(same[0][i]->isEqual(*filters[0][i]));
}

TEST(ColorAdjustments, whatIsNoNumberIsToldAndWhatIsUnknownIsPassedOver) {
    const LogCapture log;
    const auto filters = KLARON_PrintPage::filtersForOLDVELMColorAdjustments(
        {{"Brightness", base::Array{}}, {"Sparkle", 1}, {"Red", base::Dictionary{}}, {"colorAdjust", true}});
    EXPECT_EQ(filters, (std::vector<Filters>{{}}));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"bad value type (NSArray) passed via plist into -[KLARON_PrintPage "
                                        "filtersForOLDVELMColorAdjustments:]",
                                        "bad value type (NSDictionary) passed via plist into -[KLARON_PrintPage "
                                        "filtersForOLDVELMColorAdjustments:]"}));
}

} // namespace
