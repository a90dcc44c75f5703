// What a template prints as in the log.
#include "template/VELM_Template.h"

#include "base/MessageTemplate.h"

using base::Value;

std::string VELM_Template::descriptionForObject(const Value& object) {
    std::string text;
    if (const auto* dictionary = object.as<base::Dictionary>()) {
        for (const auto& [key, member] : *dictionary)
            text += base::message("\n  %@ = %@", key, descriptionForObject(member));
    } else if (const auto* array = object.as<base::Array>()) {
        for (const Value& member : *array)
            text += base::message("\n  %@", descriptionForObject(member));
    } else {
        return object.description();
    }
    return text.empty() ? text : text.substr(1);
}

std::string VELM_Template::typeString() const {
    switch (layerType()) {
    case LayerTypeImage:
    case LayerTypeGraphic: {
        const Value& path = graphicPath();
        return base::message("->(%@;gravity->(%@))", path ? path.description() : "no filename set!",
                             value(VELM_XML_Key_gravity));
    }
    case LayerTypeTextbox:
    case LayerTypeStamp:
        return base::message("->('%@';font->(%@:%@);textcolor->(%@);shadow->(%@; x:%f; y:%f; blur:%@))", stringValue(),
                             fontName(), fontSize(), textColorCode(), shadowColorCode(), shadowOffsetX(),
                             shadowOffsetY(), Value(shadowBlur()));
    default:
        return {};
    }
}

std::string VELM_Template::description() const {
    const std::string place = base::stringFromRect(frame());
    if (isTypeContainer())
        return base::message("%@\n  frame = %@;\n%@", className(), place, descriptionForObject(valuesDict()));
    const auto withColon = [](const std::optional<std::string>& text) { return text ? *text + ":" : std::string(); };
    return base::message("%@ %@:%@%@%@", type(), place, withColon(name()), withColon(textOf(VELM_XML_Key_size)),
                         typeString());
}
