// The file grammar: what each attribute and child does to the values of a layer and of a document.
#include "internal/TemplateFixture.h"

#include "base/Text.h"

using namespace template_testing;
using base::Dictionary;
using base::Rect;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct LayerCase {
    std::string xml;
    Dictionary values;
};

TEST(TemplateGrammar, LayersGiveTheirValues) {
    const LayerCase cases[] = {
        {R"(<layer/>)", {}},
        {R"(<LAYER Type="image" KEY="k" zIndex="7" Frame="{{1, 2}, {3, 4}}" backgroundColor="#123" gravity="resize"/>)",
         {{"type", "image"},
          {"key", "k"},
          {"zindex", "7"},
          {"frame", Rect{1, 2, 3, 4}},
          {"backgroundcolor", "#123"},
          {"gravity", "resize"}}},
        // A child of the same meaning comes after the attribute.
        {R"(<layer key="a" gravity="resize"><key>b</key><gravity>other</gravity></layer>)",
         {{"key", "b"}, {"gravity", "other"}}},
        {R"(<layer frame="{{1, 2}, {0, 4}}"><width>9</width></layer>)", {{"frame", Rect{0, 0, 9, 0}}}},
        {R"(<layer frame="{{1, 2}, {3, 4}}"><startx>5</startx><starty>6.5</starty><height>x</height></layer>)",
         {{"frame", Rect{5, 6.5, 3, 0}}}},
        {R"(<layer type="edittextbox"><stringnumber>3</stringnumber></layer>)",
         {{"type", "stamp"}, {"key", "edittextbox"}, {"stamp", "3"}}},
        {R"(<layer type="EditTextBox"><key>mine</key></layer>)", {{"type", "stamp"}, {"key", "mine"}}},
        {R"(<layer type="textbox"><stringnumber>3</stringnumber></layer>)", {{"type", "textbox"}}},
        {R"(<layer><filepath>imagefile</filepath><FileName>a.png</FileName></layer>)",
         {{"filepath", "imagefile"}, {"key", "image1"}, {"filename", "a.png"}}},
        {R"(<layer><type>date</type></layer>)", {{"stamp", "date"}, {"key", "date"}}},
        {R"(<layer type="stamp"><string>shortDate</string></layer>)",
         {{"type", "stamp"}, {"string", "shortDate"}, {"stampFormat", "shortDate"}}},
        {R"(<layer type="textbox"><string>Hi<!-- there --> you</string><croprect normal="no">c</croprect></layer>)",
         {{"type", "textbox"}, {"string", "Hi you"}, {"croprect", "c"}, {"normal", "no"}}},
        {R"(<layer><textshadow optional="no" blur="3">#000</textshadow></layer>)",
         {{"shadowcolor", "#000"}, {"textshadowOptional", "no"}, {"blur", 3.0}}},
        {R"(<layer><shadow/></layer>)", {{"shadowEnabled", "no"}}},
        // The font's attributes go under their own spelling, its name in the place of the layer's.
        {R"(<layer><font Size="20" name="N">Courier</font></layer>)",
         {{"font", "Courier"}, {"Size", "20"}, {"name", "N"}}},
        {R"(<layer><font size="20"/></layer>)", {{"font", ""}, {"size", "20"}}},
        {R"(<layer><bordercolor width="x" shadowcolor="#1" blur="2" clipsContent="maybe">#00F</bordercolor></layer>)",
         {{"bordercolor", "#00F"},
          {"borderWidth", 0.0},
          {"borderShadowColor", "#1"},
          {"borderShadowBlur", "2"},
          {"clipsContent", "maybe"}}},
        {R"(<layer><overflowx>a</overflowx><overflowy>b</overflowy><hideExtension>yes</hideExtension></layer>)",
         {{"overflowx", "a"}, {"overflowy", "b"}, {"hideExtension", "yes"}}},
        // Unknown children are dropped, attributes of children that have none are not looked at.
        {R"(<layer><unknown>1</unknown><layer type="image"/><key a="b">k</key></layer>)", {{"key", "k"}}},
    };
    for (const LayerCase& test : cases) {
        const LogCapture log;
        EXPECT_EQ(base::Value(templateFrom(test.xml)->valuesDict()), base::Value(test.values)) << test.xml;
        EXPECT_THAT(log.lines(), IsEmpty()) << test.xml;
    }
}

TEST(TemplateGrammar, WhatIsNotUnderstoodIsLoggedAndDropped) {
    const struct {
        std::string xml;
        std::vector<std::string> lines;
    } cases[] = {
        {R"(<layer colour="red"/>)",
         {R"(encountered unknown layer attribute: colour="red")",
          R"(encountered unknown layer attribute: colour="red")"}},
        {R"(<layer><border shadowcolor="#1">yes</border></layer>)",
         {R"(encountered unknown border attribute: shadowcolor="#1")"}},
        {R"(<layer><croprect x="1"/></layer>)", {R"(encountered unknown croprect attribute: x="1")"}},
        {R"(<layer><?php 1?><!-- fine --></layer>)", {"Found unexpected XML element kind:\n5"}},
        {R"(<layer frame="{{0, 0}, {-5, 5}}"/>)", {"ERROR: attempt to set negative width -5.000000"}},
        {R"(<layout size="{0, 10}"/>)", {"ERROR: attempt to set non-positive width 0.000000"}},
        {R"(<layout unknown="1">text<layer/></layout>)", {"Found unexpected XML element kind:\n7"}},
        {R"(<other>text</other>)", {"-+-+-+-+-+-+ adding unknown XML <other>text</other>"}},
    };
    for (const auto& test : cases) {
        const LogCapture log;
        templateFrom(test.xml);
        EXPECT_EQ(log.lines(), test.lines) << test.xml;
    }
}

TEST(TemplateGrammar, BodiesAreContainersWithNameAndSize) {
    const struct {
        std::string xml;
        std::string name;
        Rect frame;
    } cases[] = {
        {R"(<layout size="{300, 200}"/>)", "layout", {0, 0, 300, 200}},
        {R"(<Portrait id="a" key="b"/>)", "b", {}},
        {R"(<square name="s" size="{5, 5}"><width>7</width></square>)", "s", {0, 0, 7, 5}},
    };
    for (const auto& test : cases) {
        const auto body = templateFrom(test.xml);
        EXPECT_EQ(body->name(), test.name) << test.xml;
        EXPECT_EQ(body->frame(), test.frame) << test.xml;
        EXPECT_EQ(body->layerType(), VELM_Template::LayerTypeContainer) << test.xml;
        EXPECT_TRUE(body->isTypeContainer()) << test.xml;
    }
    // Other children are kept under the spelling of the file; they can't harm the layers.
    const auto body = templateFrom("<layout><Note>hi</Note><layers>x</layers><layer key='k'/></layout>");
    EXPECT_EQ(body->value("Note"), base::Value("hi"));
    ASSERT_EQ(body->layers().size(), 1U);
    EXPECT_EQ(body->layers()[0]->parent(), body);
}

TEST(TemplateGrammar, CanvasElements) {
    const auto canvas =
        templateFrom(R"(<canvas size="{10, 20}" width="30" other="x"><node name="a" frame="{{1, 2}, {3, 4}}"/>)"
                     R"(<node frame="{{5, 6}, {7, 8}}"/><node frame="{{9, 9}, {0, 9}}"/></canvas>)");
    EXPECT_EQ(base::Value(canvas->valuesDict()),
              base::Value(Dictionary{{"type", "canvas"}, {"frame", Rect{5, 6, 7, 8}}}));
    EXPECT_EQ(templateFrom(R"(<canvas size="{10, 20}" width="30"/>)")->canvasSize(), (base::Size{30, 20}));
}

} // namespace
