// The layers of a document: their order, adding and deleting, and the selection.
#include "template/VELM_Template.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string>

using base::Value;

namespace {

constexpr std::array<std::string_view, 1> ofChangedSelection{"layersSelected"};
constexpr std::int64_t highestLevel = std::numeric_limits<std::int64_t>::max();

// The place of the first layer that equals the given one.
std::optional<std::size_t> placeOf(const VELM_Template& layer, const VELM_Template::Layers& layers) {
    const auto found = std::find_if(layers.begin(), layers.end(),
                                    [&](const VELM_Template::Ref& member) { return member && member->isEqual(layer); });
    if (found == layers.end()) return std::nullopt;
    return static_cast<std::size_t>(found - layers.begin());
}

} // namespace

VELM_Template::Layers VELM_Template::layers() {
    if (!value(VELM_XML_Key_layers).as<base::Array>()) setValue(VELM_XML_Key_layers, base::Array());
    return storedLayers();
}

VELM_Template::Layers VELM_Template::storedLayers() const {
    Layers layers;
    const auto* stored = value(VELM_XML_Key_layers).as<base::Array>();
    if (!stored) return layers;
    layers.reserve(stored->size());
    for (const Value& member : *stored) {
        if (auto layer = member.object<VELM_Template>()) layers.push_back(std::move(layer));
    }
    return layers;
}

void VELM_Template::setLayers(const Layers& layers) {
    put(VELM_XML_Key_layers, base::Array(layers.begin(), layers.end()));
}

void VELM_Template::sortLayers() {
    Layers sorted = layers();
    if (sorted.size() < 2) return;
    std::stable_sort(sorted.begin(), sorted.end(), [](const Ref& left, const Ref& right) {
        return left->value(VELM_XML_Key_zindex).integerValue() < right->value(VELM_XML_Key_zindex).integerValue();
    });
    const TemplateKey& key = *templateKey(VELM_XML_Key_layers);
    const Announcement announcement(*this, key.properties());
    setValue(key.name, base::Array(sorted.begin(), sorted.end()));
    // The last level to be set finds the new order: whoever hears of it sees the document as it stays.
    std::int64_t level = 0;
    for (const Ref& layer : sorted)
        layer->setZLevelString(std::to_string(level += 100));
}

std::vector<std::optional<std::string>> VELM_Template::zLevelStrings() {
    std::vector<std::optional<std::string>> levels;
    for (const Ref& layer : layers())
        levels.push_back(layer->zLevelString());
    return levels;
}

// --- Adding and deleting

void VELM_Template::addLayers(const Layers& layers) {
    Layers all = this->layers();
    for (const Ref& layer : layers) {
        if (!layer) continue;
        layer->setParent(shared_from_this());
        const auto level = all.empty() ? 0 : all.back()->value(VELM_XML_Key_zindex).integerValue();
        layer->setZLevelString(std::to_string(std::min(level, highestLevel - 1) + 1));
        all.push_back(layer);
    }
    setLayers(all);
    selectLayers({}, false);
    sortLayers();
    selectLayers(layers, false);
}

VELM_Template::Ref VELM_Template::addLayerOfType(LayerType type) {
    const Ref layer = initForCopy();
    layer->setLayerType(type);
    layer->setWidth(width() * 0.5);
    layer->setHeight(height() / 5);
    layer->setX(100);
    layer->setY(100);
    if (const auto word = stringForLayerType(type)) layer->setStringValue(std::string(*word));
    addLayer(layer);
    return layer;
}

void VELM_Template::deleteLayer(const Ref& layer) {
    if (layer) deleteLayers({layer});
}

void VELM_Template::deleteLayers(const Layers& layers) {
    Layers kept = this->layers();
    std::erase_if(kept, [&](const Ref& layer) { return placeOf(*layer, layers).has_value(); });
    setLayers(kept);
    selectLayers({}, false);
    sortLayers();
}

// --- The selection

void VELM_Template::setIndexSetLayersSelected(std::set<std::size_t> indices) {
    const Announcement announcement(*this, ofChangedSelection);
    indexSetLayersSelected_ = std::move(indices);
}

void VELM_Template::selectLayer(const Ref& layer, bool byExtendingSelection) {
    selectLayers(layer ? Layers{layer} : Layers(), byExtendingSelection);
}

void VELM_Template::selectLayers(const Layers& layers, bool byExtendingSelection) {
    auto indices = byExtendingSelection ? indexSetLayersSelected_ : std::set<std::size_t>();
    const Layers all = this->layers();
    for (const Ref& layer : layers) {
        const auto place = layer ? placeOf(*layer, all) : std::nullopt;
        if (place) indices.insert(*place);
    }
    setIndexSetLayersSelected(std::move(indices));
}

void VELM_Template::deselectLayer(const Ref& layer) {
    if (!layer) return;
    auto indices = indexSetLayersSelected_;
    const auto place = placeOf(*layer, layers());
    if (place && indices.erase(*place) > 0) setIndexSetLayersSelected(std::move(indices));
}

VELM_Template::Layers VELM_Template::layersSelected() {
    Layers selected;
    const Layers all = layers();
    for (const std::size_t index : indexSetLayersSelected_) {
        if (index < all.size()) selected.push_back(all[index]);
    }
    return selected;
}
