#include "TemplateGrammar.h"

#include "base/MessageTemplate.h"
#include "base/Text.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <array>
#include <utility>

namespace grammar {
namespace {

void storeText(const Target& target, std::string_view key, const std::string& text) {
    target.setValue(key, text);
}

void storeYesNo(const Target& target, std::string_view key, const std::string& text) {
    target.setValue(key, base::stringForBOOL(base::boolValue(text)));
}

void storeType(const Target& target, std::string_view key, const std::string& text) {
    if (!base::equalIgnoringCase(text, "edittextbox")) return target.setValue(key, text);
    // A stored text, named by its number (which stands in a child), drawn as a stamp.
    target.setValue(key, "stamp");
    target.setValue(VELM_XML_Key_key, text);
}

void setFrame(const Target& target, const base::Rect& frame) {
    const base::Rect before = target.layer.frame();
    target.layer.setFrame(frame);
    target.frameWasSet(before);
}

void storeFrame(const Target& target, std::string_view, const std::string& text) {
    const base::Rect frame = base::rectFromString(text);
    if (!frame.isEmpty()) setFrame(target, frame);
}

template <double base::Rect::*coordinate>
void storeCoordinate(const Target& target, std::string_view, const std::string& text) {
    base::Rect frame = target.layer.frame();
    frame.*coordinate = base::doubleValue(text);
    setFrame(target, frame);
}

void storeCanvasSize(const Target& target, std::string_view, const std::string& text) {
    const base::Rect before = target.layer.frame();
    const base::Size size = base::sizeFromString(text);
    target.layer.setWidth(size.width);
    target.layer.setHeight(size.height);
    target.frameWasSet(before);
}

template <void (VELM_Template::*setSide)(double)>
void storeCanvasSide(const Target& target, std::string_view, const std::string& text) {
    const base::Rect before = target.layer.frame();
    (target.layer.*setSide)(base::doubleValue(text));
    target.frameWasSet(before);
}

void storePath(const Target& target, std::string_view key, const std::string& text) {
    target.setValue(key, text);
    // The order's first picture, as files call it that have no keys.
    if (base::equalIgnoringCase(text, "ImageFile")) target.setValue(VELM_XML_Key_key, "image1");
}

void storeStamp(const Target& target, std::string_view key, const std::string& text) {
    target.setValue(key, text);
    if (!target.layer.key()) target.setValue(VELM_XML_Key_key, text);
}

void storeString(const Target& target, std::string_view key, const std::string& text) {
    target.setValue(key, text);
    if (target.layer.isTypeStamp()) target.setValue(VELM_XML_Key_stampFormat, text);
}

constexpr bool asText = true;
constexpr bool asValue = false;

constexpr std::array bodyAttributeRules{
    Rule{"name", VELM_XML_Key_name, storeText},
    Rule{"id", VELM_XML_Key_name, storeText},
    Rule{"key", VELM_XML_Key_name, storeText},
    Rule{"size", VELM_XML_Key_frame, storeCanvasSize, Form::size},
};

constexpr std::array canvasAttributeRules{
    Rule{"size", VELM_XML_Key_frame, storeCanvasSize, Form::size},
    Rule{"width", VELM_XML_Key_frame, storeCanvasSide<&VELM_Template::setWidth>, Form::side},
    Rule{"height", VELM_XML_Key_frame, storeCanvasSide<&VELM_Template::setHeight>, Form::side},
};

void storeNothing(const Target&, std::string_view, const std::string&) {}

constexpr std::array canvasNodeAttributeRules{
    Rule{"name", "", storeNothing},
    Rule{"frame", VELM_XML_Key_frame, storeFrame, Form::rectangle},
};

constexpr std::array layerAttributeRules{
    Rule{"type", VELM_XML_Key_type, storeType},
    Rule{"key", VELM_XML_Key_key, storeText},
    Rule{"zindex", VELM_XML_Key_zindex, storeText, Form::integer},
    Rule{"frame", VELM_XML_Key_frame, storeFrame, Form::rectangle},
    Rule{"backgroundcolor", VELM_XML_Key_backgroundcolor, storeText},
    Rule{"gravity", VELM_XML_Key_gravity, storeText},
};

constexpr std::array cropAttributes{AttributeRule{"normal", VELM_XML_Key_normal}};
constexpr std::array colorAttributes{AttributeRule{"optional", VELM_XML_Key_textcolorOptional}};
constexpr std::array shadowColorAttributes{
    AttributeRule{"optional", VELM_XML_Key_textshadowOptional},
    AttributeRule{"blur", VELM_XML_Key_blur, Form::number, asValue},
    AttributeRule{"offset", VELM_XML_Key_offset, Form::point, asText},
};
constexpr std::array shadowAttributes{
    AttributeRule{"blur", VELM_XML_Key_blur, Form::number, asValue},
    AttributeRule{"color", VELM_XML_Key_shadowcolor},
    AttributeRule{"offset", VELM_XML_Key_offset, Form::point, asText},
};
constexpr std::array fontAttributes{AttributeRule{"name", ""}, AttributeRule{"size", "", Form::number, asText}};
constexpr std::array borderColorAttributes{
    AttributeRule{"width", VELM_XML_Key_borderWidth, Form::number, asValue},
    AttributeRule{"shadowcolor", VELM_XML_Key_borderShadowColor},
    AttributeRule{"blur", VELM_XML_Key_borderShadowBlur},
    AttributeRule{"clipsContent", VELM_XML_Key_clipsContent},
};
constexpr std::array borderAttributes{
    AttributeRule{"width", VELM_XML_Key_borderWidth, Form::number, asValue},
    AttributeRule{"color", VELM_XML_Key_bordercolor},
    AttributeRule{"clipsContent", VELM_XML_Key_clipsContent, Form::yesNo, asValue},
};
constexpr std::array backgroundAttributes{AttributeRule{"color", VELM_XML_Key_backgroundcolor}};

constexpr std::array childRules{
    Rule{"filepath", VELM_XML_Key_filepath, storePath},
    Rule{"filename", VELM_XML_Key_filename, storePath},
    Rule{"type", VELM_XML_Key_stamp, storeStamp},
    Rule{"hideExtension", VELM_XML_Key_hideExtension, storeText, Form::yesNo},
    Rule{"key", VELM_XML_Key_key, storeText},
    Rule{"gravity", VELM_XML_Key_gravity, storeText},
    Rule{"croprect", VELM_XML_Key_croprect, storeText, Form::rectangle, cropAttributes},
    Rule{"startx", VELM_XML_Key_frame, storeCoordinate<&base::Rect::x>, Form::number},
    Rule{"starty", VELM_XML_Key_frame, storeCoordinate<&base::Rect::y>, Form::number},
    Rule{"width", VELM_XML_Key_frame, storeCoordinate<&base::Rect::width>, Form::side},
    Rule{"height", VELM_XML_Key_frame, storeCoordinate<&base::Rect::height>, Form::side},
    Rule{"textAlignment", VELM_XML_Key_textAlignment, storeText},
    Rule{"overflowx", VELM_XML_Key_overflowx, storeText},
    Rule{"overflowy", VELM_XML_Key_overflowy, storeText},
    Rule{"string", VELM_XML_Key_string, storeString},
    Rule{"rotation", VELM_XML_Key_rotation, storeText, Form::number},
    Rule{"color", VELM_XML_Key_color, storeText, Form::text, colorAttributes},
    Rule{"textshadow", VELM_XML_Key_shadowcolor, storeText, Form::text, shadowColorAttributes},
    Rule{"shadowcolor", VELM_XML_Key_shadowcolor, storeText, Form::text, shadowColorAttributes},
    Rule{"shadow", VELM_XML_Key_shadowEnabled, storeYesNo, Form::yesNo, shadowAttributes},
    Rule{"font", VELM_XML_Key_font, storeText, Form::text, fontAttributes},
    Rule{"bordercolor", VELM_XML_Key_bordercolor, storeText, Form::text, borderColorAttributes},
    Rule{"border", VELM_XML_Key_borderEnabled, storeYesNo, Form::yesNo, borderAttributes},
    Rule{"background", VELM_XML_Key_backgroundEnabled, storeYesNo, Form::yesNo, backgroundAttributes},
};

} // namespace

void Target::setValue(std::string_view key, base::Value value) const {
    if (stored) {
        const base::Value& before = layer.value(key);
        stored->push_back({std::string(key), before && before != value});
    }
    layer.setValue(key, std::move(value));
}

void Target::frameWasSet(const base::Rect& before) const {
    if (stored && layer.frame() != before) stored->push_back({std::string(VELM_XML_Key_frame)});
}

std::span<const Rule> bodyAttributes() {
    return bodyAttributeRules;
}

std::span<const Rule> bodyChildren() {
    // Its sides, which a canvas has as attributes.
    return std::span<const Rule>(canvasAttributeRules).subspan(1);
}

std::span<const Rule> canvasAttributes() {
    return canvasAttributeRules;
}

std::span<const Rule> canvasNodeAttributes() {
    return canvasNodeAttributeRules;
}

std::span<const Rule> layerAttributes() {
    return layerAttributeRules;
}

std::span<const Rule> layerChildren() {
    return childRules;
}

void storeAttribute(const Target& target, const AttributeRule& rule, const std::string& spelledName,
                    const std::string& text) {
    const std::string_view key = rule.key.empty() ? std::string_view(spelledName) : rule.key;
    if (rule.isStoredAsText)
        target.setValue(key, text);
    else if (rule.form == Form::number)
        target.setValue(key, base::doubleValue(text));
    else
        storeYesNo(target, key, text);
}

} // namespace grammar
