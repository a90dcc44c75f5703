#include "print/KLARON_PrintPage_DNP.h"

#include "print/DNPPlanes.h"
#include "print/dnp_photo.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

class DNPPage : public testing::Test {
protected:
    // A picture of one grey: a plane is a picture file too.
    base::URL picture(std::uint8_t grey) const {
        base::Data file = dnpBlankPlane(60, 40, {300, 300});
        std::fill(file.bytes.begin() + dnpPlaneHeaderSize, file.bytes.end(), static_cast<std::uint8_t>(255 - grey));
        return base::URL::fileURLWithPath(folder_.write(std::to_string(grey) + ".bmp", file.asText()));
    }
    // The red at a point of a sheet, y up.
    static int valueAt(const platform::filter::FilterImageRef& image, double x, double y) {
        return platform::filter::FilterContext().render(image, {x, y, 1, 1}).value().row(0)[0];
    }
    support::TemporaryDirectory folder_;
    KLARON_PrintPage_DNP page_;
};

TEST_F(DNPPage, EachFrameOfASheetGetsItsPictureAndFilters) {
    struct Case {
        std::int32_t multicut, quality;
        std::vector<std::uint8_t> pictures;
        std::vector<int> frames; // none: one picture over the whole sheet
        std::size_t darkened = 9;
    };
    const auto darkness = KLARON_PrintPage::filtersForOLDVELMColorAdjustments({{"Brightness", -1.0}}).at(0);
    for (const Case& c : std::vector<Case>{{12, 0, {20, 90, 200}, {20, 90}},
                                           {12, 10, {20, 90}, {20, 90}},
                                           {12, 0, {20}, {}},
                                           {20, 0, {20, 90}, {20, 90, 90}},
                                           {20, 0, {20, 90}, {20, 0, 90}, 1}, // surplus frames have no filters
                                           {95, 30, {20, 90, 200}, {20, 90, 200, 200, 200, 200, 200}}}) {
        SCOPED_TRACE(testing::Message() << c.multicut << " with " << c.pictures.size());
        page_.setMulticut(c.multicut);
        page_.setQuality(c.quality);
        std::vector<base::URL> urls;
        std::vector<platform::filter::Filters> filters;
        for (const std::uint8_t grey : c.pictures) {
            filters.push_back(urls.size() == c.darkened ? darkness : platform::filter::Filters());
            urls.push_back(picture(grey));
        }
        page_.setInputImages(urls);
        page_.setImageFilters(filters);
        const auto image = page_.imagePreProcessWithOptions();
        ASSERT_TRUE(image);
        EXPECT_EQ(image->extent(), (base::Rect{0, 0, page_.outputSize().width, page_.outputSize().height}));
        const auto frames = dnp_framesForMulticut(c.multicut, page_.hiRes());
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const base::Rect frame = base::rectFromString(frames[i]);
            const int wanted = c.frames.empty() ? c.pictures[0] : c.frames.at(i);
            EXPECT_EQ(valueAt(image, frame.x, frame.y), wanted) << i;
            EXPECT_EQ(valueAt(image, frame.maxX() - 1, frame.maxY() - 1), wanted) << i;
        }
        if (c.multicut == 12) { // where the sheet is cut
            EXPECT_EQ(valueAt(image, 900, page_.outputSize().height / 2), c.frames.empty() ? 20 : 255);
        }
    }
}

TEST_F(DNPPage, PlanesAreMadeOfWholeSheetsOnly) {
    const base::URL good = picture(20), missing = base::URL::fileURLWithPath(folder_ / "missing.png");
    const support::LogCapture log;
    std::size_t failures = 0;
    for (const std::int32_t multicut : {0, 2, 13})
        for (const auto& urls : {std::vector<base::URL>{}, {missing}, {good}, {good, missing}}) {
            page_.setMulticut(multicut);
            page_.setIsDuplex(multicut == 2);
            page_.setOvercoatBackside(multicut == 13);
            page_.setInputImages(urls);
            const auto planes = page_.YMCDataPlanes();
            const bool isWhole = multicut != 0 && urls.size() == 1 && urls[0] == good;
            // One frame takes the first of the pictures.
            ASSERT_EQ(planes.has_value(), isWhole || (multicut == 2 && urls.size() == 2)) << multicut << urls.size();
            if (!planes) ++failures;
            for (std::size_t i = 0; planes && i < 6; ++i)
                EXPECT_EQ(dnpReadPlane(planes->at(i).asText()).value().pixels[1'000'900], i < 3 ? 20 : 255) << i;
        }
    EXPECT_EQ(log.count("FAILED to raster data"), failures);
    page_.setMulticut(0);
    EXPECT_TRUE(page_.imagePreProcessWithOptions({{"isPreviewImage", true}, {"previewSize", "{30, 30}"}}));
}

TEST_F(DNPPage, OldPagesChooseALayoutOfTheirMedium) {
    for (const std::int64_t printer : {45, 46, 48, 54, 55, 56, 0, 300})
        for (std::int64_t type = -1; type < 8; ++type)
            for (std::int64_t cut = -1; cut < 15; ++cut) {
                const base::Dictionary media{{"mediaType", type}, {"cutInHalf", cut}};
                const auto page = KLARON_PrintPage_DNP::initWithOLDVELM(
                    base::Dictionary{{"printer", printer}, {"mediaSettings", media}});
                const std::int64_t lastType = printer == 46 || printer == 55 ? 2 : 5;
                const bool isKnown = printer < 56 && printer > 0 && type > 0 && type <= lastType;
                EXPECT_EQ(page->reason() == "Unsupported Printer/Media", !isKnown) << printer << ", " << type;
                EXPECT_EQ(dnp_multicutModesForMedia(page->mediaSize()).contains(page->multicut()), isKnown)
                    << printer << ", " << type << ", " << cut;
                const bool isHalved = (page->mediaSize() == 31 && cut == 3) || (page->mediaSize() == 30 && cut == 2);
                EXPECT_EQ(page->cutMode(), isHalved ? 120 : 0);
            }
    EXPECT_EQ(KLARON_PrintPage_DNP::oldVelm_multicut(51, 12), 21);
    EXPECT_EQ(KLARON_PrintPage_DNP::oldVelm_multicut(40, 3), 4);
}

TEST_F(DNPPage, CopiesKeepAllAndArchivesLoseTheCutMode) {
    const auto page = std::make_shared<KLARON_PrintPage_DNP>();
    page->configureNamedPaper("dnp6x8");
    page->setSheetFed(true);
    page->setOvercoatBackside(true);
    page->setOvercoat(22);
    page->setQuality(30);
    page->setCutMode(120);
    EXPECT_EQ(page->description(), "(null) 6 x 8, High Density, Luster\n( 6x8 media )");
    EXPECT_EQ(page->reason(), "No printer with 6x8 media");
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
