#include "print/KLARON_PrintPage_DNP.h"

#include "platform/draw/ImageDestination.h"
#include "print/DNPPlanes.h"
#include "print/dnp_photo.h"
#include "support/LogCapture.h"
#include "support/Pixel.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using support::Pixel, support::red, support::green, support::blue, support::white;

namespace {

class DNPPage : public testing::Test {
protected:
    base::URL picture(const Pixel& color) const {
        const base::URL url =
            base::URL::fileURLWithPath(folder_ / std::to_string(color.red + 2 * color.green) + ".png");
        auto bitmap = platform::draw::Bitmap::create(60, 40, platform::draw::ColorSpace::sRGB(), true).value();
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 60; ++x) {
                std::uint8_t* pixel = bitmap.mutableRow(y) + 4 * x;
                pixel[0] = static_cast<std::uint8_t>(color.blue);
                pixel[1] = static_cast<std::uint8_t>(color.green);
                pixel[2] = static_cast<std::uint8_t>(color.red);
            }
        const auto file = platform::draw::ImageDestination::createWithURL(url, "public.png").value();
        file->addImage(platform::draw::Image::fromBitmap(bitmap), {});
        EXPECT_TRUE(file->finalize());
        return url;
    }
    // The colour at a point of a sheet, y up.
    static Pixel colorAt(const platform::filter::FilterImageRef& image, double x, double y) {
        const auto raster = platform::filter::FilterContext().render(image, {x, y, 1, 1}).value();
        return {raster.row(0)[0], raster.row(0)[1], raster.row(0)[2]};
    }
    support::TemporaryDirectory folder_;
    KLARON_PrintPage_DNP page_;
};

TEST_F(DNPPage, EachFrameOfASheetGetsItsPicture) {
    struct Case {
        std::int32_t multicut, quality;
        std::vector<Pixel> pictures;
        std::vector<Pixel> frames; // none: one picture over the whole sheet
    };
    for (const Case& c : std::vector<Case>{{12, 0, {red, green, blue}, {red, green}},
                                           {12, 10, {red, green}, {red, green}},
                                           {12, 0, {red}, {}},
                                           {20, 0, {red, green}, {red, green, green}},
                                           {95, 30, {red, green, blue}, {red, green, blue, blue, blue, blue, blue}}}) {
        SCOPED_TRACE(testing::Message() << c.multicut << " with " << c.pictures.size());
        page_.setMulticut(c.multicut);
        page_.setQuality(c.quality);
        std::vector<base::URL> urls;
        for (const Pixel& color : c.pictures)
            urls.push_back(picture(color));
        page_.setInputImages(urls);
        const auto image = page_.imagePreProcessWithOptions();
        ASSERT_TRUE(image);
        EXPECT_EQ(image->extent(), (base::Rect{0, 0, page_.outputSize().width, page_.outputSize().height}));
        const auto frames = dnp_framesForMulticut(c.multicut, page_.hiRes());
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const base::Rect frame = base::rectFromString(frames[i]);
            const Pixel& wanted = c.frames.empty() ? red : c.frames.at(i);
            EXPECT_EQ(colorAt(image, frame.x, frame.y + 2), wanted) << i;
            EXPECT_EQ(colorAt(image, frame.maxX() - 1, frame.maxY() - 3), wanted) << i;
            if (c.multicut == 12 && i == 0) { // where the sheet is cut
                EXPECT_EQ(colorAt(image, 900, frame.maxY() + 4), c.frames.empty() ? red : white);
            }
        }
    }
}

TEST_F(DNPPage, FiltersBelongToTheirFrame) {
    page_.setMulticut(20);
    page_.setInputImages({picture(red), picture(green)});
    const auto darkness = KLARON_PrintPage::filtersForOLDVELMColorAdjustments({{"Brightness", -1.0}});
    page_.setImageFilters({{}, darkness.at(0)});
    const auto image = page_.imagePreProcessWithOptions();
    EXPECT_EQ(colorAt(image, 1000, 600), red);
    EXPECT_EQ(colorAt(image, 1000, 1900), Pixel());
    EXPECT_EQ(colorAt(image, 1000, 3100), green); // the same picture again, for which there is no filter
}

TEST_F(DNPPage, PlanesAreMadeOfWholeSheetsOnly) {
    const base::URL missing = base::URL::fileURLWithPath(folder_ / "missing.png");
    const support::LogCapture log;
    std::size_t failures = 0;
    for (const std::int32_t multicut : {0, 2, 8})
        for (const auto& urls : {std::vector<base::URL>{}, {missing}, {picture(red)}, {picture(red), missing}}) {
            page_.setMulticut(multicut);
            page_.setQuality(multicut == 2 ? 30 : 0);
            page_.setIsDuplex(multicut == 2);
            page_.setOvercoatBackside(false);
            page_.setInputImages(urls);
            const auto planes = page_.YMCDataPlanes();
            // A page of one frame takes the first of its pictures.
            const bool isWhole = multicut != 0 && !urls.empty() && urls.front() != missing;
            ASSERT_EQ(planes.has_value(), isWhole) << multicut << " with " << urls.size();
            failures += !isWhole;
            if (!isWhole) continue;
            ASSERT_EQ(planes->size(), multicut == 2 ? 6u : 3u);
            for (std::size_t i = 0; i < planes->size(); ++i) {
                const auto plane = dnpReadPlane((*planes)[i].asText()).value();
                EXPECT_EQ(plane.width, multicut == 2 ? 1920 : 2560);
                EXPECT_EQ(plane.height, multicut == 2 ? 2480 : 1236);
                EXPECT_EQ(plane.verticalPixelsPerMetre, multicut == 2 ? 23622u : 11811u);
                // Red takes yellow and magenta, and no cyan.
                const std::size_t middle = plane.pixels.size() / 2 + static_cast<std::size_t>(plane.width / 2);
                EXPECT_EQ(plane.pixels[middle], i < 2 ? 0 : 255) << i;
            }
        }
    EXPECT_EQ(log.count("FAILED to raster data"), failures);
    page_.setOvercoatBackside(true);
    page_.setInputImages({picture(red)});
    EXPECT_EQ(page_.YMCDataPlanes()->size(), 6u);
    page_.setMulticut(0);
    const auto preview = page_.imagePreProcessWithOptions({{"isPreviewImage", true}, {"previewSize", "{30, 30}"}});
    EXPECT_EQ(preview->extent().size(), (base::Size{30, 20}));
}

TEST_F(DNPPage, OldPagesChooseALayoutOfTheirMedium) {
    for (const std::int64_t printer : {45, 46, 48, 54, 55, 56, 0, 300})
        for (std::int64_t mediaType = -1; mediaType < 8; ++mediaType)
            for (std::int64_t cut = -1; cut < 15; ++cut) {
                SCOPED_TRACE(testing::Message() << printer << ", " << mediaType << ", " << cut);
                const auto page = KLARON_PrintPage_DNP::initWithOLDVELM(base::Dictionary{
                    {"printer", printer},
                    {"mediaSettings", base::Dictionary{{"mediaType", mediaType}, {"cutInHalf", cut}}}});
                const std::int64_t lastType = printer == 46 || printer == 55 ? 2 : 5;
                const bool isKnown = printer < 56 && printer > 0 && mediaType > 0 && mediaType <= lastType;
                EXPECT_EQ(page->reason() == "Unsupported Printer/Media", !isKnown);
                EXPECT_EQ(dnp_multicutModesForMedia(page->mediaSize()).contains(page->multicut()), isKnown);
            }
    using Page = KLARON_PrintPage_DNP;
    EXPECT_EQ(Page::oldVelm_media(54, 4), 31);
    EXPECT_EQ(Page::oldVelm_multicut(51, 12), 21);
    EXPECT_EQ(Page::oldVelm_multicut(40, 3), 4);
    EXPECT_EQ(Page::oldVelm_cutmode(31, 3) + Page::oldVelm_cutmode(30, 2), 240);
    EXPECT_EQ(Page::oldVelm_cutmode(31, 2) + Page::oldVelm_cutmode(30, 3) + Page::oldVelm_cutmode(40, 3), 0);
}

TEST_F(DNPPage, CopiesKeepAllAndArchivesLoseTheCutMode) {
    const auto page = std::make_shared<KLARON_PrintPage_DNP>();
    page->configureNamedPaper("dnp6x8");
    page->setRequiredModel("DNP DS40");
    page->setSheetFed(true);
    page->setOvercoatBackside(true);
    page->setOvercoat(22);
    page->setQuality(30);
    page->setCutMode(120);
    EXPECT_EQ(page->description(), "DNP DS40 6 x 8, High Density, Luster\n( 6x8 media )");
    EXPECT_EQ(page->reason(), "No DNP DS40 with 6x8 media");
    const KLARON_PrintPageRef archived = pageFromArchive(archiveOfPage(page).value().asText()).value();
    for (const KLARON_PrintPageRef& other : {page->copy(), archived})
        for (const char* key : {"self.mediaSize", "self.multicut", "self.overcoat", "self.quality", "self.sheetFed",
                                "self.overcoatBackside", "self.cutMode"}) {
            const bool isLost = other == archived && key == std::string("self.cutMode");
            EXPECT_EQ(other->encoded()->at(key), isLost ? base::Value(0) : page->encoded()->at(key)) << key;
        }
}

// A page that knows which layouts its printer can cut.
class ConnectedPage : public KLARON_PrintPage_DNP {
    std::optional<std::set<std::uint64_t>> availableMulticutModes() const override {
        return dnp_multicutModesForMedia(31);
    }
};

TEST(DNPConnectedPage, ThePaperIsChosenAmongTheLayoutsOfThePrinter) {
    ConnectedPage page;
    std::vector<std::string> announced;
    std::vector<platform::run::Observation> observations;
    for (const char* key : {"imagePreview", "multicut", "selectedPaperIndex"})
        observations.push_back(page.observable().observe(key, [&announced, key] { announced.emplace_back(key); }));
    EXPECT_FALSE(page.selectedPaperIndex());
    for (const std::size_t index : {9u, 2u, 2u})
        page.setSelectedPaperIndex(index);
    EXPECT_EQ(page.multicut(), 12);
    EXPECT_EQ(page.selectedPaperIndex(), 2u);
    EXPECT_EQ(page.paperNames().at(2), "6 x 4 (x2)");
    EXPECT_THAT(announced, testing::UnorderedElementsAre("imagePreview", "multicut", "selectedPaperIndex"));
}

} // namespace
