// The document: equality, copies, type and geometry.
#include "template/VELM_Template.h"

#include "base/Log.h"
#include "base/Text.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/UserDefaults.h"
#include "platform/run/Queue.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <unordered_map>

using base::Rect;
using base::Value;
using platform::data::UserDefaults;

namespace {

// Templates come out of an archive by their class's name, in programs that have not made one yet as well.
const bool isRegistered = [] {
    platform::data::registerArchivedClass(
        {.name = "VELM_Template",
         .ancestors = {"VELM_XML_object", "NSObject"},
         .keys = {{"self.valuesDict", {"NSDictionary", "VELM_Template", "NSValue", "NSURL"}},
                  {"self.documentURL", {"NSURL"}},
                  {"self.xmlString", {"NSString"}}},
         .make = [](base::Dictionary values) { return VELM_Template::initWithCoder(values); }});
    return true;
}();

// Properties that change with something other than a key of their own.
constexpr std::array<std::string_view, 1> ofChangedValues{"hasUnsavedChanges"};
constexpr std::array<std::string_view, 2> ofChangedLayers{"changeCount", "hasUnsavedChanges"};
constexpr std::array<std::string_view, 2> ofChangedURL{"documentURL", "lastPathComponent"};

struct TypeName {
    std::string_view text;
    VELM_Template::LayerType type;
    bool isWritten = true;
};
constexpr std::array typeNames{
    TypeName{"canvas", VELM_Template::LayerTypeCanvas},
    TypeName{"container", VELM_Template::LayerTypeContainer},
    TypeName{"node", VELM_Template::LayerTypeContainer, false},
    TypeName{"image", VELM_Template::LayerTypeImage},
    TypeName{"graphic", VELM_Template::LayerTypeGraphic},
    TypeName{"textbox", VELM_Template::LayerTypeTextbox},
    TypeName{"stamp", VELM_Template::LayerTypeStamp},
};

} // namespace

VELM_Template::VELM_Template() = default;
VELM_Template::~VELM_Template() = default;

VELM_Template::Ref VELM_Template::init() {
    auto document = initForCopy();
    document->setWidth(1000);
    document->setHeight(1000);
    return document;
}

VELM_Template::Ref VELM_Template::initForCopy() {
    return std::make_shared<VELM_Template>();
}

base::Result<base::ObjectRef> VELM_Template::initWithCoder(const base::Dictionary& archived) {
    auto document = initForCopy();
    if (!document->takeArchived(archived))
        return base::failure(base::cocoaErrorDomain, 4864, "an archived template holds a value of the wrong kind");
    return document;
}

bool VELM_Template::isEqual(const base::Object& other) const {
    const auto* otherTemplate = dynamic_cast<const VELM_Template*>(&other);
    return otherTemplate && isEqualToTemplate(*otherTemplate);
}

bool VELM_Template::hasUnsavedChanges() const {
    return !lastSaved_ || !isEqualToTemplate(*lastSaved_);
}

// What an archive would make of a template: nested templates become their own copies, one that stands in two places
// stays one.
class VELM_Template::DeepCopy {
public:
    Ref of(VELM_Template& source) {
        if (const auto known = copies_.find(&source); known != copies_.end()) return known->second;
        const Ref copy = initForCopy();
        copies_.emplace(&source, copy);
        source.dropUncodedValues();
        copy->valuesDict() = source.valuesDict();
        for (auto& entry : copy->valuesDict())
            copyTemplates(entry.second);
        copy->setDocumentURL(source.documentURL());
        copy->setXMLString(source.xmlString());
        // What could not be read is missing in the copy too.
        copy->loadError_ = source.loadError_;
        return copy;
    }

private:
    void copyTemplates(Value& value) {
        if (auto* array = value.as<base::Array>()) {
            for (Value& member : *array)
                copyTemplates(member);
        } else if (auto* dictionary = value.as<base::Dictionary>()) {
            for (auto& entry : *dictionary)
                copyTemplates(entry.second);
        } else if (const auto nested = value.object<VELM_Template>()) {
            value = of(*nested);
        }
    }

    std::unordered_map<VELM_Template*, Ref> copies_;
};

VELM_Template::Ref VELM_Template::copyWithZone() {
    auto copy = DeepCopy().of(*this);
    copy->package_ = package();
    return copy;
}

std::shared_ptr<const PackageValues> VELM_Template::package() const {
    if (auto own = package_.lock()) return own;
    const Ref enclosing = parent();
    return enclosing ? enclosing->package() : nullptr;
}

// --- Storing

void VELM_Template::put(const TemplateKey& key, Value newValue, bool isCounted, std::string_view setting) {
    const Ref enclosing = isCounted ? parent() : nullptr; // an observer may let go of this template
    {
        const Announcement ofKey(*this, key.properties());
        const Announcement ofValues(*this, ofChangedValues);
        // A failure is in the log; the layer has its value all the same.
        if (!setting.empty()) (void)UserDefaults::standard().setObject(newValue, setting);
        setValue(key.name, std::move(newValue));
    }
    if (!enclosing) return;
    const Announcement ofCount(*enclosing, ofChangedLayers);
    ++enclosing->changeCount_;
}

void VELM_Template::setLastSaved(Ref lastSaved) {
    const Announcement announcement(*this, ofChangedValues);
    lastSaved_ = std::move(lastSaved);
}

void VELM_Template::setDocumentURL(std::optional<base::URL> url) {
    const Announcement announcement(*this, ofChangedURL);
    VELM_XML_object::setDocumentURL(std::move(url));
}

// --- Observation

platform::run::Observable& VELM_Template::observable() {
    if (!observable_) observable_ = std::make_unique<platform::run::Observable>();
    return *observable_;
}

VELM_Template::Announcement::Announcement(VELM_Template& changed, std::span<const std::string_view> properties)
    : properties_(properties) {
    if (!changed.observable_) return;
    changed_ = changed.shared_from_this(); // an observer may let go of it
    for (const std::string_view property : properties_)
        changed_->observable_->willChange(property);
}

VELM_Template::Announcement::~Announcement() {
    if (!changed_) return;
    for (const std::string_view property : properties_)
        changed_->observable_->didChange(property);
}

// --- Type

bool VELM_Template::typeIs(std::string_view text) const {
    return type() == text;
}

VELM_Template::LayerType VELM_Template::layerType() const {
    const auto text = type();
    const auto found = std::find_if(typeNames.begin(), typeNames.end(),
                                    [&](const TypeName& typeName) { return text == typeName.text; });
    return found == typeNames.end() ? LayerTypeUnknown : found->type;
}

std::optional<std::string_view> VELM_Template::stringForLayerType(LayerType type) {
    for (const TypeName& typeName : typeNames) {
        if (typeName.type == type && typeName.isWritten) return typeName.text;
    }
    return std::nullopt;
}

void VELM_Template::setLayerType(LayerType type) {
    put(VELM_XML_Key_type, stringForLayerType(type));
}

// --- Geometry

Rect VELM_Template::frameUnscaled() const {
    const auto* stored = value(VELM_XML_Key_frame).as<Rect>();
    return stored ? *stored : Rect();
}

Rect VELM_Template::frame() const {
    const Rect unscaled = frameUnscaled();
    const auto factor = scale();
    if (!factor) return unscaled;
    return {unscaled.x * *factor, unscaled.y * *factor, unscaled.width * *factor, unscaled.height * *factor};
}

void VELM_Template::setFrame(const Rect& frame) {
    const double divisor = scale() > 0.0 ? *scale() : 1;
    const Rect unscaled{frame.x / divisor, frame.y / divisor, frame.width / divisor, frame.height / divisor};
    if (unscaled.width < 0)
        base::log("ERROR: attempt to set negative width %f", unscaled.width);
    else if (unscaled.height < 0)
        base::log("ERROR: attempt to set negative height %f", unscaled.height);
    else
        put(VELM_XML_Key_frame, unscaled);
}

void VELM_Template::setX(double x) {
    Rect changed = frame();
    changed.x = x;
    setFrame(changed);
}

void VELM_Template::setY(double y) {
    Rect changed = frame();
    changed.y = y;
    setFrame(changed);
}

void VELM_Template::setWidth(double width) {
    if (width <= 0) return base::log("ERROR: attempt to set non-positive width %f", width);
    Rect changed = frame();
    changed.width = width;
    setFrame(changed);
}

void VELM_Template::setHeight(double height) {
    if (height <= 0) return base::log("ERROR: attempt to set non-positive height %f", height);
    Rect changed = frame();
    changed.height = height;
    setFrame(changed);
}

std::optional<double> VELM_Template::scaleForSize(base::Size size) const {
    const Rect unscaled = frameUnscaled();
    if (size.width <= 0 || size.height <= 0 || unscaled.width <= 0 || unscaled.height <= 0) return std::nullopt;
    return std::min(size.width / unscaled.width, size.height / unscaled.height);
}

base::Size VELM_Template::sizeScaledToSize(base::Size size) const {
    const base::Size unscaled = frameUnscaled().size();
    const double factor = scaleForSize(size).value_or(1);
    return {unscaled.width * factor, unscaled.height * factor};
}
