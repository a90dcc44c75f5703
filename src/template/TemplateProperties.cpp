// A template's properties by the names of their getters, for whoever shows and changes them without knowing each.
#include "template/VELM_Template.h"

#include <algorithm>
#include <limits>
#include <type_traits>

using base::Value;

namespace {

template <class Result>
Value valueOf(const Result& result) {
    if constexpr (std::is_enum_v<Result>)
        return static_cast<std::underlying_type_t<Result>>(result);
    else if constexpr (std::is_same_v<Result, std::vector<std::string_view>>)
        return base::Array(result.begin(), result.end());
    else
        return result;
}

// A setter's argument out of a value; none when the value is of a kind that it doesn't take.
template <class Argument>
std::optional<Argument> argumentOf(const Value& value) {
    if constexpr (std::is_same_v<Argument, Value>) return value;
    if constexpr (std::is_same_v<Argument, std::optional<std::string>>) {
        if (!value || value.stringValue()) return value.stringValue();
    } else if constexpr (std::is_same_v<Argument, base::Rect>) {
        if (const auto* rect = value.as<base::Rect>()) return *rect;
    } else if (value.isNumber() || value.isText()) {
        if constexpr (std::is_same_v<Argument, bool>) return value.boolValue();
        if constexpr (std::is_same_v<Argument, double>) return value.doubleValue();
        if constexpr (std::is_same_v<Argument, int>)
            return static_cast<int>(std::clamp<std::int64_t>(value.integerValue(), std::numeric_limits<int>::min(),
                                                             std::numeric_limits<int>::max()));
        if constexpr (std::is_same_v<Argument, VELM_Template::LayerType>)
            return static_cast<VELM_Template::LayerType>(value.integerValue());
    }
    return std::nullopt;
}

struct Property {
    std::string_view name;
    Value (*get)(const VELM_Template&);
    bool (*set)(VELM_Template&, const Value&) = nullptr; // null: read-only
};

template <auto getter>
Value get(const VELM_Template& layer) {
    return valueOf((layer.*getter)());
}

template <class Argument>
bool apply(VELM_Template& layer, void (VELM_Template::*setter)(Argument), const Value& value) {
    const auto argument = argumentOf<std::decay_t<Argument>>(value);
    if (argument) (layer.*setter)(*argument);
    return argument.has_value();
}

template <auto setter>
bool set(VELM_Template& layer, const Value& value) {
    return apply(layer, setter, value);
}

template <auto getter>
constexpr Property property(std::string_view name) {
    return {name, get<getter>};
}
template <auto getter, auto setter>
constexpr Property property(std::string_view name) {
    return {name, get<getter>, set<setter>};
}

using T = VELM_Template;

constexpr Property propertyTable[] = {
    property<&T::name>("name"),
    property<&T::type>("type"),
    property<&T::layerType, &T::setLayerType>("layerType"),
    property<&T::versionXML>("versionXML"),
    property<&T::lastPathComponent>("lastPathComponent"),
    property<&T::frame, &T::setFrame>("frame"),
    property<&T::frameUnscaled>("frameUnscaled"),
    property<&T::x, &T::setX>("x"),
    property<&T::y, &T::setY>("y"),
    property<&T::width, &T::setWidth>("width"),
    property<&T::height, &T::setHeight>("height"),
    property<&T::canvasSize>("canvasSize"),
    property<&T::zLevelString, &T::setZLevelString>("zLevelString"),
    property<&T::rotation, &T::setRotation>("rotation"),
    property<&T::scale>("scale"),
    property<&T::key, &T::setKey>("key"),
    property<&T::keyPlaceholder>("keyPlaceholder"),
    property<&T::graphicPath, &T::setGraphicPath>("graphicPath"),
    property<&T::filepathCustomImage, &T::setFilepathCustomImage>("filepathCustomImage"),
    property<&T::gravity, &T::setGravity>("gravity"),
    property<&T::hasCropRect>("hasCropRect"),
    property<&T::unflippedCropRect>("unflippedCropRect"),
    property<&T::isNormalizedCropRect>("isNormalizedCropRect"),
    property<&T::autorotate, &T::setAutorotate>("autorotate"),
    property<&T::stringValue, &T::setStringValue>("stringValue"),
    property<&T::stampFormats>("stampFormats"),
    property<&T::stampFormat, &T::setStampFormat>("stampFormat"),
    property<&T::hideExtension>("hideExtension"),
    property<&T::fontName, &T::setFontName>("fontName"),
    property<&T::fontSize, &T::setFontSize>("fontSize"),
    property<&T::textAlignmentString, &T::setTextAlignmentString>("textAlignmentString"),
    property<&T::textAlignment, &T::setTextAlignment>("textAlignment"),
    property<&T::textColorCode, &T::setTextColorCode>("textColorCode"),
    property<&T::textOpacity, &T::setTextOpacity>("textOpacity"),
    property<&T::hasShadow, &T::setHasShadow>("hasShadow"),
    property<&T::shadowColorCode, &T::setShadowColorCode>("shadowColorCode"),
    property<&T::shadowOpacity, &T::setShadowOpacity>("shadowOpacity"),
    property<&T::shadowBlur, &T::setShadowBlur>("shadowBlur"),
    property<&T::shadowOffsetX, &T::setShadowOffsetX>("shadowOffsetX"),
    property<&T::shadowOffsetY, &T::setShadowOffsetY>("shadowOffsetY"),
    property<&T::shadowOffset>("shadowOffset"),
    property<&T::hasBorder, &T::setHasBorder>("hasBorder"),
    property<&T::borderColorCode, &T::setBorderColorCode>("borderColorCode"),
    property<&T::borderOpacity, &T::setBorderOpacity>("borderOpacity"),
    property<&T::borderWidth, &T::setBorderWidth>("borderWidth"),
    property<&T::borderClipsContent, &T::setBorderClipsContent>("borderClipsContent"),
    property<&T::hasBackground, &T::setHasBackground>("hasBackground"),
    property<&T::backgroundColorCode, &T::setBackgroundColorCode>("backgroundColorCode"),
    property<&T::backgroundOpacity, &T::setBackgroundOpacity>("backgroundOpacity"),
    property<&T::changeCount>("changeCount"),
    property<&T::hasUnsavedChanges>("hasUnsavedChanges"),
    {VELM_XML_Key_layers, [](const T& layer) { return layer.value(VELM_XML_Key_layers); }},
};

const Property* propertyNamed(std::string_view name) {
    const auto* const found = std::find_if(std::begin(propertyTable), std::end(propertyTable),
                                           [&](const Property& candidate) { return candidate.name == name; });
    return found == std::end(propertyTable) ? nullptr : found;
}

} // namespace

Value VELM_Template::valueForKey(std::string_view property) const {
    const Property* known = propertyNamed(property);
    return known ? known->get(*this) : Value();
}

bool VELM_Template::setValueForKey(std::string_view property, const Value& value) {
    const Property* known = propertyNamed(property);
    return known && known->set && known->set(*this, value);
}
