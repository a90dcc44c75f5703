#include "output/VELM_Destination.h"

#include "base/Log.h"
#include "base/Text.h"
#include "internal/ElementReading.h"
#include "platform/data/XMLDocument.h"
#include "template/VELM_Template.h"

#include <algorithm>
#include <array>

using grammar::Form;
using platform::data::Findings;
using platform::data::XMLNode;

namespace {

struct ValueKey {
    std::string_view name;
    Form form = Form::text;
};

// The child elements of a destination, in the spelling under which their text is kept.
constexpr std::array valueKeys = {
    ValueKey{"filepath"},
    ValueKey{"filename"},
    ValueKey{"saveoriginalfileasis", Form::yesNo},
    ValueKey{"resize", Form::yesNo},
    ValueKey{"limitsize", Form::number},
    ValueKey{"printer"},
    ValueKey{"mediaType"},
    ValueKey{"cutInHalf", Form::yesNo},
    ValueKey{"uploadsite"},
    ValueKey{"model"},
    ValueKey{"queue"},
    ValueKey{"copies", Form::integer},
    ValueKey{"papersize"},
    ValueKey{"gravity", Form::gravity},
    ValueKey{"itempath"},
};

} // namespace

const char* VELM_Destination::textOfKind(Kind kind) {
    switch (kind) {
    case Kind::file:
        return "filepath";
    case Kind::printer:
        return "printer";
    case Kind::unknown:
        break;
    }
    return "unknown";
}

std::shared_ptr<VELM_Destination> VELM_Destination::initWithNode(const XMLNode& element, Findings* report) {
    auto destination = std::make_shared<VELM_Destination>();
    output::forEachAttribute(element, report, [&](const std::string& name, const std::string& text) {
        if (name == "type") {
            if (text == textOfKind(Kind::file)) destination->kind_ = Kind::file;
            if (text == textOfKind(Kind::printer)) destination->kind_ = Kind::printer;
        } else if (name == "name") {
            destination->setValue("queue", text);
        } else {
            return false;
        }
        return true;
    });
    if (destination->kind_ == Kind::unknown)
        output::note(report, element, "the type of <%@> is neither filepath nor printer: nothing is delivered to it",
                     element.name());
    output::forEachChildElement(element, report, [&](const XMLNode& child) {
        const auto key = std::ranges::find_if(valueKeys, [&](const ValueKey& candidate) {
            return base::equalIgnoringCase(candidate.name, child.name());
        });
        if (key == valueKeys.end()) {
            base::log("Found unexpected XML element \"%@\" while parsing %@", child.name(), element.name());
            return false;
        }
        destination->setValue(key->name, child.stringValue());
        output::noteForm(report, child, key->form);
        return true;
    });
    return destination;
}

std::shared_ptr<VELM_Destination> VELM_Destination::initWithFilepath(std::string_view filepath) {
    auto destination = std::make_shared<VELM_Destination>();
    destination->kind_ = Kind::file;
    destination->setValue("filepath", filepath);
    return destination;
}

std::shared_ptr<VELM_Destination> VELM_Destination::initWithPrinterModel(std::string_view model) {
    auto destination = std::make_shared<VELM_Destination>();
    destination->kind_ = Kind::printer;
    destination->setValue("model", model);
    return destination;
}

void VELM_Destination::setValue(std::string_view key, base::Value value) {
    valuesDict_.insert_or_assign(std::string(key), std::move(value));
}

std::string VELM_Destination::gravity() const {
    return std::string(VELM_Template::normalizedGravity(text("gravity")));
}

std::optional<std::string> VELM_Destination::text(std::string_view key) const {
    return base::textForKey(valuesDict_, key);
}

std::int64_t VELM_Destination::integer(std::string_view key) const {
    return base::valueForKey(valuesDict_, key).integerValue();
}

bool VELM_Destination::boolean(std::string_view key) const {
    return base::valueForKey(valuesDict_, key).boolValue();
}

std::string VELM_Destination::description() const {
    switch (kind_) {
    case Kind::file:
        return base::message("%@(%@):%@", className(), textOfKind(kind_), filepath());
    case Kind::printer:
        return base::message("%@(%@){queue:%@;model:%@;papersize:%@;copies:%ld;}", className(), textOfKind(kind_),
                             printerQueue(), printerModel(), printerPaperSize(), copies());
    case Kind::unknown:
        break;
    }
    return {};
}

std::optional<base::Dictionary> VELM_Destination::encoded() {
    return base::Dictionary{
        {"self.valuesDict", valuesDict_},
        {"self.kind", static_cast<std::int64_t>(kind_)},
    };
}

base::Result<base::ObjectRef> VELM_Destination::initWithCoder(const base::Dictionary& values) {
    auto destination = std::make_shared<VELM_Destination>();
    const std::int64_t kind = base::valueForKey(values, "self.kind").integerValue();
    if (kind == 1 || kind == 2) destination->kind_ = static_cast<Kind>(kind);
    if (const auto* dictionary = base::valueForKey(values, "self.valuesDict").as<base::Dictionary>())
        destination->valuesDict_ = *dictionary;
    return base::ObjectRef(destination);
}
