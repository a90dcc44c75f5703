// Adding, deleting and selecting layers.
#include "internal/TemplateFixture.h"

using namespace template_testing;
using base::Rect;
using base::Value;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

VELM_Template::Ref layerNamed(std::string_view key) {
    const auto layer = VELM_Template::initForCopy();
    layer->setKey(key);
    return layer;
}

// The layers by key and level, the selected ones in brackets.
std::string dump(VELM_Template& document) {
    std::string text;
    const auto layers = document.layers();
    for (std::size_t i = 0; i < layers.size(); ++i) {
        const bool isSelected = document.indexSetLayersSelected().contains(i);
        text += base::message(isSelected ? "[%@ %@] " : "%@ %@ ", layers[i]->key(), layers[i]->zLevelString());
    }
    return text;
}

TEST(TemplateLayers, AreSortedByLevelAndRenumbered) {
    const auto document = templateFrom("<layout><layer key='front' zindex='10'/><layer key='twin1' zindex='2'/>"
                                       "<layer key='none'/><layer key='twin2' zindex='2'/>"
                                       "<layer key='negative' zindex='-1'/></layout>");
    EXPECT_EQ(dump(*document), "negative 100 none 200 twin1 300 twin2 400 front 500 ");
    EXPECT_EQ(dump(*templateFrom("<layout><layer key='only' zindex='7'/></layout>")), "only 7 ");
}

TEST(TemplateLayers, AddedLayersLieInFrontAndAreSelected) {
    const auto document = VELM_Template::init();
    std::string told;
    const auto observation = document->observable().observe("layers", [&] { told += dump(*document) + "| "; });
    document->addLayer(layerNamed("a"));
    EXPECT_EQ(dump(*document), "[a 1] "); // a single layer is not renumbered
    document->addLayers({layerNamed("b"), nullptr, layerNamed("c")});
    EXPECT_EQ(dump(*document), "a 100 [b 200] [c 300] ");
    EXPECT_EQ(told, "a 1 | [a 1] b 2 c 3 | a 100 b 200 c 300 | ");
    const auto topmost = templateFrom("<layout><layer key='top' zindex='9223372036854775807'/></layout>");
    topmost->addLayer(layerNamed("a"));
    EXPECT_EQ(dump(*topmost), "top 100 [a 200] ");
    EXPECT_EQ(document->layers()[2]->parent(), document);
}

TEST(TemplateLayers, DeletingGoesByEquality) {
    const auto document = VELM_Template::init();
    const auto twin = layerNamed("a");
    document->setLayers({twin, layerNamed("a"), layerNamed("b"), layerNamed("c")});
    document->selectLayer(twin, false);
    document->deleteLayer(nullptr);
    document->deleteLayer(layerNamed("not there"));
    EXPECT_EQ(dump(*document), "a 100 a 200 b 300 c 400 ");
    document->layers()[1]->setZLevelString("100"); // twins again
    document->deleteLayer(twin);
    EXPECT_EQ(dump(*document), "b 100 c 200 ");
}

TEST(TemplateLayers, TheSelectionHoldsPlaces) {
    const auto document = templateFrom("<layout><layer key='a'/><layer key='b'/><layer key='c'/></layout>");
    const auto layers = document->layers();
    int will = 0;
    int did = 0;
    const auto observation = document->observable().observe(
        "layersSelected", [&] { ++did; }, [&] { ++will; });

    document->selectLayers({layers[2], layers[0]->copyWithZone(), layerNamed("not there")}, false);
    EXPECT_THAT(document->layersSelected(), ElementsAre(layers[0], layers[2]));
    document->selectLayer(layers[1], true);
    document->deselectLayer(layers[0]);
    EXPECT_EQ(dump(*document), "a 100 [b 200] [c 300] ");
    EXPECT_EQ(did, 3);
    EXPECT_EQ(will, 3);
    document->deselectLayer(layers[0]);
    document->deselectLayer(nullptr);
    EXPECT_EQ(did, 3);

    document->setLayers({layers[0], layers[1]}); // the places stay, beyond the end they mean nothing
    EXPECT_THAT(document->layersSelected(), ElementsAre(layers[1]));
    document->selectLayer(nullptr, true);
    EXPECT_THAT(document->layersSelected(), ElementsAre(layers[1]));
    document->selectLayer(nullptr, false);
    EXPECT_THAT(document->layersSelected(), IsEmpty());
}

} // namespace
