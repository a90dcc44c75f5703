#include "print/KLARON_PrintPageMitsu1.h"

#include "base/Places.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>

using base::Dictionary;

namespace {

using Page = KLARON_PrintPageMitsu1;

Dictionary oldPage(int printer, int mediaType, int cutInHalf, int printingMode = 1, int lamination = 1) {
    return {{"printer", printer},
            {"mediaSettings", Dictionary{{"mediaType", mediaType}, {"cutInHalf", cutInHalf}}},
            {"mitsubishiSettings", Dictionary{{"printingMode", printingMode}, {"lamination", lamination}}}};
}

} // namespace

TEST(MitsuPage, OldPagesChooseMediumAndLayout) {
    const struct {
        int printer, type, cut, media;
        std::uint64_t multicut;
    } cases[] = {
        {57, 1, 3, 1, 16},    {57, 2, 2, 4, 64},   {57, 2, 1, 4, 32},   {57, 3, 2, 2, 1},   {57, 3, 1, 2, 128},
        {57, 4, 6, 15, 6036}, {57, 4, 1, 15, 256}, {57, 5, 3, 5, 1024}, {57, 5, 5, 5, 256}, {57, 6, 1, 0, 0},
        {57, 0, 1, 0, 0},     {56, 1, 1, 4, 32},   {56, 1, 2, 4, 64},   {56, 1, 3, 4, 0},   {56, 2, 4, 15, 1},
        {56, 2, 5, 15, 256},  {56, 3, 2, 0, 0},    {47, 4, 2, 15, 0},   {47, 5, 2, 5, 0},   {48, 1, 1, 0, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << row.printer << ", " << row.type << ", " << row.cut);
        const auto page = Page::initWithOLDVELM(oldPage(row.printer, row.type, row.cut, 2, 2));
        ASSERT_TRUE(page);
        EXPECT_EQ(page->mediaSize(), row.media);
        EXPECT_EQ(page->multicut(), row.multicut);
        const bool isKnown = row.media != 0;
        EXPECT_EQ(page->overcoat(), isKnown ? 2 : 0);
        EXPECT_EQ(page->quality(), isKnown ? 10 : 0);
        EXPECT_EQ(base::textForKey(page->properties(), "reason"),
                  isKnown ? std::nullopt : std::optional<std::string>("Unsupported Printer/Media"));
        EXPECT_EQ(page->requiredModel().has_value(), row.printer != 48);
    }
    EXPECT_EQ(Page::initWithOLDVELM({}), nullptr);
    EXPECT_EQ(Page::initWithOLDVELM("text"), nullptr);
    const auto page = Page::initWithOLDVELM(oldPage(57, 4, 3));
    EXPECT_EQ(page->overcoat() + page->quality(), 0);
}

TEST(MitsuPage, NamedPapersAndWords) {
    const auto page = std::dynamic_pointer_cast<Page>(KLARON_PrintPage::printPageForModel("mitsubishi CP-D90DW"));
    ASSERT_TRUE(page);
    EXPECT_EQ(page->reason(), "Unsupported Printer/Media");
    EXPECT_EQ(page->pixelsHigh(), 0u);
    page->configureNamedPaper("Media6x9Cut4x6");
    EXPECT_EQ(page->outputSize(), (base::Size{1852, 1226}));
    EXPECT_EQ(page->outputResolution(), (base::Size{300, 300}));
    EXPECT_FALSE(page->properties().contains("paperName"));
    EXPECT_EQ(page->reason(), "No Mitsubishi CP-D90DW with 6 x 9 media");
    page->setOvercoat(2);
    EXPECT_EQ(page->description(), "Mitsubishi CP-D90DW 6 x 4, Fine, Matte\n( 6 x 9 media )");
    EXPECT_EQ(page->mediaName(), "( 6 x 9 media )");
    page->setPrinterModel(56);
    EXPECT_EQ(page->outputSize(), (base::Size{1864, 1228}));

    EXPECT_THAT(page->paperNames(), testing::IsEmpty());
    page->setSelectedPaperIndex(0);
    EXPECT_EQ(page->selectedPaperIndex(), std::nullopt);
    EXPECT_EQ(page->multicut(), 128u);
    int announced = 0;
    const auto observation = page->observable().observe("imagePreview", [&] { ++announced; });
    page->setMulticut(512);
    page->setQuality(3);
    EXPECT_EQ(announced, 2);
}

TEST(MitsuPage, ArchivesAndCopiesKeepAllButTheJob) {
    const auto page = std::make_shared<Page>();
    page->setMediaSize(255);
    page->setMulticut(6036);
    page->setOvercoat(2);
    page->setQuality(254);
    page->setJobID(7);
    page->setRequiredModel("model");
    const auto archive = archiveOfPage(page);
    ASSERT_TRUE(archive);
    const auto read = pageFromArchive(archive->asText());
    ASSERT_TRUE(read) << read.error().localizedDescription;
    for (const KLARON_PrintPageRef& other : {*read, page->copy()}) {
        const auto mitsu = std::dynamic_pointer_cast<Page>(other);
        ASSERT_TRUE(mitsu);
        EXPECT_EQ(mitsu->mediaSize(), 255);
        EXPECT_EQ(mitsu->multicut(), 6036u);
        EXPECT_EQ(mitsu->overcoat(), 2);
        EXPECT_EQ(mitsu->quality(), 254);
        EXPECT_EQ(mitsu->jobID(), 0);
    }
    EXPECT_EQ((*read)->requiredModel(), "model");
    EXPECT_EQ(page->copy()->requiredModel(), std::nullopt);
}

TEST(MitsuPage, ColoursAreThoseOfTheResource) {
    Page page;
    page.setColorManagement(0);
    const auto space = page.outputColorSpace();
    ASSERT_TRUE(space);
    EXPECT_EQ(space->model(), platform::draw::ColorModel::rgb);
    EXPECT_TRUE(space->supportsOutput());
    EXPECT_FALSE(space->isSRGB());
    EXPECT_EQ(page.outputColorSpace(), space);
    base::Places without = base::Places::standard();
    without.resources = {"/nowhere"};
    base::setPlaces(without);
    EXPECT_EQ(page.outputColorSpace(), nullptr);
    base::setPlaces(base::Places::standard());
}
