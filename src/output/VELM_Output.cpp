// Reading, the archived form and copies of an output, and what follows from its attributes.
#include "output/VELM_Output.h"

#include "base/Log.h"
#include "base/Text.h"
#include "folders/QueueHelpers.h"
#include "imaging/KLARON_Image.h"
#include "internal/ElementReading.h"
#include "output/VELM_OuputBarcode.h"
#include "platform/data/KeyedArchive.h"
#include "platform/data/XMLDocument.h"
#include "template/VELM_Template.h"

#include <algorithm>

using grammar::Form;
using platform::data::Findings;
using platform::data::XMLNode;

namespace {

// Whoever uses outputs can archive them and read them back.
[[maybe_unused]] const bool classesAreRegistered = [] {
    using platform::data::registerArchivedClass;
    const std::vector<std::string> text = {"NSString"};
    registerArchivedClass({"VELM_Output",
                           {"NSObject"},
                           {{"self.valuesDict", {"NSMutableDictionary"}},
                            {"self.outputNodes_m", {"NSMutableArray", "VELM_Output_node"}},
                            {"self.destinations_m", {"NSMutableArray", "VELM_Destination"}},
                            {"self.barcodes_m", {"NSMutableArray", "NSDictionary"}},
                            {"self.width", {}},
                            {"self.height", {}},
                            {"self.allImagesPath", text},
                            {"self.templates", {"NSDictionary", "VELM_Template"}}},
                           VELM_Output::initWithCoder});
    registerArchivedClass({"VELM_Output_node",
                           {"NSObject"},
                           {{"self.frames", {"NSMutableArray", "NSString"}},
                            {"self.name", text},
                            {"self.cropRectString", text},
                            {"self.offsetPointString", text},
                            {"self.gravity", text},
                            {"self.shadowColor", text},
                            {"self.shadowBlur", text},
                            {"self.backgroundColor", text},
                            {"self.tiffOrientation", {"NSNumber"}}},
                           VELM_Output_node::initWithCoder});
    registerArchivedClass({"VELM_Destination",
                           {"NSObject"},
                           {{"self.valuesDict", {"NSMutableDictionary"}}, {"self.kind", {}}},
                           VELM_Destination::initWithCoder});
    return true;
}();

} // namespace

std::shared_ptr<VELM_Output> VELM_Output::initWithNode(const XMLNode& element, Findings* report) {
    auto output = std::make_shared<VELM_Output>();
    output->readAttributes(element, report);
    output::forEachChildElement(element, report,
                                [&](const XMLNode& child) { return output->readChild(child, report); });
    return output;
}

void VELM_Output::readAttributes(const XMLNode& element, Findings* report) {
    output::forEachAttribute(element, report, [&](const std::string& name, const std::string& text) {
        if (name == "name") {
            valuesDict_.insert_or_assign("name", text);
        } else if (name == "size") {
            setSize(base::sizeFromString(text));
            output::noteForm(report, element, name, Form::size, text);
        } else if (name == "width" || name == "height") {
            (name == "width" ? width_ : height_) = base::doubleValue(text);
            output::noteForm(report, element, name, Form::side, text);
        } else {
            return false;
        }
        return true;
    });
}

bool VELM_Output::readChild(const XMLNode& child, Findings* report) {
    if (child.nameIs("destination")) {
        destinations_m_.push_back(VELM_Destination::initWithNode(child, report));
    } else if (child.nameIs("allimages")) {
        if (child.children().empty() || base::boolValue(child.stringValue()))
            valuesDict_.insert_or_assign("allimages", true);
        else
            output::noteForm(report, child, Form::yesNo);
    } else if (child.nameIs("whattoprint")) {
        if (base::equalIgnoringCase(child.stringValue(), "all"))
            valuesDict_.insert_or_assign("allimages", true);
        else
            output::note(report, child, "<%@> is not \"all\" and has no effect", child.name());
    } else if (child.nameIs("barcode")) {
        VELM_OuputBarcode barcode = VELM_OuputBarcode::initWithNode(child, report);
        barcode.setOrigin(KLARON_Image::normalizedPoint(barcode.origin(), size()));
        barcodes_m_.push_back(barcode.valuesDict());
    } else if (child.attributeValue("type") == "node") {
        outputNodes_m_.push_back(VELM_Output_node::initWithNode(child, report));
    } else {
        return false;
    }
    return true;
}

void VELM_Output::setSize(base::Size size) {
    width_ = size.width;
    height_ = size.height;
}

bool VELM_Output::allImages() const {
    return base::valueForKey(valuesDict_, "allimages").boolValue();
}

std::vector<std::string> VELM_Output::nodeNames() const {
    std::vector<std::string> names;
    for (const auto& node : outputNodes_m_)
        names.push_back(node->name());
    return names;
}

void VELM_Output::addDestinations(const base::Array& destinations) {
    observable_.change("destinations", [&] {
        for (const base::Value& member : destinations)
            if (auto destination = member.object<VELM_Destination>()) destinations_m_.push_back(std::move(destination));
    });
}

bool VELM_Output::isSimpleOutlet() const {
    return outputNodes_m_.size() == 1 && outputNodes_m_.front()->matchesOutputSize(size());
}

bool VELM_Output::ignoresTemplates() const {
    return std::ranges::all_of(destinations_m_, [](const auto& destination) { return destination->saveOriginal(); });
}

bool VELM_Output::drawsOnlyTemplate() const {
    return outputNodes_m_.empty() && templates_.size() == 1 && templates_.begin()->second;
}

int VELM_Output::imageScalingForGravity(const std::optional<std::string>& gravity) {
    if (gravity == kCAGravityResize) return 2;
    if (gravity == kCAGravityResizeAspect) return 1;
    return 0;
}

std::shared_ptr<VELM_Output> VELM_Output::copyWithZone() const {
    auto copy = std::make_shared<VELM_Output>();
    copy->valuesDict_ = valuesDict_;
    for (const auto& node : outputNodes_m_)
        copy->outputNodes_m_.push_back(std::make_shared<VELM_Output_node>(*node));
    for (const auto& destination : destinations_m_)
        copy->destinations_m_.push_back(std::make_shared<VELM_Destination>(*destination));
    copy->barcodes_m_ = barcodes_m_;
    copy->width_ = width_;
    copy->height_ = height_;
    copy->allImagesPath_ = allImagesPath_;
    copy->package_ = package_;
    copy->asset_ = asset_;
    for (const auto& entry : templates_) {
        if (!entry.second) continue;
        // On its own queue, because a run of another output may be filling it in right now.
        folders::performSyncOnQueue(entry.second->renderingQueue(),
                                    [&] { copy->templates_.emplace(entry.first, entry.second->copyWithZone()); });
    }
    return copy;
}

std::string VELM_Output::description() const {
    // The list's own form escapes what the nodes' texts hold: it is put back, and the quotes that it adds are taken
    // out.
    constexpr std::string_view marker = "\x01";
    std::string nodes = base::Value(base::Array(outputNodes_m_.begin(), outputNodes_m_.end())).description();
    nodes = base::replacingAll(nodes, "\\n", "\n\t");
    nodes = base::replacingAll(nodes, "\\\"", marker);
    nodes = base::replacingAll(nodes, "\"", "");
    nodes = base::replacingAll(nodes, marker, "\"");
    return base::message("%@ %@\nnodes:%@ destinations:%@", className(), base::stringFromSize(size()), nodes,
                         base::Value(base::Array(destinations_m_.begin(), destinations_m_.end())));
}

std::optional<base::Dictionary> VELM_Output::encoded() {
    base::Dictionary templates;
    for (const auto& [name, entry] : templates_)
        templates.emplace(name, entry);
    return base::Dictionary{
        {"self.valuesDict", valuesDict_},
        {"self.outputNodes_m", base::Array(outputNodes_m_.begin(), outputNodes_m_.end())},
        {"self.destinations_m", base::Array(destinations_m_.begin(), destinations_m_.end())},
        {"self.barcodes_m", barcodes_m_},
        {"self.width", width_},
        {"self.height", height_},
        {"self.allImagesPath", allImagesPath_},
        {"self.templates", std::move(templates)},
    };
}

namespace {

// The members of an archived list or dictionary that are of one class.
template <class Member>
std::vector<std::shared_ptr<Member>> membersOf(const base::Value& list) {
    std::vector<std::shared_ptr<Member>> members;
    if (const base::Array* array = list.as<base::Array>()) {
        for (const base::Value& value : *array)
            if (auto member = value.object<Member>()) members.push_back(std::move(member));
    }
    return members;
}

} // namespace

base::Result<base::ObjectRef> VELM_Output::initWithCoder(const base::Dictionary& values) {
    auto output = std::make_shared<VELM_Output>();
    if (const auto* dictionary = base::valueForKey(values, "self.valuesDict").as<base::Dictionary>())
        output->valuesDict_ = *dictionary;
    output->outputNodes_m_ = membersOf<VELM_Output_node>(base::valueForKey(values, "self.outputNodes_m"));
    output->destinations_m_ = membersOf<VELM_Destination>(base::valueForKey(values, "self.destinations_m"));
    if (const auto* barcodes = base::valueForKey(values, "self.barcodes_m").as<base::Array>())
        output->barcodes_m_ = *barcodes;
    output->width_ = base::valueForKey(values, "self.width").doubleValue();
    output->height_ = base::valueForKey(values, "self.height").doubleValue();
    output->allImagesPath_ = base::textForKey(values, "self.allImagesPath");
    if (const auto* templates = base::valueForKey(values, "self.templates").as<base::Dictionary>()) {
        for (const auto& [name, value] : *templates)
            if (auto entry = value.object<VELM_Template>()) output->templates_.emplace(name, std::move(entry));
    }
    return base::ObjectRef(output);
}
