#include "template/TemplateKeys.h"

#include "folders/DefaultsKeys.h"

#include <type_traits>

namespace {

using Kind = TemplateKey::Kind;
using Rule = TemplateKey::Rule;
using Otherwise = TemplateKey::Otherwise;

constexpr TemplateKey keyTable[] = {
    {.name = VELM_XML_Key_name, .otherwise = Otherwise::derived, .propertyNames = {"name"}},
    {.name = VELM_XML_Key_type, .rule = Rule::own, .propertyNames = {"type", "layerType", "name"}},
    {.name = VELM_XML_Key_version, .propertyNames = {"versionXML"}},
    {.name = VELM_XML_Key_frame,
     .kind = Kind::rectangle,
     .rule = Rule::own,
     .otherwise = Otherwise::derived,
     .propertyNames = {"frame", "frameUnscaled", "x", "y", "width", "height", "canvasSize"}},
    {.name = VELM_XML_Key_zindex, .rule = Rule::asGiven, .propertyNames = {"zLevelString"}},
    {.name = VELM_XML_Key_key,
     .rule = Rule::asGiven,
     .propertyNames = {"key", "keyPlaceholder", "stampFormats", "stampFormat"}},
    {.name = VELM_XML_Key_gravity,
     .rule = Rule::asGiven,
     .otherwise = Otherwise::derived,
     .propertyNames = {"gravity"}},
    {.name = VELM_XML_Key_filepath,
     .kind = Kind::picture,
     .rule = Rule::whenDifferent,
     .otherwise = Otherwise::secondKey,
     .secondKey = VELM_XML_Key_filename,
     .propertyNames = {"graphicPath", "name"}},
    {.name = VELM_XML_Key_filename, .kind = Kind::picture, .propertyNames = {"graphicPath", "name"}},
    {.name = VELM_XML_Key_allimages,
     .rule = Rule::textOrCleared,
     .otherwise = Otherwise::parents,
     .propertyNames = {"filepathCustomImage"}},
    {.name = VELM_XML_Key_croprect, .kind = Kind::points, .propertyNames = {"hasCropRect", "unflippedCropRect"}},
    {.name = VELM_XML_Key_normal, .propertyNames = {"isNormalizedCropRect"}},
    {.name = VELM_XML_Key_rotation, .kind = Kind::number, .rule = Rule::asGiven, .propertyNames = {"rotation"}},
    {.name = VELM_XML_Key_autorotate,
     .kind = Kind::boolean,
     .rule = Rule::uncounted,
     .otherwise = Otherwise::fixed,
     .fixedDefault = true,
     .propertyNames = {"autorotate"}},
    {.name = VELM_XML_Key_string, .rule = Rule::nothingIsEmptyText, .propertyNames = {"stringValue", "name"}},
    {.name = VELM_XML_Key_stampFormat,
     .rule = Rule::asGiven,
     .otherwise = Otherwise::derived,
     .propertyNames = {"stampFormat"}},
    {.name = VELM_XML_Key_stamp},
    {.name = VELM_XML_Key_hideExtension,
     .otherwise = Otherwise::fixed,
     .fixedDefault = false,
     .propertyNames = {"hideExtension"}},
    // The system font's name, as the platform's fonts know it.
    {.name = VELM_XML_Key_font,
     .rule = Rule::nothingIsIgnored,
     .otherwise = Otherwise::fixed,
     .fixedDefault = std::string_view("Helvetica"),
     .propertyNames = {"fontName"}},
    {.name = VELM_XML_Key_size,
     .rule = Rule::nothingIsIgnored,
     .otherwise = Otherwise::fixed,
     .fixedDefault = std::string_view("48"),
     .propertyNames = {"fontSize"}},
    {.name = VELM_XML_Key_textAlignment,
     .rule = Rule::nothingIsEmptyText,
     .propertyNames = {"textAlignmentString", "textAlignment"}},
    {.name = VELM_XML_Key_color,
     .kind = Kind::colorCode,
     .rule = Rule::asGiven,
     .otherwise = Otherwise::fixed,
     .fixedDefault = std::string_view("#000000"),
     .lastUsed = key_velmTemplateLastUsedColorText,
     .lastUsedOpacity = key_velmTemplateLastUsedOpacityText,
     .propertyNames = {"textColorCode", "textOpacity"}},
    {.name = VELM_XML_Key_shadowcolor,
     .kind = Kind::colorCode,
     .rule = Rule::asGiven,
     .otherwise = Otherwise::secondKey,
     .fixedDefault = std::string_view("#00000055"),
     .secondKey = VELM_XML_Key_textshadow,
     .propertyNames = {"shadowColorCode", "shadowOpacity", "hasShadow"}},
    {.name = VELM_XML_Key_textshadow,
     .kind = Kind::colorCode,
     .propertyNames = {"shadowColorCode", "shadowOpacity", "hasShadow"}},
    {.name = VELM_XML_Key_shadowEnabled,
     .kind = Kind::yesNo,
     .rule = Rule::own,
     .otherwise = Otherwise::derived,
     .propertyNames = {"hasShadow"}},
    {.name = VELM_XML_Key_blur,
     .kind = Kind::number,
     .rule = Rule::own,
     .otherwise = Otherwise::fixed,
     .fixedDefault = 9.0,
     .propertyNames = {"shadowBlur"}},
    {.name = VELM_XML_Key_offset,
     .kind = Kind::points,
     .rule = Rule::own,
     .propertyNames = {"shadowOffsetX", "shadowOffsetY", "shadowOffset"}},
    {.name = VELM_XML_Key_bordercolor,
     .kind = Kind::colorCode,
     .rule = Rule::asGiven,
     .otherwise = Otherwise::lastUsed,
     .fixedDefault = std::string_view("#FFFFFF"),
     .lastUsed = key_velmTemplateLastUsedColorBorder,
     .lastUsedOpacity = key_velmTemplateLastUsedOpacityBorder,
     .propertyNames = {"borderColorCode", "borderOpacity", "hasBorder"}},
    {.name = VELM_XML_Key_borderWidth,
     .kind = Kind::number,
     .rule = Rule::asGiven,
     .otherwise = Otherwise::fixed,
     .fixedDefault = 5.0,
     .propertyNames = {"borderWidth"}},
    {.name = VELM_XML_Key_borderEnabled,
     .kind = Kind::yesNo,
     .rule = Rule::own,
     .otherwise = Otherwise::derived,
     .propertyNames = {"hasBorder"}},
    {.name = VELM_XML_Key_clipsContent,
     .kind = Kind::yesNo,
     .rule = Rule::asGiven,
     .otherwise = Otherwise::fixed,
     .fixedDefault = false,
     .propertyNames = {"borderClipsContent"}},
    {.name = VELM_XML_Key_borderShadowColor, .kind = Kind::colorCode},
    {.name = VELM_XML_Key_borderShadowBlur},
    {.name = VELM_XML_Key_backgroundcolor,
     .kind = Kind::colorCode,
     .rule = Rule::asGiven,
     .otherwise = Otherwise::lastUsed,
     .fixedDefault = std::string_view("#FFFFFF"),
     .lastUsed = key_velmTemplateLastUsedColorBackground,
     .lastUsedOpacity = key_velmTemplateLastUsedOpacityBackground,
     .propertyNames = {"backgroundColorCode", "backgroundOpacity", "hasBackground"}},
    {.name = VELM_XML_Key_backgroundEnabled,
     .kind = Kind::yesNo,
     .rule = Rule::own,
     .otherwise = Otherwise::derived,
     .propertyNames = {"hasBackground"}},
    {.name = VELM_XML_Key_textcolorOptional},
    {.name = VELM_XML_Key_textshadowOptional},
    {.name = VELM_XML_Key_overflowx},
    {.name = VELM_XML_Key_overflowy},
    {.name = VELM_XML_Key_layers,
     .kind = Kind::templates,
     .rule = Rule::own,
     .otherwise = Otherwise::emptyAndStored,
     .propertyNames = {"layers"}},
    {.name = VELM_XML_Key_preprocess, .kind = Kind::dictionary},
};

} // namespace

std::span<const TemplateKey> templateKeys() {
    return keyTable;
}

const TemplateKey* templateKey(std::string_view name) {
    const auto* const found = std::find_if(std::begin(keyTable), std::end(keyTable),
                                           [&](const TemplateKey& key) { return key.name == name; });
    return found == std::end(keyTable) ? nullptr : found;
}

base::Value TemplateKey::defaultValue() const {
    return std::visit(
        [](const auto& value) {
            if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::monostate>)
                return base::Value();
            else
                return base::Value(value);
        },
        fixedDefault);
}
