#include "TemplateListing.h"

#include "TextForms.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/data/UserDefaults.h"
#include "template/TemplateKeys.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace velmctl {

namespace {

using base::Value;

constexpr std::size_t indentationStep = 2;

// -- Values in force -------------------------------------------------------------------------------------------------

constexpr unsigned pictures =
    VELM_Template::LayerTypeContainer | VELM_Template::LayerTypeImage | VELM_Template::LayerTypeGraphic;
constexpr unsigned texts = VELM_Template::LayerTypeTextbox | VELM_Template::LayerTypeStamp;

/// A value that is in force whether it is stored or not.
struct InForce {
    std::string_view key;
    unsigned layerTypes; ///< That draw with it.
    Value (*value)(const VELM_Template& layer);
    bool (*counts)(const VELM_Template& layer) = nullptr; ///< Always, without one.
};

Value yesNo(bool truth) {
    return truth ? "yes" : "no";
}

bool hasShadow(const VELM_Template& layer) {
    return layer.hasShadow();
}
bool hasBorder(const VELM_Template& layer) {
    return layer.hasBorder();
}
bool hasBackground(const VELM_Template& layer) {
    return layer.hasBackground();
}

using Layer = const VELM_Template&;
const std::array valuesInForce{
    InForce{VELM_XML_Key_gravity, pictures, [](Layer layer) -> Value { return layer.gravity(); }},
    InForce{VELM_XML_Key_autorotate, VELM_Template::LayerTypeImage,
            [](Layer layer) { return yesNo(layer.autorotate()); }},
    InForce{VELM_XML_Key_font, texts, [](Layer layer) -> Value { return layer.fontName(); }},
    InForce{VELM_XML_Key_size, texts, [](Layer layer) -> Value { return layer.fontSize(); }},
    InForce{VELM_XML_Key_textAlignment, texts,
            [](Layer layer) -> Value {
                constexpr std::array<std::string_view, 4> words{"left", "right", "center", "justified"};
                return words.at(static_cast<std::size_t>(layer.textAlignment()));
            }},
    InForce{VELM_XML_Key_color, texts, [](Layer layer) -> Value { return layer.textColorCode(); }},
    InForce{VELM_XML_Key_shadowEnabled, pictures | texts, [](Layer layer) { return yesNo(layer.hasShadow()); }},
    InForce{VELM_XML_Key_shadowcolor, pictures | texts, [](Layer layer) -> Value { return layer.shadowColorCode(); },
            hasShadow},
    InForce{VELM_XML_Key_blur, pictures | texts, [](Layer layer) -> Value { return layer.shadowBlur(); }, hasShadow},
    InForce{VELM_XML_Key_offset, pictures | texts,
            [](Layer layer) -> Value {
                return base::stringFromPoint({layer.shadowOffsetX(), layer.shadowOffsetY()});
            },
            hasShadow},
    InForce{VELM_XML_Key_borderEnabled, pictures | texts, [](Layer layer) { return yesNo(layer.hasBorder()); }},
    InForce{VELM_XML_Key_bordercolor, pictures | texts, [](Layer layer) -> Value { return layer.borderColorCode(); },
            hasBorder},
    InForce{VELM_XML_Key_borderWidth, pictures | texts, [](Layer layer) -> Value { return layer.borderWidth(); },
            hasBorder},
    InForce{VELM_XML_Key_clipsContent, pictures | texts, [](Layer layer) { return yesNo(layer.borderClipsContent()); },
            hasBorder},
    InForce{VELM_XML_Key_backgroundEnabled, pictures | texts, [](Layer layer) { return yesNo(layer.hasBackground()); }},
    InForce{VELM_XML_Key_backgroundcolor, pictures | texts,
            [](Layer layer) -> Value { return layer.backgroundColorCode(); }, hasBackground},
};

// -- Lines -----------------------------------------------------------------------------------------------------------

struct Row {
    std::string key;
    Value value;
    std::string origin;
};

std::string fileAndLine(const TemplateReport::Place& place) {
    return base::lastPathComponent(place.file) + ":" + std::to_string(place.line);
}

std::string originText(const TemplateReport::Origin& origin) {
    using Kind = TemplateReport::Origin::Kind;
    const std::string place = fileAndLine(origin.place) + " ";
    switch (origin.kind) {
    case Kind::attribute:
        return place + "attribute " + origin.name + " of " + origin.element;
    case Kind::element:
        return place + "element " + origin.name;
    case Kind::node:
        return place + "node layer's " + origin.name;
    }
    return place;
}

/// Of a value that no file gives.
std::string originWithoutFile(std::string_view key, bool isStored) {
    if (isStored) return {}; // reading worked it out
    const TemplateKey* known = templateKey(key);
    const bool isLastUsed = known && known->otherwise == TemplateKey::Otherwise::lastUsed &&
                            platform::data::UserDefaults::standard().objectForKey(known->lastUsed);
    return isLastUsed ? "setting " + std::string(known->lastUsed) : "default";
}

/// What is stored or in force, in the order of the table of keys; behind it what else the file holds.
std::vector<Row> rowsOf(const VELM_Template& layer, const TemplateReport& report, bool isDocument) {
    std::vector<Row> rows;
    const auto add = [&](std::string_view key) {
        if (key == VELM_XML_Key_layers || key == VELM_XML_Key_type) return; // they stand in the tree and its headings
        const Value& stored = layer.value(key);
        const auto inForce = std::find_if(valuesInForce.begin(), valuesInForce.end(), [&](const InForce& candidate) {
            return candidate.key == key && (candidate.layerTypes & layer.layerType()) != 0 &&
                   (!candidate.counts || candidate.counts(layer));
        });
        // A document is drawn without the style of a layer.
        const bool isInForce = inForce != valuesInForce.end() && !isDocument;
        if (!stored && !isInForce) return;
        const auto* origin = report.originOf(layer, key);
        rows.push_back({std::string(key), isInForce ? inForce->value(layer) : stored,
                        origin ? originText(*origin) : originWithoutFile(key, static_cast<bool>(stored))});
    };
    for (const TemplateKey& key : templateKeys())
        add(key.name);
    for (const auto& [key, stored] : layer.valuesDict())
        if (!templateKey(key)) add(key);
    return rows;
}

std::size_t characterCount(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }));
}

/// Three columns; one long value does not push the origins of all others away.
void appendRows(std::vector<std::string>& lines, const std::vector<Row>& rows, std::size_t indentation) {
    constexpr std::size_t widestColumn = 40;
    Entries entries;
    for (const Row& row : rows)
        entries.emplace_back(row.key, row.value);
    std::vector<std::string> shown = treeLines(entries, indentation);
    std::size_t width = 0;
    for (const std::string& line : shown)
        if (const std::size_t count = characterCount(line); count <= indentation + 2 * widestColumn)
            width = std::max(width, count);
    for (std::size_t index = 0; index < shown.size(); ++index) {
        std::string& line = shown[index];
        if (!rows[index].origin.empty()) {
            line.append(width - std::min(width, characterCount(line)) + indentationStep, ' ');
            line += oneLine(rows[index].origin);
        }
        lines.push_back(std::move(line));
    }
}

void appendLayers(std::vector<std::string>& lines, VELM_Template& container, const TemplateReport& report,
                  std::size_t indentation) {
    std::size_t number = 0;
    for (const VELM_Template::Ref& layer : container.layers()) {
        std::string heading = std::string(indentation, ' ') + "layer " + std::to_string(++number) + ": " +
                              oneLine(layer->type().value_or("without a type"));
        if (const auto place = report.placeOf(*layer)) heading += "  (" + oneLine(fileAndLine(*place)) + ")";
        lines.push_back(std::move(heading));
        appendRows(lines, rowsOf(*layer, report, false), indentation + indentationStep);
        if (layer->layerType() == VELM_Template::LayerTypeContainer)
            appendLayers(lines, *layer, report, indentation + indentationStep);
    }
}

// -- JSON ------------------------------------------------------------------------------------------------------------

base::Array rectArray(const base::Rect& rect) {
    return {rect.x, rect.y, rect.width, rect.height};
}

base::Dictionary valuesOf(VELM_Template& layer);

base::Array layersOf(VELM_Template& container) {
    base::Array result;
    for (const VELM_Template::Ref& layer : container.layers())
        result.emplace_back(valuesOf(*layer));
    return result;
}

base::Dictionary valuesOf(VELM_Template& layer) {
    base::Dictionary result = layer.valuesDict();
    result.insert_or_assign(std::string(VELM_XML_Key_frame), rectArray(layer.frameUnscaled()));
    if (layer.layerType() == VELM_Template::LayerTypeContainer)
        result.insert_or_assign(std::string(VELM_XML_Key_layers), layersOf(layer));
    return result;
}

} // namespace

std::vector<std::string> templateLines(VELM_Template& document, const TemplateReport& report) {
    std::vector<std::string> lines{oneLine(document.documentURL().value_or(base::URL()).path())};
    appendRows(lines, rowsOf(document, report, true), indentationStep);
    appendLayers(lines, document, report, indentationStep);
    return lines;
}

Value templateValue(VELM_Template& document) {
    base::Dictionary result = valuesOf(document);
    const base::Size size = document.canvasSize();
    result.insert_or_assign("name", document.name());
    result.insert_or_assign("type", document.type());
    result.insert_or_assign("size", base::Array{size.width, size.height});
    return result;
}

} // namespace velmctl
