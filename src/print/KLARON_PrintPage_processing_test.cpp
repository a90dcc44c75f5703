#include "KLARON_PrintPage.h"

#include "ImageProcessingKeys.h"
#include "base/Text.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/ImageDestination.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
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
constexpr const char* fill = "resizeAspectFill";
constexpr const char* fit = "resizeAspect";
const FitCase fitCases[] = {
    {"too wide a picture", {80, 120}, {300, 300}, 97, 61, fill, false, false, ""},
    {"turned", {80, 120}, {300, 300}, 97, 61, fill, true, true, ""},
    {"page high in pixels only", {60, 80}, {300, 600}, 61, 97, fill, true, true, ""},
    {"wide pixels", {80, 240}, {300, 600}, 61, 97, fill, true, false, ""},
    {"high pixels", {160, 120}, {600, 300}, 61, 97, fill, true, false, ""},
    {"fits", {80, 120}, {300, 300}, 97, 61, fit, false, false, ""},
    {"fits with wide pixels", {80, 240}, {300, 600}, 97, 61, fit, false, false, ""},
    {"fits with high pixels", {480, 120}, {600, 300}, 97, 61, fit, false, false, ""},
    {"does not stretch", {80, 120}, {300, 300}, 97, 61, "resize", false, false, ""},
    {"enlarged", {300, 420}, {300, 300}, 61, 97, fill, true, false, ""},
    {"square picture", {80, 120}, {300, 300}, 61, 61, fill, true, false, ""},
    {"square page", {100, 100}, {300, 300}, 97, 61, fit, true, false, ""},
    {"no resolution", {80, 120}, {0, 0}, 61, 97, fill, true, false, ""},
    {"preview", {80, 120}, {300, 300}, 61, 97, fill, true, false, "{40, 40}"},
    {"preview, wide pixels", {80, 240}, {300, 600}, 97, 61, fill, true, true, "{40, 30}"},
    {"preview, high pixels", {160, 120}, {600, 300}, 61, 97, fill, true, false, "{50, 60}"},
    {"only square pixels", {80, 240}, {300, 600}, 61, 97, fill, true, false, "{0, 60}"},
    {"no page yet", {80, 0}, {300, 300}, 97, 61, fill, false, false, "{50, 40}"},
};

/// What the case means in inches: the page's pixels are `dots` of an inch, and one picture pixel takes `scale` inches.
struct Expectation {
    base::Size pixels;
    base::Size dots;
    double scale;

    Expectation(const FitCase& row, base::Size picture) : pixels(row.page), dots(row.resolution) {
        bool fills = row.gravity == fill;
        if (dots.width == 0) dots = {300, 300};
        if (*row.preview) {
            const base::Size box = base::sizeFromString(row.preview);
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
    for (const FitCase& row : fitCases) {
        SCOPED_TRACE(row.name);
        KLARON_PrintPage page;
        page.setInputImages({rampPicture(folder, row.width, row.height)});
        page.setOutputSize(row.page);
        page.setOutputResolution(row.resolution);
        page.setImageGravity(row.gravity);
        page.setAutoRotate(row.autoRotate);
        base::Dictionary options;
        if (*row.preview) options = {{"previewSize", row.preview}, {"isPreviewImage", true}};
        const FilterImageRef image = page.imagePreProcessWithOptions(options);
        ASSERT_TRUE(image);

        const double width = row.turns ? row.height : row.width;
        const double height = row.turns ? row.width : row.height;
        const Expectation expected(row, {width, height});
        EXPECT_NEAR(image->extent().x, 0, 1e-6);
        EXPECT_NEAR(image->extent().y, 0, 1e-6);
        EXPECT_NEAR(image->extent().width, expected.pixels.width, 1e-6);
        EXPECT_NEAR(image->extent().height, expected.pixels.height, 1e-6);

        const base::Rect rect = image->extent().integral();
        const auto raster = FilterContext().render(image, rect);
        ASSERT_TRUE(raster) << raster.error().localizedDescription;
        const double scaleX = expected.scale * expected.dots.width;
        const double scaleY = expected.scale * expected.dots.height;
        int compared = 0;
        int white = 0;
        for (int y = 0; y < raster->height; ++y)
            for (int x = 0; x < raster->width; ++x) {
                // From the middle of the page, which is the middle of the picture. The raster's rows begin at the top.
                const double top = rect.height - expected.pixels.height;
                const double u = width / 2 + (x + 0.5 - expected.pixels.width / 2) / scaleX;
                const double v = height / 2 + (y + 0.5 - top - expected.pixels.height / 2) / scaleY;
                const std::uint8_t* pixel = raster->row(y) + 4 * x;
                // Within three pixels of an edge the filter sees the end of the ramp.
                const double margin = 3 / std::min({1.0, scaleX, scaleY});
                const double inside = std::min({u, width - u, v, height - v});
                if (inside > margin) {
                    ASSERT_NEAR(pixel[0], ramp(row.turns ? v : u, row.width), 3) << x << ", " << y;
                    ASSERT_NEAR(pixel[1], ramp(row.turns ? width - u : v, row.height), 3) << x << ", " << y;
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
    const auto file = [](const std::string& path) { return std::vector{base::URL::fileURLWithPath(path)}; };
    for (const auto& urls :
         {std::vector<base::URL>(), file(folder / "missing.jpg"), file(folder.write("broken.jpg", "no picture"))}) {
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
    std::string table("mft1\0\0\0\0", 8);
    table += {static_cast<char>(channels), 3, 2, 0};
    table.resize(48);
    for (const std::size_t diagonal : {12u, 28u, 44u})
        putNumber(table, diagonal, 0x10000);
    for (int i = 0; i < channels * 256; ++i)
        table += static_cast<char>(i % 256);
    for (int point = 0; point < 1 << channels; ++point)
        table += {static_cast<char>(point * 255 / ((1 << channels) - 1)), '\x80', '\x80'};
    for (int i = 0; i < 3 * 256; ++i)
        table += static_cast<char>(i % 256);

    std::string bytes(144, '\0');
    putNumber(bytes, 0, static_cast<std::uint32_t>(bytes.size() + table.size()));
    putNumber(bytes, 8, 0x02100000);
    bytes.replace(12, 4, deviceClass).replace(16, 4, space).replace(20, 4, "Lab ").replace(36, 4, "acsp");
    putNumber(bytes, 68, 0xF6D6); // the white of connection spaces
    putNumber(bytes, 72, 0x10000);
    putNumber(bytes, 76, 0xD32D);
    putNumber(bytes, 128, 1);
    bytes.replace(132, 4, "A2B0");
    putNumber(bytes, 136, 144);
    putNumber(bytes, 140, static_cast<std::uint32_t>(table.size()));
    return bytes + table;
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
        {"mode 0", exchangedProfile(), 0, false, nullptr},
        {"mode 3", inputProfile("prtr", "CMYK", 4), 3, false, nullptr},
        {"gray", gray, 2, true, nullptr},
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
        page_.setOutputSize({91, 51}); // odd: a rest stays behind the blocks
        page_.setOutputResolution({300, 300});
    }

    static constexpr std::size_t pixels = 91 * 51;
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
    const auto rgb16 = chunky(page_.rgb_16_chunky());
    const auto cmy16 = chunky(page_.cmy_16_chunky());
    ASSERT_TRUE(rgb8.size() == 3 * pixels && rgb16.size() == 6 * pixels && cmy16.size() == 6 * pixels);
    bool keepsDepth = false;
    for (std::size_t component = 0; component < 3; ++component) {
        const auto cmy8 = chunky(page_.cmy_8_chunky());
        const auto plane8 = planar(page_.rgb_8_planar())[component].bytes;
        const auto mirrored8 = planar(page_.cmy_8_planar())[2 - component].bytes;
        const auto plane16 = planar(page_.rgb_16_planar())[component].bytes;
        for (std::size_t i = 0; i < pixels; ++i) {
            const std::size_t index = 3 * i + component;
            const std::size_t mirrored = 3 * i + 2 - component;
            const int sample = rgb8[index];
            const int deep = word(rgb16, index);
            ASSERT_EQ(sample, raster->row(static_cast<int>(i / 91))[4 * (i % 91) + component]);
            ASSERT_TRUE(cmy8[mirrored] == 255 - sample && plane8[i] == sample && mirrored8[i] == 255 - sample);
            ASSERT_NEAR(deep / 257.0, sample, 1);
            ASSERT_TRUE(word(cmy16, mirrored) == 65535 - deep && word(plane16, i) == (deep & 255));
            keepsDepth |= deep % 257 != 0;
        }
    }
    EXPECT_TRUE(keepsDepth);
}

// The compaction as it goes through the work buffer: a pixel is read, complemented and put down at the write position,
// and the first plane takes the word behind it.
TEST_F(PrintPageBytes, complementedPlanesOf16BitsAreThoseOfTheMovingCompaction) {
    const auto rgb = chunky(page_.rgb_16_chunky());
    std::vector<int> buffer;
    for (std::size_t i = 0; i < pixels; ++i)
        buffer.insert(buffer.end(), {word(rgb, 3 * i), word(rgb, 3 * i + 1), word(rgb, 3 * i + 2), 65535});
    const auto planes = planar(page_.cmy_16_planar());
    for (std::size_t i = 0, read = 0, write = 0; i < pixels; ++i, read += 4, write += 3) {
        const std::vector<int> taken(&buffer[read], &buffer[read] + 4);
        for (std::size_t component = 0; component < 4; ++component)
            buffer[write + component] = 65535 - taken[component];
        for (std::size_t plane = 0; plane < 3; ++plane)
            ASSERT_EQ(word(planes[plane].bytes, i), buffer[write + 4 - 2 * plane]) << i << ", " << plane;
    }
    page_.setOutputSize({1, 1}); // nothing stands behind a single pixel
    EXPECT_EQ(planar(page_.cmy_16_planar())[0].bytes, std::vector<std::uint8_t>(2));
}

TEST_F(PrintPageBytes, propertiesTellTheFormAndFailuresTheirReason) {
    base::Dictionary properties{{"bitsPerComponent", 9}, {"other", 1}};
    EXPECT_EQ(page_.imageRasterWithProperties(&properties).index(), 1u);
    const base::Value space = valueForKey(properties, "colorSpace");
    ASSERT_TRUE(space.object<ColorSpaceObject>());
    EXPECT_EQ(space.object<ColorSpaceObject>()->colorSpace(), ColorSpace::sRGB());
    EXPECT_EQ(properties, (base::Dictionary{{"width", 91},
                                            {"height", 51},
                                            {"numberOfComponents", 3},
                                            {"bytesPerRow", 364},
                                            {"bitsPerComponent", 8},
                                            {"alphaInfo", 5},
                                            {"colorSpace", space}}));
    // What a shortcut does not need to set, it leaves to the caller.
    properties = {{"planar", true}, {"cmy", true}};
    EXPECT_EQ(page_.rgb_16_chunky(&properties).index(), 2u);
    EXPECT_EQ(valueForKey(properties, "bytesPerRow"), base::Value(728));

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
    page_.setOutputSize({91, 51});
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
    base::Dictionary settings;
    double number = 0.25;
    for (const char* name : {"Brightness", "Contrast", "Saturation", "Exposure", "Hue"})
        settings.emplace(name, number++);
    for (const char* name : {"Gamma", "Sharpness", "Red", "Green", "Blue"})
        settings.emplace(std::string("colorAdjust") + name, base::shortestDecimal(number++) + " of all");
    settings.emplace("Sparkle", 1);
    settings.emplace("colorAdjustRed ", base::Array{});

    const LogCapture log;
    const auto filters = KLARON_PrintPage::filtersForOLDVELMColorAdjustments(settings);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"bad value type (NSArray) passed via plist into "
                                                    "-[KLARON_PrintPage filtersForOLDVELMColorAdjustments:]"});
    ASSERT_EQ(filters.size(), 1u);
    std::set<std::string> changed;
    for (const FilterRef& filter : filters[0]) {
        const base::Dictionary defaults = Filter::filterWithName(filter->name())->inputs();
        for (const auto& [input, value] : filter->inputs()) {
            ASSERT_TRUE(defaults.contains(input)) << "the filter has no " << input;
            if (value == valueForKey(defaults, input)) continue;
            const std::string lines = base::replacingAll(value.description(), "\n", "");
            changed.insert(filter->name() + " " + input + " " + base::replacingAll(lines, " ", ""));
        }
    }
    EXPECT_EQ(changed, (std::set<std::string>{
                           "CIColorControls inputBrightness 0.25", "CIColorControls inputContrast 1.25",
                           "CIColorControls inputSaturation 2.25", "CIExposureAdjust inputEV 3.25",
                           "CIHueAdjust inputAngle 4.25", "CIGammaAdjust inputPower 5.25",
                           "CISharpenLuminance inputSharpness 6.25", "CIColorMatrix inputRVector (7.25,0,0,0)",
                           "CIColorMatrix inputGVector (0,8.25,0,0)", "CIColorMatrix inputBVector (0,0,9.25,0)"}));
}

} // namespace
