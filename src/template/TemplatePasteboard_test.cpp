// Layers out of pasted pictures and texts.
#include "internal/TemplateFixture.h"

#include "folders/DefaultsKeys.h"
#include "platform/data/AtomicFile.h"
#include "platform/data/Dates.h"
#include "platform/data/UserDefaults.h"
#include "platform/draw/TextFrame.h"

#include <filesystem>

using namespace template_testing;
using base::Rect;
using base::Value;
using platform::data::UserDefaults;

namespace {

const base::Date moment = std::chrono::sys_days(std::chrono::year(2026) / 3 / 5) + std::chrono::hours(12);

class TemplatePasteboard : public testing::Test {
protected:
    TemplatePasteboard() : previous_(platform::data::setDateSource([] { return moment; })) {
        setDefault(key_velmFolderGraphics, graphics.path().string());
    }
    ~TemplatePasteboard() override {
        platform::data::setDateSource(previous_);
        setDefault(key_velmFolderGraphics, {});
        setDefault(key_velmTemplateLastUsedColorText, {});
    }
    static void setDefault(std::string_view key, const Value& value) {
        EXPECT_TRUE(UserDefaults::standard().setObject(value, key));
    }
    static VELM_Template::Ref paste(std::string_view data, std::string_view type) {
        return VELM_Template::initWithPasteboardPropertyList(base::Data(data), type);
    }
    std::string pastedName(std::string_view rest) const {
        return graphics / ("pastedGraphic_" + platform::data::stringWithUTSFormat(moment, "yyyy-MM-dd_HH.mm.ss") +
                           std::string(rest));
    }
    std::size_t fileCount() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(graphics.path()), {}));
    }

    support::TemporaryDirectory graphics;

private:
    platform::data::DateSource previous_;
};

TEST_F(TemplatePasteboard, APictureBecomesAGraphicWithAFileOfItsOwn) {
    const support::TemporaryDirectory elsewhere;
    writePicture(elsewhere / "a.jpg", halves(40, 20, "#F00", "#00F"), "public.jpeg",
                 {{"Orientation", std::int64_t{6}}});
    const std::string jpeg = platform::data::readFileBytes(elsewhere / "a.jpg").value();
    std::filesystem::create_symlink("nowhere", pastedName(".jpeg-1")); // a name that is taken, if by nothing
    for (const std::string_view name : {".jpeg", ".jpeg-2"}) {
        const auto layer = paste(jpeg, "public.jpeg");
        EXPECT_EQ(layer->graphicPath(), Value(pastedName(name)));
        EXPECT_EQ(layer->layerType(), VELM_Template::LayerTypeGraphic);
        EXPECT_EQ(layer->frame(), (Rect{0, 0, 20, 40}));
        EXPECT_EQ(platform::data::readFileBytes(pastedName(name)).value(), jpeg);
        const auto document = VELM_Template::init();
        document->addLayer(layer);
        EXPECT_EQ(pixelAt(document->createProductImage(), 10, 2), red) << "the picture is there, upright";
    }
    const auto wrong = paste("no picture", "PUBLIC.png");
    EXPECT_EQ(wrong->frame(), Rect());
    EXPECT_EQ(platform::data::readFileBytes(wrong->graphicPath().textOr("")).value(), "no picture");
    EXPECT_EQ(fileCount(), 4u) << "nothing else stays behind";
}

TEST_F(TemplatePasteboard, WhatCannotBeWrittenGivesAnEmptyLayer) {
    graphics.write(pastedName(".png").substr(graphics.path().string().size() + 1), "x");
    for (int counter = 1; counter < 999; ++counter)
        graphics.write(std::filesystem::path(pastedName(".png-" + std::to_string(counter))).filename().string(), "x");
    const LogCapture log;
    EXPECT_EQ(paste("x", "public.png")->valuesDict(), base::Dictionary());
    EXPECT_EQ(fileCount(), 999u);
    std::filesystem::remove(pastedName(".png-998"));
    EXPECT_EQ(paste("x", "public.png")->graphicPath(), Value(pastedName(".png-998"))) << "the last of 999 tries";

    setDefault(key_velmFolderGraphics, graphics / "missing");
    EXPECT_EQ(paste("x", "public.png")->valuesDict(), base::Dictionary());
    setDefault(key_velmFolderGraphics, {});
    EXPECT_EQ(paste("x", "public.png")->valuesDict(), base::Dictionary());
    EXPECT_EQ(paste("x", "public.folder")->valuesDict(), base::Dictionary());
    EXPECT_EQ(VELM_Template::initWithPasteboardPropertyList("x", "public.rtf")->valuesDict(), base::Dictionary());
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(TemplatePasteboard, ATextBecomesATextboxInItsStyle) {
    const struct {
        std::string_view type, source;
        base::Dictionary values; // but for the frame
    } cases[] = {
        {"public.rtf",
         "{\\rtf1{\\fonttbl{\\f0 DejaVu Sans;}}{\\colortbl;\\red255\\green0\\blue0;}\\qr\\f0\\b\\fs45\\cf1 Two\\par "
         "lines}",
         {{"type", "textbox"},
          {"string", "Two\nlines"},
          {"color", "#FF0000FF"},
          {"font", "DejaVuSans-Bold"},
          {"size", "22.5"},
          {"textAlignment", "right"}}},
        {"public.html",
         "<p align=left><font face='No Such Font'>x",
         {{"type", "textbox"},
          {"string", "x"},
          {"color", "#000000FF"},
          {"font", "No Such Font"},
          {"size", "12"},
          {"textAlignment", "left"}}},
        {"public.utf8-plain-text",
         "plain",
         {{"type", "textbox"}, {"string", "plain"}, {"color", "#000000FF"}, {"font", "Helvetica"}, {"size", "12"}}},
        {"public.text", "", {{"type", "textbox"}}},
    };
    for (const auto& test : cases) {
        const LogCapture log;
        const auto layer = paste(test.source, test.type);
        base::Dictionary values = layer->valuesDict();
        values.erase("frame");
        EXPECT_EQ(Value(values), Value(test.values)) << test.source;
        if (!test.values.contains("string")) continue;
        EXPECT_EQ(UserDefaults::standard().objectForKey(key_velmTemplateLastUsedColorText), values["color"]);
        // All of it shows, in the lines that it had.
        const std::string text = *layer->stringValue();
        const platform::draw::TextFrame drawn({text, *layer->attributes()}, layer->frame().size());
        EXPECT_TRUE(drawn.isComplete());
        EXPECT_EQ(drawn.lines().size(), 1u + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
    }
    const LogCapture log;
    EXPECT_EQ(Value(paste("no RTF", "public.rtf")->valuesDict()), Value(base::Dictionary{{"type", "textbox"}}));
    EXPECT_THAT(log.lines(), testing::ElementsAre("cannot read the text: it is no RTF"));
}

} // namespace
