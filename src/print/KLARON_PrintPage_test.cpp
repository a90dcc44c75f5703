#include "print/KLARON_PrintPage.h"

#include "base/Places.h"
#include "platform/data/FileAttributes.h"
#include "platform/data/PropertyList.h"
#include "platform/data/UserDefaults.h"
#include "platform/draw/Bitmap.h"
#include "platform/draw/ImageDestination.h"
#include "platform/run/MainQueue.h"
#include "print/KLARON_PrintPage_DNP.h"
#include "print/KLARON_USBPrinter.h"
#include "support/LogCapture.h"
#include "support/TemporaryDirectory.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using platform::filter::Filter;
using platform::filter::FilterImageRef;
using support::LogCapture;
using testing::ElementsAre;

namespace {

base::URL writtenPicture(const support::TemporaryDirectory& folder, const std::string& name, const char* type) {
    const auto url = base::URL::fileURLWithPath(folder / name);
    auto bitmap = *platform::draw::Bitmap::create(40, 30, platform::draw::ColorSpace::sRGB(), true);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x)
            std::fill_n(bitmap.mutableRow(y) + 4 * x, 3, std::uint8_t{90});
    auto destination = *platform::draw::ImageDestination::createWithURL(url, type);
    destination->addImage(platform::draw::Image::fromBitmap(bitmap), {});
    EXPECT_TRUE(destination->finalize());
    return url;
}

class Printer : public KLARON_USBPrinter {
public:
    void printPage(const KLARON_PrintPageRef& page) override { pages.push_back(page); }
    std::string description() const override { return "a printer"; }
    std::vector<KLARON_PrintPageRef> pages;
};

TEST(PrintPage, TheModelsNameChoosesClassAndIndex) {
    const struct {
        const char* model;
        std::uint64_t index;
        const char* className;
        std::optional<std::string> requiredModel;
    } cases[] = {
        {"Mitsubishi CP-D90DW", 57, "KLARON_PrintPageMitsu1", "Mitsubishi CP-D90DW"},
        {"MITSU 80 or 90", 57, "KLARON_PrintPageMitsu1", "Mitsubishi CP-D90DW"},
        {"mitsu 80", 56, "KLARON_PrintPageMitsu1", "Mitsu CP-D80DW [BETA]"},
        {"mITSU", 47, "KLARON_PrintPageMitsu1", "Mitsu CP-D70DW [BETA-may not work]"},
        {"DNP DS80", 0, "KLARON_PrintPage_DNP", "DNP DS80"},
        {"my mitsu 90", 0, "KLARON_PrintPage_DNP", "my mitsu 90"},
        {"", 0, "KLARON_PrintPage_DNP", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.model);
        const auto page = KLARON_PrintPage::printPageForModel(c.model);
        ASSERT_TRUE(page);
        EXPECT_EQ(page->printerModel(), c.index);
        EXPECT_EQ(page->className(), c.className);
        EXPECT_EQ(page->requiredModel(), c.requiredModel);
        EXPECT_TRUE(page->dateInit());
    }
    const LogCapture log;
    for (const base::Value& nothing : {base::Value(), base::Value("text"), base::Value(base::Array{})})
        EXPECT_FALSE(KLARON_PrintPage::printPageForOldVelm(nothing));
}

class OldPage : public testing::Test {
protected:
    KLARON_PrintPageRef read(const base::Value& list) {
        const auto bytes = platform::data::propertyListData(list, platform::data::PropertyListFormat::xml);
        return KLARON_PrintPage::printPageForOldVelm(
            base::URL::fileURLWithPath(folder_.write("page.plist", bytes->asText())));
    }
    support::TemporaryDirectory folder_;
};

TEST_F(OldPage, IsReadWithThePictureBesideIt) {
    const base::Dictionary list{{"printer", "46"},
                                {"mediaTypeMustMatch", false},
                                {"webServerDictionary", base::Dictionary{{"clienttdevicename", "front desk"}}},
                                {"colorAdjustSettings", base::Dictionary{{"colorAdjustGamma", 2}}},
                                {"mediaSettings", base::Dictionary{{"mediaType", 2}, {"cutInHalf", 3}}},
                                {"mitsubishiSettings", base::Dictionary{{"printingMode", 2}, {"lamination", 2}}}};
    const LogCapture log;
    EXPECT_FALSE(read(list));
    EXPECT_TRUE(log.has("ERROR: cannot init a print page;no Image available at file://"));
    const base::URL image = writtenPicture(folder_, "page.jpeg", "public.jpeg");
    const KLARON_PrintPageRef page = read(list);
    const auto dnp = std::dynamic_pointer_cast<KLARON_PrintPage_DNP>(page);
    ASSERT_TRUE(dnp);
    const auto url = base::URL::fileURLWithPath(folder_ / "page.plist");
    EXPECT_EQ(page->dateInit(), platform::data::dateModified(url));
    EXPECT_THAT(page->fileURLs(), ElementsAre(url, image));
    EXPECT_THAT(page->inputImages(), ElementsAre(image));
    ASSERT_EQ(page->imageFilters().size(), 1u);
    ASSERT_EQ(page->imageFilters()[0].size(), 1u);
    EXPECT_EQ(base::valueForKey(page->imageFilters()[0][0]->inputs(), "inputPower"), base::Value(2));
    EXPECT_EQ(page->destinationLabel(), "front desk");
    EXPECT_TRUE(page->requiresIdealMedia());
    EXPECT_EQ(page->copies(), 1);
    EXPECT_EQ(page->printerModel(), 46u);
    EXPECT_EQ(page->requiredModel(), "DNP DS80");
    EXPECT_THAT((std::vector{dnp->mediaSize(), dnp->multicut(), dnp->overcoat(), dnp->quality()}),
                ElementsAre(51, 15, 1, 10));

    auto other = list;
    other["printer"] = 99;
    other["printQuantity"] = 7;
    other["destinationLabel"] = "back";
    const auto unknown = read(other);
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->className(), "KLARON_PrintPage_DNP");
    EXPECT_EQ(unknown->reason(), "Unsupported Printer/Media");
    EXPECT_EQ(unknown->copies(), 7);
    EXPECT_EQ(unknown->destinationLabel(), "back");

    EXPECT_FALSE(read(base::Array{1}));
    EXPECT_FALSE(KLARON_PrintPage::printPageForOldVelm(base::URL::fileURLWithPath(folder_ / "none.plist")));
    EXPECT_TRUE(log.has("page.plist: ") && log.has("none.plist"));
}

TEST(PrintPage, PropertiesHaveDefaults) {
    KLARON_PrintPage page;
    EXPECT_EQ(base::valueForKey(page.properties(), "autoRotate"), base::Value(true));
    page.setProperties({});
    EXPECT_FALSE(page.dateInit() || page.reason() || page.requiresIdealMedia());
    EXPECT_TRUE(page.autoRotate());
    EXPECT_EQ(page.imageGravity(), "resizeAspectFill");
    for (const auto& [count, applies] : {std::pair(0, false), {255, true}, {256, false}, {257, true}}) {
        page.setImageFilters(std::vector<platform::filter::Filters>(static_cast<std::size_t>(count)));
        EXPECT_EQ(page.applyImageFilters(), applies) << count << ": the low eight bits decide";
    }
    page.setImageGravity("center");
    page.setImageGravity(std::nullopt);
    EXPECT_TRUE(page.properties().empty());
}

TEST(PrintPage, ACopyLeavesTheOrderBehind) {
    const auto printer = std::make_shared<Printer>();
    const auto page = KLARON_PrintPage::printPageForModel("DNP DS80");
    const base::Date then = page->dateInit().value() - std::chrono::hours(5);
    page->properties()["dateInit"] = then;
    page->setInputImages({base::URL::fileURLWithPath("/a/b.jpeg")});
    page->setImageFilters({{Filter::filterWithName("CIHueAdjust")}});
    page->setFileURLs(page->inputImages());
    page->setDestinationLabel("label");
    page->setCopies(3);
    page->setColorManagement(2);
    page->setPrinter(printer);
    const auto copy = page->copy();
    EXPECT_EQ(copy->className(), page->className());
    EXPECT_EQ(copy->dateInit(), then);
    EXPECT_EQ(copy->inputImages(), page->inputImages());
    EXPECT_EQ(copy->imageFilters(), page->imageFilters());
    EXPECT_EQ(copy->colorManagement(), 2);
    EXPECT_EQ(copy->printer(), printer);
    EXPECT_TRUE(copy->fileURLs().empty() && !copy->requiredModel() && !copy->destinationLabel() && !copy->copies());
    copy->print();
    EXPECT_THAT(printer->pages, ElementsAre(copy));
    KLARON_PrintPage().print(); // without a printer nothing happens
    EXPECT_EQ(KLARON_PrintPage().description(), "(null) - (null)");
    EXPECT_EQ(copy->KLARON_PrintPage::description(), "a printer - b.jpeg");
}

TEST(PrintPage, WhatChangesThePictureAnnouncesThePreview) {
    KLARON_PrintPage_DNP page;
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"inputImages", [&] { page.setInputImages({}); }},
        {"imageFilters", [&] { page.setImageFilters({}); }},
        {"printerProfileICC", [&] { page.setPrinterProfileICC({}); }},
        {"imageGravity", [&] { page.setImageGravity("resize"); }},
        {"colorManagement", [&] { page.setColorManagement(2); }},
        {"autoRotate", [&] { page.setAutoRotate(false); }},
        {"applyImageFilters", [&] { page.setApplyImageFilters(true); }},
        {"multicut", [&] { page.setMulticut(2); }},
        {"quality", [&] { page.setQuality(10); }},
    };
    for (const auto& [key, change] : changes) {
        std::vector<std::string> told;
        const auto observe = [&](const std::string& name) {
            return page.observable().observe(
                name, [&told, name] { told.push_back(name); }, [&told, name] { told.push_back("will " + name); });
        };
        const auto own = observe(key), preview = observe("imagePreview");
        change();
        EXPECT_THAT(told, ElementsAre("will " + std::string(key), "will imagePreview", key, "imagePreview"));
    }
}

/// Counts what is rendered, of itself and its snapshots.
class CountingPage : public KLARON_PrintPage {
public:
    explicit CountingPage(std::shared_ptr<std::atomic<int>> count) : count_(std::move(count)) {}
    KLARON_PrintPageRef copy() const override {
        auto page = std::make_shared<CountingPage>(count_);
        copyTo(*page);
        return page;
    }
    FilterImageRef imagePreProcessWithOptions(const base::Dictionary& options) override {
        ++*count_;
        return KLARON_PrintPage::imagePreProcessWithOptions(options);
    }

private:
    std::shared_ptr<std::atomic<int>> count_;
};

class Previews : public testing::Test {
protected:
    static void SetUpTestSuite() {
        static const support::TemporaryDirectory home; // as long as the settings, which live with the process
        base::setPlaces(base::Places::below(home.path().string()));
    }
};

TEST_F(Previews, ThumbnailsAreAsLargeAsTheSettingSays) {
    auto& defaults = platform::data::UserDefaults::standard();
    for (const auto& [setting, size] : std::vector<std::pair<base::Value, base::Size>>{
             {{}, {64, 64}}, {"{100, 50.5}", {100, 50.5}}, {"rubbish", {64, 64}}, {"{0, 9}", {0, 9}}, {{}, {64, 64}}}) {
        ASSERT_TRUE(defaults.setObject(setting, "thumbnailSizeCustom"));
        EXPECT_EQ(KLARON_PrintPage::thumbnailSize(), size);
    }
}

TEST_F(Previews, RenderOneAtATimeAndAnnounceTheirEnd) {
    const support::TemporaryDirectory folder;
    platform::run::RunLoop loop;
    const auto count = std::make_shared<std::atomic<int>>(0);
    const auto page = std::make_shared<CountingPage>(count);
    page->setInputImages({writtenPicture(folder, "a.png", "public.png")});
    page->setImageFilters({{Filter::filterWithName("CIHueAdjust")}});
    page->setOutputSize({80, 60});
    page->setOutputResolution({300, 300});
    platform::draw::ImageRef thumbnail, preview;
    // Whoever is told reads, and that must not start the next rendering.
    const auto ofThumbnail = page->observable().observe("imageThumbnail", [&] { thumbnail = page->imageThumbnail(); });
    const auto ofPreview = page->observable().observe("imagePreview", [&] { preview = page->imagePreview(); });
    const auto waitUntil = [&](const std::function<bool()>& done) {
        return loop.runUntil(done, std::chrono::seconds(60));
    };

    EXPECT_FALSE(page->imageThumbnail());
    EXPECT_FALSE(page->imageThumbnail());
    page->imageFilters()[0][0]->setInput("inputAngle", 1); // while the snapshot is rendered
    page->properties()["gravity"] = "resize";
    ASSERT_TRUE(waitUntil([&] { return thumbnail != nullptr; }));
    EXPECT_EQ(*count, 1);
    EXPECT_EQ(thumbnail, page->imageThumbnail());
    EXPECT_EQ(thumbnail->width(), 64);
    EXPECT_EQ(thumbnail->height(), 48);

    EXPECT_FALSE(page->imagePreview()); // drops the thumbnail, whose observer asks for a new one
    EXPECT_FALSE(page->imagePreview());
    ASSERT_TRUE(waitUntil([&] { return preview && thumbnail; }));
    EXPECT_EQ(preview->width(), 80);
    EXPECT_EQ(preview->height(), 60);
    EXPECT_EQ(*count, 3);
    const auto last = preview;
    EXPECT_EQ(page->imagePreview(), last); // while the next is under way
    ASSERT_TRUE(waitUntil([&] { return preview != last && thumbnail; }));
    EXPECT_EQ(*count, 5);
}

TEST_F(Previews, AProfileThatARenderingRejectsLeavesThePage) {
    platform::run::RunLoop loop;
    class Rejecting : public CountingPage {
    public:
        using CountingPage::CountingPage;
        KLARON_PrintPageRef copy() const override {
            auto page = std::make_shared<Rejecting>(nullptr);
            copyTo(*page);
            return page;
        }
        FilterImageRef imagePreProcessWithOptions(const base::Dictionary&) override {
            setPrinterProfileICC(std::nullopt);
            return nullptr;
        }
    };
    const auto page = std::make_shared<Rejecting>(nullptr);
    page->setPrinterProfileICC(base::URL::fileURLWithPath("/a.icc"));
    page->setColorManagement(2);
    EXPECT_FALSE(page->imageThumbnail());
    ASSERT_TRUE(loop.runUntil([&] { return !page->printerProfileICC(); }, std::chrono::seconds(60)));
    EXPECT_EQ(page->colorManagement(), 1);
}

} // namespace
