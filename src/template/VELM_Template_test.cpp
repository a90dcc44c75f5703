// The model: defaults and rules of the accessors, equality, copies and archives.
#include "internal/TemplateFixture.h"

#include "folders/DefaultsKeys.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/UserDefaults.h"

#include <cstdlib>

using namespace template_testing;
using base::Rect;
using base::Value;
using platform::data::UserDefaults;
using testing::ElementsAre;

namespace {

// The settings of these tests lie in a folder of their own, decided before anything reads them.
class OwnSettings : public testing::Environment {
public:
    OwnSettings() { base::setPlaces(base::Places::below(directory_.path().string())); }

private:
    support::TemporaryDirectory directory_;
};
const auto* const ownSettings = testing::AddGlobalTestEnvironment(new OwnSettings);

struct ViewCase {
    std::string xml;
    std::string expected;
};

// What the accessors with a default or a derivation answer, in one line.
std::string styleOf(const VELM_Template& layer) {
    const base::Size offset = layer.shadowOffset();
    return base::message("%@ %@ %@ a%d|%@ text %@ %@ %d|shadow %d %@ %g %g %g|border %d %@ %g %d|back %d %@",
                         layer.gravity(), layer.name(), layer.hasCropRect() ? "crop" : "", layer.autorotate(),
                         layer.stampFormat(), layer.textColorCode(), layer.fontSize(), layer.textAlignment(),
                         layer.hasShadow(), layer.shadowColorCode(), layer.shadowBlur(), offset.width, offset.height,
                         layer.hasBorder(), layer.borderColorCode(), layer.borderWidth(), layer.borderClipsContent(),
                         layer.hasBackground(), layer.backgroundColorCode());
}

TEST(VELM_Template, ViewsCarryTheDefaults) {
    const ViewCase cases[] = {
        {"<layer/>", "resizeAspectFill (null)  a1|(null) text #000000 48 0|shadow 0 #00000055 9 0 0|"
                     "border 0 #FFFFFF 5 0|back 0 #FFFFFF"},
        {"<layer type='image'><gravity>resizeAspect</gravity><croprect>{{0,0},{1,1}}</croprect></layer>",
         "resizeAspect Internal Preprocessed Template Image crop a1|(null) text #000000 48 0|"
         "shadow 0 #00000055 9 0 0|border 0 #FFFFFF 5 0|back 0 #FFFFFF"},
        {"<layer type='graphic'><gravity>Resize</gravity><filename>a</filename><shadowcolor blur='2' offset='{3, 4}'>"
         "#123456</shadowcolor><border width='0' color='#1'>no</border></layer>",
         "resizeAspectFill a  a1|(null) text #000000 48 0|shadow 1 #12345655 2 3 -4|border 0 #1 0 0|back 0 #FFFFFF"},
        {"<layer type='stamp' key='date'><string>s</string><color>#FFF</color><font size='7'>F</font>"
         "<textAlignment>JUSTIFIED</textAlignment><shadow color='#ABC'>no</shadow><bordercolor>#2</bordercolor>"
         "<background color='#3'>yes</background></layer>",
         "resizeAspectFill s  a1|s text #FFF 7 3|shadow 0 #ABC5 9 0 0|border 1 #2 5 0|back 1 #3"},
    };
    for (const ViewCase& test : cases)
        EXPECT_EQ(styleOf(*templateFrom(test.xml)), test.expected) << test.xml;

    const auto date = templateFrom("<layer type='stamp' key='date'/>");
    EXPECT_THAT(date->stampFormats(), ElementsAre("shortDate", "abrevDate", "longDate", "custom"));
    EXPECT_EQ(date->stampFormat(), "shortDate");
    EXPECT_TRUE(templateFrom("<layer><croprect normal='no'>{{0,0},{1,1}}</croprect></layer>")->isNormalizedCropRect());
}

TEST(VELM_Template, TypesByTheirText) {
    const struct {
        std::string text;
        unsigned type;
        std::string written;
    } cases[] = {{"canvas", 1, "canvas"}, {"container", 2, "container"}, {"node", 2, "container"},
                 {"image", 4, "image"},   {"graphic", 8, "graphic"},     {"textbox", 16, "textbox"},
                 {"stamp", 32, "stamp"},  {"Image", 0, "(null)"},        {"", 0, "(null)"}};
    for (const auto& test : cases) {
        const auto layer = templateFrom("<layer type='" + test.text + "'/>");
        EXPECT_EQ(layer->layerType(), test.type) << test.text;
        EXPECT_EQ(base::message("%@", VELM_Template::stringForLayerType(layer->layerType())), test.written);
        EXPECT_EQ(layer->isTypeContainer(), test.text == "container") << test.text;
        EXPECT_EQ(layer->isTypeNode(), test.text == "node") << test.text;
    }
}

TEST(VELM_Template, ScaleActsOnFrameFontAndBorder) {
    const auto layer = templateFrom("<layer type='textbox' frame='{{10, 20}, {30, 40}}'><string>x</string>"
                                    "<font size='10'>Helvetica</font><border width='3'>yes</border></layer>");
    layer->setScale(0.5);
    EXPECT_EQ(layer->frame(), (Rect{5, 10, 15, 20}));
    EXPECT_EQ(layer->borderWidth(), 1.5);
    EXPECT_EQ(layer->attributes()->fontSize, 5);
    layer->setX(6);
    layer->setBorderWidth(8);
    EXPECT_EQ(layer->frameUnscaled(), (Rect{12, 20, 30, 40}));
    EXPECT_EQ(layer->borderWidth(), 4);
    EXPECT_EQ(layer->scaleForSize({60, 160}), 2);
    EXPECT_EQ(layer->sizeScaledToSize({60, 160}), (base::Size{60, 80}));
    EXPECT_EQ(layer->scaleForSize({0, 160}), std::nullopt);
}

TEST(VELM_Template, SettersKeepTheirRules) {
    const auto document = templateFrom("<layout size='{10, 10}'><layer type='textbox'/></layout>");
    const auto layer = document->layers()[0];
    int told = 0;
    const auto observation = document->observable().observe("changeCount", [&] { ++told; });

    layer->setStringValue(std::nullopt);
    layer->setStringValue("");
    layer->setFontName(std::nullopt);
    layer->setTextAlignment(4);
    layer->setShadowBlur(-1);
    layer->setAutorotate(false);
    layer->setFilepathCustomImage("a");
    EXPECT_EQ(document->changeCount(), 1);
    EXPECT_EQ(told, 1);
    EXPECT_EQ(layer->stringValue(), "");

    layer->setTextAlignment(2);
    EXPECT_EQ(layer->textAlignmentString(), "center");
    layer->setShadowOffsetY(4);
    EXPECT_EQ(layer->value("offset"), Value("{0, 4}"));
    EXPECT_EQ(layer->shadowOffset(), (base::Size{0, -4}));
    layer->setShadowOffset({1, 1});
    EXPECT_EQ(layer->shadowOffset(), (base::Size{0, -4}));
    layer->setShadowOffsetY(0);
    EXPECT_TRUE(layer->value("offset").isNothing());
    layer->setFilepathCustomImage(12);
    EXPECT_EQ(layer->filepathCustomImage(), std::nullopt);
    document->setFilepathCustomImage("/b.jpg");
    EXPECT_EQ(layer->filepathCustomImage(), "/b.jpg");
}

TEST(VELM_Template, EnablingKeepsANoOnlyWhereItMeansSomething) {
    const struct {
        std::string xml;
        void (VELM_Template::*set)(bool);
        std::string_view key;
        std::string no;
    } cases[] = {
        {"<layer/>", &VELM_Template::setHasShadow, "shadowEnabled", "(null)"},
        {"<layer><shadow blur='1'>yes</shadow></layer>", &VELM_Template::setHasShadow, "shadowEnabled", "no"},
        {"<layer/>", &VELM_Template::setHasBorder, "borderEnabled", "(null)"},
        {"<layer><border clipsContent='no'>yes</border></layer>", &VELM_Template::setHasBorder, "borderEnabled", "no"},
        {"<layer><background>yes</background></layer>", &VELM_Template::setHasBackground, "backgroundEnabled",
         "(null)"},
        {"<layer backgroundcolor='#1'/>", &VELM_Template::setHasBackground, "backgroundEnabled", "no"},
    };
    for (const auto& test : cases) {
        const auto layer = templateFrom(test.xml);
        ((*layer).*test.set)(false);
        EXPECT_EQ(layer->value(test.key).description(), test.no) << test.xml << test.key;
        ((*layer).*test.set)(true);
        EXPECT_EQ(layer->value(test.key).description(), "yes") << test.xml << test.key;
    }
}

TEST(VELM_Template, LastUsedColoursAreRemembered) {
    UserDefaults& defaults = UserDefaults::standard();
    const auto layer = templateFrom("<layer type='textbox'/>");
    layer->setBorderColorCode("#112233");
    layer->setBackgroundColorCode("#445566");
    layer->setTextOpacity(0.5);
    const auto other = templateFrom("<layer/>");
    EXPECT_EQ(other->borderColorCode(), "#112233");
    EXPECT_EQ(other->backgroundColorCode(), "#445566");
    EXPECT_EQ(layer->textColorCode(), "#0000007F");
    EXPECT_EQ(defaults.doubleForKey(key_velmTemplateLastUsedOpacityText), 0.5);
    // Enabling a background makes the colour that shows the layer's own, with the opacity used last.
    ASSERT_TRUE(defaults.setObject(0.25, key_velmTemplateLastUsedOpacityBackground));
    other->setHasBackground(true);
    EXPECT_EQ(other->value("backgroundcolor"), Value("#4455663F"));
    for (const auto key : {key_velmTemplateLastUsedColorBorder, key_velmTemplateLastUsedColorBackground,
                           key_velmTemplateLastUsedOpacityText, key_velmTemplateLastUsedOpacityBackground})
        ASSERT_TRUE(defaults.removeObject(key));
}

TEST(VELM_Template, CopiesAreWhatAnArchiveMakes) {
    const auto document = templateFrom("<layout size='{10, 10}'><layer key='a' frame='{{1, 2}, {3, 4}}'/>"
                                       "<layer key='b'><rotation>1</rotation></layer></layout>");
    document->setDocumentURL(base::URL::fileURLWithPath("/t/a.xml"));
    document->setScale(2);
    const auto package = std::make_shared<TestPackage>();
    document->setPackage(package);

    const auto copy = document->copyWithZone();
    const auto archive = platform::data::archivedData(document);
    ASSERT_TRUE(archive) << archive.error().localizedDescription;
    const auto read = platform::data::unarchived(*archive, {"VELM_Template"});
    ASSERT_TRUE(read) << read.error().localizedDescription;
    const auto unarchived = read->object<VELM_Template>();
    ASSERT_TRUE(unarchived);

    EXPECT_EQ(copy->package(), package);
    for (const auto& twin : {copy, unarchived}) {
        EXPECT_TRUE(twin->isEqual(*document));
        EXPECT_EQ(twin->documentURL(), document->documentURL());
        EXPECT_EQ(twin->scale(), std::nullopt);
        ASSERT_EQ(twin->layers().size(), 2U);
        EXPECT_NE(twin->layers()[0], document->layers()[0]);
        EXPECT_EQ(twin->layers()[0]->parent(), nullptr);
    }
    copy->layers()[0]->setKey("changed");
    EXPECT_FALSE(copy->isEqual(*document));
    EXPECT_EQ(document->layers()[0]->key(), "a");
}

TEST(VELM_Template, DocumentsComeOutOfTextsAndData) {
    const struct {
        Value object;
        std::optional<std::string> text;
    } cases[] = {
        {"<data/>", "<data/>"},
        {base::Data("<d>\xC3\xA9</d>"), "<d>\xC3\xA9</d>"},
        {base::Data("<d>\xE9</d>"), {}}, // no UTF-8
        {base::Data(), {}},
        {"", {}},
        {7, {}},
        {{}, {}},
    };
    for (const auto& test : cases) {
        const auto document = VELM_Template::initForCopy();
        EXPECT_EQ(document->initWithObject(test.object), test.text.has_value()) << test.object.description();
        EXPECT_EQ(document->xmlString().value_or(""), test.text.value_or("")) << test.object.description();
    }
}

TEST(VELM_Template, CopyingDropsImagesFromTheLiveLayer) {
    const auto layer = templateFrom("<layer type='image'/>");
    layer->setValue("filepath", Value(std::make_shared<ImageValue>(halves(2, 2, "#FFF", "#FFF"))));
    const LogCapture log;
    EXPECT_TRUE(layer->copyWithZone()->graphicPath().isNothing());
    EXPECT_TRUE(layer->graphicPath().isNothing());
    EXPECT_THAT(log.lines(), ElementsAre("found a non-coding object <CGImage> for key filepath"));
}

} // namespace
