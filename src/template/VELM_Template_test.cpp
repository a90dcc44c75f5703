// The model: defaults and rules of the accessors, equality, copies and archives.
#include "internal/TemplateFixture.h"

#include "base/Text.h"
#include "folders/DefaultsKeys.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/UserDefaults.h"

#include <fstream>

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

void forgetWhatWasLastUsed() {
    for (const TemplateKey& key : templateKeys()) {
        for (const auto setting : {key.lastUsed, key.lastUsedOpacity})
            ASSERT_TRUE(setting.empty() || UserDefaults::standard().removeObject(setting));
    }
}

// What the accessors with a default or a derivation answer, in one line.
std::string styleOf(const VELM_Template& layer) {
    const base::Size offset = layer.shadowOffset();
    return base::message("%@ %@ %@ a%d|%@ text %@ %@:%@ %d|shadow %d %@ %g %g %g|border %d %@ %g %d|back %d %@",
                         layer.gravity(), layer.name(), layer.hasCropRect() ? "crop" : "", layer.autorotate(),
                         layer.stampFormat(), layer.textColorCode(), layer.fontName(), layer.fontSize(),
                         layer.textAlignment(), layer.hasShadow(), layer.shadowColorCode(), layer.shadowBlur(),
                         offset.width, offset.height, layer.hasBorder(), layer.borderColorCode(), layer.borderWidth(),
                         layer.borderClipsContent(), layer.hasBackground(), layer.backgroundColorCode());
}

TEST(VELM_Template, ViewsCarryTheDefaults) {
    forgetWhatWasLastUsed();
    const ViewCase cases[] = {
        {"<layer/>", "resizeAspectFill (null)  a1|(null) text #000000 Helvetica:48 0|shadow 0 #00000055 9 0 0|"
                     "border 0 #FFFFFF 5 0|back 0 #FFFFFF"},
        {"<layer type='graphic'><gravity>Resize</gravity><filename>a</filename><shadowcolor blur='2' offset='{3, 4}'>"
         "#123456</shadowcolor><border width='0' color='#1'>no</border></layer>",
         "resizeAspectFill a  a1|(null) text #000000 Helvetica:48 0|shadow 1 #12345655 2 3 -4|border 0 #1 0 0|back 0 "
         "#FFFFFF"},
        {"<layer type='stamp' key='date'><string>s</string><color>#FFF</color><font size='7'>F</font>"
         "<textAlignment>JUSTIFIED</textAlignment><shadow color='#ABC'>no</shadow><bordercolor>#2</bordercolor>"
         "<background color='#3'>yes</background></layer>",
         "resizeAspectFill s  a1|s text #FFF F:7 3|shadow 0 #ABC5 9 0 0|border 1 #2 5 0|back 1 #3"},
    };
    for (const ViewCase& test : cases)
        EXPECT_EQ(styleOf(*templateFrom(test.xml)), test.expected) << test.xml;

    const auto date = templateFrom("<layer type='stamp' key='date'/>");
    EXPECT_THAT(date->stampFormats(), ElementsAre("shortDate", "abrevDate", "longDate", "custom"));
    EXPECT_EQ(date->stampFormat(), "shortDate");
    EXPECT_TRUE(templateFrom("<layer><croprect normal='no'>{{0,0},{1,1}}</croprect></layer>")->isNormalizedCropRect());
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

// Everything that answers another value when setters are called.
const auto changingProperties = base::split(
    "type layerType name frame frameUnscaled x y width height canvasSize zLevelString key keyPlaceholder stampFormats "
    "stampFormat gravity graphicPath filepathCustomImage rotation autorotate stringValue fontName fontSize "
    "textAlignment textAlignmentString textColorCode textOpacity hasShadow shadowColorCode shadowOpacity shadowBlur "
    "shadowOffsetX shadowOffsetY shadowOffset hasBorder borderWidth borderColorCode borderOpacity borderClipsContent "
    "hasBackground backgroundColorCode backgroundOpacity",
    " ");

// What a setter did: the value stored under a key, the parent's change count, and a word when anybody was told.
struct Setting {
    std::string xml;
    std::string_view property;
    Value argument;
    std::string_view key;
    std::string outcome;
};

class Settings : public testing::Test {
protected:
    Settings() { forgetWhatWasLastUsed(); }
    ~Settings() override { forgetWhatWasLastUsed(); }

    // Sets the layer's property twice, so that it counts once where only what differs is stored, and checks that each
    // property whose value changed was told, before and after.
    static std::string outcome(const Setting& setting) {
        const auto document = templateFrom("<layout size='{10, 10}'>" + setting.xml + "</layout>");
        const auto layer = document->layers()[0];
        const auto countBefore = document->changeCount();
        std::map<std::string_view, std::pair<Value, Value>> told; // what was answered before and after
        std::vector<platform::run::Observation> observations;
        std::map<std::string_view, Value> before;
        const auto observe = [&](const VELM_Template::Ref& observed, std::string_view name) {
            observations.push_back(observed->observable().observe(
                name, [&told, name, observed] { told[name].second = observed->valueForKey(name); },
                [&told, name, observed] { told.try_emplace(name, observed->valueForKey(name), Value()); }));
        };
        for (const auto& name : changingProperties) {
            before[name] = layer->valueForKey(name);
            observe(layer, name);
        }
        observe(document, "changeCount");

        for (int time = 0; time < 2; ++time)
            EXPECT_TRUE(layer->setValueForKey(setting.property, setting.argument)) << setting.property;
        for (const auto& [name, value] : before) {
            const Value after = layer->valueForKey(name);
            if (value == after) continue;
            EXPECT_TRUE(told.contains(name)) << setting.property << " changed " << name;
            EXPECT_EQ(told[name].first, value) << name;
            EXPECT_EQ(told[name].second, after) << name;
        }
        const auto count = document->changeCount() - countBefore;
        EXPECT_EQ(told["changeCount"].second, count == 0 ? Value() : Value(document->changeCount()));
        told.erase("changeCount");
        return base::message("%@ %ld%@", layer->value(setting.key), count, told.empty() ? "" : " told");
    }
};

TEST_F(Settings, KeepTheRuleOfTheirKey) {
    const std::string framed = "<layer frame='{{1, 2}, {3, 4}}'/>";
    const std::string shadowed = "<layer><shadow blur='1' offset='{0, 4}'>yes</shadow></layer>";
    const std::string text = "<layer type='textbox'><string></string><font size='7'>F</font></layer>";
    const Setting settings[] = {
        {framed, "x", 9, "frame", "{{9, 2}, {3, 4}} 2 told"},
        {framed, "height", -1, "frame", "{{1, 2}, {3, 4}} 0"},
        {framed, "frame", Rect{0, 0, -1, 1}, "frame", "{{1, 2}, {3, 4}} 0"},
        {framed, "frame", Rect{0, 0, 0, 0}, "frame", "{{0, 0}, {0, 0}} 2 told"},
        {framed, "layerType", 4, "type", "image 2 told"},
        {text, "layerType", 3, "type", "(null) 2 told"},
        {"<layer type='graphic'/>", "graphicPath", "a.jpg", "filepath", "a.jpg 1 told"},
        {"<layer><filepath>a</filepath></layer>", "graphicPath", "a", "filepath", "a 0"},
        {framed, "filepathCustomImage", "/a.jpg", "allimages", "/a.jpg 0 told"},
        {framed, "filepathCustomImage", 12, "allimages", "(null) 0 told"},
        {"<layer type='stamp'/>", "stringValue", "a", "string", "a 1 told"},
        {framed, "stringValue", {}, "string", " 1 told"},
        {text, "fontName", "G", "font", "G 1 told"},
        {text, "fontName", {}, "font", "F 0"},
        {text, "fontSize", 8, "size", "8 1 told"},
        {text, "textAlignmentString", {}, "textAlignment", " 1 told"},
        {text, "textAlignment", 2, "textAlignment", "center 2 told"},
        {text, "textAlignment", std::int64_t(1) << 32, "textAlignment", "(null) 0"},
        {text, "textOpacity", 0.5, "color", "#0000007F 2 told"},
        {framed, "shadowOpacity", 2, "shadowcolor", "#000000FF 2 told"},
        {framed, "shadowBlur", 0, "blur", "0 2 told"},
        {framed, "shadowBlur", -1, "blur", "(null) 0"},
        {shadowed, "shadowOffsetX", 3, "offset", "{3, 4} 2 told"},
        {shadowed, "shadowOffsetY", 0, "offset", "(null) 2 told"},
        {framed, "borderClipsContent", true, "clipsContent", "yes 2 told"},
        // A no is only kept beside what would mean a yes or is written with it.
        {framed, "hasShadow", false, "shadowEnabled", "(null) 2 told"},
        {shadowed, "hasShadow", false, "shadowEnabled", "no 2 told"},
        {"<layer><textshadow>#1</textshadow></layer>", "hasShadow", false, "shadowEnabled", "no 2 told"},
        {"<layer><border clipsContent='no'>yes</border></layer>", "hasBorder", false, "borderEnabled", "no 2 told"},
        {"<layer><background>yes</background></layer>", "hasBackground", false, "backgroundEnabled", "(null) 2 told"},
        {"<layer backgroundcolor='#1'/>", "hasBackground", false, "backgroundEnabled", "no 2 told"},
        {"<layer backgroundcolor='#1'/>", "hasBackground", true, "backgroundEnabled", "yes 2 told"},
    };
    const LogCapture log;
    for (const Setting& setting : settings)
        EXPECT_EQ(outcome(setting), setting.outcome) << setting.xml << setting.property;
    EXPECT_THAT(log.lines(), ElementsAre("ERROR: attempt to set non-positive height -1.000000", testing::_,
                                         "ERROR: attempt to set negative width -1.000000", testing::_));

    const std::pair<std::string_view, std::string_view> storedAsGiven[] = {{"zLevelString", "zindex"},
                                                                           {"rotation", "rotation"},
                                                                           {"borderWidth", "borderWidth"},
                                                                           {"textColorCode", "color"}};
    for (const auto& [property, key] : storedAsGiven) {
        EXPECT_EQ(outcome({"<layer/>", property, "odd", key, {}}), "odd 2 told") << property;
        EXPECT_EQ(outcome({"<layer/>", property, {}, key, {}}), "(null) 2 told") << property;
    }
}

TEST(VELM_Template, PropertiesRefuseWhatTheyDontTake) {
    const auto layer = templateFrom("<layer><shadow offset='{0, 4}'>yes</shadow></layer>");
    const std::pair<std::string_view, Value> refused[] = {
        {"frame", "{{0, 0}, {1, 1}}"}, {"width", {}}, {"stringValue", base::Array()}, {"canvasSize", 1}, {"none", 1}};
    for (const auto& [property, value] : refused)
        EXPECT_FALSE(layer->setValueForKey(property, value)) << property;
    EXPECT_TRUE(layer->valueForKey("none").isNothing());
    layer->setShadowOffset({1, 1});
    EXPECT_EQ(layer->valueForKey("shadowOffset"), Value(base::Size{0, -4})); // the stored one, turned over
}

TEST(VELM_Template, AnObserverMayLetGoOfIt) {
    auto layer = templateFrom("<layer/>");
    const auto observation = layer->observable().observe(
        "key", [] {}, [&] { layer.reset(); });
    layer->setKey("a");
    EXPECT_EQ(layer, nullptr);
}

TEST(VELM_Template, ChangesAreToldUntilTheyAreSaved) {
    const support::TemporaryDirectory folder;
    const auto file = folder.path() / "a.xml";
    std::ofstream(file) << fileOf("<layer type='textbox'><string>a</string></layer>");
    const auto document = VELM_Template::templateWithPath(file.string(), std::nullopt);
    std::string told;
    const auto observation = document->observable().observe(
        "hasUnsavedChanges", [&] { told += document->hasUnsavedChanges() ? "yes " : "no "; });
    document->layers()[0]->setStringValue("b");
    document->layers()[0]->setStringValue("a"); // by hand undone
    document->setWidth(50);
    document->saveChanges({});
    EXPECT_EQ(told, "yes no yes no ");

    // Another order and the old one again.
    document->addLayer(templateFrom("<layer/>"));
    document->saveChanges({});
    for (int time = 0; time < 2; ++time) {
        document->layers()[0]->setZLevelString("1000");
        document->sortLayers();
    }
    EXPECT_FALSE(document->hasUnsavedChanges());
    EXPECT_TRUE(told.ends_with("no "));
}

TEST(VELM_Template, IsDescribedByItsType) {
    const struct {
        std::string xml;
        std::string description;
    } cases[] = {
        {"<layer type='textbox'><string>Hi</string><font size='7'>F</font>"
         "<shadow blur='2' color='#123' offset='{3, 4}'>yes</shadow></layer>",
         "textbox {{0, 0}, {0, 0}}:Hi:7:->('Hi';font->(F:7);textcolor->(#000000);"
         "shadow->(#1235; x:3.000000; y:4.000000; blur:2))"},
        {"<layout size='{5, 6}'><layer type='canvas' zindex='1'/></layout>",
         "VELM_Template\n  frame = {{0, 0}, {5, 6}};\n  frame = {{0, 0}, {5, 6}}\n"
         "  layers =   canvas {{0, 0}, {0, 0}}:\n  name = layout\n  type = container"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(templateFrom(test.xml)->description(), test.description);
}

TEST(VELM_Template, LastUsedColoursAreRemembered) {
    UserDefaults& defaults = UserDefaults::standard();
    const std::pair<std::string_view, Value> remembered[] = {
        {key_velmTemplateLastUsedColorText, "#1"},       {key_velmTemplateLastUsedOpacityText, 0.5},
        {key_velmTemplateLastUsedColorBorder, "#2"},     {key_velmTemplateLastUsedOpacityBorder, 0.75},
        {key_velmTemplateLastUsedColorBackground, "#3"}, {key_velmTemplateLastUsedOpacityBackground, 0.25}};
    const auto layer = templateFrom("<layer/>");
    layer->setTextColorCode("#1");
    layer->setTextOpacity(0.5);
    layer->setBorderColorCode("#2");
    layer->setBorderOpacity(0.75);
    layer->setBackgroundColorCode("#3");
    layer->setBackgroundOpacity(0.25);
    for (const auto& [setting, value] : remembered)
        EXPECT_EQ(defaults.objectForKey(setting), value) << setting;

    layer->setBackgroundColorCode("#445566");
    const auto other = templateFrom("<layer/>");
    EXPECT_EQ(other->textColorCode(), "#000000");
    EXPECT_EQ(other->borderColorCode(), "#2");
    // Enabling a background makes the colour that shows the layer's own, with the opacity used last.
    other->setHasBackground(true);
    EXPECT_EQ(other->value("backgroundcolor"), Value("#4455663F"));
    forgetWhatWasLastUsed();
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
        EXPECT_EQ(twin->hash(), document->hash());
        EXPECT_EQ(twin->documentURL(), document->documentURL());
        EXPECT_EQ(twin->scale(), std::nullopt);
        ASSERT_EQ(twin->layers().size(), 2U);
        EXPECT_NE(twin->layers()[0], document->layers()[0]);
        EXPECT_EQ(twin->layers()[0]->parent(), nullptr);
    }
    document->setFilepathCustomImage("/b.jpg");
    EXPECT_EQ(document->layers()[0]->filepathCustomImage(), "/b.jpg");
    EXPECT_EQ(copy->layers()[0]->filepathCustomImage(), std::nullopt);
    copy->layers()[0]->setKey("changed");
    EXPECT_FALSE(copy->isEqual(*document));
    EXPECT_EQ(document->layers()[0]->key(), "a");
}

// Claims to be a template and archives what it likes.
struct Impostor : base::Object {
    explicit Impostor(base::Dictionary content, std::string className = "VELM_Template")
        : values(std::move(content)), name(std::move(className)) {}
    std::string className() const override { return name; }
    std::optional<base::Dictionary> encoded() override { return values; }
    base::Dictionary values;
    std::string name;
};

TEST(VELM_Template, HostileArchivesAreRefusedOrHarmless) {
    const struct {
        base::Dictionary archived;
        bool isRead;
    } cases[] = {
        {{{"self.valuesDict", "text"}}, false},
        {{{"self.valuesDict", base::Array{1}}}, false},
        {{{"self.documentURL", "/a"}}, false},
        {{{"self.xmlString", 7}}, false},
        {{{"self.valuesDict",
           base::Dictionary{{"layers", base::Array{std::make_shared<Impostor>(base::Dictionary(), "Other")}}}}},
         false},
        {{}, true},
        {{{"self.valuesDict",
           base::Dictionary{{"layers", base::Array{7, base::Array(), base::Rect()}}, {"frame", "{{1,2},{3,4}}"}}}},
         true},
        {{{"self.valuesDict", base::Dictionary{{"layers", "none"}, {"string", base::Array()}, {"type", 16}}}}, true},
    };
    for (const auto& test : cases) {
        const auto archive = platform::data::archivedData(std::make_shared<Impostor>(test.archived));
        ASSERT_TRUE(archive);
        const auto read = platform::data::unarchived(*archive, {"VELM_Template"});
        EXPECT_EQ(read.has_value(), test.isRead) << Value(test.archived).description();
        if (!read) continue;
        const auto made = read->object<VELM_Template>();
        EXPECT_TRUE(made->layers().empty());
        EXPECT_EQ(made->frame(), Rect());
        EXPECT_FALSE(made->description().empty());
        EXPECT_TRUE(made->isEqual(*made->copyWithZone()));
    }
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
