// The reference element of a template, and the names under which keys are written.
#include "internal/TemplateFixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(TemplateWriting, RefersToItselfByNameAndFile) {
    const auto page = VELM_Template::initForCopy();
    EXPECT_EQ(page->asXMLElement()->xmlString(), "<template/>");
    page->setValue("name", "front & back");
    page->setDocumentURL(base::URL::fileURLWithPath("/t/Page 1.xml"));
    EXPECT_EQ(page->asXMLElement()->xmlString(),
              "<template id=\"front &amp; back\"><filepath>Page 1.xml</filepath></template>");
}

// What is written under a name is read back under the key that it was written from.
TEST(TemplateWriting, WritesNamesThatTheGrammarReads) {
    const struct {
        const char* key;
        const char* text;
        std::vector<const char*> lost; ///< Attributes that no rule of that child reads.
    } cases[] = {
        {"borderEnabled", "yes", {"borderShadowColor", "borderShadowBlur"}},
        {"bordercolor", "#000000", {}},
        {"shadowEnabled", "yes", {}},
        {"shadowcolor", "#111111", {}},
        {"backgroundEnabled", "yes", {}},
        {"croprect", "{{0, 0}, {1, 1}}", {}},
        {"font", "Courier", {}},
    };
    for (const auto& c : cases) {
        const auto child =
            platform::data::XMLNode::element(VELM_Template::translatedChildName(c.key), std::string_view(c.text));
        EXPECT_THAT(VELM_Template::attributesForChild(c.key), testing::Not(IsEmpty())) << c.key;
        for (const std::string_view key : VELM_Template::attributesForChild(c.key))
            child->addAttribute(VELM_Template::xmlAttributeTranslatedName(key, "7"));
        const auto layer = platform::data::XMLNode::element("layer");
        layer->addChild(child);
        const auto read = VELM_Template::initWithNode(*layer, std::nullopt);
        ASSERT_TRUE(read) << c.key;
        EXPECT_EQ(read->value(c.key), base::Value(c.text));
        for (const std::string_view key : VELM_Template::attributesForChild(c.key)) {
            const bool isLost = std::find(c.lost.begin(), c.lost.end(), key) != c.lost.end();
            EXPECT_EQ(read->value(key).isNothing(), isLost) << c.key << " " << key;
        }
    }
    EXPECT_EQ(VELM_Template::translatedAttributeValue("container"), "node");
    EXPECT_EQ(VELM_Template::translatedAttributeName("borderEnabled"), "enabled");
    EXPECT_EQ(VELM_Template::translatedChildName("other"), "other");
    EXPECT_THAT(VELM_Template::attributesForChild("other"), IsEmpty());
}

TEST(TemplateWriting, KnowsTheChildrenOfEachType) {
    const auto layer = VELM_Template::initForCopy();
    EXPECT_THAT(layer->availableChildren(), IsEmpty());
    layer->setLayerType(VELM_Template::LayerTypeGraphic);
    EXPECT_THAT(layer->availableChildren(),
                ElementsAre("key", "filepath", "gravity", "croprect", "shadowEnabled", "borderEnabled", "rotation"));
    layer->setLayerType(VELM_Template::LayerTypeStamp);
    EXPECT_THAT(layer->availableChildren(),
                ElementsAre("key", "string", "font", "textAlignment", "color", "backgroundEnabled", "shadowEnabled",
                            "borderEnabled", "hideExtension", "rotation"));
}

} // namespace
