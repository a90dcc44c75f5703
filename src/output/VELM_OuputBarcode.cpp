#include "output/VELM_OuputBarcode.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/ElementReading.h"
#include "platform/data/XMLDocument.h"

#include <array>

using platform::data::Findings;
using platform::data::XMLNode;

namespace {

// By their number.
constexpr std::array<std::string_view, 4> typeNames = {"aztec", "qrcode", "code128", "pdf417"};

} // namespace

VELM_OuputBarcode VELM_OuputBarcode::initWithNode(const XMLNode& element, Findings* report) {
    VELM_OuputBarcode barcode;
    output::forEachAttribute(element, report, [&](const std::string& name, const std::string& text) {
        if (name == "type") {
            for (std::size_t number = 0; number < typeNames.size(); ++number)
                if (text == typeNames[number]) barcode.type_ = static_cast<Type>(number);
            barcode.setValue(klaron_2dCodeKey_type, static_cast<int>(barcode.type_));
        } else if (name == "origin") {
            barcode.origin_ = base::pointFromString(text);
        } else if (name == "scale") {
            barcode.scale_ = base::doubleValue(text);
            barcode.setValue(klaron_2dCodeKey_scale, barcode.scale_);
        } else {
            return false;
        }
        return true;
    });
    output::forEachChildElement(element, report, [&](const XMLNode& child) {
        if (child.nameIs("message")) {
            barcode.setValue(klaron_2dCodeKey_message, child.stringValue());
        } else if (child.nameIs("origin")) {
            barcode.readOrigin(child, report);
        } else {
            base::log("Found unexpected XML element \"%@\" while parsing %@", child.name(), element.name());
            return false;
        }
        return true;
    });
    return barcode;
}

void VELM_OuputBarcode::readOrigin(const XMLNode& element, Findings* report) {
    origin_ = base::pointFromString(element.stringValue());
    output::forEachAttribute(element, report, [&](const std::string& name, const std::string& text) {
        if (name == "xflip")
            setValue(klaron_2dCodeKey_isFlippedX, base::boolValue(text));
        else if (name == "yflip")
            setValue(klaron_2dCodeKey_isFlippedY, base::boolValue(text));
        else
            return false;
        return true;
    });
}

void VELM_OuputBarcode::setOrigin(base::Point origin) {
    origin_ = origin;
    setValue(klaron_2dCodeKey_origin, base::stringFromPoint(origin));
}

void VELM_OuputBarcode::setValue(std::string_view key, base::Value value) {
    valuesDict_.insert_or_assign(std::string(key), std::move(value));
}
