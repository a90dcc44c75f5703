// Documents on their way into files and back: what survives, what is lost, and the steps of a save.
#include "internal/TemplateFixture.h"

#include "template/TemplateKeys.h"

#include <filesystem>
#include <set>

using namespace template_testing;
using base::Dictionary;
using base::URL;
using base::Value;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

std::string written(VELM_Template& document) {
    return std::string(document.xmlForSaving()->xmlData(platform::data::XMLFormat::prettyPrinted).asText());
}

VELM_Template::Ref read(std::string_view text) {
    auto document = VELM_Template::templateWithPath(base::Data(text), std::nullopt);
    EXPECT_TRUE(document) << text;
    return document ? document : VELM_Template::init();
}

// A layer with every key of which files know.
std::string fullLayer(std::string_view type) {
    return "<layer type='" + std::string(type) + R"(' frame='{{1.5, -2}, {0.1, 1000000}}' zindex='7'>
        <key>k</key><filepath>/a &amp; b.png</filepath><filename>c</filename><type>date</type>
        <hideExtension>yes</hideExtension><gravity>odd</gravity><croprect normal='no'>{{0, 0}, {1, 2}}</croprect>
        <textAlignment>Center</textAlignment><overflowx>x</overflowx><overflowy>y</overflowy>
        <string>&lt;"one"&#10; &#13;&#9;two ü </string><rotation>0.25</rotation><color optional='1'>#123</color>
        <textshadow optional='2' blur='1' offset='{9, 9}'>#321</textshadow>
        <shadow blur='0.30000000000000004' color='#ab"c' offset='{3, 4}'>yes</shadow>
        <font name='n' size='20.5'>Courier</font>
        <bordercolor width='1' shadowcolor='#1' blur='2' clipsContent='?'>#456</bordercolor>
        <border width='3' color='#0F0' clipsContent='1'>true</border>
        <background color='#789'>no</background></layer>)";
}

TEST(TemplateSaving, WhatIsReadAgainIsWhatATypeWrites) {
    using Keys = std::set<std::string, std::less<>>;
    const Keys all{"type", "frame", "zindex"};
    const Keys styles{"key",    "rotation",      "shadowEnabled", "blur",        "shadowcolor",
                      "offset", "borderEnabled", "clipsContent",  "bordercolor", "borderWidth"};
    const Keys pictures{"filepath", "gravity", "croprect", "normal"};
    const Keys texts{"string",          "font",         "size", "textAlignment", "color", "backgroundEnabled",
                     "backgroundcolor", "hideExtension"};
    const struct {
        std::string type;
        std::vector<Keys> kept;
    } cases[] = {
        {"image", {all, styles, pictures}},
        {"graphic", {all, styles, pictures}},
        {"node", {all, styles, pictures}},
        {"textbox", {all, styles, texts}},
        {"canvas", {all}},
        {"Image", {all}},
        {"stamp", {all, styles, texts, {"stampFormat"}}},
    };
    Keys seen{"allimages", "autorotate", "layers", "preprocess", "textshadow", "version"}; // known to no layer's file
    for (const auto& test : cases) {
        const LogCapture log; // of the node's missing file
        const auto document = read(fileOf(fullLayer(test.type), "{300.25, 7}"));
        Dictionary expected;
        for (const auto& [key, value] : document->layers()[0]->valuesDict()) {
            seen.insert(key);
            for (const Keys& keys : test.kept)
                if (keys.contains(key)) expected.emplace(key, value);
        }
        const std::string first = written(*document);
        const auto again = read(first);
        EXPECT_EQ(Value(again->layers()[0]->valuesDict()), Value(expected)) << first;
        EXPECT_EQ(again->canvasSize(), (base::Size{300.25, 7}));
        const std::string second = written(*again);
        EXPECT_EQ(written(*read(second)), second);
        // The shadow of a border is written, and no reading takes it up.
        EXPECT_EQ(second == first, test.kept.size() == 1) << first << second;
    }
    for (const TemplateKey& key : templateKeys())
        EXPECT_TRUE(seen.contains(key.name)) << key.name;
}

// A document as the editor makes one: with values that no file can hold, attributes whose child is missing, a scale,
// and a container with layers.
TEST(TemplateSaving, TheWrittenForm) {
    const auto document = VELM_Template::init();
    document->setValue("name", "lost");
    document->setValue("backgroundcolor", "#lost");
    const auto text = document->addLayerOfType(VELM_Template::LayerTypeTextbox);
    text->setRotation(0.5);
    text->setShadowBlur(2);
    text->setHasShadow(true);
    text->setFontSize("20");
    text->setValue("bordercolor", "#lost");
    text->setValue("offset", base::Point{1, 2});
    const auto nested = document->addLayerOfType(VELM_Template::LayerTypeContainer);
    nested->addLayerOfType(VELM_Template::LayerTypeImage);
    nested->setGraphicPath("badge.xml");
    nested->setScale(2);
    document->addLayer(VELM_Template::initForCopy());
    const LogCapture log;
    EXPECT_EQ(written(*document), R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<data type="VELM_Template" version="1.0">
    <layout size="{1000, 1000}">
        <layer type="textbox" frame="{{100, 100}, {500, 200}}" zindex="100">
            <string>textbox</string>
            <shadow blur="2" offset="">yes</shadow>
            <rotation>0.5</rotation>
        </layer>
        <layer type="node" frame="{{200, 200}, {1000, 400}}" zindex="200">
            <filepath>badge.xml</filepath>
        </layer>
        <layer frame="{{0, 0}, {0, 0}}" zindex="300"/>
    </layout>
</data>
)");
    EXPECT_THAT(log.lines(), ElementsAre("ERROR! non-string value:{1, 2} offset"));
}

class TemplateSavingSteps : public testing::Test {
protected:
    /// What the reply got: file name or error.
    static std::string saved(VELM_Template& document, const std::optional<URL>& url) {
        std::string told = "no reply";
        document.saveChangesToURL(url, [&](const auto& written, const auto& error) {
            EXPECT_FALSE(written && error);
            told = written ? written->lastPathComponent() : error ? error->localizedDescription : "nothing";
        });
        return told;
    }
    std::string names() const {
        std::set<std::string> sorted;
        for (const auto& entry : fs::directory_iterator(files.path()))
            sorted.insert(entry.path().filename());
        std::string all;
        for (const std::string& name : sorted)
            all += name + " ";
        return all;
    }
    URL url(std::string_view name) const { return URL::fileURLWithPath(files / name); }

    support::TemporaryDirectory files;
};

TEST_F(TemplateSavingSteps, OnlyChangesAreWritten) {
    const auto document = VELM_Template::instanceWithXMLObject(files.write("a.xml", fileOf("<layer type='image'/>")));
    EXPECT_EQ(saved(*document, url("b.xml")), "a.xml");
    document->layers()[0]->setKey("k");
    EXPECT_EQ(saved(*document, url("b.xml")), "b.xml");
    EXPECT_FALSE(document->hasUnsavedChanges());
    EXPECT_EQ(saved(*document, url("c.xml")), "a.xml"); // the document keeps its URL
    EXPECT_EQ(names(), "a.xml b.xml ");
    document->layers()[0]->setKey({});
    EXPECT_EQ(saved(*document, std::nullopt), "a.xml");
    document->layers()[0]->setKey("k");
    int told = 0;
    const auto observation = document->observable().observe("hasUnsavedChanges", [&] { ++told; });
    document->saveChanges({});
    EXPECT_EQ(told, 1);
    EXPECT_EQ(support::readFile(files / "a.xml"), support::readFile(files / "b.xml"));
    EXPECT_TRUE(VELM_Template::instanceWithXMLObject(files / "b.xml")->isEqual(*document));
}

TEST_F(TemplateSavingSteps, AnOlderFileIsMovedAside) {
    const struct {
        std::string version; // of the document, in the file that stands there
        bool urlIsGiven;
        std::string names; // of the files afterwards
    } cases[] = {
        {"version='1.0'", true, "photo.old.xml "},
        {"version='0.9'", false, "photo.old.xml "},
        {"version='0.9'", true, "photo.old.oldVELM.xml photo.old.xml "},
        {"", true, "photo.old.oldVELM.xml photo.old.xml "}, // what was kept first stays
    };
    for (const auto& test : cases) {
        const std::string path = files.write("photo.old.xml", "<data " + test.version + "><layout/></data>");
        const auto document = VELM_Template::instanceWithXMLObject(path);
        document->setWidth(5);
        EXPECT_EQ(saved(*document, test.urlIsGiven ? std::optional(url("photo.old.xml")) : std::nullopt),
                  "photo.old.xml");
        EXPECT_EQ(names(), test.names) << test.version;
        EXPECT_THAT(support::readFile(path), HasSubstr("VELM_Template\" version=\"1.0\""));
    }
    EXPECT_THAT(support::readFile(files / "photo.old.oldVELM.xml"), HasSubstr("0.9"));
}

TEST_F(TemplateSavingSteps, AFailureIsToldAndLeavesWhatStood) {
    const auto document = VELM_Template::init();
    const LogCapture log;
    EXPECT_EQ(saved(*document, std::nullopt), "No filepathURL specified");
    document->saveChanges({});
    EXPECT_THAT(log.lines(), ElementsAre(testing::AllOf(testing::StartsWith("-[VELM_Template filePath:saveChanges:]:"),
                                                        HasSubstr("No filepathURL specified"))));
    files.write("folder.xml/a", "");
    EXPECT_THAT(saved(*document, url("folder.xml")), HasSubstr("folder.xml"));
    EXPECT_THAT(saved(*document, url("none/a.xml")), HasSubstr("none/a.xml"));
    EXPECT_THAT(saved(*document, URL::fromString("https://example.invalid/a.xml")), HasSubstr("names no file"));
    EXPECT_EQ(names(), "folder.xml ");
    EXPECT_TRUE(document->hasUnsavedChanges());
}

} // namespace
