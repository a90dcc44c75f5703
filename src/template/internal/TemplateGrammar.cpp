#include "TemplateGrammar.h"

#include "base/Text.h"
#include "template/VELM_Template.h"

#include <array>

namespace grammar {
namespace {

void storeText(VELM_Template& layer, std::string_view key, const std::string& text) {
    layer.setValue(key, text);
}

void storeYesNo(VELM_Template& layer, std::string_view key, const std::string& text) {
    layer.setValue(key, base::stringForBOOL(base::boolValue(text)));
}

void storeType(VELM_Template& layer, std::string_view key, const std::string& text) {
    if (!base::equalIgnoringCase(text, "edittextbox")) return layer.setValue(key, text);
    // A stored text, named by its number (which stands in a child), drawn as a stamp.
    layer.setValue(key, "stamp");
    layer.setValue(VELM_XML_Key_key, text);
}

void storeFrame(VELM_Template& layer, std::string_view, const std::string& text) {
    const base::Rect frame = base::rectFromString(text);
    if (!frame.isEmpty()) layer.setFrame(frame);
}

template <double base::Rect::*coordinate>
void storeCoordinate(VELM_Template& layer, std::string_view, const std::string& text) {
    base::Rect frame = layer.frame();
    frame.*coordinate = base::doubleValue(text);
    layer.setFrame(frame);
}

void storePath(VELM_Template& layer, std::string_view key, const std::string& text) {
    layer.setValue(key, text);
    // The order's first picture, as files call it that have no keys.
    if (base::equalIgnoringCase(text, "ImageFile")) layer.setValue(VELM_XML_Key_key, "image1");
}

void storeStamp(VELM_Template& layer, std::string_view key, const std::string& text) {
    layer.setValue(key, text);
    if (!layer.key()) layer.setValue(VELM_XML_Key_key, text);
}

void storeString(VELM_Template& layer, std::string_view key, const std::string& text) {
    layer.setValue(key, text);
    if (layer.isTypeStamp()) layer.setValue(VELM_XML_Key_stampFormat, text);
}

constexpr std::array layerAttributeRules{
    LayerAttributeRule{"type", VELM_XML_Key_type, storeType},
    LayerAttributeRule{"key", VELM_XML_Key_key, storeText},
    LayerAttributeRule{"zindex", VELM_XML_Key_zindex, storeText},
    LayerAttributeRule{"frame", VELM_XML_Key_frame, storeFrame},
    LayerAttributeRule{"backgroundcolor", VELM_XML_Key_backgroundcolor, storeText},
    LayerAttributeRule{"gravity", VELM_XML_Key_gravity, storeText},
};

constexpr std::array cropAttributes{AttributeRule{"normal", VELM_XML_Key_normal}};
constexpr std::array colorAttributes{AttributeRule{"optional", VELM_XML_Key_textcolorOptional}};
constexpr std::array shadowColorAttributes{
    AttributeRule{"optional", VELM_XML_Key_textshadowOptional},
    AttributeRule{"blur", VELM_XML_Key_blur, Form::number},
    AttributeRule{"offset", VELM_XML_Key_offset},
};
constexpr std::array shadowAttributes{
    AttributeRule{"blur", VELM_XML_Key_blur, Form::number},
    AttributeRule{"color", VELM_XML_Key_shadowcolor},
    AttributeRule{"offset", VELM_XML_Key_offset},
};
constexpr std::array fontAttributes{AttributeRule{"name", ""}, AttributeRule{"size", ""}};
constexpr std::array borderColorAttributes{
    AttributeRule{"width", VELM_XML_Key_borderWidth, Form::number},
    AttributeRule{"shadowcolor", VELM_XML_Key_borderShadowColor},
    AttributeRule{"blur", VELM_XML_Key_borderShadowBlur},
    AttributeRule{"clipsContent", VELM_XML_Key_clipsContent},
};
constexpr std::array borderAttributes{
    AttributeRule{"width", VELM_XML_Key_borderWidth, Form::number},
    AttributeRule{"color", VELM_XML_Key_bordercolor},
    AttributeRule{"clipsContent", VELM_XML_Key_clipsContent, Form::yesNo},
};
constexpr std::array backgroundAttributes{AttributeRule{"color", VELM_XML_Key_backgroundcolor}};

constexpr std::array childRules{
    ChildRule{"filepath", VELM_XML_Key_filepath, storePath, {}},
    ChildRule{"filename", VELM_XML_Key_filename, storePath, {}},
    ChildRule{"type", VELM_XML_Key_stamp, storeStamp, {}},
    ChildRule{"hideExtension", VELM_XML_Key_hideExtension, storeText, {}},
    ChildRule{"key", VELM_XML_Key_key, storeText, {}},
    ChildRule{"gravity", VELM_XML_Key_gravity, storeText, {}},
    ChildRule{"croprect", VELM_XML_Key_croprect, storeText, cropAttributes},
    ChildRule{"startx", VELM_XML_Key_frame, storeCoordinate<&base::Rect::x>, {}},
    ChildRule{"starty", VELM_XML_Key_frame, storeCoordinate<&base::Rect::y>, {}},
    ChildRule{"width", VELM_XML_Key_frame, storeCoordinate<&base::Rect::width>, {}},
    ChildRule{"height", VELM_XML_Key_frame, storeCoordinate<&base::Rect::height>, {}},
    ChildRule{"textAlignment", VELM_XML_Key_textAlignment, storeText, {}},
    ChildRule{"overflowx", VELM_XML_Key_overflowx, storeText, {}},
    ChildRule{"overflowy", VELM_XML_Key_overflowy, storeText, {}},
    ChildRule{"string", VELM_XML_Key_string, storeString, {}},
    ChildRule{"rotation", VELM_XML_Key_rotation, storeText, {}},
    ChildRule{"color", VELM_XML_Key_color, storeText, colorAttributes},
    ChildRule{"textshadow", VELM_XML_Key_shadowcolor, storeText, shadowColorAttributes},
    ChildRule{"shadowcolor", VELM_XML_Key_shadowcolor, storeText, shadowColorAttributes},
    ChildRule{"shadow", VELM_XML_Key_shadowEnabled, storeYesNo, shadowAttributes},
    ChildRule{"font", VELM_XML_Key_font, storeText, fontAttributes},
    ChildRule{"bordercolor", VELM_XML_Key_bordercolor, storeText, borderColorAttributes},
    ChildRule{"border", VELM_XML_Key_borderEnabled, storeYesNo, borderAttributes},
    ChildRule{"background", VELM_XML_Key_backgroundEnabled, storeYesNo, backgroundAttributes},
};

} // namespace

std::span<const LayerAttributeRule> layerAttributes() {
    return layerAttributeRules;
}

const ChildRule* childRule(std::string_view name) {
    for (const ChildRule& rule : childRules) {
        if (base::equalIgnoringCase(name, rule.name)) return &rule;
    }
    return nullptr;
}

void storeAttribute(VELM_Template& layer, const AttributeRule& rule, const std::string& spelledName,
                    const std::string& text) {
    const std::string_view key = rule.key.empty() ? std::string_view(spelledName) : rule.key;
    switch (rule.form) {
    case Form::text:
        return layer.setValue(key, text);
    case Form::number:
        return layer.setValue(key, base::doubleValue(text));
    case Form::yesNo:
        return storeYesNo(layer, key, text);
    }
}

} // namespace grammar
