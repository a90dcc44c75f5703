// How a template is named and referred to in files that are written.
#include "platform/data/XMLDocument.h"
#include "template/ElementWriting.h"
#include "template/VELM_Template.h"

#include <array>

using platform::data::XMLNode;
using platform::data::XMLNodeRef;

namespace {

struct Translation {
    std::string_view key;
    std::string_view name;
};

constexpr std::array childNames{
    Translation{VELM_XML_Key_backgroundEnabled, "background"},
    Translation{VELM_XML_Key_borderEnabled, "border"},
    Translation{VELM_XML_Key_shadowEnabled, "shadow"},
};

constexpr std::array attributeNames{
    Translation{VELM_XML_Key_borderWidth, "width"},         Translation{VELM_XML_Key_borderShadowColor, "shadowcolor"},
    Translation{VELM_XML_Key_borderShadowBlur, "blur"},     Translation{VELM_XML_Key_bordercolor, "color"},
    Translation{VELM_XML_Key_borderEnabled, "enabled"},     Translation{VELM_XML_Key_shadowcolor, "color"},
    Translation{VELM_XML_Key_shadowEnabled, "enabled"},     Translation{VELM_XML_Key_backgroundcolor, "color"},
    Translation{VELM_XML_Key_backgroundEnabled, "enabled"},
};

constexpr std::array attributeValues{Translation{"container", "node"}};

template <std::size_t count>
std::string_view translated(const std::array<Translation, count>& table, std::string_view key) {
    for (const Translation& translation : table)
        if (translation.key == key) return translation.name;
    return key;
}

constexpr std::array<std::string_view, 1> fontAttributes{VELM_XML_Key_size};
constexpr std::array<std::string_view, 5> borderAttributes{VELM_XML_Key_clipsContent, VELM_XML_Key_bordercolor,
                                                           VELM_XML_Key_borderWidth, VELM_XML_Key_borderShadowColor,
                                                           VELM_XML_Key_borderShadowBlur};
constexpr std::array<std::string_view, 4> borderColorAttributes{
    VELM_XML_Key_borderWidth, VELM_XML_Key_clipsContent, VELM_XML_Key_borderShadowColor, VELM_XML_Key_borderShadowBlur};
constexpr std::array<std::string_view, 2> shadowColorAttributes{VELM_XML_Key_offset, VELM_XML_Key_blur};
constexpr std::array<std::string_view, 3> shadowAttributes{VELM_XML_Key_blur, VELM_XML_Key_shadowcolor,
                                                           VELM_XML_Key_offset};
constexpr std::array<std::string_view, 1> backgroundAttributes{VELM_XML_Key_backgroundcolor};
constexpr std::array<std::string_view, 1> cropAttributes{VELM_XML_Key_normal};

struct ChildAttributes {
    std::string_view key;
    std::span<const std::string_view> attributes;
};

constexpr std::array attributesOfChildren{
    ChildAttributes{VELM_XML_Key_font, fontAttributes},
    ChildAttributes{VELM_XML_Key_bordercolor, borderColorAttributes},
    ChildAttributes{VELM_XML_Key_borderEnabled, borderAttributes},
    ChildAttributes{VELM_XML_Key_shadowcolor, shadowColorAttributes},
    ChildAttributes{VELM_XML_Key_shadowEnabled, shadowAttributes},
    ChildAttributes{VELM_XML_Key_backgroundEnabled, backgroundAttributes},
    ChildAttributes{VELM_XML_Key_croprect, cropAttributes},
};

constexpr std::array<std::string_view, 7> pictureChildren{
    VELM_XML_Key_key,           VELM_XML_Key_filepath,      VELM_XML_Key_gravity,  VELM_XML_Key_croprect,
    VELM_XML_Key_shadowEnabled, VELM_XML_Key_borderEnabled, VELM_XML_Key_rotation,
};
constexpr std::array<std::string_view, 10> textChildren{
    VELM_XML_Key_key,           VELM_XML_Key_string,        VELM_XML_Key_font,
    VELM_XML_Key_textAlignment, VELM_XML_Key_color,         VELM_XML_Key_backgroundEnabled,
    VELM_XML_Key_shadowEnabled, VELM_XML_Key_borderEnabled, VELM_XML_Key_hideExtension,
    VELM_XML_Key_rotation,
};

} // namespace

std::string_view VELM_Template::translatedChildName(std::string_view key) {
    return translated(childNames, key);
}

std::string_view VELM_Template::translatedAttributeName(std::string_view key) {
    return translated(attributeNames, key);
}

std::string_view VELM_Template::translatedAttributeValue(std::string_view value) {
    return translated(attributeValues, value);
}

XMLNodeRef VELM_Template::xmlAttributeTranslatedName(std::string_view key, std::string_view value) {
    return XMLNode::attribute(translatedAttributeName(key), translatedAttributeValue(value));
}

std::span<const std::string_view> VELM_Template::attributesForChild(std::string_view key) {
    for (const ChildAttributes& child : attributesOfChildren)
        if (child.key == key) return child.attributes;
    return {};
}

std::span<const std::string_view> VELM_Template::availableChildren() const {
    switch (layerType()) {
    case LayerTypeContainer:
    case LayerTypeImage:
    case LayerTypeGraphic:
        return pictureChildren;
    case LayerTypeTextbox:
    case LayerTypeStamp:
        return textChildren;
    case LayerTypeUnknown:
    case LayerTypeCanvas:
        break;
    }
    return {};
}

std::vector<std::pair<std::string, std::string>> VELM_Template::xmlElementAttributes() const {
    const auto ownName = name();
    if (!ownName) return {};
    return {{"id", *ownName}};
}

std::vector<XMLNodeRef> VELM_Template::xmlElementChildren() const {
    const auto fileName = lastPathComponent();
    if (!fileName) return {};
    return {XMLNode::element("filepath", *fileName)};
}

XMLNodeRef VELM_Template::asXMLElement() const {
    return xmlElement(xmlElementName, xmlElementAttributes(), xmlElementChildren());
}
